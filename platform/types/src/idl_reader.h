// Turns IDL text into type codes. May throw std::bad_alloc.
#ifndef QDDSC_SRC_IDL_READER_H
#define QDDSC_SRC_IDL_READER_H

#include <vector>

#include "qddsc/type_code.h"

namespace qddsc {

/// Appends the named types of a text in the order of their declaration; false with `error` filled.
bool readIdl(const char *text, const char *sourceName, std::vector<const DDS_TypeCode *> &types,
             DDS_ErrorText *error);

} // namespace qddsc

#endif
