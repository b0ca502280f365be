// The relay's own log lines: the catalogue's messages, printed through the middleware logger so
// that they share its sink with those of the bridge. Any thread.
#ifndef FERRY_ENGINE_LOG_H
#define FERRY_ENGINE_LOG_H

#include <atomic>
#include <cstdint>
#include <fmt/format.h>
#include <string>
#include <utility>

#include "ferryjni/log.h"

namespace ferry {

/// Which levels are printed; set once before other threads start, like the bridge's own mask.
extern std::atomic<std::uint32_t> g_logMask;

/// `context` names the function for which the line stands; the arguments are those of the message.
template<class... Arguments>
void logMessage(std::uint32_t level, const char *context, const QELLogMessage &message,
                Arguments... arguments)
{
    if ((g_logMask.load(std::memory_order_relaxed) & level) == 0) {
        return;
    }
    if (QELLog_setLogLevel != nullptr) {
        QELLog_setLogLevel(level);
    }
    QELLog_printContextAndMsg(context, &message, arguments...);
}

template<class... Arguments>
void logError(const char *context, const QELLogMessage &message, Arguments... arguments)
{
    logMessage(FERRYLOG_BIT_ERROR, context, message, arguments...);
}

/// A line of the relay's own about `subject`, in the catalogue's form for any text. The text is
/// only put together when the line is printed.
template<class... Arguments>
void logAbout(std::uint32_t level, const char *context, const std::string &subject,
              fmt::format_string<Arguments...> text, Arguments &&...arguments)
{
    if ((g_logMask.load(std::memory_order_relaxed) & level) != 0) {
        logMessage(level, context, FERRY_LOG_ENTITY_ANY_ss, subject.c_str(),
                   fmt::format(text, std::forward<Arguments>(arguments)...).c_str());
    }
}

/// While it lives, lines that anybody logs on the calling thread name the route that the thread
/// works for.
class LogScope {
public:
    explicit LogScope(const std::string &route) : before_(t_name)
    {
        t_name = &route;
    }
    ~LogScope()
    {
        t_name = before_;
    }
    LogScope(const LogScope &) = delete;
    LogScope &operator=(const LogScope &) = delete;

    /// Null when there is none.
    static const std::string *name()
    {
        return t_name;
    }

private:
    static inline thread_local const std::string *t_name = nullptr;
    const std::string *const before_;
};

} // namespace ferry

#endif
