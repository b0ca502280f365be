// What outlives a process: stores over restarts, full disks, damaged and foreign files, failed
// syncs; the state directory; and the stream that makes a plug-in's two ends of a buffer.
#include <csignal>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <set>

#include "counting_new.h"
#include "engine/stored_stream.h"
#include "failing_calls.h"
#include "qddscore/heap.h"
#include "state/memory_queue.h"
#include "state/state_directory.h"
#include "state/store.h"

namespace {

using namespace ferry;
using failing::Failure;
using failing::failure;
namespace fs = std::filesystem;

const DDS_TypeCode *typeOf(const char *member)
{
    const DDS_StructMember members[] = {{member, DDS_TypeCode_get_primitive(DDS_TK_LONG), 0},
                                        {"text", DDS_TypeCode_create_string(0, nullptr), 0}};
    return DDS_TypeCode_create_struct("Row", nullptr, DDS_EXTENSIBILITY_FINAL, members, 2, nullptr);
}

/// Samples whose member x counts up, with a text of `size` characters.
class Samples {
public:
    Samples(int first, int count, std::size_t size = 8) : infos(static_cast<std::size_t>(count))
    {
        const std::string text(size, 't');
        for (int i = 0; i < count; ++i) {
            auto *sample = DDS_DynamicData_new(typeOf("x"), nullptr);
            DDS_DynamicData_set_long(sample, "x", first + i);
            DDS_DynamicData_set_string(sample, "text", text.data(), text.size());
            samples_.push_back(sample);
        }
    }
    ~Samples()
    {
        for (void *sample : samples_) {
            DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(sample));
        }
    }
    Samples(const Samples &) = delete;
    Samples &operator=(const Samples &) = delete;

    SampleList list()
    {
        return {samples_.data(), infos.data(), static_cast<std::int32_t>(samples_.size())};
    }

    /// Null until a test sets them.
    std::vector<DDS_SampleInfo *> infos;

private:
    std::vector<void *> samples_;
};

int valueOf(const StoredSlice::Sample &stored)
{
    auto *sample = DDS_DynamicData_new(typeOf("x"), nullptr);
    int value = -1;
    if (DDS_DynamicData_set_cdr(sample, stored.cdr, stored.length, nullptr) == DDS_RETCODE_OK) {
        DDS_DynamicData_get_long(sample, "x", &value);
    }
    DDS_DynamicData_delete(sample);
    return value;
}

std::vector<int> valuesOf(const StoredSlice &slice)
{
    std::vector<int> values;
    for (std::int32_t i = 0; i < slice.count(); ++i) {
        values.push_back(valueOf(slice.sample(i)));
    }
    return values;
}

std::int64_t numberOf(const DDS_SampleInfo &info)
{
    return std::int64_t{info.publication_sequence_number.high} << 32 |
           info.publication_sequence_number.low;
}

class StateTest : public testing::Test {
protected:
    StateTest()
    {
        char name[] = "/tmp/ferry-state-XXXXXX";
        directory = mkdtemp(name);
        settings.file = directory / "s.db";
        settings.maxBytes = 1 << 20;
        settings.maxSamples = 4;
        settings.route = "r";
        settings.output = "lab/out";
        settings.type = typeOf("x");
        settings.notify = [this](const std::string &text) { notices += text + "\n"; };
    }
    ~StateTest() override
    {
        fs::remove_all(directory);
    }

    /// A fresh object over the same file, as a new process has it.
    Store &reopened()
    {
        store.reset();
        store = std::make_unique<Store>(settings);
        opened = store->open();
        return *store;
    }
    StateResult append(int first, int count, std::size_t size = 8)
    {
        return store->append(Samples(first, count, size).list());
    }
    /// The oldest samples; they stay.
    std::vector<int> look()
    {
        const StateResult result = store->oldest(slice);
        EXPECT_TRUE(result.ok()) << result.text;
        return valuesOf(slice);
    }
    /// All that is left, delivered.
    std::vector<int> drain()
    {
        std::vector<int> all;
        for (std::vector<int> some = look(); !some.empty(); some = look()) {
            all.insert(all.end(), some.begin(), some.end());
            store->advance();
        }
        return all;
    }
    /// Files beside the store whose names say why.
    std::vector<std::string> setAside(const std::string &why)
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(directory)) {
            const std::string name = entry.path().filename().string();
            if (name.rfind("s.db." + why + "-20", 0) == 0) {
                names.push_back(name);
            }
        }
        return names;
    }
    /// Once more if it does not succeed, as long as anything is about to fail.
    void persist(const std::function<StateResult()> &step)
    {
        StateResult result = step();
        if (!result.ok()) {
            EXPECT_NE(result.text.find("s.db"), std::string::npos) << result.text;
            result = step();
        }
        EXPECT_TRUE(result.ok()) << result.text;
    }
    /// Two processes take on six samples each. The last three of the first one are damaged between
    /// them. Returns what the output got of these and of a third one.
    std::vector<int> liveTwice()
    {
        std::vector<int> all;
        const auto deliver = [&] {
            persist([&] { return store->oldest(slice); });
            const std::vector<int> some = valuesOf(slice);
            all.insert(all.end(), some.begin(), some.end());
            store->advance();
            return !some.empty();
        };
        for (const int first : {1, 7, 13}) {
            store.reset();
            if (first == 7) {
                damageLast();
            }
            store = std::make_unique<Store>(settings);
            persist([&] { return store->open(); });
            for (int value = first; value < first + 6 && first < 13; value += 3) {
                persist([&] { return append(value, 3); });
                if (value == 1) {
                    deliver();
                }
            }
        }
        while (deliver()) {
        }
        return all;
    }
    void damageLast() const
    {
        const Failure later = std::exchange(failure, {});
        sqlite3 *database = nullptr;
        ASSERT_EQ(sqlite3_open(settings.file.c_str(), &database), SQLITE_OK);
        sqlite3_exec(
            database,
            "UPDATE slices SET hash = hash + 1 WHERE first = (SELECT max(first) FROM slices)",
            nullptr, nullptr, nullptr);
        sqlite3_close(database);
        failure = later;
    }
    static std::vector<int> range(int first, int last)
    {
        std::vector<int> values;
        for (int i = first; i <= last; ++i) {
            values.push_back(i);
        }
        return values;
    }

    fs::path directory;
    StoreSettings settings;
    std::unique_ptr<Store> store;
    StateResult opened;
    StoredSlice slice;
    std::string notices;
};

/// Every field of the information differs from zero and from its neighbours.
DDS_SampleInfo fullInfo(int seed)
{
    DDS_SampleInfo info{};
    auto *bytes = reinterpret_cast<std::uint8_t *>(&info);
    for (std::size_t i = 0; i < sizeof info; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i + static_cast<std::size_t>(seed) * 7 + 1);
    }
    info.valid_data = seed & 1;
    return info;
}

TEST_F(StateTest, SamplesAndTheirInformationOutliveTheProcess)
{
    reopened();
    DDS_SampleInfo infos[] = {fullInfo(1), fullInfo(2), fullInfo(3)};
    Samples samples(1, 6);
    samples.infos = {&infos[0], &infos[1], nullptr, &infos[2], nullptr, nullptr};
    ASSERT_TRUE(store->append(samples.list()).ok());
    ASSERT_TRUE(append(7, 1).ok());
    ASSERT_TRUE(append(8, 1).ok());
    ASSERT_TRUE(append(9, 2, 70000).ok());
    reopened();
    EXPECT_EQ(store->level().samples, 10U);
    EXPECT_GT(store->level().oldest, 0);
    ASSERT_EQ(look(), range(1, 4)); // as many as a write may have
    const std::int64_t first = numberOf(slice.info(0));
    EXPECT_GT(first, 1700000000000000000) << "numbers begin at the time of day";
    for (const int i : {0, 1, 3}) {
        DDS_SampleInfo expected = infos[i == 3 ? 2 : i];
        expected.publication_sequence_number = slice.info(i).publication_sequence_number;
        EXPECT_EQ(std::memcmp(&slice.info(i), &expected, sizeof expected), 0) << i;
        EXPECT_EQ(numberOf(slice.info(i)), first + i);
    }
    EXPECT_EQ(slice.info(2).valid_data, 1);
    EXPECT_EQ(slice.info(2).source_timestamp.sec, -1);
    EXPECT_EQ(look(), range(1, 4)); // not delivered yet
    store->advance();
    EXPECT_EQ(look(), range(5, 8)); // what was appended apart goes together
    reopened();                     // given up
    EXPECT_EQ(drain(), range(5, 10));
    ASSERT_TRUE(append(11, 1).ok());
    reopened();
    EXPECT_EQ(look(), range(11, 11));
    EXPECT_EQ(numberOf(slice.info(0)), first + 10);
    EXPECT_EQ(notices, "");
}

TEST_F(StateTest, AFullStoreBlocksOrDropsAndCountsIt)
{
    settings.maxBytes = 1000;
    reopened();
    ASSERT_TRUE(append(1, 1, 5000).ok()) << "an empty store takes any sample";
    EXPECT_EQ(append(2, 1).fault, Fault::full);
    EXPECT_NE(append(2, 1).text.find("is full: 50"), std::string::npos);
    EXPECT_EQ(look(), range(1, 1));
    store->advance();
    EXPECT_TRUE(append(2, 1, 300).ok()) << "what is delivered makes room";
    EXPECT_TRUE(append(3, 1, 300).ok());
    EXPECT_EQ(append(4, 1, 300).fault, Fault::full);

    settings.whenFull = WhenFull::dropOldest;
    reopened();
    settings.maxSamples = 1;
    reopened();
    EXPECT_EQ(look(), range(2, 2));
    EXPECT_TRUE(append(4, 1, 300).ok());
    EXPECT_TRUE(append(5, 1, 300).ok());
    EXPECT_EQ(look(), range(2, 2)) << "what is being delivered stays";
    EXPECT_EQ(store->level().dropped, 2U);
    reopened();
    EXPECT_EQ(store->level().dropped, 2U);
    EXPECT_EQ(drain(), (std::vector<int>{2, 5}));

    settings.whenFull = WhenFull::dropNewest;
    reopened();
    EXPECT_TRUE(append(6, 2, 400).ok());
    EXPECT_TRUE(append(8, 3, 300).ok());
    reopened();
    EXPECT_EQ(store->level().dropped, 5U);
    EXPECT_EQ(drain(), range(6, 7));
    EXPECT_LT(fs::file_size(settings.file), 3U << 20);
}

/// Over restarts, failed appends and a damaged file; by source, as far as samples are numbered.
TEST_F(StateTest, WhatANumberedSourceLendsAgainIsLeftOut)
{
    const auto lent = [this](int first, int count, std::uint8_t source, bool numbered = true) {
        std::vector<DDS_SampleInfo> infos(static_cast<std::size_t>(count));
        Samples samples(first, count);
        for (std::size_t i = 0; i < infos.size(); ++i) {
            infos[i].publication_handle.keyHash[15] = source;
            infos[i].publication_sequence_number.low =
                static_cast<std::uint32_t>(first) + static_cast<std::uint32_t>(i);
            samples.infos[i] = &infos[i];
        }
        SampleList list = samples.list();
        list.numbered = numbered;
        return store->append(list);
    };
    reopened();
    ASSERT_TRUE(lent(1, 4, 1).ok());
    reopened();
    EXPECT_TRUE(lent(1, 4, 1).ok());
    EXPECT_TRUE(lent(3, 4, 1).ok());
    EXPECT_TRUE(lent(5, 2, 2).ok()) << "another source";
    EXPECT_TRUE(lent(1, 2, 1, false).ok()) << "not numbered";
    EXPECT_TRUE(lent(0, 1, 1).ok()) << "without a number";
    EXPECT_EQ(drain(), (std::vector<int>{1, 2, 3, 4, 5, 6, 5, 6, 1, 2, 0}));

    failure = {1, SQLITE_IOERR_WRITE, EIO};
    EXPECT_FALSE(lent(7, 1, 1).ok());
    EXPECT_TRUE(lent(7, 1, 1).ok()) << "what failed is taken when it comes again";
    settings.maxBytes = 100;
    reopened();
    EXPECT_EQ(lent(8, 3, 1).fault, Fault::full);
    EXPECT_EQ(drain(), range(7, 7));
    EXPECT_TRUE(lent(8, 3, 1).ok());
    EXPECT_EQ(drain(), range(8, 10));
    for (std::uint8_t source = 3; source != 2; ++source) {
        ASSERT_TRUE(lent(1, 1, source).ok());
        drain();
    }
    EXPECT_TRUE(lent(10, 1, 1).ok());
    EXPECT_EQ(drain(), (std::vector<int>{})) << "the sources that moved last are known";
}

/// Each call of SQLite and of the system fails once in the life of a store. Whoever asks tries
/// again, as the relay does. What was taken on arrives, in its order and once, or is counted; but
/// for the last slice, which comes again if its deletion could not be kept at the end.
TEST_F(StateTest, WhateverFailsOnceCostsNothing)
{
    const std::pair<Failure, WhenFull> ways[] = {
        {{1, SQLITE_IOERR_WRITE, EIO}, WhenFull::block},
        {{1, SQLITE_IOERR_WRITE, EIO}, WhenFull::dropOldest},
        {{1, SQLITE_IOERR_FSYNC, EIO, true}, WhenFull::block},
        {{1, SQLITE_FULL, ENOSPC}, WhenFull::block},
        {{1, SQLITE_CORRUPT, EIO}, WhenFull::dropOldest}};
    for (const auto &[way, whenFull] : ways) {
        settings.whenFull = whenFull;
        settings.maxBytes = whenFull == WhenFull::block ? 1 << 20 : 250;
        bool more = true;
        for (int at = 1; more && !HasFailure(); ++at) {
            SCOPED_TRACE(std::to_string(way.sqlite) + " at call " + std::to_string(at));
            failure = way;
            failure.at = at;
            const std::vector<int> all = liveTwice();
            more = failure.at == 0;
            failure = {};
            std::vector<int> once;
            std::set<int> known;
            std::copy_if(all.begin(), all.end(), std::back_inserter(once),
                         [&](int value) { return known.insert(value).second; });
            EXPECT_TRUE(std::is_sorted(once.begin(), once.end()));
            EXPECT_LE(all.size(), once.size() + 4);
            const BufferLevel level = store->level();
            const bool losesFile = notices.find("the file is now") != std::string::npos;
            EXPECT_TRUE(losesFile || once.size() + level.dropped + level.damaged == 12) << notices;
            EXPECT_TRUE(losesFile ? way.sqlite == SQLITE_CORRUPT
                                  : level.damaged == (whenFull == WhenFull::block ? 3 : 0))
                << level.damaged << notices;
            store.reset();
            for (const auto &entry : fs::directory_iterator(directory)) {
                fs::remove(entry);
            }
            notices.clear();
        }
    }
}

TEST_F(StateTest, DamagedAndForeignFilesAreNamedAndSetAside)
{
    settings.maxSamples = 1;
    reopened();
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(append(i, 1, 50000).ok());
    }
    look();
    const std::int64_t number = numberOf(slice.info(0));
    store.reset();
    // Somewhere in the text of the second sample, then most of the file's structure.
    std::fstream file(settings.file, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(16384 * 5 + 70000);
    file.write("damage", 6);
    file.close();
    reopened();
    EXPECT_EQ(drain(), (std::vector<int>{1, 3}));
    EXPECT_EQ(store->level().damaged, 1U);
    EXPECT_NE(notices.find("the 1 samples from number"), std::string::npos) << notices;
    ASSERT_TRUE(append(4, 1).ok());
    store.reset();

    file.open(settings.file, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(100);
    file << std::string(30000, 'x');
    file.close();
    reopened();
    EXPECT_TRUE(opened.ok()) << opened.text;
    EXPECT_EQ(setAside("damaged").size(), 1U) << notices;
    ASSERT_TRUE(append(5, 1).ok());
    EXPECT_EQ(look(), range(5, 5));
    EXPECT_GT(numberOf(slice.info(0)), number + 4);
    store.reset();

    std::ofstream(settings.file) << std::string(20000, 'z');
    reopened();
    EXPECT_TRUE(opened.ok()) << opened.text;
    EXPECT_EQ(setAside("foreign").size(), 1U) << notices;
    store.reset();
    fs::remove(settings.file);
    Database other;
    const DatabaseKind kind = {"book", 77, 1, "CREATE TABLE mine (a)"};
    DatabaseFile theirs;
    theirs.kind = &kind;
    theirs.path = settings.file;
    ASSERT_TRUE(other.open(theirs).ok());
    other.close();
    reopened();
    EXPECT_TRUE(opened.ok()) << opened.text;
    EXPECT_EQ(setAside("foreign").size(), 2U) << notices;
    EXPECT_NE(notices.find("is no store; the file is now"), std::string::npos) << notices;
}

TEST_F(StateTest, AStoreOfAnotherRouteOutputTypeOrVersionIsAnError)
{
    reopened();
    ASSERT_TRUE(append(1, 1).ok());
    const auto rejected = [this](const StoreSettings &changed) {
        store.reset();
        Store wrong(changed);
        const StateResult result = wrong.open();
        EXPECT_EQ(result.fault, Fault::rejected);
        return result.text;
    };
    StoreSettings changed = settings;
    changed.output = "lab/other";
    EXPECT_NE(rejected(changed).find("belongs to output \"lab/out\" of route \"r\", not to output "
                                     "\"lab/other\""),
              std::string::npos);
    changed = settings;
    changed.type = typeOf("y");
    EXPECT_NE(rejected(changed).find("another type, \"Row\": Row"), std::string::npos)
        << rejected(changed);
    {
        sqlite3 *database = nullptr;
        ASSERT_EQ(sqlite3_open(settings.file.c_str(), &database), SQLITE_OK);
        sqlite3_exec(database, "PRAGMA user_version = 9", nullptr, nullptr, nullptr);
        sqlite3_close(database);
    }
    EXPECT_NE(rejected(settings).find("has version 9"), std::string::npos);
    EXPECT_TRUE(setAside("foreign").empty() && setAside("damaged").empty());
}

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

/// Our own store must be able to empty itself on a disk that it has filled.
TEST_F(StateTest, AFullDiskHoldsUpAppendsAndNotDeliveries)
{
    const fs::path disk = directory / "disk";
    fs::create_directory(disk);
    if (mount("none", disk.c_str(), "tmpfs", 0, "size=6m") != 0) {
        GTEST_SKIP() << "a small file system needs root";
    }
    settings.file = disk / "s.db";
    settings.maxBytes = 100 << 20;
    settings.maxSamples = 1;
    reopened();
    int value = 0;
    StateResult result;
    while (result.ok() && value < 1000) {
        result = append(++value, 1, 30000);
    }
    EXPECT_EQ(result.fault, Fault::full) << result.text;
    std::ofstream(disk / "rest") << std::string(6 << 20, 'r'); // to the last byte
    EXPECT_EQ(append(value, 1, 30000).fault, Fault::full);
    std::vector<int> all;
    for (int i = 0; i < value / 2; ++i) {
        const std::vector<int> some = look();
        all.insert(all.end(), some.begin(), some.end());
        store->advance();
    }
    EXPECT_EQ(all, range(1, value / 2));
    fs::remove(disk / "rest");
    EXPECT_TRUE(append(value, 1, 30000).ok());
    all = drain();
    EXPECT_EQ(all, range(value / 2 + 1, value));
    // The log takes all of the disk, and its space is used again.
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(append(++value, 1, 30000).ok()) << i;
        EXPECT_EQ(drain(), range(value, value));
    }
    store.reset();
    umount2(disk.c_str(), MNT_DETACH);
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
