#include "launcher/dead_letter_text.h"

#include <algorithm>
#include <array>
#include <ctime>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "config/printable.h"

namespace ferry {
namespace {

/// Of a longer reason the table shows the beginning.
constexpr std::size_t longestReason = 100;

std::string timeText(std::int64_t milliseconds)
{
    const std::time_t seconds = milliseconds / 1000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string shortened(std::string text)
{
    if (text.size() > longestReason) {
        text.resize(longestReason);
        text += "...";
    }
    return text;
}

std::string hexadecimal(const std::vector<std::uint8_t> &bytes)
{
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

using TableRow = std::array<std::string, 6>;

TableRow rowFor(const KeptLetter &letter)
{
    return {std::to_string(letter.id),       timeText(letter.time),
            printable(letter.route),         printable(letter.end),
            std::to_string(letter.attempts), forLog(shortened(letter.reason))};
}

} // namespace

std::vector<std::string> deadLetterTable(const std::vector<KeptLetter> &letters)
{
    std::vector<TableRow> rows = {{"ID", "TIME", "ROUTE", "END", "ATTEMPTS", "REASON"}};
    std::transform(letters.begin(), letters.end(), std::back_inserter(rows), rowFor);
    std::array<std::size_t, 6> widths{};
    for (const TableRow &row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::vector<std::string> lines;
    for (const TableRow &row : rows) {
        std::string line;
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            line += fmt::format("{:<{}}  ", row[i], widths[i]);
        }
        lines.push_back(line + row.back());
    }
    return lines;
}

std::string describe(const KeptLetter &letter)
{
    std::string text =
        fmt::format("letter    {}\ntime      {}\nroute     {}\nend       {}\nattempts  {}\n"
                    "reason    {}\n",
                    letter.id, timeText(letter.time), printable(letter.route),
                    printable(letter.end), letter.attempts, forLog(letter.reason));
    if (letter.type.empty()) {
        text += fmt::format("position  {}\n", printable(letter.position));
    } else {
        text +=
            fmt::format("type      {}\nbytes     {}\n", printable(letter.type), letter.cdr.size());
    }
    return text + fmt::format("{}  {}\n", letter.type.empty() ? "record  " : "sample  ",
                              printable(letter.text));
}

nlohmann::ordered_json describeAsJson(const KeptLetter &letter)
{
    nlohmann::ordered_json object = {{"id", letter.id},
                                     {"time", timeText(letter.time)},
                                     {"route", letter.route},
                                     {"end", letter.end},
                                     {"reason", withoutSecrets(letter.reason)},
                                     {"attempts", letter.attempts}};
    if (letter.type.empty()) {
        object["position"] = letter.position;
        object["record"] = letter.text;
        return object;
    }
    object["type"] = letter.type;
    object["sample"] = letter.text;
    if (!letter.cdr.empty()) {
        object["idl"] = letter.idl;
        object["cdr"] = hexadecimal(letter.cdr);
    }
    return object;
}

} // namespace ferry
