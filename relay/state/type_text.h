// Types as texts, to be kept beside samples: a type code is of no use in another process.
#ifndef FERRY_STATE_TYPE_TEXT_H
#define FERRY_STATE_TYPE_TEXT_H

#include <string>

#include "qddsc/type_code.h"

namespace ferry {

/// The scoped name, and the IDL of the type with all that it uses; "" for null.
std::string typeName(const DDS_TypeCode *type);
std::string typeText(const DDS_TypeCode *type);

/// In what a type differs from the one of that name in the IDL text, for people, or that the text
/// gives no answer; "" if samples of the one are samples of the other.
std::string typeDifference(const DDS_TypeCode *type, const std::string &name,
                           const std::string &idl);

} // namespace ferry

#endif
