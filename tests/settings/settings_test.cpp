// The grammar that native and Java adapters share, from one table of cases for both.
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "settings/suggestion.h"
#include "settings/value.h"

using namespace ferry;

TEST(Settings, NumbersAreReadAndPrintedAsInJava)
{
    std::ifstream cases(FERRY_TEST_DATA "/grammar.cases");
    std::string line;
    int seen = 0;
    while (std::getline(cases, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line);
        std::string kind;
        std::string low;
        std::string high;
        std::string text;
        std::string result;
        std::getline(fields, kind, '|');
        std::getline(fields, low, '|');
        std::getline(fields, high, '|');
        std::getline(fields, text, '|');
        std::getline(fields, result);
        FERRY_Setting setting{};
        setting.kind = kind == "whole"   ? FERRY_SETTING_WHOLE
                       : kind == "bytes" ? FERRY_SETTING_BYTES
                                         : FERRY_SETTING_DURATION;
        setting.low = std::stoll(low);
        setting.high = std::stoll(high);
        SCOPED_TRACE(line);
        ++seen;
        ASSERT_EQ(accepts(setting, text), result != "-");
        if (result != "-") {
            const std::size_t printed = result.find('=');
            const auto number = parseNumber(setting, text);
            EXPECT_EQ(*number, std::stoll(result.substr(0, printed)));
            EXPECT_EQ(numberText(setting.kind, *number),
                      printed == std::string::npos ? text : result.substr(printed + 1));
        }
    }
    EXPECT_GT(seen, 50);
}

TEST(Settings, TheNearestNameIsSuggested)
{
    const std::vector<std::string> known = {"period", "batch", "batch_bytes", "position.lat"};
    EXPECT_EQ(suggestion("Perriod", known), "; did you mean \"period\"?");
    EXPECT_EQ(suggestion("LAT", known), "; did you mean \"position.lat\"?");
    EXPECT_EQ(suggestion("bathc_bytse", known), "; did you mean \"batch_bytes\"?");
    EXPECT_EQ(suggestion("period_ms", known), "; did you mean \"period\"?");
    EXPECT_EQ(suggestion("x", known), "");
    // Not by a table of so many rows.
    EXPECT_EQ(suggestion(std::string(200'000'000, 'x'), known), "");
    EXPECT_EQ(suggestion("ab", {"cd", "xy"}), "");
}
