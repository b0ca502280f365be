// Stores over restarts, full disks, damaged and foreign files, and failing calls.
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <set>

#include "failing_calls.h"
#include "state_fixture.h"

namespace {

using namespace state_test;
using failing::Failure;
using failing::failure;

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
    failure = {};
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

/// What two processes do to a store.
class StateLife : public StateTest {
protected:
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
};

/// Each call of SQLite and of the system fails once in the life of a store. Whoever asks tries
/// again, as the relay does. What was taken on arrives, in its order and once, or is counted; but
/// for the last slice, which comes again if its deletion could not be kept at the end.
TEST_F(StateLife, WhateverFailsOnceCostsNothing)
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

} // namespace
