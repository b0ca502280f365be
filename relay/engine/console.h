// Where people look: log lines on standard error, results on standard output, and on a terminal a
// block of live lines below both. One lock keeps them apart; any thread may log.
#ifndef FERRY_ENGINE_CONSOLE_H
#define FERRY_ENGINE_CONSOLE_H

#include <mutex>
#include <string>
#include <vector>

#include "config/configuration.h"

namespace ferry {

class Console {
public:
    Console();
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    /// Takes over the middleware logger, whose lines get time and level. With a file, the process's
    /// whole standard error goes there: stack traces of adapters come that way, past the logger.
    /// False when the file cannot be opened.
    bool start(const LogSettings &settings, LogLevel level);

    /// Whether there is a terminal to keep live lines on.
    bool live() const
    {
        return live_;
    }
    /// Replaces the live lines.
    void show(const std::vector<std::string> &lines);
    /// Prints a result line.
    void print(const std::string &line);
    /// Puts text that is no line of the logger into the log.
    void logText(const std::string &text);

private:
    static void sink(void *self, const char *line, std::size_t length);
    void log(const char *line, std::size_t length);
    void eraseLive();
    void drawLive();

    std::mutex mutex_;
    const bool live_;
    bool started_ = false;
    std::vector<std::string> lines_;
    /// Live lines now on the screen.
    std::size_t drawn_ = 0;
};

/// Level bits that a configured level lets through.
std::uint32_t maskOf(LogLevel level);

} // namespace ferry

#endif
