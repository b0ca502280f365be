// Types of keys.
#ifndef QDDSDOMAIN_SRC_WIRE_KEY_TYPE_H
#define QDDSDOMAIN_SRC_WIRE_KEY_TYPE_H

#include "qddsc/type_code.h"
#include "qddscdr/transcode.h"

namespace qddsdomain {

/// The keyed struct without what is not key, and nested structs likewise; extensibility is kept.
/// Null, with the error filled, when memory is short.
const DDS_TypeCode *makeKeyType(const DDS_TypeCode *structure, DDS_ErrorText *error);

/// Whether no value of the type takes more than `size` bytes in that form.
bool fitsAlways(const qddscdr::Type &type, const qddscdr::Form &form, uint64_t size);

} // namespace qddsdomain

#endif
