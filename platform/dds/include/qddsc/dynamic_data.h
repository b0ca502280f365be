/* Dynamic data: a sample of any type code, kept as one buffer of plain CDR (XCDR1, little endian, no
 * encapsulation header), as it goes on the wire. A sample may be used by one thread at a time. */
#ifndef QDDSC_DYNAMIC_DATA_H
#define QDDSC_DYNAMIC_DATA_H

#include <stddef.h>
#include <stdint.h>

#include "qddsc/common.h"
#include "qddsc/type_code.h"

QDDSC_BEGIN

/** How a sample's buffer is sized. */
struct DDS_DynamicDataProperty_t {
    /** Bytes set aside at creation beyond what an all-default sample needs; at least 0. */
    int32_t buffer_initial_size;
    /** Most bytes a sample may take; 0 or less is no limit but that of CDR (2^31 - 1). */
    int32_t buffer_max_size;
};

/** No extra bytes, no limit. */
extern QDDSC_API const struct DDS_DynamicDataProperty_t DDS_DYNAMIC_DATA_PROPERTY_DEFAULT;

typedef struct DDS_DynamicData DDS_DynamicData;

/**
 * Makes a sample with every member at its default (0, "", first enumerator, empty sequence).
 *
 * @param type     a struct, or an alias of one.
 * @param property null stands for the default.
 * @return owned by the caller (DDS_DynamicData_delete); null when memory is short or the type is
 *         null or not a struct.
 */
QDDSC_API DDS_DynamicData *DDS_DynamicData_new(
    const DDS_TypeCode *type, const struct DDS_DynamicDataProperty_t *property) QDDSC_NOEXCEPT;

/** Deletes a sample; null does nothing. */
QDDSC_API void DDS_DynamicData_delete(DDS_DynamicData *self) QDDSC_NOEXCEPT;

/** The type given at creation. */
QDDSC_API const DDS_TypeCode *DDS_DynamicData_get_type(const DDS_DynamicData *self) QDDSC_NOEXCEPT;

/** Sets every member back to its default; keeps the memory. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_clear(DDS_DynamicData *self) QDDSC_NOEXCEPT;

/** Copies a sample of the same type (else DDS_RETCODE_BAD_PARAMETER). */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_copy(DDS_DynamicData *self,
                                                const DDS_DynamicData *source) QDDSC_NOEXCEPT;

/** The sample's bytes, valid until the sample is next changed or deleted. */
QDDSC_API const uint8_t *DDS_DynamicData_get_cdr(const DDS_DynamicData *self,
                                                 size_t *length) QDDSC_NOEXCEPT;

/**
 * Replaces the sample by the CDR bytes of a sample of the same type, after walking them whole: every
 * length must lie inside the buffer, every string end in its NUL, every enum value be an
 * enumerator, every bound be kept. On failure the sample is unchanged.
 */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_cdr(DDS_DynamicData *self, const uint8_t *bytes,
                                                   size_t length,
                                                   struct DDS_ErrorText *error) QDDSC_NOEXCEPT;

/**
 * Gives room for `length` bytes that the caller fills at once with the CDR of a sample that another
 * binding of this platform made of the same type (which is why they are not walked again: accessors
 * check every length against the buffer all the same).
 *
 * @return the place to fill, or null when memory is short or the limit is passed: then the sample
 *         is unchanged.
 */
QDDSC_API uint8_t *DDS_DynamicData_loan_cdr(DDS_DynamicData *self, size_t length) QDDSC_NOEXCEPT;

/* ACCESSORS */

QDDSC_END

#endif
