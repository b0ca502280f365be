// Moving samples: loans, slices, errors, signals, and what one failure may touch.
#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include "relay_fixture.h"

namespace {

using namespace ferry;
using namespace scripted;
using Slices = std::vector<std::vector<int>>;
using Texts = std::vector<std::string>;

TEST_F(RelayTest, HandsOneLoanToEveryOutputInSlicesWithoutItsGaps)
{
    addRoute("r", "a/in", {"b/x", "c/y"}).outputs[0].maxSamplesPerWrite = 3;
    script.streams["in"].reads = {{{1, 2, -1, 4, 5, 6, 7, 8}, ""}, {{9}, ""}};
    std::string order;
    for (const char *call : {"write x", "write y", "return_loan in"}) {
        script.hooks[call] = [&order, call] { order += call[0] == 'r' ? 'r' : call[6]; };
    }
    EXPECT_EQ(runUntilIdle(), exitErrors); // one sample was not there
    EXPECT_EQ(script.streams["x"].writes, (Slices{{1, 2, 4}, {5, 6, 7}, {8}, {9}}));
    EXPECT_EQ(script.streams["y"].writes, (Slices{{1, 2, 4, 5, 6, 7, 8}, {9}}));
    EXPECT_EQ(order.substr(0, 8), "xxxyrxyr");
    EXPECT_EQ(summary(), "r: 8 read, 8 written, 0 errors, 1 unreadable\n"
                         "  to b/x: 8 written, 0 lost\n"
                         "  to c/y: 8 written, 0 lost\n");
}

TEST_F(RelayTest, CountsAsLostWhatAWriterDidNotTake)
{
    addRoute("fails", "a/in", {"b/x", "c/y"}).outputs[0].maxSamplesPerWrite = 2;
    RouteSettings &stopped = addRoute("stops", "a/in2", {"b/x2", "c/y2"});
    stopped.onError = OnError::stop;
    stopped.outputs[0].maxSamplesPerWrite = 2;
    addRoute("takes less", "a/in3", {"b/x3"});
    for (const char *input : {"in", "in2", "in3"}) {
        script.streams[input].reads = {{{1, 2, 3, 4, 5}, ""}, {{6}, ""}};
    }
    script.streams["x"].onWrite = [](const std::vector<int> &slice, std::string &error) {
        error = slice[0] == 3 ? "disk is full" : "";
        return error.empty() ? 2 : 1;
    };
    script.streams["x2"].onWrite = [](const std::vector<int> &, std::string &error) {
        error = "no";
        return 0;
    };
    script.streams["x3"].onWrite = [](const std::vector<int> &, std::string &) { return 2; };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.streams["x"].writes.size(), 4U);
    EXPECT_EQ(script.streams["x2"].writes.size(), 1U);
    EXPECT_EQ(script.streams["in2"].readCalls, 1);
    EXPECT_EQ(summary(), "fails: 6 read, 5 written, 1 errors, 1 lost\n"
                         "  to b/x: 5 written, 1 lost\n"
                         "  to c/y: 6 written, 0 lost\n"
                         "stops: 5 read, 0 written, 1 errors, 5 lost (out of service)\n"
                         "  to b/x2: 0 written, 5 lost\n"
                         "  to c/y2: 5 written, 0 lost\n" // the same loan still goes to the others
                         "takes less: 6 read, 3 written, 0 errors, 3 lost\n");
    EXPECT_TRUE(logged("adapter 'b' error: route fails: write of b/x: disk is full")) << log;
    EXPECT_TRUE(logged("the following topic route will be disabled from now on: stops")) << log;
    EXPECT_TRUE(logged("took 2 of 5 samples")) << log;
}

TEST_F(RelayTest, ForwardsWhatAFailedReadBroughtAndKeepsUpWithItsReader)
{
    addRoute("r", "a/in", {"b/x"});
    script.streams["in"].reads = {{{}, "half a line"}, {{7}, ""}};
    for (int i = 0; i < 20; ++i) {
        script.streams["in"].reads.push_back({{i, -1}, "bad line"});
    }
    const auto begin = Clock::now();
    EXPECT_EQ(runUntilIdle(200), exitErrors);
    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(1500));
    ASSERT_EQ(script.streams["x"].writes.size(), 21U);
    EXPECT_EQ(script.streams["x"].writes[2], std::vector<int>{1});
    EXPECT_EQ(summary(), "r: 21 read, 21 written, 21 errors, 20 unreadable\n");
    EXPECT_TRUE(logged("read of a/in: half a line") && logged("read of a/in: bad line")) << log;
}

TEST_F(RelayTest, NeitherSpinsNorFloodsTheLogWhenAReaderAlwaysThrows)
{
    addRoute("r", "a/in", {"b/x"});
    script.streams["in"].source = [] { return Read{{}, "always"}; };
    // Signals do not defeat the pause.
    script.hooks["return_loan in"] = [&] { Script::signal(script.streams["in"]); };
    EXPECT_EQ(runUntilIdle(500), exitErrors);
    // Pauses of 10, 20, 40, ... ms; and a reader that only fails counts as idle.
    EXPECT_LE(script.streams["in"].readCalls, 7);
    EXPECT_GE(script.streams["in"].readCalls, 4);
    EXPECT_TRUE(logged("always"));
    EXPECT_EQ(log.find("always"), log.rfind("always")) << log;
}

TEST_F(RelayTest, ReadsOnSignalsAlsoOnesOutOfAConstructor)
{
    configuration.sessions[0].period = std::chrono::hours(1);
    addRoute("r", "a/in", {"b/x"});
    script.hooks["create_reader in"] = [&] { Script::signal(script.streams["in"]); };
    std::atomic<int> there{1};
    std::atomic<int> written{0};
    script.streams["in"].source = [&] { return written < there ? Read{{1}, ""} : Read{}; };
    script.hooks["write x"] = [&] { ++written; };
    std::thread runner([&] { EXPECT_EQ(supervisor().run(), exitOk); });
    waitFor([&] {
        if (written == there) {
            ++there;
            Script::signal(script.streams["in"]);
        }
        return there >= 200;
    });
    supervisor().requestStop();
    runner.join();
    EXPECT_GE(written, 199);
    // A signal costs the read that finds its sample and one that finds no more.
    EXPECT_LE(script.streams["in"].readCalls, 2 * 200 + 1);
}

TEST_F(RelayTest, GivesEveryRouteOfASessionItsTurn)
{
    addRoute("busy", "a/in", {"b/x"});
    addRoute("slow", "a/in2", {"b/y"});
    int reads = 0;
    script.streams["in"].source = [&] { return ++reads < 1000 ? Read{{1}, ""} : Read{}; };
    for (int i = 0; i < 10; ++i) {
        script.streams["in2"].reads.push_back({{i}, ""});
    }
    std::size_t seenByThen = 0;
    script.hooks["write y"] = [&] { seenByThen = script.streams["x"].writes.size(); };
    EXPECT_EQ(runUntilIdle(), exitOk);
    EXPECT_EQ(script.streams["y"].writes.size(), 10U);
    EXPECT_LE(seenByThen, 12U);
}

TEST_F(RelayTest, AllocatesNothingPerReadOnceItIsWarm)
{
    addRoute("r", "a/in", {"b/x"});
    int reads = 0;
    std::uint64_t mark = 0;
    std::uint64_t relays = 0;
    // Only the relay, and parts of the plug-in that allocate nothing, run between mark and count.
    const auto count = [&] { relays += reads > 100 ? allocations() - mark : 0; };
    script.streams["in"].source = [&] {
        count();
        Read read = ++reads < 1000 ? Read{{1, 2, -1, 4, 5, 6, 7}, ""} : Read{};
        mark = allocations();
        return read;
    };
    script.hooks["write x"] = count;
    script.hooks["return_loan in"] = [&] { mark = allocations(); };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(relays, 0U);
}

/// A call, and what is not deleted when it fails, beside what never was made.
class BrokenObject : public RelayTest,
                     public testing::WithParamInterface<std::pair<std::string, Texts>> {};

/// A constructor that reports an error beside its object: the object is not used (nor deleted, but
/// for a connection), its route is out, the other route works, and all that is whole is deleted.
TEST_P(BrokenObject, CostsItsOwnRouteOnly)
{
    addRoute("bad", "a/in", {"b/x"});
    addRoute("good", "c/in2", {"d/y"});
    script.errors[GetParam().first] = "not today";
    script.streams["in"].reads = {{{1}, ""}};
    script.streams["in2"].reads = {{{1}, ""}};
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.streams["in"].readCalls, 0);
    EXPECT_EQ(script.streams["y"].writes.size(), 1U);
    EXPECT_TRUE(logged("not today") && logged("!init topic route bad")) << log;
    // Every object is named in the call that made it and in the one that deleted it.
    std::set<std::string> kept;
    std::string order;
    for (const std::string &call : script.calls) {
        const std::string object = call.substr(call.find('_') + 1);
        if (call.rfind("create_", 0) == 0) {
            kept.insert(object);
        } else if (call.rfind("delete_", 0) == 0) {
            EXPECT_EQ(kept.erase(object), 1U) << call;
            // The half of a route that cannot be made whole goes at once.
            order += object == "writer x" ? ' ' : object[0];
        }
    }
    EXPECT_EQ(Texts(kept.begin(), kept.end()), GetParam().second);
    EXPECT_TRUE(std::regex_match(order, std::regex(" ?r*w*s+c+a+"))) << order;
    EXPECT_EQ(script.calls.back(), "stop");
}

INSTANTIATE_TEST_SUITE_P(All, BrokenObject,
                         testing::Values(std::pair("create_adapter a", Texts{"adapter a"}),
                                         std::pair("create_connection a", Texts{}),
                                         std::pair("create_session a", Texts{"session a"}),
                                         std::pair("create_reader in", Texts{"reader in"}),
                                         std::pair("create_writer x", Texts{"writer x"})));

TEST_F(RelayTest, RefusesLibrariesAndRecordsThatAreNoPlugin)
{
    addRoute("r", "a/in", {"b/x"});
    addRoute("s", "c/in2", {"d/y"});
    addRoute("t", "e/in3", {"c/z"});
    configuration.adapters[3].entry = "no_such_entry";
    configuration.adapters[4].library = "no_such_library.so";
    script.changeRecord = [made = 0](QEL_FerrionAdapterPlugin *plugin) mutable {
        ++made;
        plugin->magic = made == 1 ? 1 : plugin->magic;
        plugin->operations.write = made == 3 ? nullptr : plugin->operations.write;
        return made == 2 ? nullptr : plugin;
    };
    EXPECT_EQ(runUntilIdle(), exitNoStart);
    for (const char *text :
         {"not a plug-in record (magic number 1)", "no plug-in record", "no_such_entry",
          "no_such_library.so: cannot open", "the adapter has no stream writers"}) {
        EXPECT_TRUE(logged(text)) << text << " in " << log;
    }
}

TEST_F(RelayTest, CheckMakesEverythingReadsNothingAndTellsWhatIsAnnounced)
{
    addRoute("r", "a/in", {"b/x"});
    for (const char *connection : {"a", "b"}) {
        script.announce(connection, {"in", "Other"});
    }
    options.task = Task::check;
    EXPECT_EQ(supervisor().run(), exitOk);
    EXPECT_EQ(script.streams["in"].readCalls, 0);
    for (const char *call : {"delete_reader in", "delete_writer x", "delete_connection a"}) {
        EXPECT_EQ(std::count(script.calls.begin(), script.calls.end(), call), 1) << call;
    }
    const std::string origin = std::string(SCRIPTED_LIBRARY) + ", version 1.2.3.4";
    EXPECT_EQ(reporter.lines,
              (Texts{"adapter a: " + origin, "adapter b: " + origin,
                     "connection a: ", "connection b: ", "session main of connection b: ",
                     "session main of connection a: ", "route r: type T",
                     "input stream a/in: announced, type Other",
                     "input stream b/in: announced, type Other"}));
    EXPECT_TRUE(logged("discovered a stream with same name than a route's (in) but different type "
                       "names (T and Other)"));
}

} // namespace
