// Moving samples: loans, slices, errors, signals, and what one failure may touch.
#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include "counting_new.h"
#include "relay_fixture.h"

namespace {

using namespace ferry;
using namespace scripted;
using Texts = std::vector<std::string>;

TEST_F(RelayTest, HandsOneLoanToEveryOutputInSlicesWithoutItsGaps)
{
    addRoute("r", "a/in", {"b/x", "c/y"}).outputs[0].maxSamplesPerWrite = 3;
    script.stream("in").reads = {{{1, 2, -1, 4, 5, 6, 7, 8}, ""}, {{9}, ""}};
    int writesBeforeReturn = -1;
    script.hooks["return_loan in"] = [&] {
        if (writesBeforeReturn < 0) {
            writesBeforeReturn = static_cast<int>(script.stream("x").writes.size() +
                                                  script.stream("y").writes.size());
        }
    };
    EXPECT_EQ(runUntilIdle(), exitErrors); // one sample was not there
    const auto &x = script.stream("x").writes;
    const auto &y = script.stream("y").writes;
    ASSERT_EQ(x.size(), 4U);
    ASSERT_EQ(y.size(), 2U);
    EXPECT_EQ(x[0].samples, (std::vector<int>{1, 2, 4}));
    EXPECT_EQ(x[1].samples, (std::vector<int>{5, 6, 7}));
    EXPECT_EQ(x[2].samples, (std::vector<int>{8}));
    EXPECT_EQ(y[0].samples, (std::vector<int>{1, 2, 4, 5, 6, 7, 8}));
    EXPECT_EQ(y[0].infos, y[0].samples);
    EXPECT_EQ(x[1].infos, x[1].samples);
    EXPECT_EQ(x[0].array, y[0].array);
    EXPECT_EQ(writesBeforeReturn, 4);
    EXPECT_EQ(summary(), "r: 8 read, 8 written, 0 errors, 1 unreadable\n"
                         "  to b/x: 8 written, 0 lost\n"
                         "  to c/y: 8 written, 0 lost\n");
}

TEST_F(RelayTest, CountsAFailedSliceAsLostAndGoesOn)
{
    addRoute("r", "a/in", {"b/x", "c/y"}).outputs[0].maxSamplesPerWrite = 2;
    script.stream("in").reads = {{{1, 2, 3, 4, 5}, ""}, {{6}, ""}};
    script.stream("x").onWrite = [](const Write &write, std::string &error) {
        error = write.samples[0] == 3 ? "disk is full" : "";
        return 2;
    };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.stream("x").writes.size(), 4U);
    EXPECT_EQ(summary(), "r: 6 read, 4 written, 1 errors, 2 lost\n"
                         "  to b/x: 4 written, 2 lost\n"
                         "  to c/y: 6 written, 0 lost\n");
    EXPECT_NE(log.find("adapter 'b' error: route r: write of b/x: disk is full"), std::string::npos)
        << log;
}

TEST_F(RelayTest, StopsARouteWhoseOutputFailsWhenAskedTo)
{
    RouteSettings &stopped = addRoute("r", "a/in", {"b/x", "c/y"});
    stopped.onError = OnError::stop;
    stopped.outputs[0].maxSamplesPerWrite = 2;
    addRoute("other", "a/in2", {"c/z"});
    script.stream("in").reads = {{{1, 2, 3, 4, 5}, ""}, {{6}, ""}};
    script.stream("in2").reads = {{{1}, ""}, {{2}, ""}, {{3}, ""}};
    script.stream("x").onWrite = [](const Write &, std::string &error) {
        error = "no";
        return 0;
    };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.stream("x").writes.size(), 1U);
    EXPECT_EQ(script.stream("y").writes.size(), 1U); // the same loan still goes to the others
    EXPECT_EQ(script.stream("in").readCalls, 1);
    EXPECT_EQ(script.stream("z").writes.size(), 3U);
    EXPECT_NE(log.find("the following topic route will be disabled from now on: r"),
              std::string::npos);
    EXPECT_EQ(summary().substr(0, summary().find('\n')), "r: 5 read, 0 written, 1 errors, 5 lost");
}

TEST_F(RelayTest, ReportsWhatAWriterDidNotTake)
{
    addRoute("r", "a/in", {"b/x"});
    script.stream("in").reads = {{{1, 2, 3, 4, 5}, ""}};
    script.stream("x").onWrite = [](const Write &, std::string &) { return 2; };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(summary(), "r: 5 read, 2 written, 0 errors, 3 lost\n");
    EXPECT_NE(log.find("took 2 of 5 samples"), std::string::npos);
}

TEST_F(RelayTest, ForwardsWhatAFailedReadBroughtAndReturnsItsLoan)
{
    addRoute("r", "a/in", {"b/x"});
    script.stream("in").reads = {{{}, "half a line"}, {{1, -1}, "bad line"}, {{2}, ""}};
    EXPECT_EQ(runUntilIdle(200), exitErrors);
    ASSERT_EQ(script.stream("x").writes.size(), 2U);
    EXPECT_EQ(script.stream("x").writes[0].samples, std::vector<int>{1});
    EXPECT_EQ(summary(), "r: 2 read, 2 written, 2 errors, 1 unreadable\n");
    EXPECT_NE(log.find("read of a/in: half a line"), std::string::npos);
    EXPECT_NE(log.find("read of a/in: bad line"), std::string::npos);
}

TEST_F(RelayTest, NeitherSpinsNorFloodsTheLogWhenAReaderAlwaysThrows)
{
    addRoute("r", "a/in", {"b/x"});
    script.stream("in").source = [] { return Read{{}, "always"}; };
    // Signals do not defeat the pause.
    script.hooks["return_loan in"] = [&] {
        const auto listener = script.stream("in").listener;
        listener.onDataAvailable(nullptr, listener.listenerData);
    };
    EXPECT_EQ(runUntilIdle(500), exitErrors);
    // Pauses of 10, 20, 40, ... ms; and a reader that only fails counts as idle.
    EXPECT_LE(script.stream("in").readCalls, 7);
    EXPECT_GE(script.stream("in").readCalls, 4);
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = log.find("always", at)) != std::string::npos; ++at) {
        ++lines;
    }
    EXPECT_EQ(lines, 1U) << log;
}

TEST_F(RelayTest, KeepsUpWithAReaderThatThrowsOverSomeOfItsSamples)
{
    addRoute("r", "a/in", {"b/x"});
    for (int i = 0; i < 20; ++i) {
        script.stream("in").reads.push_back({{i}, "a bad line"});
    }
    const auto begin = Clock::now();
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.stream("x").writes.size(), 20U);
    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(1000));
}

TEST_F(RelayTest, ReadsOnSignalsAlsoOnesOutOfAConstructor)
{
    configuration.sessions[0].period = std::chrono::hours(1);
    addRoute("r", "a/in", {"b/x"});
    script.signalDuringCreate = true;
    script.stream("in").reads = {{{1}, ""}};
    std::thread runner([&] { EXPECT_EQ(supervisor().run(), exitOk); });
    Stream &x = script.stream("x");
    const auto written = [&](std::size_t count) {
        std::unique_lock<std::mutex> lock(script.mutex);
        return script.changed.wait_for(lock, std::chrono::seconds(5),
                                       [&] { return x.writes.size() == count; });
    };
    EXPECT_TRUE(written(1));
    for (std::size_t i = 2; i < 200; ++i) {
        script.push("in", {{static_cast<int>(i)}, ""});
        EXPECT_TRUE(written(i));
    }
    supervisor().requestStop();
    runner.join();
    // A signal costs the read that finds its sample and one that finds no more.
    EXPECT_LE(script.stream("in").readCalls, 2 * 199 + 1);
}

TEST_F(RelayTest, GivesEveryRouteOfASessionItsTurn)
{
    addRoute("busy", "a/in", {"b/x"});
    addRoute("slow", "a/in2", {"b/y"});
    int reads = 0;
    script.stream("in").source = [&] { return ++reads < 1000 ? Read{{1}, ""} : Read{}; };
    for (int i = 0; i < 10; ++i) {
        script.stream("in2").reads.push_back({{i}, ""});
    }
    std::vector<std::size_t> seenByThen;
    script.hooks["write y"] = [&] { seenByThen.push_back(script.stream("x").writes.size()); };
    EXPECT_EQ(runUntilIdle(), exitOk);
    ASSERT_EQ(seenByThen.size(), 10U);
    EXPECT_LE(seenByThen.back(), 12U);
}

TEST_F(RelayTest, AllocatesNothingPerReadOnceItIsWarm)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 4;
    int reads = 0;
    std::uint64_t relays = 0;
    std::uint64_t atReturn = 0;
    script.stream("in").source = [&] {
        // From the return of the last loan to here, only the relay has run on this thread, but for
        // the names of the two calls that the plug-in makes up.
        relays += ++reads > 100 ? allocations() - atReturn : 0;
        return reads < 1000 ? Read{{1, 2, -1, 4, 5, 6, 7}, ""} : Read{};
    };
    script.hooks["return_loan in"] = [&] { atReturn = allocations(); };
    std::uint64_t perCall = allocations();
    {
        const std::string name = "read " + std::string("in");
        perCall = allocations() - perCall;
    }
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_LE(relays, 900 * perCall);
}

struct BrokenStep {
    const char *call;
    /// What is not deleted, beside what never was made.
    Texts kept;
};

void PrintTo(const BrokenStep &step, std::ostream *out)
{
    *out << step.call;
}

class BrokenObject : public RelayTest, public testing::WithParamInterface<BrokenStep> {};

/// A constructor that reports an error beside its object: the object is not used (nor deleted, but
/// for a connection), its route is out, the other route works, and all that is whole is deleted.
TEST_P(BrokenObject, CostsItsOwnRouteOnly)
{
    addRoute("bad", "a/in", {"b/x"});
    addRoute("good", "c/in2", {"d/y"});
    script.errors[GetParam().call] = "not today";
    script.stream("in").reads = {{{1}, ""}};
    script.stream("in2").reads = {{{1}, ""}};
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.stream("in").readCalls, 0);
    EXPECT_EQ(script.stream("y").writes.size(), 1U);
    EXPECT_NE(log.find("not today"), std::string::npos);
    EXPECT_NE(log.find("!init topic route bad"), std::string::npos);
    // Every object is named in the call that made it and in the one that deleted it.
    std::set<std::string> kept;
    std::size_t stage = 0;
    const Texts stages = {"delete_reader in2", "delete_writer y", "delete_session",
                          "delete_connection", "delete_adapter"};
    for (const std::string &call : script.calls()) {
        const std::string object =
            call.substr(call.find('_') + 1, call.find(" null") - call.find('_') - 1);
        if (call.rfind("create_", 0) == 0) {
            kept.insert(object);
        } else if (call.rfind("delete_", 0) == 0) {
            EXPECT_EQ(kept.erase(object), 1U) << call;
            for (std::size_t i = 0; i < stages.size(); ++i) {
                if (call.rfind(stages[i], 0) == 0) {
                    EXPECT_GE(i, stage) << call;
                    stage = i;
                }
            }
        }
    }
    EXPECT_EQ(Texts(kept.begin(), kept.end()), GetParam().kept);
    EXPECT_EQ(stage, stages.size() - 1);
}

INSTANTIATE_TEST_SUITE_P(All, BrokenObject,
                         testing::Values(BrokenStep{"create_adapter a", {"adapter a"}},
                                         BrokenStep{"create_connection a null", {}},
                                         BrokenStep{"create_session a", {"session a"}},
                                         BrokenStep{"create_reader in", {"reader in"}},
                                         BrokenStep{"create_writer x", {"writer x"}}));

TEST_F(RelayTest, RefusesRecordsThatAreNoPlugin)
{
    addRoute("r", "a/in", {"b/x"});
    addRoute("s", "c/in2", {"c/y"});
    int made = 0;
    script.changeRecord = [&](QEL_FerrionAdapterPlugin *plugin) {
        switch (made++) {
        case 0:
            plugin->magic = 1;
            return plugin;
        case 1:
            return static_cast<QEL_FerrionAdapterPlugin *>(nullptr);
        default:
            plugin->operations.write = nullptr;
            return plugin;
        }
    };
    EXPECT_EQ(runUntilIdle(), exitNoStart);
    EXPECT_NE(log.find("not a plug-in record (magic number 1)"), std::string::npos);
    EXPECT_NE(log.find("no plug-in record"), std::string::npos);
    EXPECT_NE(log.find("the adapter has no stream writers"), std::string::npos);
}

TEST_F(RelayTest, CheckMakesEverythingReadsNothingAndTellsWhatIsAnnounced)
{
    addRoute("r", "a/in", {"b/x"});
    char name[] = "in";
    char type[] = "Other";
    QEL_FerrionStreamInfo info{};
    info.streamName = name;
    info.typeName = type;
    script.announced = {info};
    options.checkOnly = true;
    EXPECT_EQ(supervisor().run(), exitOk);
    EXPECT_EQ(script.stream("in").readCalls, 0);
    const Texts calls = script.calls();
    for (const char *call : {"delete_reader in", "delete_writer x", "delete_connection a"}) {
        EXPECT_EQ(std::count(calls.begin(), calls.end(), call), 1) << call;
    }
    EXPECT_EQ(reporter.lines,
              (Texts{"adapter a: , version 1.2.3.4", "adapter b: , version 1.2.3.4",
                     "connection a: ", "connection b: ", "session main of connection b: ",
                     "session main of connection a: ", "route r: type T",
                     "input stream a/in: announced, type Other",
                     "input stream b/in: announced, type Other"}));
    EXPECT_NE(log.find("discovered a stream with same name than a route's (in) but different type "
                       "names (T and Other)"),
              std::string::npos);
}

} // namespace
