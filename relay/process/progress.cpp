#include "process/progress.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <utility>

namespace ferry {
namespace {

std::string totals(const RouteTotals &route)
{
    std::string text = fmt::format("{}: {} read, {} written, {} errors", route.name, route.read,
                                   route.written, route.errors);
    const std::pair<std::uint64_t, const char *> rare[] = {
        {route.retries, "retries"}, {route.dead, "set aside"}, {route.held, "not acknowledged"},
        {route.stored, "stored"},   {route.lost, "lost"},      {route.unreadable, "unreadable"},
        {route.bad, "bad"},         {route.ends, "ends"}};
    for (const auto &[number, what] : rare) {
        text += number > 0 ? fmt::format(", {} {}", number, what) : "";
    }
    return text;
}

std::string ending(const RouteTotals &route)
{
    return route.failed   ? " (out of service)"
           : route.gone   ? " (gone)"
           : route.paused ? " (paused)"
                          : "";
}

} // namespace

std::string rateText(std::uint64_t samples, std::chrono::nanoseconds time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    const double rate = seconds > 0 ? static_cast<double>(samples) / seconds : 0;
    return fmt::format("{} samples/s", std::llround(rate));
}

std::vector<std::string> summaryLines(const std::vector<RouteTotals> &routes)
{
    std::vector<std::string> lines;
    for (const RouteTotals &route : routes) {
        const std::chrono::nanoseconds busy(route.lastActivity - route.firstActivity);
        lines.push_back(
            fmt::format("{}, {}{}", totals(route), rateText(route.read, busy), ending(route)));
        for (const RouteTotals::Output &output : route.outputs) {
            if (route.outputs.size() > 1) {
                lines.push_back(fmt::format("  to {}: {} written, {} lost", output.label,
                                            output.written, output.lost));
            }
        }
    }
    return lines;
}

bool isClean(const std::vector<RouteTotals> &routes)
{
    return std::all_of(routes.begin(), routes.end(), [](const RouteTotals &route) {
        return route.dead + route.held + route.lost + route.unreadable + route.bad + route.errors ==
                   0 &&
               !route.failed;
    });
}

std::vector<std::string> Progress::lines(const std::vector<RouteTotals> &routes,
                                         Clock::time_point now, Which which)
{
    std::vector<std::string> result;
    std::map<std::string, Known> seen;
    for (const RouteTotals &route : routes) {
        const auto last = last_.find(route.name);
        const bool known = last != last_.end();
        RouteTotals nothing;
        nothing.name = route.name;
        const Known present{route.read, totals(route) + ending(route)};
        if (which == Which::all || present.text != (known ? last->second.text : totals(nothing))) {
            const std::string rate =
                known && !route.gone
                    ? fmt::format(", {}", rateText(route.read - last->second.read, now - lastTime_))
                    : "";
            result.push_back(totals(route) + rate + ending(route));
        }
        seen[route.name] = present;
    }
    last_ = std::move(seen);
    lastTime_ = now;
    return result;
}

} // namespace ferry
