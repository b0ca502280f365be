/* The middleware heap: every block carries its size, a 32-bit tag and the name of the type it
 * holds, so that a leak or a wrong free can be named. Any thread may call; no locks are held. */
#ifndef QDDSCORE_HEAP_H
#define QDDSCORE_HEAP_H

#include <stddef.h>
#include <stdint.h>

#include "qddscore/export.h"

QDDSCORE_BEGIN

/** Packs a four-character code into a heap tag, first character in the most significant byte. */
#define QEL_OSAPI_HEAP_TAG(a, b, c, d) ((a)*0x1000000U + (b)*0x10000U + (c)*0x100U + (d)*0x1U)

/** Tag of single records of fixed size. */
#define QEL_OSAPI_HEAP_STRUCTURE_TAG QEL_OSAPI_HEAP_TAG('Q', 'D', 'D', 'A')
/** Tag of character strings. */
#define QEL_OSAPI_HEAP_STRING_TAG QEL_OSAPI_HEAP_TAG('Q', 'D', 'D', 'B')
/** Tag of arrays. */
#define QEL_OSAPI_HEAP_ARRAY_TAG QEL_OSAPI_HEAP_TAG('Q', 'D', 'D', 'C')

/** Alignment value that asks for the default (16 bytes, enough for every C type). */
#define QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT 0

/**
 * Allocates a block, or resizes one.
 *
 * New bytes are zero: the whole block on allocation, the added tail on growth. Bytes that both
 * sizes have are kept.
 *
 * @param block     null to allocate; else a live block of this heap, which is then replaced.
 * @param size      bytes wanted; 0 gives a valid block of no usable bytes.
 * @param alignment power of two up to 4096, or QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT. A resized block
 *                  keeps the alignment it was made with, whatever is passed.
 * @param role      the operation the caller stands for, for example
 *                  "QELOsapiHeap_allocateStructure"; a literal, used in diagnostics only.
 * @param tag       kind of block; has to be passed again when it is freed.
 * @param typeName  the C type held, for example "struct FERRYJNIGlobal"; a literal, kept with the
 *                  block.
 * @return the block, owned by the caller, or null when memory is short or an argument is wrong; on
 *         null an earlier block is unchanged and still the caller's.
 */
QDDSCORE_API void *QELOsapiHeap_reallocateMemoryInternal(void *block, size_t size, size_t alignment,
                                                         const char *role, uint32_t tag,
                                                         const char *typeName) QDDSCORE_NOEXCEPT;

/**
 * Frees a block.
 *
 * @param block null (nothing happens) or a live block of this heap.
 * @param role  for example "QELOsapiHeap_freeStructure"; a literal, used in diagnostics only.
 * @param tag   the tag the block was made with.
 * @return 1 when the block is gone (or was null); 0 when it is not a live block of this heap or has
 *         another tag: that is logged and the block is left alone.
 */
QDDSCORE_API int32_t QELOsapiHeap_freeMemoryInternal(void *block, const char *role,
                                                     uint32_t tag) QDDSCORE_NOEXCEPT;

/** What the heap holds at one moment; the two figures are read one after the other. */
struct QELOsapiHeapUsage {
    /** Live blocks. */
    int64_t blocks;
    /** Bytes asked for by their owners, without the heap's own overhead. */
    int64_t bytes;
};

/** Reads the heap's live totals. `usage` must not be null. */
QDDSCORE_API void QELOsapiHeap_getUsage(struct QELOsapiHeapUsage *usage) QDDSCORE_NOEXCEPT;

/**
 * Names the type a live block was made for.
 *
 * @return the name given at allocation, or null when `block` is null or not of this heap.
 */
QDDSCORE_API const char *QELOsapiHeap_getTypeName(const void *block) QDDSCORE_NOEXCEPT;

QDDSCORE_END

#endif
