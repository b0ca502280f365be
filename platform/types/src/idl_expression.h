// The expressions behind #if. Failures are thrown as sentences.
#ifndef QDDSC_SRC_IDL_EXPRESSION_H
#define QDDSC_SRC_IDL_EXPRESSION_H

#include <cstdint>
#include <string>

namespace qddsc {

/// What C's integer expression comes to, all macros replaced.
std::int64_t evaluateIdlExpression(const std::string &text);

} // namespace qddsc

#endif
