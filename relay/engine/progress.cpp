#include "engine/progress.h"

#include <algorithm>
#include <cmath>

namespace ferry {
namespace {

std::string count(std::uint64_t number, const char *what)
{
    return std::to_string(number) + " " + what;
}

std::uint64_t lostOf(const Route &route)
{
    std::uint64_t lost = 0;
    for (const auto &output : route.outputs()) {
        lost += output->lost.get();
    }
    return lost;
}

/// A sample counts as written when every output has it.
std::uint64_t writtenOf(const Route &route)
{
    std::uint64_t written = route.samplesRead.get();
    for (const auto &output : route.outputs()) {
        written = std::min(written, output->written.get());
    }
    return written;
}

std::string totals(const Route &route)
{
    std::string text = route.name() + ": " + count(route.samplesRead.get(), "read") + ", " +
                       count(writtenOf(route), "written") + ", " +
                       count(route.errors.get(), "errors");
    if (const std::uint64_t lost = lostOf(route)) {
        text += ", " + count(lost, "lost");
    }
    if (const std::uint64_t unreadable = route.unreadable.get()) {
        text += ", " + count(unreadable, "unreadable");
    }
    return text;
}

std::string ending(const Route &route)
{
    return route.state() == Route::State::failed ? " (out of service)" : "";
}

} // namespace

std::string rateText(std::uint64_t samples, std::chrono::nanoseconds time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    const double rate = seconds > 0 ? static_cast<double>(samples) / seconds : 0;
    return std::to_string(std::llround(rate)) + " samples/s";
}

std::vector<std::string> summaryLines(const std::vector<std::unique_ptr<Session>> &sessions)
{
    std::vector<std::string> lines;
    forEachRoute(sessions, [&](const Route &route) {
        const std::chrono::nanoseconds busy(route.lastActivity.load() - route.firstActivity.load());
        lines.push_back(totals(route) + ", " + rateText(route.samplesRead.get(), busy) +
                        ending(route));
        if (route.outputs().size() > 1) {
            for (const auto &output : route.outputs()) {
                lines.push_back("  to " + output->label + ": " +
                                count(output->written.get(), "written") + ", " +
                                count(output->lost.get(), "lost"));
            }
        }
    });
    return lines;
}

std::uint64_t lostSamples(const std::vector<std::unique_ptr<Session>> &sessions)
{
    std::uint64_t lost = 0;
    forEachRoute(sessions,
                 [&](const Route &route) { lost += lostOf(route) + route.unreadable.get(); });
    return lost;
}

std::uint64_t failedCalls(const std::vector<std::unique_ptr<Session>> &sessions)
{
    std::uint64_t failures = 0;
    forEachRoute(sessions, [&](const Route &route) { failures += route.errors.get(); });
    return failures;
}

std::vector<std::string> Progress::lines(const std::vector<std::unique_ptr<Session>> &sessions,
                                         Clock::time_point now)
{
    std::vector<std::string> result;
    forEachRoute(sessions, [&](const Route &route) {
        Last &last = last_[&route];
        const std::uint64_t samples = route.samplesRead.get();
        std::string line = totals(route);
        if (last.time != Clock::time_point()) {
            line += ", " + rateText(samples - last.samples, now - last.time);
        }
        last = {samples, now};
        result.push_back(line + ending(route));
    });
    return result;
}

} // namespace ferry
