#include "launcher/status_text.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "config/printable.h"
#include "control/duration_text.h"

namespace ferry {
namespace {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

std::string textOf(const Json &json, const char *member)
{
    const auto found = json.find(member);
    return found != json.end() && found->is_string() ? printable(found->get<std::string>()) : "";
}

double numberOf(const Json &json, const char *member)
{
    const auto found = json.find(member);
    return found != json.end() && found->is_number() ? found->get<double>() : 0;
}

std::string countOf(const Json &json, const char *member)
{
    return fmt::format("{:.0f}", numberOf(json, member));
}

/// "12 s", or "" for what has no beginning.
std::string ageOf(const Json &json)
{
    return json.contains("seconds")
               ? durationText(static_cast<std::int64_t>(numberOf(json, "seconds") * 1e9))
               : "";
}

const Json &listIn(const Json &json, const char *member)
{
    static const Json none = Json::array();
    const auto found = json.find(member);
    return found != json.end() && found->is_array() ? *found : none;
}

/// Columns two blanks apart. All but the first are numbers or short, and stand at the right.
std::vector<std::string> table(const std::vector<Row> &rows, std::size_t leftColumns)
{
    std::vector<std::size_t> widths(rows[0].size());
    for (const Row &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::vector<std::string> lines;
    for (const Row &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string gap(widths[i] - row[i].size(), ' ');
            line += (i == 0 ? "" : "  ") + (i < leftColumns ? row[i] + gap : gap + row[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(std::move(line));
    }
    return lines;
}

void addObjects(std::vector<std::string> &lines, const Json &status, const char *kind,
                const char *member)
{
    for (const Json &object : listIn(status, member)) {
        const std::string state = textOf(object, "state");
        std::string line = fmt::format("{} {}: {}", kind, textOf(object, "name"), state);
        if (state != "running") {
            line += fmt::format(" for {}", ageOf(object));
            if (object.contains("error")) {
                line += fmt::format(": {}", textOf(object["error"], "text"));
            }
        }
        if (object.contains("call")) {
            line += fmt::format(": {} has not returned for {}", textOf(object["call"], "what"),
                                ageOf(object["call"]));
        }
        lines.push_back(std::move(line));
    }
}

Row rowOf(const Json &route)
{
    return {textOf(route, "name"),
            textOf(route, "state"),
            ageOf(route),
            countOf(route, "read"),
            countOf(route, "written"),
            fmt::format("{:.1f}", numberOf(route, "read_per_second")),
            countOf(route, "lag"),
            countOf(route, "retries"),
            countOf(route, "errors"),
            countOf(route, "lost"),
            countOf(route, "dead")};
}

void addRoutes(std::vector<std::string> &lines, const Json &status)
{
    const Json &routes = listIn(status, "routes");
    if (routes.empty()) {
        lines.emplace_back("no routes");
        return;
    }
    std::vector<Row> rows{{"ROUTE", "STATE", "SINCE", "READ", "WRITTEN", "READ/S", "LAG", "RETRIES",
                           "ERRORS", "LOST", "DEAD"}};
    std::transform(routes.begin(), routes.end(), std::back_inserter(rows), rowOf);
    const std::vector<std::string> texts = table(rows, 2);
    lines.push_back(texts[0]);
    for (std::size_t i = 0; i < routes.size(); ++i) {
        lines.push_back(texts[i + 1]);
        const Json &route = routes[i];
        if (route.contains("reason") && textOf(route["reason"], "code") != "no_data") {
            lines.push_back(fmt::format("  {}", textOf(route["reason"], "text")));
        }
        const auto buffer = route["input"].find("buffer");
        if (buffer != route["input"].end()) {
            lines.push_back(fmt::format("  {}: {} samples, {} of {} bytes", textOf(*buffer, "kind"),
                                        countOf(*buffer, "samples"), countOf(*buffer, "bytes"),
                                        countOf(*buffer, "max_bytes")));
        }
    }
}

bool allIn(const Json &status, const char *member)
{
    const Json &list = listIn(status, member);
    return std::none_of(list.begin(), list.end(),
                        [](const Json &object) { return object.value("state", "") == "failed"; });
}

void addError(std::vector<std::string> &lines, const Json &route)
{
    if (!route.contains("error")) {
        return;
    }
    const Json &error = route["error"];
    lines.push_back(fmt::format("last error, {} ago: {} of {}: {}", ageOf(error),
                                textOf(error, "operation"), textOf(error, "at"),
                                textOf(error, "text")));
    if (error.contains("place")) {
        lines.push_back(fmt::format("  {}", textOf(error, "place")));
    }
}

} // namespace

std::vector<std::string> statusLines(const Json &status)
{
    std::vector<std::string> lines;
    const Json &relay = status.at("relay");
    lines.push_back(fmt::format("relay {}, process {}: {} for {}", textOf(relay, "name"),
                                countOf(relay, "pid"), textOf(relay, "phase"), ageOf(relay)));
    if (relay.contains("call")) {
        lines.push_back(fmt::format("{} has not returned for {}", textOf(relay["call"], "what"),
                                    ageOf(relay["call"])));
    }
    addObjects(lines, status, "adapter", "adapters");
    addObjects(lines, status, "connection", "connections");
    addObjects(lines, status, "session", "sessions");
    addRoutes(lines, status);
    return lines;
}

std::vector<std::string> whyLines(const Json &why)
{
    const Json &route = why.at("route");
    std::vector<std::string> lines{fmt::format("route {}: {} for {}", textOf(route, "name"),
                                               textOf(route, "state"), ageOf(route))};
    const Json &reasons = listIn(why, "reasons");
    if (reasons.empty()) {
        lines.push_back(fmt::format("it moves: {:.1f} samples/s read, {:.1f} written",
                                    numberOf(route, "read_per_second"),
                                    numberOf(route, "written_per_second")));
    }
    for (const Json &reason : reasons) {
        lines.push_back(fmt::format("- {}", textOf(reason, "text")));
        if (reason.contains("place")) {
            lines.push_back(fmt::format("  at: {}", textOf(reason, "place")));
        }
        if (reason.contains("advice")) {
            lines.push_back(fmt::format("  do: {}", textOf(reason, "advice")));
        }
    }
    addError(lines, route);
    lines.push_back(fmt::format("{} read, {} written, {} errors, {} lost, lag {}",
                                countOf(route, "read"), countOf(route, "written"),
                                countOf(route, "errors"), countOf(route, "lost"),
                                countOf(route, "lag")));
    return lines;
}

bool isHealthy(const Json &status)
{
    return allIn(status, "adapters") && allIn(status, "connections") && allIn(status, "sessions") &&
           allIn(status, "routes");
}

} // namespace ferry
