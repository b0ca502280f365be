// What can be said about IDL by looking at its text alone.
#ifndef QDDSC_SRC_IDL_SOURCE_H
#define QDDSC_SRC_IDL_SOURCE_H

#include "idl_tree.h"
#include "qddsc/common.h"

namespace qddsc {

// Refuses preprocessor lines, which nobody would act on.
bool checkSource(const char *text, const char *sourceName, DDS_ErrorText *error);

// Words a parser's complaint for people: the offending word is looked up in the text.
void explainProblem(const char *text, const char *sourceName, const QIdlProblem &problem,
                    DDS_ErrorText *error);

} // namespace qddsc

#endif
