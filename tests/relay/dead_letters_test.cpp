// Dead letters: what a person reads of them, their bound, and two processes at one file.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "failing_calls.h"
#include "folder_test.h"
#include "qddsc/dynamic_data.h"
#include "state/dead_letters.h"
#include "state/sample_json.h"

namespace {

using namespace ferry;
namespace fs = std::filesystem;

const DDS_TypeCode *typeOf(const char *idl, const char *name)
{
    DDS_TypeLibrary *library = DDS_TypeLibrary_new();
    DDS_ErrorText error{};
    EXPECT_EQ(DDS_TypeLibrary_add_idl_text(library, idl, "test.idl", &error), 1) << error.text;
    const DDS_TypeCode *const type = DDS_TypeLibrary_find(library, name);
    DDS_TypeLibrary_delete(library);
    return type;
}

struct DeleteSample {
    void operator()(DDS_DynamicData *sample) const
    {
        DDS_DynamicData_delete(sample);
    }
};
using Sample = std::unique_ptr<DDS_DynamicData, DeleteSample>;

const char *const everyKind =
    "enum Color { RED, GREEN };"
    "struct Point { double lat; float lon; };"
    "typedef long Grid[2][2];"
    "struct All { boolean b; char c; octet o; int8 i8; short s; unsigned short us; long l;"
    " unsigned long ul; long long ll; unsigned long long ull; float f; double d; Color color;"
    " string text; sequence<Point> points; Grid grid; sequence<string> names; };";

TEST(SampleAsJson, ShowsEveryKindInALine)
{
    const Sample sample(DDS_DynamicData_new(typeOf(everyKind, "All"), nullptr));
    DDS_DynamicData *const all = sample.get();
    DDS_DynamicData_set_boolean(all, "b", 1);
    DDS_DynamicData_set_char(all, "c", 'x');
    DDS_DynamicData_set_octet(all, "o", 200);
    DDS_DynamicData_set_int8(all, "i8", -8);
    DDS_DynamicData_set_short(all, "s", -300);
    DDS_DynamicData_set_ushort(all, "us", 65535);
    DDS_DynamicData_set_long(all, "l", -70000);
    DDS_DynamicData_set_ulong(all, "ul", 4000000000U);
    DDS_DynamicData_set_longlong(all, "ll", -9000000000000000000LL);
    DDS_DynamicData_set_ulonglong(all, "ull", 18000000000000000000ULL);
    DDS_DynamicData_set_float(all, "f", 0.1F);
    DDS_DynamicData_set_double(all, "d", -std::numeric_limits<double>::infinity());
    DDS_DynamicData_set_long(all, "color", 1);
    const std::string text = "a\"\n\xc3\xbc\xff";
    DDS_DynamicData_set_string(all, "text", text.data(), text.size());
    DDS_DynamicData_set_length(all, "points", 2);
    DDS_DynamicData_set_double(all, "points[1].lat", 47.5);
    DDS_DynamicData_set_long(all, "grid[1][0]", 3);
    EXPECT_EQ(
        sampleAsJson(*all, 1000),
        R"({"b":true,"c":"x","o":200,"i8":-8,"s":-300,"us":65535,"l":-70000,"ul":4000000000,)"
        R"("ll":-9000000000000000000,"ull":18000000000000000000,"f":0.1,"d":"-inf",)"
        R"("color":"GREEN","text":"a\"\n)"
        "\xc3\xbc\xef\xbf\xbd"
        R"(","points":[{"lat":0,"lon":0},{"lat":47.5,"lon":0}],"grid":[[0,0],[3,0]],"names":[]})");
    const std::string large(1 << 20, 'z');
    DDS_DynamicData_set_string(all, "text", large.data(), large.size());
    const std::string cut = sampleAsJson(*all, 1000);
    EXPECT_EQ(cut.size(), 1003U);
    EXPECT_EQ(cut.substr(999), "z...");
    // In the middle of a character, and of elements that nobody will see.
    DDS_DynamicData_set_boolean(all, "b", 0);
    DDS_DynamicData_set_string(all, "text", "\xc3\xbc\xc3\xbc", 4);
    DDS_DynamicData_set_length(all, "points", 1000000);
    EXPECT_EQ(sampleAsJson(*all, 12), R"({"b":false,"...)");
    const std::string before = sampleAsJson(*all, 1000).substr(0, 200);
    const std::size_t at = before.find("\xc3\xbc");
    EXPECT_EQ(sampleAsJson(*all, at + 3), before.substr(0, at + 2) + "...");
}

class DeadLettersTest : public FolderTest {
protected:
    DeadLettersTest()
    {
        settings.file = directory / "dead.db";
    }
    static StateResult add(DeadLetters &letters, std::int32_t value)
    {
        const DDS_TypeCode *const type = typeOf("struct P { long x; };", "P");
        const Sample sample(DDS_DynamicData_new(type, nullptr));
        DDS_DynamicData_set_long(sample.get(), "x", value);
        DDS_SampleInfo info{};
        info.valid_data = 0;
        info.source_timestamp = {77, 5};
        void *samples[] = {sample.get()};
        DDS_SampleInfo *infos[] = {&info};
        return letters.add({"r", "lab/out", "no such column", 3}, *type, {samples, infos, 1});
    }
    static std::vector<KeptLetter> all(DeadLetters &letters)
    {
        std::vector<KeptLetter> found;
        EXPECT_TRUE(letters
                        .visit(0, true,
                               [&](const KeptLetter &letter) {
                                   found.push_back(letter);
                                   return true;
                               })
                        .ok());
        return found;
    }

    DeadLetters::Settings settings;
};

TEST_F(DeadLettersTest, KeepWhatIsKnownUntilSomebodyTakesThemAway)
{
    {
        DeadLetters letters(settings);
        ASSERT_TRUE(add(letters, 41).ok());
        ASSERT_TRUE(
            letters.add({"r", "lab/in", "", 0}, {{"1;zwei", "not a number", "a.csv:17"}}).ok());
    }
    DeadLetters letters(settings);
    std::vector<KeptLetter> found = all(letters);
    ASSERT_EQ(found.size(), 2U);
    const KeptLetter &first = found[0];
    EXPECT_EQ(first.route + ' ' + first.end + ' ' + first.reason + ' ' + first.type + ' ' +
                  first.text + ' ' + std::to_string(first.attempts),
              "r lab/out no such column P {\"x\":41} 3");
    EXPECT_NE(first.idl.find("struct P"), std::string::npos);
    EXPECT_GT(first.time, 1700000000000);
    StoredSlice slice;
    const std::vector<std::uint8_t> row = rowOf(first);
    std::copy(row.begin(), row.end(), slice.grow(row.size()));
    ASSERT_TRUE(slice.decode(0, first.id, 1));
    EXPECT_EQ(slice.info(0).source_timestamp.sec, 77);
    EXPECT_EQ(slice.info(0).valid_data, 0);
    EXPECT_EQ(slice.sample(0).length, first.cdr.size());
    EXPECT_EQ(found[1].position + ' ' + found[1].text + ' ' + found[1].reason,
              "a.csv:17 1;zwei not a number");
    EXPECT_TRUE(found[1].cdr.empty());

    // Tried again in vain by another process, while this one has the file and adds to it.
    const pid_t child = fork();
    if (child == 0) {
        DeadLetters theirs(settings);
        std::size_t deleted = 0;
        const bool good = theirs.failedAgain(1, "still none", 2).ok() &&
                          theirs.remove({{1, 3}, {2, 0}}, deleted).ok() && deleted == 1;
        _exit(good ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ASSERT_TRUE(add(letters, 42).ok());
    found = all(letters);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].reason + std::to_string(found[0].attempts), "still none5");
    EXPECT_EQ(found[1].id, 3);
}

/// Each call of SQLite and of the system fails once, and whoever asks tries again.
TEST_F(DeadLettersTest, NoneGoesByAFailure)
{
    const failing::Failure ways[] = {
        {1, SQLITE_IOERR, EIO}, {1, SQLITE_FULL, ENOSPC}, {1, SQLITE_BUSY, EINTR}};
    int number = 0;
    for (const failing::Failure &way : ways) {
        bool more = true;
        for (int at = 1; more; ++at) {
            settings.file = directory / (std::to_string(++number) + ".db");
            std::string texts;
            const auto persist = [&](const auto &step) {
                const StateResult result = step();
                EXPECT_TRUE(result.ok() || step().ok()) << result.text;
                texts += result.text;
            };
            failing::failure = way;
            failing::failure.at = at;
            std::size_t deleted = 0;
            std::vector<KeptLetter> found;
            {
                DeadLetters letters(settings);
                persist([&] { return add(letters, 41); });
                persist([&] { return letters.add({"r", "lab/in", "", 0}, {{"1", "bad", "a:1"}}); });
                persist([&] { return letters.failedAgain(1, "still", 2); });
                persist([&] { return letters.remove({{1, 3}, {2, 0}}, deleted); });
                persist([&] {
                    found.clear();
                    return letters.visit(0, true, [&](const KeptLetter &letter) {
                        found.push_back(letter);
                        return true;
                    });
                });
            }
            more = failing::failure.at == 0;
            failing::failure = {};
            EXPECT_EQ(deleted, 1U) << texts;
            ASSERT_EQ(found.size(), 1U) << texts;
            EXPECT_EQ(found[0].text + found[0].reason + std::to_string(found[0].attempts),
                      R"({"x":41}still5)");
        }
    }
}

TEST_F(DeadLettersTest, AreBoundedAndADamagedFileMakesPlaceForANewOne)
{
    std::string notices;
    settings.maxBytes = 1000;
    settings.notify = [&notices](const std::string &text) { notices += text; };
    {
        DeadLetters letters(settings);
        StateResult result;
        std::int32_t kept = 0;
        while (result.ok() && kept < 100) {
            result = add(letters, kept);
            kept += result.ok() ? 1 : 0;
        }
        EXPECT_EQ(result.fault, Fault::full);
        EXPECT_NE(result.text.find("of 1000 bytes"), std::string::npos) << result.text;
        EXPECT_EQ(all(letters).size(), static_cast<std::size_t>(kept));
        std::size_t deleted = 0;
        ASSERT_TRUE(letters.remove({{1, 3}}, deleted).ok());
        EXPECT_EQ(deleted, 1U);
        EXPECT_TRUE(add(letters, kept).ok()) << "who takes one away makes room";
    }
    fs::resize_file(settings.file, 5000);
    settings.setsAside = false;
    DeadLetters theirs(settings);
    EXPECT_EQ(theirs.visit(0, false, [](const KeptLetter &) { return true; }).fault,
              Fault::corrupt);
    settings.setsAside = true;
    DeadLetters letters(settings);
    EXPECT_TRUE(add(letters, 1).ok());
    EXPECT_NE(notices.find("dead.db.damaged-20"), std::string::npos) << notices;
}

} // namespace
