#include "process/console.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "config/printable.h"
#include "engine/log.h"

namespace ferry {
namespace {

/// The level announced for the next line of this thread.
thread_local std::uint32_t t_level = FERRYLOG_BIT_STATUS;

void rememberLevel(std::uint32_t level)
{
    t_level = level;
}

const char *levelName(std::uint32_t level)
{
    if ((level & FERRYLOG_BIT_ERROR) != 0) {
        return "ERROR";
    }
    if ((level & FERRYLOG_BIT_WARNING) != 0) {
        return "WARNING";
    }
    return (level & FERRYLOG_BIT_DEBUG) != 0 ? "DEBUG" : "STATUS";
}

/// "2026-03-01T12:00:00.123Z": log files of hosts in several zones can be put side by side.
std::string now()
{
    const auto time = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() %
        1000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                       milliseconds);
}

bool writeAll(int descriptor, const std::string &text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t wrote = write(descriptor, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) {
            continue;
        }
        if (wrote <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(wrote);
    }
    return true;
}

/// The beginning of a line, cut between two characters. It counts bytes, so a line may come out
/// shorter than it could be.
std::string fitting(const std::string &line, std::size_t width)
{
    std::size_t end = std::min(width, line.size());
    while (end < line.size() && end > 0 &&
           (static_cast<unsigned char>(line[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return line.substr(0, end);
}

winsize terminalSize()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        size.ws_col = 80;
        size.ws_row = 24;
    }
    return size;
}

} // namespace

std::uint32_t maskOf(LogLevel level)
{
    std::uint32_t mask = FERRYLOG_BIT_ERROR;
    if (level >= LogLevel::warning) {
        mask |= FERRYLOG_BIT_WARNING;
    }
    if (level >= LogLevel::status) {
        mask |= FERRYLOG_BIT_STATUS;
    }
    if (level >= LogLevel::debug) {
        mask |= FERRYLOG_BIT_DEBUG;
    }
    return mask;
}

Console::Console() : live_(isatty(STDOUT_FILENO) == 1) {}

Console::~Console()
{
    if (started_) {
        QELLog_setSink(nullptr, nullptr);
        QELLog_setLogLevel = nullptr;
    }
}

std::string Console::start(const LogSettings &settings, LogLevel level)
{
    g_logMask.store(maskOf(level));
    if (!settings.file.empty()) {
        std::string reason = file_.open(settings.file);
        if (!reason.empty()) {
            return reason;
        }
    }
    QELLog_setLogLevel = rememberLevel;
    QELLog_setSink(sink, this);
    started_ = true;
    return "";
}

void Console::sink(void *self, const char *line, std::size_t length)
{
    static_cast<Console *>(self)->log(t_level, std::string(line, length));
}

void Console::log(std::uint32_t level, const std::string &line)
{
    std::string text = forLog(line);
    const std::string *const scope = LogScope::name();
    if (scope != nullptr && text.find(*scope) == std::string::npos) {
        text += fmt::format(" [route {}]", printable(*scope));
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    std::uint64_t heldBack = 0;
    if (!gate_.admit(text, Clock::now(), heldBack)) {
        return;
    }
    if (heldBack > 0) {
        text += fmt::format(" ({} more of this line were left out)", heldBack);
    }
    writeLog(fmt::format("{} {} {}\n", now(), levelName(level), text));
}

void Console::logText(const std::string &text)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    writeLog(forLog(text, Layout::kept));
}

void Console::writeLog(const std::string &text)
{
    eraseLive();
    file_.follow();
    writeAll(STDERR_FILENO, text);
    drawLive();
}

void Console::print(const std::string &line)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    writeResult(printable(line) + "\n");
}

void Console::printText(const std::string &text)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    writeResult(printable(text, Layout::kept) + "\n");
}

void Console::writeResult(const std::string &text)
{
    eraseLive();
    if (!writeAll(STDOUT_FILENO, text)) {
        lostResults_.store(true);
    }
    drawLive();
}

void Console::show(const std::vector<std::string> &lines)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    eraseLive();
    lines_.clear();
    for (const std::string &line : lines) {
        lines_.push_back(printable(line));
    }
    drawLive();
}

/// Goes up over the live lines and clears everything below.
void Console::eraseLive()
{
    if (drawn_ > 0) {
        writeAll(STDOUT_FILENO, fmt::format("\033[{}A\r\033[J", drawn_));
        drawn_ = 0;
    }
}

/// Lines are cut to the terminal's width, as a wrapped one would take two rows, and to its height,
/// as what has left the screen cannot be erased.
void Console::drawLive()
{
    if (!live_ || lines_.empty()) {
        return;
    }
    const winsize size = terminalSize();
    const std::size_t room = std::max<std::size_t>(size.ws_row, 3) - 2;
    std::string text;
    for (drawn_ = 0; drawn_ < std::min(room, lines_.size()); ++drawn_) {
        text += fitting(lines_[drawn_], size.ws_col - 1U) + "\n";
    }
    if (drawn_ < lines_.size()) {
        text += fmt::format("... and {} more\n", lines_.size() - drawn_);
        ++drawn_;
    }
    writeAll(STDOUT_FILENO, text);
}

} // namespace ferry
