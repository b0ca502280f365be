/* Dynamic data: a sample of any type code, kept as one buffer of plain CDR (XCDR1, little endian,
 * no encapsulation header), as it goes on the wire. A sample may be used by one thread at a time.
 */
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
 * @return owned by the caller (DDS_DynamicData_delete); null when memory is short, the type is null
 *         or not a struct, the initial size is negative, or a default sample passes the limit.
 */
QDDSC_API DDS_DynamicData *
DDS_DynamicData_new(const DDS_TypeCode *type,
                    const struct DDS_DynamicDataProperty_t *property) QDDSC_NOEXCEPT;

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
 * Replaces the sample by the CDR bytes of a sample of the same type, after walking them whole:
 * every length must lie inside the buffer, every string end in its NUL, every enum value be an
 * enumerator, every boolean 0 or 1, every bound be kept. Padding is set to zero, so that equal
 * samples have equal bytes. Up to 3 bytes behind the sample, the padding of a message's payload,
 * are dropped; more are an error. On failure the sample is unchanged.
 *
 * @return DDS_RETCODE_ERROR when the bytes are not a sample of the type; DDS_RETCODE_BAD_PARAMETER
 *         when `bytes` is null; DDS_RETCODE_OUT_OF_RESOURCES. `error` (may be null) says what and
 *         where.
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

/* Values by path.
 *
 * A path is made of member names and indices: "id", "position.lat", "readings[3]", "tags[0].name",
 * "grid[1][2]" (all indices of an array, each counted from 0). Members of a base are named like
 * those of the struct itself. Aliases are seen through; apart from that the kind has to be exactly
 * the function's.
 *
 * All functions return DDS_RETCODE_OK or, with sample and `value` unchanged:
 * - DDS_RETCODE_BAD_PARAMETER: no such path in the type, another kind, or a value that the type
 * does not allow (bound, enumerator, boolean);
 * - DDS_RETCODE_NO_DATA: an index past the end of its sequence or array;
 * - DDS_RETCODE_ERROR: the buffer is malformed, possible only after DDS_DynamicData_loan_cdr;
 * - DDS_RETCODE_OUT_OF_RESOURCES: memory is short or the size limit is passed.
 *
 * `self` and `value` must not be null. Getting never allocates. Setting allocates when the sample
 * outgrows its buffer, and when a change of size needs more working memory than any before; both
 * are kept. */

/** DDS_TK_BOOLEAN; 0 or 1. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_boolean(const DDS_DynamicData *self,
                                                       const char *path,
                                                       int32_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_boolean(DDS_DynamicData *self, const char *path,
                                                       int32_t value) QDDSC_NOEXCEPT;

/** DDS_TK_CHAR. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_char(const DDS_DynamicData *self, const char *path,
                                                    char *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_char(DDS_DynamicData *self, const char *path,
                                                    char value) QDDSC_NOEXCEPT;

/** DDS_TK_OCTET. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_octet(const DDS_DynamicData *self, const char *path,
                                                     uint8_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_octet(DDS_DynamicData *self, const char *path,
                                                     uint8_t value) QDDSC_NOEXCEPT;

/** DDS_TK_INT8. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_int8(const DDS_DynamicData *self, const char *path,
                                                    int8_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_int8(DDS_DynamicData *self, const char *path,
                                                    int8_t value) QDDSC_NOEXCEPT;

/** DDS_TK_SHORT. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_short(const DDS_DynamicData *self, const char *path,
                                                     int16_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_short(DDS_DynamicData *self, const char *path,
                                                     int16_t value) QDDSC_NOEXCEPT;

/** DDS_TK_USHORT. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_ushort(const DDS_DynamicData *self, const char *path,
                                                      uint16_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_ushort(DDS_DynamicData *self, const char *path,
                                                      uint16_t value) QDDSC_NOEXCEPT;

/** DDS_TK_LONG or DDS_TK_ENUM (the enumerator's value). */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_long(const DDS_DynamicData *self, const char *path,
                                                    int32_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_long(DDS_DynamicData *self, const char *path,
                                                    int32_t value) QDDSC_NOEXCEPT;

/** DDS_TK_ULONG. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_ulong(const DDS_DynamicData *self, const char *path,
                                                     uint32_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_ulong(DDS_DynamicData *self, const char *path,
                                                     uint32_t value) QDDSC_NOEXCEPT;

/** DDS_TK_LONGLONG. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_longlong(const DDS_DynamicData *self,
                                                        const char *path,
                                                        int64_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_longlong(DDS_DynamicData *self, const char *path,
                                                        int64_t value) QDDSC_NOEXCEPT;

/** DDS_TK_ULONGLONG. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_ulonglong(const DDS_DynamicData *self,
                                                         const char *path,
                                                         uint64_t *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_ulonglong(DDS_DynamicData *self, const char *path,
                                                         uint64_t value) QDDSC_NOEXCEPT;

/** DDS_TK_FLOAT. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_float(const DDS_DynamicData *self, const char *path,
                                                     float *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_float(DDS_DynamicData *self, const char *path,
                                                     float value) QDDSC_NOEXCEPT;

/** DDS_TK_DOUBLE. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_double(const DDS_DynamicData *self, const char *path,
                                                      double *value) QDDSC_NOEXCEPT;
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_double(DDS_DynamicData *self, const char *path,
                                                      double value) QDDSC_NOEXCEPT;

/**
 * A string in place.
 *
 * @param value  receives the NUL-terminated text, valid until the sample is next changed or
 * deleted.
 * @param length receives its bytes without the NUL; may be null.
 */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_string(const DDS_DynamicData *self, const char *path,
                                                      const char **value,
                                                      size_t *length) QDDSC_NOEXCEPT;

/**
 * Sets a string to `length` bytes at `value` (no NUL needed behind them, none allowed among them).
 * They are taken as they are: that they are UTF-8 is not checked. They may lie in this sample.
 */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_string(DDS_DynamicData *self, const char *path,
                                                      const char *value,
                                                      size_t length) QDDSC_NOEXCEPT;

/** Elements of a sequence, or of an array's dimension: "grid" its first, "grid[1]" its second. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_get_length(const DDS_DynamicData *self, const char *path,
                                                      uint32_t *value) QDDSC_NOEXCEPT;

/** Cuts a sequence, or lets it grow by elements that have their default. */
QDDSC_API DDS_ReturnCode_t DDS_DynamicData_set_length(DDS_DynamicData *self, const char *path,
                                                      uint32_t value) QDDSC_NOEXCEPT;

QDDSC_END

#endif
