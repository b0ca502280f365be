// Moving samples: loans, slices, errors, signals, and what one failure may touch.
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <set>
#include <thread>

#include "process/stream_table.h"
#include "relay_fixture.h"

namespace {

/// What the thread does once it has looked at the clock so many times.
struct ClockHook {
    int looks = 0;
    std::function<void()> call;
};
thread_local ClockHook clockHook;

} // namespace

/// In place of the C library's, for a place in a thread's work where it calls nothing else.
extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t clock,
                                                            timespec *time) noexcept
{
    if (clockHook.looks > 0 && --clockHook.looks == 0) {
        clockHook.call();
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace {

using namespace ferry;
using namespace scripted;
using Slices = std::vector<std::vector<int>>;
using Texts = std::vector<std::string>;

/// A slice ends with the sample that makes it as many samples, or as many bytes, as it may be.
TEST_F(RelayTest, HandsOneLoanToEveryOutputInSlicesWithoutItsGaps)
{
    RouteSettings &route = addRoute("r", "a/in", {"b/x", "c/y", "d/z"});
    route.outputs[0].maxSamplesPerWrite = 3;
    route.outputs[2].maxSamplesPerWrite = 4;
    route.outputs[2].batchBytes = 100; // a sample has 8 besides
    script.streams["in"].reads = {
        {{1, 2, -1, 4, 5, 6, 7, 8, 9}, "", {7}, {{1, 83}, {2, 100}, {4, 92}}}, {{9}, ""}};
    std::string order;
    for (const char *call : {"write x", "write y", "return_loan in"}) {
        script.hooks[call] = [&order, call] { order += call[0] == 'r' ? 'r' : call[6]; };
    }
    EXPECT_EQ(runUntilIdle(), exitErrors); // one sample was not there
    EXPECT_EQ(script.streams["x"].writes, (Slices{{1, 2, 4}, {5, 6, 7}, {8, 9}, {9}}));
    EXPECT_EQ(script.streams["y"].writes, (Slices{{1, 2, 4, 5, 6, 7, 8, 9}, {9}}));
    EXPECT_EQ(script.streams["z"].writes, (Slices{{1, 2}, {4}, {5, 6, 7, 8}, {9}, {9}}));
    EXPECT_EQ(order.substr(0, 8), "xxxyrxyr");
    EXPECT_EQ(summary(), "r: 8 read, 8 written, 0 errors, 1 unreadable, 1 ends\n"
                         "  to b/x: 8 written, 0 lost\n"
                         "  to c/y: 8 written, 0 lost\n"
                         "  to d/z: 8 written, 0 lost\n");
    EXPECT_TRUE(logged("adapter 'a' error: route r: read of a/in: sample 3 of the 9")) << log;
}

/// A first read and its write, none of which is a plain success.
struct Flaw {
    Read read;
    /// What the write returns; below -100 all that it is given.
    int taken;
    const char *error;
    const char *summary;
    const char *log;
    int slice = 1024;
};

/// `on_error: stop` stops for each of them, once the loan in hand has gone to the other outputs;
/// `continue` goes on.
TEST_F(RelayTest, StopsForWhateverIsNoSuccess)
{
    constexpr int all = -1000;
    const Read three = {{1, 2, 3}, ""};
    const Read ended = {{1, 2, 3}, "", {1, 3}}; // no samples, but a loss where they are not taken
    const Read holes = {{1, -1, 3, -1}, ""};
    const Read bad = {{1}, "x", {}, {}, {"row 7 has no n", "", 4}};
    const Flaw flaws[] = {
        {three, 2, "", "3 read, 2 written, 0 errors, 1 not acknowledged", "took 2 of 3 samples"},
        {three, -5, "", "3 read, 0 written, 1 errors, 3 not acknowledged", "written -5 of the 3"},
        {three, 1000, "", "3 read, 0 written, 1 errors, 3 not acknowledged", "1000 of the 3"},
        {three, -1, "full", "3 read, 0 written, 1 errors, 3 not acknowledged", "b/x3: full"},
        {three, all, "slow", "3 read, 3 written, 1 errors", "write of b/x4: slow"},
        {three, 1, "full", "3 read, 1 written, 1 errors, 2 not acknowledged", "from now on: 5", 2},
        {ended, 1, "", "1 read, 0 written, 0 errors, 2 not acknowledged, 2 ends", "took 1"},
        {holes, all, "", "2 read, 2 written, 0 errors, 2 unreadable",
         "sample 2 of the 4 of this read is null, as the adapter lends it or after a failed "
         "conversion; so are 1 behind it"},
        {bad, all, "", "1 read, 1 written, 1 errors, 4 bad", "read of a/in8: row 7 has no n"},
        {{{1}, "", {}, {}, {}, -5}, all, "", "0 read, 0 written, 1 errors", "lends -5 samples"},
        {{{}, "", {}, {}, {}, 5}, all, "", "0 read, 0 written, 1 errors", "5 samples at no addr"}};
    std::string expected;
    std::atomic<std::size_t> nines{0};
    for (std::size_t i = 0; i < std::size(flaws); ++i) {
        const Flaw &flaw = flaws[i];
        for (const char *kind : {"", "+"}) {
            const std::string number = std::to_string(i) + kind;
            RouteSettings &route =
                addRoute(number, "a/in" + number, {"b/x" + number, "c/y" + number});
            route.onError = *kind == '+' ? OnError::carryOn : OnError::stop;
            route.outputs[0].maxSamplesPerWrite = flaw.slice;
            script.streams["in" + number].reads = {flaw.read, {{9}, ""}};
            script.streams["x" + number].onWrite = [&flaw, &nines](const auto &slice,
                                                                   std::string &error) {
                nines += slice[0] == 9 ? 1 : 0;
                error = slice[0] == 9 ? "" : flaw.error;
                return slice[0] == 9 || flaw.taken == all ? static_cast<int>(slice.size())
                                                          : flaw.taken;
            };
        }
        expected += std::to_string(i) + ": " + flaw.summary + " (out of service)\n";
    }
    EXPECT_EQ(runUntil([&] { return nines == std::size(flaws); }), exitErrors);
    std::string stopped;
    for (const std::string &line : summaryLines(supervisor().relay().totals())) {
        if (line[0] != ' ' && line.find("+:") == std::string::npos) {
            stopped += std::regex_replace(line, std::regex(", \\d+ samples/s"), "") + "\n";
        }
    }
    EXPECT_EQ(stopped, expected);
    for (std::size_t i = 0; i < std::size(flaws); ++i) {
        EXPECT_TRUE(logged(flaws[i].log)) << flaws[i].log << " in " << log;
        EXPECT_EQ(script.streams["in" + std::to_string(i)].readCalls, 1) << i;
        EXPECT_LE(script.streams["x" + std::to_string(i)].writes.size(), 1U) << i;
        EXPECT_EQ(script.streams["x" + std::to_string(i) + "+"].writes.back(), Slices{{9}}[0]) << i;
        if (flaws[i].taken != all) {
            EXPECT_EQ(script.streams["y" + std::to_string(i)].writes,
                      Slices{flaws[i].read.samples});
        }
    }
}

TEST_F(RelayTest, ForwardsWhatAFailedReadBroughtAndKeepsUpWithItsReader)
{
    addRoute("r", "a/in", {"b/x"});
    script.streams["in"].reads = {{{}, "half a line"}, {{7}, ""}};
    for (int i = 0; i < 20; ++i) {
        script.streams["in"].reads.push_back({{i, -1}, "bad line"});
    }
    // Neither a read that brings something nor one that succeeds lets pauses grow to seconds.
    for (int i = 0; i < 20; ++i) {
        script.streams["in"].reads.push_back({{}, "half a line"});
        script.streams["in"].reads.push_back({});
    }
    const auto begin = Clock::now();
    EXPECT_EQ(runUntil([&] { return totals("r").errors == 41; }), exitErrors);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(100));
    ASSERT_EQ(script.streams["x"].writes.size(), 21U);
    EXPECT_EQ(script.streams["x"].writes[2], std::vector<int>{1});
    EXPECT_EQ(summary(), "r: 21 read, 21 written, 41 errors, 20 unreadable\n");
    EXPECT_TRUE(logged("read of a/in: half a line") && logged("read of a/in: bad line")) << log;
    EXPECT_LT(times("sample 2 of the 2 of this read is null"), 10) << log;
}

TEST_F(RelayTest, NeitherSpinsNorFloodsTheLogWhenAReaderAlwaysThrows)
{
    addRoute("r", "a/in", {"b/x"});
    script.streams["in"].source = [] { return Read{{}, "always"}; };
    // Signals do not defeat the pause.
    script.hooks["return_loan in"] = [&] { Script::signal(script.streams["in"]); };
    // No text of it comes twice.
    addRoute("s", "a/in2", {"b/y"});
    script.streams["in2"].source = [n = 0]() mutable {
        ++n;
        return n < 40 ? Read{{n}, "new " + std::to_string(n)} : Read{};
    };
    const auto begin = Clock::now();
    EXPECT_EQ(runUntilIdle(500), exitErrors); // a reader that only fails counts as idle
    // Pauses of 10, 20, 40, ... ms.
    EXPECT_LE(std::chrono::milliseconds(10) * ((1 << (script.streams["in"].readCalls - 1)) - 1),
              Clock::now() - begin);
    EXPECT_EQ(times("always"), 1) << log;
    EXPECT_EQ(totals("s").errors, 39U);
    EXPECT_TRUE(logged("new 1") && !logged("new 9")) << log;
}

TEST_F(RelayTest, ReadsOnSignalsAlsoOnesOutOfAConstructor)
{
    configuration.sessions[0].period = std::chrono::hours(1);
    addRoute("r", "a/in", {"b/x"});
    addRoute("last", "a/in2", {"b/y"});
    script.hooks["create_reader in"] = [&] { Script::signal(script.streams["in"]); };
    // Signals at every moment between a read without samples and the thread's sleep. It looks at
    // the clock for the plan of this read, for the rest of the pass and for each route of the next
    // pass; the last of them when the route of the signal has been read.
    constexpr int looks = 4;
    constexpr int signals = 10 * looks;
    std::atomic<int> there{1};
    std::atomic<int> written{0};
    script.streams["in"].source = [&] {
        if (written < there) {
            return Read{{1}, ""};
        }
        if (there < signals) {
            clockHook = {1 + there % looks, [&] {
                             ++there;
                             Script::signal(script.streams["in"]);
                         }};
        }
        return Read{};
    };
    script.hooks["write x"] = [&] { ++written; };
    EXPECT_EQ(runUntil([&] { return written == signals; }), exitOk);
    // A signal costs the read that finds its sample and one that finds no more.
    EXPECT_LE(script.streams["in"].readCalls, 2 * signals + 1);
}

TEST_F(RelayTest, ReadsEveryRouteOfASessionInEachPass)
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

/// For any slot that makes something.
template<class Result, class... Arguments> Result nothing(Arguments...)
{
    return nullptr;
}

TEST_F(RelayTest, RejectsLibrariesAndRecordsThatAreNoPlugin)
{
    using Plugin = QEL_FerrionAdapterPlugin;
    using Table = QEL_FerrionAdapterOperations;
    const auto without = [](auto Table::*slot) {
        return [slot](Plugin *plugin) { return plugin->operations.*slot = nullptr, plugin; };
    };
    const auto idle = [](auto Table::*slot) {
        return [slot](Plugin *plugin) { return plugin->operations.*slot = nothing, plugin; };
    };
    const std::string lame = "create: a plug-in without connections or sessions";
    const std::string noWriters = ": the adapter has no stream writers";
    const std::string noReaders = ": the adapter has no stream readers";
    const std::pair<std::function<Plugin *(Plugin *)>, std::string> misfits[] = {
        {[](Plugin *plugin) { return plugin->magic = 1, plugin; },
         "create: not a plug-in record (magic number 1)"},
        {[](Plugin *) { return nullptr; }, "create: no plug-in record"},
        {[](Plugin *plugin) { return plugin->apiVersion.major = 6, plugin; },
         "create: made for another plug-in interface (6.3.0.0)"},
        {without(&Table::delete_adapter), lame},
        {without(&Table::create_connection), lame},
        {without(&Table::delete_connection), lame},
        {without(&Table::create_session), lame},
        {without(&Table::delete_session), lame},
        {idle(&Table::create_connection), "create connection i: no connection"},
        {idle(&Table::create_session), "create session main of connection j: no session"},
        {without(&Table::create_stream_writer), "create writer of k/x" + noWriters},
        {without(&Table::write), "create writer of l/x" + noWriters},
        {idle(&Table::create_stream_writer), "create writer of m/x: no stream writer"},
        {without(&Table::create_stream_reader), "create reader of n/x" + noReaders},
        {without(&Table::read), "create reader of o/x" + noReaders},
        {without(&Table::return_loan), "create reader of p/x" + noReaders},
        {idle(&Table::create_stream_reader), "create reader of q/x: no stream reader"},
        {without(&Table::get_pub_discovery_reader), "input streams of connection r are not"},
        {nullptr, "no_such_entry"},
        {nullptr, "no_such_library.so: cannot open"}};
    for (std::size_t i = 0; i < std::size(misfits); ++i) {
        const std::string name(1, static_cast<char>('a' + i));
        addRoute(name, name + "/x", {name + "/x"});
        addRule("of " + name).connection = i;
    }
    configuration.adapters[18].entry = "no_such_entry";
    configuration.adapters[19].library = "no_such_library.so";
    script.changeRecord = [&misfits, made = 0](Plugin *plugin) mutable {
        return misfits[made++].first(plugin);
    };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    for (const auto &[change, text] : misfits) {
        EXPECT_TRUE(logged(text)) << text << " in " << log;
    }
    for (const char adapter : {'d', 'e', 'f', 'g', 'h'}) {
        EXPECT_TRUE(logged(std::string("adapter '") + adapter + "' error: " + lame)) << log;
    }
}

TEST(StreamTable, HasAColumnForAllThatIsKnown)
{
    const DDS_StructMember members[] = {{"x", DDS_TypeCode_get_primitive(DDS_TK_LONG), 1}};
    const DDS_TypeCode *const type =
        DDS_TypeCode_create_struct("T", nullptr, DDS_EXTENSIBILITY_FINAL, members, 1, nullptr);
    Configuration configuration;
    configuration.connections.resize(1);
    configuration.connections[0].name = "c";
    EXPECT_EQ(streamTable(configuration, {}), Texts{"no streams"});
    const DDS_OpaqueType keyed{1, nullptr, 0, nullptr, 0};
    const DDS_TypeCode *const opaque = DDS_TypeCode_create_opaque("O", &keyed, nullptr);
    const std::vector<AnnouncedStream> streams = {{0, true, "s\n", "T", type, {"", "p"}, {}},
                                                  {0, false, "o", "O", opaque, {""}, {}},
                                                  {0, false, "longer", "", nullptr, {""}, {}},
                                                  {0, false, "s", "T", type, {"p", "q"}, {}}};
    EXPECT_EQ(streamTable(configuration, streams),
              (Texts{"DIRECTION  CONNECTION  STREAM  PARTITIONS  TYPE  KEYED",
                     "input      c           s\\n     -,p         T     yes",
                     "output     c           o       -           O     yes, type not known",
                     "output     c           longer  -           -     no type announced",
                     "output     c           s       p,q         T     yes"}));
    EXPECT_EQ(streamTypes(streams, "").size(), 1U);
    EXPECT_EQ(streamTypes(streams, "T").size(), 1U);
    EXPECT_EQ(streamTypes(streams, "U").size(), 0U);
}

TEST(Progress, ReportsAllRoutesOrThoseThatHaveChanged)
{
    std::vector<RouteTotals> routes(2);
    routes[0].name = "idle";
    routes[1].name = "busy";
    Progress changed;
    Progress all;
    const auto lines = [&](Progress &progress, Progress::Which which, int second) {
        return progress.lines(routes, Clock::time_point(std::chrono::seconds(second)), which);
    };
    const auto report = [&](int second) {
        return lines(changed, Progress::Which::changed, second);
    };
    EXPECT_EQ(report(0), Texts{});
    EXPECT_EQ(lines(all, Progress::Which::all, 0).size(), 2U);
    routes[1].read = routes[1].written = 50;
    EXPECT_EQ(report(10), Texts{"busy: 50 read, 50 written, 0 errors, 5 samples/s"});
    EXPECT_EQ(lines(all, Progress::Which::all, 10)[0],
              "idle: 0 read, 0 written, 0 errors, 0 samples/s");
    EXPECT_EQ(report(20), Texts{});
    routes[0].failed = routes[1].gone = true;
    EXPECT_EQ(report(30), (Texts{"idle: 0 read, 0 written, 0 errors, 0 samples/s (out of service)",
                                 "busy: 50 read, 50 written, 0 errors (gone)"}));
}

TEST_F(RelayTest, CheckMakesEverythingReadsNothingAndReportsWhatIsAnnounced)
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
    EXPECT_EQ(
        reporter.lines,
        (Texts{"adapter a: " + origin, "adapter b: " + origin, "connection a: ", "connection b: ",
               "session main of connection b: ", "session main of connection a: ",
               "route r: type T, at most once: with \"on_error: continue\" what output b/x does "
               "not take "
               "is lost",
               "input stream a/in: announced, type Other",
               "input stream b/in: announced, type Other"}));
    EXPECT_TRUE(logged("discovered a stream with same name than a route's (in) but different type "
                       "names (T and Other)"));
}

} // namespace
