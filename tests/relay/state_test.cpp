// The state directory, what stands in a row of a store, and the stream that makes a plug-in's two
// ends of a buffer.
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <fstream>
#include <set>

#include "counting_new.h"
#include "engine/stored_stream.h"
#include "failing_calls.h"
#include "qddscore/heap.h"
#include "state/memory_queue.h"
#include "state/state_directory.h"
#include "state_fixture.h"

namespace {

using namespace state_test;
using failing::failure;

/// Runs in a process of its own; its result says whether all was as expected.
template<class Body> int inChild(Body &&body)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(StateTest, OneProcessAtATime)
{
    StateDirectory mine(directory / "state");
    ASSERT_TRUE(mine.open().ok());
    EXPECT_EQ(fs::status(mine.path()).permissions(), fs::perms::owner_all);
    reopened();
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(inChild([&] {
                  StateDirectory theirs(directory / "state");
                  const StateResult result = theirs.open();
                  return result.fault == Fault::busy &&
                         result.text.find("in use by process " + pid) != std::string::npos;
              }),
              0);
    EXPECT_EQ(inChild([&] {
                  const StateResult result = Store(settings).open();
                  return result.fault == Fault::busy &&
                         result.text.find("another process uses the file") != std::string::npos;
              }),
              0);
    EXPECT_EQ(inChild([&] {
                  StateDirectory theirs(directory / "next");
                  std::raise(theirs.open().ok() ? SIGKILL : SIGABRT);
                  return false;
              }),
              -1);
    StateDirectory next(directory / "next");
    EXPECT_TRUE(next.open().ok()) << "a lock goes with its process";
    StateDirectory missing(directory / "no" / "such");
    EXPECT_NE(missing.open().text.find("No such file"), std::string::npos);
}

TEST_F(StateTest, ADirectoryIsMadeWholeOrMadeAgain)
{
    for (const int code : {EIO, ENOSPC}) {
        bool more = true;
        for (int at = 1; more; ++at) {
            StateDirectory state(directory / fmt::format("{}-{}", code, at));
            failure = {at, SQLITE_OK, code};
            const StateResult result = state.open();
            more = failure.at == 0;
            failure = {};
            EXPECT_TRUE(result.ok() || result.fault == (code == EIO ? Fault::io : Fault::full));
            EXPECT_TRUE(result.ok() || result.text.find(state.path()) != std::string::npos);
            EXPECT_TRUE(state.open().ok());
            std::string version;
            std::ifstream(state.path() / "version") >> version;
            EXPECT_EQ(version, "1") << at;
        }
    }
    fs::create_directory(directory / "old");
    std::ofstream(directory / "old" / "version") << "7\n";
    EXPECT_NE(StateDirectory(directory / "old").open().text.find("has version \"7\", this ferry"),
              std::string::npos);
}

TEST(StoredSlice, TakesNoRowThatIsTorn)
{
    Samples samples(1, 2);
    DDS_SampleInfo info = fullInfo(1);
    samples.infos = {&info, nullptr};
    std::vector<std::uint8_t> bytes;
    std::vector<SliceRow> rows;
    layOut(samples.list(), 2, 1000, bytes, rows);
    StoredSlice slice;
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        std::copy_n(bytes.begin(), length, slice.grow(length));
        EXPECT_EQ(slice.decode(0, 1, 2), length == bytes.size()) << length;
        EXPECT_EQ(slice.count(), length == bytes.size() ? 2 : 0);
    }
}

TEST(StateNames, AreSafeAndNeverAlike)
{
    const StateDirectory directory("/s");
    const std::string longName(300, 'n');
    const std::vector<std::vector<std::string>> parts = {{"a", "b/c"},
                                                         {"a", "b%2Fc"},
                                                         {"a~b", "c"},
                                                         {"a", "b~c"},
                                                         {"", "a"},
                                                         {"a", ""},
                                                         {"..", "lab"},
                                                         {longName + "1", "x"},
                                                         {longName + "2", "x"},
                                                         {"\xc3\xbc\n", "y"}};
    std::set<std::string> names;
    for (const auto &part : parts) {
        const fs::path file = directory.file(part);
        EXPECT_EQ(file.parent_path(), "/s");
        EXPECT_LT(file.filename().string().size(), 240U);
        EXPECT_NE(file.filename().string()[0], '.');
        names.insert(file.string());
    }
    EXPECT_EQ(names.size(), parts.size());
    EXPECT_EQ(directory.file({"obs", "lab/t.csv"}), "/s/obs~lab%2Ft.csv.db");
}

TEST_F(StateTest, AStreamLendsWhatItsBufferKeeps)
{
    MemoryQueue queue({900, 4, 1U << 20});
    settings.maxBytes = 900;
    reopened();
    for (SampleBuffer *buffer :
         {static_cast<SampleBuffer *>(&queue), static_cast<SampleBuffer *>(store.get())}) {
        int rooms = 0;
        int signals = 0;
        StoredStream stream(*buffer, typeOf("x"), [&rooms] { ++rooms; });
        QEL_FerrionEnvironment environment{};
        const auto &operations = StoredStream::operations;
        const auto write = [&](int first, int count, std::size_t size) {
            Samples samples(first, count, size);
            environment = {};
            const SampleList list = samples.list();
            return operations.write(stream.writer(), list.samples, list.infos, list.count,
                                    &environment);
        };
        void **samples = nullptr;
        DDS_SampleInfo **infos = nullptr;
        std::int32_t count = 0;
        const auto read = [&] {
            environment = {};
            operations.read(stream.reader(), &samples, &infos, &count, &environment);
            std::vector<int> values;
            for (int i = 0; i < count; ++i) {
                values.push_back(0);
                DDS_DynamicData_get_long(static_cast<DDS_DynamicData *>(samples[i]), "x",
                                         &values.back());
                EXPECT_GT(numberOf(*infos[i]), 0);
            }
            return values;
        };
        const auto giveBack = [&] {
            operations.return_loan(stream.reader(), samples, infos, count, &environment);
        };
        stream.start(
            {&signals, [](QEL_FerrionStreamReader *, void *data) { ++*static_cast<int *>(data); }});
        EXPECT_EQ(signals, 0);
        EXPECT_EQ(write(1, 2, 200), 2);
        EXPECT_EQ(signals, 1);
        EXPECT_EQ(read(), range(1, 2));
        stream.stop();
        EXPECT_EQ(write(3, 1, 200), 1);
        EXPECT_EQ(signals, 1);
        stream.start(
            {&signals, [](QEL_FerrionStreamReader *, void *data) { ++*static_cast<int *>(data); }});
        EXPECT_EQ(signals, 2) << "samples wait";
        EXPECT_EQ(read(), range(1, 3));
        if (buffer == &queue) {
            EXPECT_EQ(write(4, 1, 700), 1); // what is lent stays, and room is made for the newest
            EXPECT_EQ(write(5, 1, 700), 1);
            EXPECT_EQ(queue.level().dropped, 1U);
        } else {
            EXPECT_EQ(write(5, 1, 700), 0);
            EXPECT_NE(std::string(environment.message).find("is full"), std::string::npos);
        }
        giveBack();
        EXPECT_EQ(rooms, 0);
        EXPECT_EQ(read(), buffer == &queue ? range(5, 5) : range(1, 0));
        EXPECT_EQ(rooms, buffer == &queue ? 0 : 1);
        giveBack();
        EXPECT_EQ(write(6, 1, 40000), 1);
        EXPECT_EQ(read(), range(6, 6));
        giveBack();
        // A steady state allocates nothing, but for what SQLite does.
        QELOsapiHeapUsage usage{};
        for (int i = 0; i < 40; ++i) {
            Samples some(10, 3, 100);
            const SampleList list = some.list();
            QELOsapiHeap_getUsage(&usage);
            const std::int64_t blocks = usage.blocks;
            const std::uint64_t before = scripted::allocations();
            EXPECT_EQ(operations.write(stream.writer(), list.samples, list.infos, 3, &environment),
                      3);
            operations.read(stream.reader(), &samples, &infos, &count, &environment);
            giveBack();
            QELOsapiHeap_getUsage(&usage);
            EXPECT_TRUE(i < 20 || scripted::allocations() == before) << i;
            EXPECT_TRUE(i < 20 || usage.blocks == blocks) << i;
            EXPECT_EQ(count, 3);
        }
    }
}

} // namespace
