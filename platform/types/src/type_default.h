// Defaults of members: from text to CDR and back. May throw std::bad_alloc.
#ifndef QDDSC_SRC_TYPE_DEFAULT_H
#define QDDSC_SRC_TYPE_DEFAULT_H

#include "type_code.h"

namespace qddsc {

/// Encodes a value as DDS_MemberDefault has it; no bytes for the type's own default. `type` is
/// resolved. False with `error` filled.
bool encodeDefault(const DDS_TypeCode &type, const char *value, std::string &bytes,
                   DDS_ErrorText *error);

/// The value as encodeDefault() takes it.
std::string defaultAsText(const DDS_TypeCode &type, const std::string &bytes);

/// The value as IDL writes it: 5, TRUE, "text", GREEN.
std::string defaultAsIdl(const DDS_TypeCode &type, const std::string &bytes);

} // namespace qddsc

#endif
