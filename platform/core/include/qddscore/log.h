/* The middleware logger: one line a message, to one sink. Any thread may log; a line is handed over
 * whole, so two threads never mix within a line. */
#ifndef QDDSCORE_LOG_H
#define QDDSCORE_LOG_H

#include <stddef.h>
#include <stdint.h>

#include "qddscore/export.h"

QDDSCORE_BEGIN

/** A message of a catalogue. */
struct QELLogMessage {
    /** Stable number of the message. */
    int32_t code;
    /** printf format, usually ending in a newline. */
    const char *format;
};

/** "%s": any one text. */
extern QDDSCORE_API const struct QELLogMessage QEL_LOG_ANY_s;
/** "!%s": a failure described by one text. */
extern QDDSCORE_API const struct QELLogMessage QEL_LOG_ANY_FAILURE_s;
/** "!create %s": a thing that could not be made. */
extern QDDSCORE_API const struct QELLogMessage QEL_LOG_CREATION_FAILURE_s;
/** "!allocate array": two int arguments, element count and element size in bytes. */
extern QDDSCORE_API const struct QELLogMessage QEL_OSAPI_MEMORY_LOG_OUT_OF_HEAP_ARRAY_dd;

/**
 * Called by a module before it prints, with the level bit of what comes next on this thread (0x1
 * error, 0x2 warning, 0x4 status, 0x40 debug). Null, the default, means that nobody asks. Set it
 * before other threads log.
 */
extern QDDSCORE_API void (*QELLog_setLogLevel)(uint32_t level);

/**
 * Prints "context:" and the message.
 *
 * @param context name of the function that logs; null prints no context.
 * @param message the message object; its format's arguments follow. Must not be null.
 */
QDDSCORE_API void QELLog_printContextAndMsg(const char *context,
                                            const struct QELLogMessage *message,
                                            ...) QDDSCORE_NOEXCEPT;

/** Prints a free-form line. */
QDDSCORE_API void QELLog_debug(const char *format, ...) QDDSCORE_NOEXCEPT
    __attribute__((format(printf, 1, 2)));

/**
 * Receives each line.
 *
 * @param sinkData what was given with the sink.
 * @param line     the text without its newline, NUL-terminated; control characters in it (a newline
 *                 inside an exception's message) have been replaced by their C escapes. Valid
 * during the call only.
 * @param length   bytes of `line` without the NUL.
 */
typedef void (*QELLogSink)(void *sinkData, const char *line, size_t length);

/**
 * Routes all lines to `sink`; null restores the default, which writes each line to standard error
 * with one system call. May be called at any time: a line that is being handed over goes to the
 * earlier sink, and the call returns only when no thread is inside that sink any more. So it must
 * not be called from within a sink.
 */
QDDSCORE_API void QELLog_setSink(QELLogSink sink, void *sinkData) QDDSCORE_NOEXCEPT;

QDDSCORE_END

#endif
