// For the sibling libraries: the plain record of a type code, with which samples are checked and
// rewritten. A type code itself is opaque outside of this library.
#ifndef QDDSC_TYPE_RECORD_H
#define QDDSC_TYPE_RECORD_H

#include "qddsc/type_code.h"
#include "qddscdr/type.h"

QDDSC_BEGIN

/** The record of the resolved type; never null. Lives as long as the process. `self` is not null.
 */
QDDSC_API const qddscdr::Type *DDS_TypeCode_get_record(const DDS_TypeCode *self) QDDSC_NOEXCEPT;

QDDSC_END

#endif
