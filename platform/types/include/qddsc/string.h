/* Strings and string sequences as they are exchanged with the middleware. */
#ifndef QDDSC_STRING_H
#define QDDSC_STRING_H

#include <stddef.h>
#include <stdint.h>

#include "qddsc/export.h"

QDDSC_BEGIN

/**
 * Allocates a string of `length` characters and its NUL, all zero.
 *
 * @return owned by the caller (DDS_String_free), or null when memory is short.
 */
QDDSC_API char *DDS_String_alloc(size_t length) QDDSC_NOEXCEPT;

/** Copies a string; null for null. Owned by the caller; null also when memory is short. */
QDDSC_API char *DDS_String_dup(const char *text) QDDSC_NOEXCEPT;

/** Frees a string made by the two functions above; null does nothing. */
QDDSC_API void DDS_String_free(char *text) QDDSC_NOEXCEPT;

/** A sequence of owned strings. All zero is an empty sequence. */
struct DDS_StringSeq {
    /** `maximum` slots; those below `length` hold strings of DDS_String_dup (or null). */
    char **buffer;
    int32_t length;
    int32_t maximum;
};

/** Makes the sequence empty without freeing anything. */
QDDSC_API void DDS_StringSeq_initialize(struct DDS_StringSeq *self) QDDSC_NOEXCEPT;

/** Frees the strings and the buffer; the sequence is empty afterwards. */
QDDSC_API void DDS_StringSeq_finalize(struct DDS_StringSeq *self) QDDSC_NOEXCEPT;

/** Number of strings in use; 0 for null. */
QDDSC_API int32_t DDS_StringSeq_get_length(const struct DDS_StringSeq *self) QDDSC_NOEXCEPT;

/** Address of slot `index`, or null when it is out of range. The sequence owns the string. */
QDDSC_API char **DDS_StringSeq_get_reference(const struct DDS_StringSeq *self,
                                             int32_t index) QDDSC_NOEXCEPT;

/** Appends a copy of `text` (not null). Returns 1, or 0 when memory is short: nothing changed. */
QDDSC_API int32_t DDS_StringSeq_append(struct DDS_StringSeq *self, const char *text) QDDSC_NOEXCEPT;

QDDSC_END

#endif
