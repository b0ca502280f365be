// The test that every log statement of the bridge makes, and the statements it needs. Any thread.
#ifndef FERRYJNI_LOGSTATEMENT_H
#define FERRYJNI_LOGSTATEMENT_H

#include "ferryjni/log.h"

namespace ferryjni {

/// Whether the masks let a statement of `level` through, as they stand right now.
inline bool masksAllow(uint32_t level) noexcept
{
    return (FERRYLog_g_instrumentationMask & level) != 0 &&
           (FERRYLog_g_submoduleMask & FERRYLOG_SUBMODULE_JNI) != 0;
}

/// Tells the logger which level comes next, and says whether to print. The masks are read again
/// after the hook has run, because the hook may have changed them.
inline bool logs(uint32_t level) noexcept
{
    if (QELLog_setLogLevel != nullptr) {
        if (!masksAllow(level)) {
            return false;
        }
        QELLog_setLogLevel(level);
    }
    return masksAllow(level);
}

/// Logs one text under the name of the function that logs.
inline void logText(uint32_t level, const char *context, const QELLogMessage &message,
                    const char *text) noexcept
{
    if (logs(level)) {
        QELLog_printContextAndMsg(context, &message, text);
    }
}

/// Logs a failure described by one text.
inline void logFailure(const char *context, const char *text) noexcept
{
    logText(FERRYLOG_BIT_ERROR, context, QEL_LOG_ANY_FAILURE_s, text);
}

} // namespace ferryjni

#endif
