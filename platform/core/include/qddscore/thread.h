/* Thread-specific storage: process-wide keys, one pointer a thread under each. */
#ifndef QDDSCORE_THREAD_H
#define QDDSCORE_THREAD_H

#include <stdint.h>

#include "qddscore/export.h"

QDDSCORE_BEGIN

/** The maker of keys. One lives in the process; the participant factory of libqddsc hands it out.
 */
struct QELOsapiThreadTssFactory;

/** The process's factory of keys; never null, never freed. */
QDDSCORE_API struct QELOsapiThreadTssFactory *QELOsapiThread_getTssFactory(void) QDDSCORE_NOEXCEPT;

/**
 * Makes a key that lives until the process ends. No destructor runs when a thread that stored a
 * value under it ends.
 *
 * @param key     receives the key, never 0; unchanged on failure. Must not be null.
 * @param factory from QELOsapiThread_getTssFactory; null is an error.
 * @return 1, or 0 when the process has no key left or an argument is null.
 */
QDDSCORE_API int32_t
QELOsapiThread_createKey(uint32_t *key, struct QELOsapiThreadTssFactory *factory) QDDSCORE_NOEXCEPT;

/** The calling thread's value under `key`; null when never set or the key is not a live one. */
QDDSCORE_API void *QELOsapiThread_getTss(uint32_t key) QDDSCORE_NOEXCEPT;

/**
 * Stores the calling thread's value (may be null) under `key`. The value is not owned.
 *
 * @return 1, or 0 when the key is not a live one or memory is short.
 */
QDDSCORE_API int32_t QELOsapiThread_setTss(uint32_t key, void *value) QDDSCORE_NOEXCEPT;

QDDSCORE_END

#endif
