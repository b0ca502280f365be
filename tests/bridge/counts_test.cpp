// What a sample costs, exactly: the calls into Java of a read, its return and a write, and that
// none of them allocates, in Java or natively, once the largest batch has been seen.
#include <gtest/gtest.h>

#include <map>

#include "harness.h"

using namespace bridge;

namespace {

using Counts = std::map<std::string, int>;

/// The most samples that the writer hands over at once, and the elements of a local frame.
constexpr int batch = 300;
constexpr int frame = 16;

Counts without(Counts counts)
{
    for (auto each = counts.begin(); each != counts.end();) {
        each = each->second == 0 ? counts.erase(each) : std::next(each);
    }
    return counts;
}

class CountsTest : public testing::Test {
protected:
    CountsTest() : global(startVm()), host(global)
    {
        host.execute("! createStreamReader still");
        host.execute("! createStreamWriter still");
        host.given("reader");
        host.execute("> create_writer {qel.ferrion.jni.max_samples_per_write=" +
                     std::to_string(batch) + "}");
    }
    /// Calls of a kind that one operation makes.
    Counts counted(const char *kind, const std::string &line)
    {
        fault = {kind, ""};
        host.execute(line);
        Counts counts;
        for (const std::string &call : fault.calls) {
            ++counts[call];
        }
        fault = {};
        return counts;
    }
    void lend(int count)
    {
        host.execute("> update_reader {count=" + std::to_string(count) + "}");
    }

    FERRYJNIGlobal *global;
    Host host;
};

TEST_F(CountsTest, EveryOperationMakesTheCallsThatItNeedsAndNoMore)
{
    int prepared = 32; // positions that a writer has from its creation on
    for (const int n : {0, 1, frame, frame + 1, 128, 129, 5, 1000, 1000}) {
        SCOPED_TRACE(n);
        lend(n);
        EXPECT_EQ(counted("jni", "> read"),
                  without({{"StreamReader.read", 1},
                           {"List.size", 2},
                           {"List.get", 2 * n},
                           {"DynamicDataHelper.push_to_nativeI", n},
                           {"SampleInfoHelper.push_to_nativeI", n},
                           {"PushLocalFrame", 1 + std::max(0, n - 1) / frame}}));
        EXPECT_EQ(
            counted("jni", "> return_loan"),
            (Counts{{"StreamReader.returnLoan", 1}, {"List.clear", 2}, {"PushLocalFrame", 1}}));
        int batches = 0;
        int frames = 1;
        for (int left = n; left > 0; left -= batch, ++batches) {
            frames += (std::min(left, batch) - 1) / frame;
        }
        const int fresh = std::max(0, std::min(n, batch) - prepared);
        prepared += fresh;
        EXPECT_EQ(counted("jni", "> write *" + std::to_string(n)),
                  without({{"StreamWriter.write", batches},
                           {"List.clear", 2 * batches},
                           {"List.add", 2 * n},
                           {"DynamicDataHelper.pull_from_nativeI", n},
                           {"SampleInfoHelper.pull_from_nativeI", n},
                           {"new DynamicData", fresh},
                           {"new SampleInfo", fresh},
                           {"NewGlobalRef", 2 * fresh},
                           {"PushLocalFrame", frames}}));
    }
}

TEST_F(CountsTest, NothingIsAllocatedOnceTheLargestBatchHasBeenSeen)
{
    constexpr int warmUps = 20;
    lend(1000);
    for (int round = 0; round < warmUps + 5; ++round) {
        transcript();
        // The writer's answer to one batch is what the whole round has allocated.
        for (const char *line : {"> read", "> return_loan", "> write *100"}) {
            const Counts blocks = counted("heap", line);
            EXPECT_TRUE(round == 0 || blocks.empty()) << line << ": " << blocks.begin()->first;
        }
        const std::string text = transcript();
        EXPECT_TRUE(round < warmUps || text.find("\n< 0") != std::string::npos) << text;
    }
}

} // namespace
