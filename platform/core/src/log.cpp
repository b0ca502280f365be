// The middleware logger: renders a message into one line and hands it to the sink. Runs on the
// logging thread; owns nothing but the choice of the sink. It does not use the middleware heap,
// which logs itself.
#include "qddscore/log.h"

#include <pthread.h>

#include <cstdarg>

#include "line.h"

const QELLogMessage QEL_LOG_ANY_s = {1, "%s\n"};
const QELLogMessage QEL_LOG_ANY_FAILURE_s = {2, "!%s\n"};
const QELLogMessage QEL_LOG_CREATION_FAILURE_s = {3, "!create %s\n"};
const QELLogMessage QEL_OSAPI_MEMORY_LOG_OUT_OF_HEAP_ARRAY_dd = {
    4, "!allocate array of %d elements of %d bytes\n"};

void (*QELLog_setLogLevel)(uint32_t level) = nullptr;

namespace {

/// Readers are threads inside the sink, the writer is the one that replaces it. It goes first, so
/// that threads that log all the time cannot keep it waiting; no reader locks twice.
pthread_rwlock_t sinkLock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
QELLogSink theSink = nullptr;
void *theSinkData = nullptr;

/// A sink that logs gets its line to standard error: no recursion, no second lock.
thread_local bool insideSink = false;

void handOver(qddscore::Line &line)
{
    line.escapeControls();
    if (insideSink) {
        line.writeTo(2);
        return;
    }
    pthread_rwlock_rdlock(&sinkLock);
    if (theSink == nullptr) {
        line.writeTo(2);
    } else {
        insideSink = true;
        theSink(theSinkData, line.text(), line.length());
        insideSink = false;
    }
    pthread_rwlock_unlock(&sinkLock);
}

} // namespace

// The format is a message's, which only its catalogue can match with the arguments.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void QELLog_printContextAndMsg(const char *context, const QELLogMessage *message, ...) noexcept
{
    qddscore::Line line;
    if (context != nullptr) {
        line.append(context);
        line.append(":");
    }
    va_list arguments;
    va_start(arguments, message);
    line.appendFormatted(message->format, arguments);
    va_end(arguments);
    handOver(line);
}
#pragma GCC diagnostic pop

void QELLog_debug(const char *format, ...) noexcept
{
    qddscore::Line line;
    va_list arguments;
    va_start(arguments, format);
    line.appendFormatted(format, arguments);
    va_end(arguments);
    handOver(line);
}

void QELLog_setSink(QELLogSink sink, void *sinkData) noexcept
{
    pthread_rwlock_wrlock(&sinkLock);
    theSink = sink;
    theSinkData = sinkData;
    pthread_rwlock_unlock(&sinkLock);
}
