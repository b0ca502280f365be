// What people read: log lines on standard error, results on standard output, and on a terminal a
// block of live lines below both. One lock keeps them apart. Any thread may log. All text is made
// printable first: see config/printable.h.
#ifndef FERRY_PROCESS_CONSOLE_H
#define FERRY_PROCESS_CONSOLE_H

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "process/flood_gate.h"
#include "process/log_file.h"

namespace ferry {

class Console {
public:
    Console();
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    /// Takes over the middleware logger, whose lines get time and level. With a file, the process's
    /// whole standard error goes there, too. Returns why the file cannot be opened, or "".
    std::string start(const LogSettings &settings, LogLevel level);

    /// Whether there is a terminal to keep live lines on.
    bool live() const
    {
        return live_;
    }
    /// Replaces the live lines.
    void show(const std::vector<std::string> &lines);
    /// Prints a result line.
    void print(const std::string &line);
    /// Prints a result of several lines.
    void printText(const std::string &text);
    /// Whether a result could not be written.
    bool lostResults() const
    {
        return lostResults_.load();
    }
    /// Puts a line of the given level into the log. If it comes too often the rest is only counted.
    void log(std::uint32_t level, const std::string &line);
    /// Puts text that is no line of the logger into the log. It ends with a line feed.
    void logText(const std::string &text);

private:
    static void sink(void *self, const char *line, std::size_t length);
    void writeLog(const std::string &text);
    void writeResult(const std::string &text);
    void eraseLive();
    void drawLive();

    std::mutex mutex_;
    const bool live_;
    bool started_ = false;
    std::atomic<bool> lostResults_{false};
    LogFile file_;
    FloodGate gate_;
    std::vector<std::string> lines_;
    /// Live lines now on the screen.
    std::size_t drawn_ = 0;
};

/// Level bits that a configured level lets through.
std::uint32_t maskOf(LogLevel level);

} // namespace ferry

#endif
