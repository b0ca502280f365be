/* Log switches of the bridge, and the catalogue of messages that a host prints. */
#ifndef FERRYJNI_LOG_H
#define FERRYJNI_LOG_H

#include <stdint.h>

#include "ferryjni/export.h"
#include "qddscore/log.h"

FERRYJNI_BEGIN

/** Level bits of the instrumentation mask. */
#define FERRYLOG_BIT_ERROR 0x01U
#define FERRYLOG_BIT_WARNING 0x02U
#define FERRYLOG_BIT_STATUS 0x04U
#define FERRYLOG_BIT_DEBUG 0x40U

/** Bit of the submodule mask that stands for the bridge. */
#define FERRYLOG_SUBMODULE_JNI 0x8000U

/** Which submodules may log; 0x000FFFFF at start. A plain word: a store is seen by other threads at
 * some later statement. */
extern FERRYJNI_API uint32_t FERRYLog_g_submoduleMask;

/** Which levels may log; 0x1 (errors) at start. */
extern FERRYJNI_API uint32_t FERRYLog_g_instrumentationMask;

/** Stores both masks. */
FERRYJNI_API void FERRYLog_setBitmaps(uint32_t submoduleMask,
                                      uint32_t instrumentationMask) FERRYJNI_NOEXCEPT;

/** Reads both masks. Neither pointer may be null. */
FERRYJNI_API void FERRYLog_getBitmaps(uint32_t *submoduleMask,
                                      uint32_t *instrumentationMask) FERRYJNI_NOEXCEPT;

/**
 * Stores the submodule mask and a level mask of the low (verbosity + 1) bits: 0 is errors only, 1
 * adds warnings, 6 adds debug messages. A negative verbosity is silence; the shift is taken modulo
 * 32, so 31 is silence too.
 */
FERRYJNI_API void FERRYLog_setVerbosity(uint32_t submoduleMask,
                                        int32_t verbosity) FERRYJNI_NOEXCEPT;

/* The host's catalogue. The suffix of a name lists its format's arguments: s string, d int. The
 * bridge prints none of these. */
#define FERRY_LOG_MESSAGE(name) extern FERRYJNI_API const struct QELLogMessage name;
#include "ferryjni/log_messages.h"
#undef FERRY_LOG_MESSAGE

FERRYJNI_END

#endif
