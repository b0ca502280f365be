// Routes that come and go with what connections announce.
#include <algorithm>
#include <atomic>
#include <unistd.h>

#include "engine/discovery_rule.h"
#include "relay_fixture.h"

namespace {

using namespace ferry;
using namespace scripted;
using Texts = std::vector<std::string>;

Announcement gone(const std::string &stream)
{
    return {stream, {}, nullptr, {}, true};
}

struct Filter {
    StreamPatterns allow;
    StreamPatterns deny;
    bool wanted;
};

TEST(DiscoveryRule, DenyWinsAndAnyPartitionCounts)
{
    AnnouncedStream stream;
    stream.name = "weather/.raw";
    stream.typeName = "m::P";
    const Filter filters[] = {
        {{}, {}, true},
        {{{"weather/*"}, {"m::*"}, {}}, {}, true}, // `*` takes slashes and dots
        {{{"other", "w*"}, {}, {}}, {}, true},
        {{{"w*"}, {"n::*"}, {}}, {}, false}, // every list has to allow
        {{{"weather"}, {}, {}}, {}, false},
        {{{"*"}, {}, {}}, {{"*raw"}, {}, {}}, false},
        {{}, {{"x"}, {"m::P"}, {}}, false}, // any list denies
        {{{}, {}, {"blue"}}, {}, true},
        {{{}, {}, {""}}, {}, false},
        {{{}, {}, {"*"}}, {{}, {}, {"red"}}, false},
    };
    DiscoverySettings rule;
    stream.partitions = {"red", "blue"};
    for (const Filter &filter : filters) {
        rule.allow = filter.allow;
        rule.deny = filter.deny;
        EXPECT_EQ(wants(rule, stream), filter.wanted) << &filter - filters;
    }
    stream.input = false;
    rule = {};
    EXPECT_FALSE(wants(rule, stream));
}

TEST(DiscoveryRule, PutsNamesInOncePerPlace)
{
    DiscoverySettings rule;
    rule.name = "r";
    rule.route.outputs.resize(1);
    rule.route.outputs[0].stream = "${stream}-${type}-${partitions}-${other}";
    rule.route.outputs[0].properties = {{"p${type}", "${type}${"}};
    AnnouncedStream stream;
    stream.name = "${type}";
    stream.partitions = {"a", "b]"};
    stream.properties = {{"k", "v"}};
    const RouteSettings route = routeFor(rule, stream, "T", nullptr);
    EXPECT_EQ(route.name, "r/${type} [a,b\\]]");
    EXPECT_EQ(route.input.stream, "${type}");
    EXPECT_EQ(route.outputs[0].stream, "${type}-T-a,b]-${other}");
    EXPECT_EQ(route.outputs[0].properties, (Properties{{"p${type}", "T${"},
                                                       {"qel.ferrion.announced.direction", "input"},
                                                       {"qel.ferrion.announced.k", "v"}}));
    EXPECT_EQ(rejectionOf(route), "");
    // Another name at the other end, and properties of the announced one by pattern.
    rule.rename = {{std::regex("x"), "y"}, {std::regex("\\$\\{(.)(.*)\\}"), "$2/$1"}};
    rule.route.input.properties = {{"a", "1"}, {"b", "2"}};
    rule.qos = {{{{"*"}, {}, {}}, {{"b", "3"}, {"c", "4"}}},
                {{{"x"}, {}, {}}, {{"a", "9"}}},
                {{{}, {}, {"a"}}, {{"c", "5"}}}};
    const RouteSettings renamed = routeFor(rule, stream, "T", nullptr);
    EXPECT_EQ(renamed.name, route.name);
    EXPECT_EQ(renamed.outputs[0].stream, "ype/t-T-a,b]-${other}");
    EXPECT_EQ(Properties(renamed.input.properties.begin(), renamed.input.properties.begin() + 3),
              (Properties{{"a", "1"}, {"b", "3"}, {"c", "5"}}));
    // A peer's name may have any length, and must not cost the stack.
    rule.rename = {{std::regex("(.*)"), "renamed"}};
    stream.name = std::string(200000, 'x');
    EXPECT_EQ(routeFor(rule, stream, "T", nullptr).outputs[0].stream.find("renamed"),
              std::string::npos);
    stream.name = "\xF0\x9F\x98\x80";
    EXPECT_NE(rejectionOf(routeFor(rule, stream, "T", nullptr)), "");
}

TEST(DiscoveryRule, NamesEveryStreamInItsOwnWay)
{
    const std::vector<std::pair<StreamId, const char *>> names = {
        {{"x", {""}}, "x"},
        {{"x", {}}, "x"}, // all of that name together, which no rule has beside the one above
        {{"x", {"a"}}, "x [a]"},
        {{"x [a]", {""}}, "x [a] []"},
        {{"x", {"", "a"}}, "x [,a]"},
        {{"x", {"a,b"}}, "x [a\\,b]"},
        {{"x", {"a", "b"}}, "x [a,b]"},
        {{"x", {"a\\", "[b"}}, "x [a\\\\,\\[b]"},
        {{"", {""}}, ""},
    };
    for (const auto &[stream, name] : names) {
        EXPECT_EQ(labelOf(stream), name);
    }
}

class DiscoveryTest : public RelayTest {
protected:
    /// Runs the relay on a thread of its own.
    void start()
    {
        supervisor();
        runner = std::thread([this] { code = supervisor().run(); });
    }
    int stop()
    {
        supervisor().requestStop();
        runner.join();
        return code;
    }

    std::thread runner;
    int code = -1;
};

/// What the reader has when its stream goes is written; what comes back goes on where it was.
TEST_F(DiscoveryTest, RoutesComeAndGoWithTheirStreams)
{
    configuration.sessions[0].period = std::chrono::hours(1);
    addRule("r");
    DiscoverySettings &back = addRule("back");
    back.connection = 1;
    back.inputs = false;
    back.route.outputs = {end("b/")};
    back.route.input = end("a/${stream}.in");
    std::atomic<int> there{3};
    script.streams["s"].source = [&, n = 0]() mutable {
        return n < there ? Read{{++n}, ""} : Read{};
    };
    script.streams["o.in"].source = [] { return Read{{1, 2}, ""}; }; // has no end
    start();
    const Announcement announced{"s", "T", type("T")};
    script.announce("a", announced);
    EXPECT_TRUE(waitFor([&] { return totals("r/s").written == 3; }));
    there = 100;
    script.announce("a", gone("s"));
    EXPECT_TRUE(waitFor([&] { return totals("r/s").gone; }));
    EXPECT_EQ(totals("r/s").written, 100U);
    there = 107;
    script.announce("a", gone("s"));
    script.announce("a", announced);
    EXPECT_TRUE(waitFor([&] { return totals("r/s").written == 107; }));
    EXPECT_FALSE(totals("r/s").gone);
    script.streams["o"].source = [n = 0]() mutable { return n++ == 0 ? Read{{1}, ""} : Read{}; };
    script.announce("a", {"o", "T", type("T")});
    EXPECT_TRUE(waitFor([&] { return totals("r/o").written == 1; }));
    // One of the same name elsewhere is another stream.
    script.announce("b", {"o", "T", type("T")}, false);
    EXPECT_TRUE(waitFor([&] { return totals("back/o").written > 100; }));
    script.announce("b", gone("o"), false);
    EXPECT_TRUE(waitFor([&] { return totals("back/o").gone; }));
    EXPECT_EQ(totals("back/o").read, totals("back/o").written);
    EXPECT_EQ(stop(), exitOk);
    Texts calls;
    std::copy_if(script.calls.begin(), script.calls.end(), std::back_inserter(calls),
                 [](const std::string &call) {
                     return std::regex_search(call, std::regex("_(read|writ)er "));
                 });
    EXPECT_EQ(calls, (Texts{"create_writer s.out", "create_reader s", "delete_reader s",
                            "delete_writer s.out", "create_writer s.out", "create_reader s",
                            "create_writer o.out", "create_reader o", "create_writer o",
                            "create_reader o.in", "delete_reader o.in", "delete_writer o",
                            "delete_reader s", "delete_reader o", "delete_writer s.out",
                            "delete_writer o.out"}));
}

/// What comes back in time as what it was finds its route as it was, which has read on meanwhile;
/// what comes back as something else gets another. The totals are one route's all the time.
TEST_F(DiscoveryTest, AStreamThatComesBackKeepsItsRoute)
{
    configuration.sessions[0].period = std::chrono::hours(1);
    addRule("r").grace = std::chrono::hours(1);
    std::atomic<int> there{3};
    script.streams["s"].source = [&, n = 0]() mutable {
        return n < there ? Read{{++n}, ""} : Read{};
    };
    const auto readsTo = [&](int count) {
        there = count;
        Script::signal(script.streams["s"]);
        EXPECT_TRUE(waitFor([&] { return totals("r/s").written == static_cast<unsigned>(count); }));
    };
    Announcement announced{"s", "T", type("T"), {}, false, {{"k", "1"}, {"old", "o"}}};
    script.announce("a", announced);
    start();
    EXPECT_TRUE(waitFor([&] { return totals("r/s").written == 3; }));
    script.announce("a", gone("s"));
    script.announce("a", {"barrier", "T", type("T")});
    EXPECT_TRUE(waitFor([&] { return totals("r/barrier").name != ""; }));
    readsTo(5);
    script.announce("a", announced);
    announced.properties = {{"k", "2"}, {"new", "n"}}; // of what runs nothing is changed
    script.announce("a", announced);
    EXPECT_TRUE(waitFor([&] {
        return times("which keeps its own: k 2 (was 1), new n (was none), old none (was o)") == 1;
    }));
    readsTo(7);
    for (const int lives : {2, 3, 4}) {
        announced.type = lives == 2 ? type("T") : type("T", "y");
        announced.typeName = lives == 4 ? "U" : "T";
        script.announce("a", gone("s"));
        script.announce("a", announced);
        EXPECT_TRUE(waitFor([&] { return script.called("create_reader s") == lives; }));
    }
    readsTo(9);
    EXPECT_EQ(supervisor().relay().totals().size(), 2U);
    EXPECT_EQ(stop(), exitOk);
    EXPECT_EQ(totals("r/s").read, 9U);
    EXPECT_EQ(script.given("reader s"), "qel.ferrion.announced.direction=input "
                                        "qel.ferrion.announced.k=2 "
                                        "qel.ferrion.announced.new=n ");
}

/// Nobody is there to write to: what is to be read waits, for as long as the stream may come back.
TEST_F(DiscoveryTest, ARouteIsPausedWhileItsOutputStreamIsAway)
{
    end("b/");
    DiscoverySettings back;
    back.name = "back";
    back.connection = 1;
    back.inputs = false;
    back.route.outputs = {end("b/")};
    back.route.input = end("a/${stream}.in");
    configuration.discovery = {back}; // the plug-in announces properties, so there is a grace time
    addRoute("beat", "a/beat", {"b/beat.out"});
    script.streams["o.in"].source = [] { return Read{{1}, ""}; };
    script.streams["beat"].source = [] { return Read{{1}, ""}; };
    script.announce("b", {"o", "T", type("T")}, false);
    start();
    EXPECT_TRUE(waitFor([&] { return totals("back/o").written > 0; }));
    const auto passes = [&](const char *route, std::uint64_t count) {
        const std::uint64_t before = totals(route).read;
        return waitFor([&] { return totals(route).read >= before + count; });
    };
    const auto away = Clock::now();
    script.announce("b", gone("o"), false);
    script.announce("b", {"barrier", "T", type("T")}, false);
    EXPECT_TRUE(waitFor([&] { return totals("back/barrier").name != ""; }));
    EXPECT_TRUE(passes("beat", 2)); // the pass that was under way is over
    const std::uint64_t before = totals("back/o").read;
    EXPECT_TRUE(passes("beat", 10));
    EXPECT_EQ(totals("back/o").read, before);
    script.announce("b", {"o", "T", type("T")}, false);
    EXPECT_TRUE(passes("back/o", 1));
    // A machine so slow that the grace time went by meanwhile has made another.
    EXPECT_TRUE(script.called("create_reader o.in") == 1 ||
                Clock::now() - away >= std::chrono::seconds(2));
    script.announce("b", gone("o"), false);
    EXPECT_TRUE(waitFor([&] { return totals("back/o").gone; }));
    EXPECT_EQ(stop(), exitOk);
}

TEST_F(DiscoveryTest, PartitionsStayApartOrGoTogether)
{
    addRule("apart").deny.partition = {"secret"};
    DiscoverySettings &one = addRule("one");
    one.merged = true;
    one.route.outputs[0].stream = "${stream}.one";
    const Announcement ab{"s", "T", type("T"), {"b", "a"}, false, {{"k", "1"}, {"q", "1"}}};
    const Announcement c{"s", "T", type("T"), {"c"}, false, {{"k", "2"}, {"q", "1"}}};
    const Announcement secret{"s", "T", type("T"), {"secret"}};
    for (const Announcement &announced : {ab, secret, c}) {
        script.announce("a", announced);
    }
    start();
    const auto there = [&](const char *route) {
        const RouteTotals all = totals(route);
        return !all.name.empty() && !all.gone;
    };
    EXPECT_TRUE(waitFor([&] { return there("apart/s [a,b]") && there("apart/s [c]"); }));
    EXPECT_TRUE(waitFor([&] { return !script.given("reader s@a,b,c,secret").empty(); }));
    EXPECT_EQ(totals("apart/s [secret]").name, "");
    Announcement end = c;
    end.disposed = true;
    script.announce("a", end);
    EXPECT_TRUE(waitFor([&] { return totals("apart/s [c]").gone; }));
    EXPECT_TRUE(there("apart/s [a,b]") && there("one/s"));
    script.announce("a", gone("s"));
    EXPECT_TRUE(waitFor([&] { return totals("apart/s [a,b]").gone && totals("one/s").gone; }));
    EXPECT_EQ(stop(), exitOk);
    const std::string input = "qel.ferrion.announced.direction=input ";
    EXPECT_EQ(script.given("reader s@a,b"),
              input + "qel.ferrion.announced.k=1 qel.ferrion.announced.q=1 ");
    EXPECT_EQ(script.given("writer s.out@c"),
              input + "qel.ferrion.announced.k=2 qel.ferrion.announced.q=1 ");
    EXPECT_EQ(script.given("writer s.one@a,b,c,secret"), input);
}

TEST_F(DiscoveryTest, TakesTypesFromTheAnnouncementElseFromTheFile)
{
    addRoute("fixed", "a/in", {"b/in.out"}).type = type("T");
    configuration.types["Known"] = type("Known");
    DiscoverySettings &rule = addRule("r");
    rule.deny.partition = {"secret"};
    rule.route.outputs[0].properties = {{"t", "${type}"}};
    script.announce("a", {"denied", "T", type("T"), {"open", "secret"}});
    script.announce("a", {"in", "T", type("T", "y")});    // a configured route has it
    script.announce("a", {"in.out.out", "T", type("T")}); // nobody's
    script.announce("a", {"by name", "Known"});
    script.announce("a", {"by type", "", type("U")});
    script.announce("a", {"bare"});
    script.announce("a", {"\xF0\x9F\x98\x80", "T", type("T")});
    script.announce("a", {"untyped", "What"});
    script.announce("a", {"untyped", "What"});
    script.announce("a", {"number", "L", DDS_TypeCode_get_primitive(DDS_TK_LONG)});
    script.announce("a", {"moves", "T", type("T")});
    script.announce("a", {"moves", "T", type("T", "x", DDS_TK_DOUBLE)});
    EXPECT_EQ(runUntilIdle(), exitOk);
    EXPECT_EQ(summary(), "fixed: 0 read, 0 written, 0 errors\n"
                         "r/in.out.out: 0 read, 0 written, 0 errors\n"
                         "r/by name: 0 read, 0 written, 0 errors\n"
                         "r/by type: 0 read, 0 written, 0 errors\n"
                         "r/moves: 0 read, 0 written, 0 errors\n");
    for (const char *text :
         {"[fixed] stream a/in is announced with another type than the route's: ",
          "[r/moves] stream a/moves is announced with another type than the route's: ",
          "\"types\" has no struct \"What\"", "is of type L, which is not a struct",
          "the stream is announced without a type", "the stream has a name or type that"}) {
        EXPECT_EQ(times(text), 1) << text << " in " << log;
    }
    EXPECT_NE(script.given("writer by type.out").find("t=U "), std::string::npos);
    EXPECT_TRUE(std::regex_search(log, std::regex("a/moves is .*\\bx\\b"))) << log;
}

TEST_F(DiscoveryTest, NeverTakesWhatTheRuleWritesItself)
{
    DiscoverySettings &chain = addRule("chain");
    chain.route.outputs[0].connection = 0;
    addRule("same").route.outputs = {end("a/${stream}")};
    script.announce("a", {"s", "T", type("T")});
    script.announce("a", {"s.out", "T", type("T")});
    EXPECT_EQ(runUntilIdle(), exitOk);
    EXPECT_EQ(summary(), "chain/s: 0 read, 0 written, 0 errors\n");
    EXPECT_TRUE(logged("[same/s] no route is made: the stream would be written to where it"))
        << log;
}

TEST_F(DiscoveryTest, OutlivesFailuresOfReadersAndCreations)
{
    addRule("r");
    addRule("deaf").connection = 1;
    script.silent = {"b"};
    script.errors["read a in"] = "cannot look";
    script.errors["return_loan a in"] = "cannot leave";
    script.errors["create_reader bad"] = "no such thing";
    script.streams["good"].reads = {{{1}, ""}};
    script.announce("a", {"bad", "T", type("T")});
    script.announce("a", {"good", "T", type("T")});
    EXPECT_EQ(runUntilIdle(1200), exitErrors); // two looks, one line
    EXPECT_EQ(summary(), "r/bad: 0 read, 0 written, 0 errors (out of service)\n"
                         "r/good: 1 read, 1 written, 0 errors\n");
    EXPECT_EQ(times("discovery of input streams of connection a: cannot look"), 1) << log;
    EXPECT_TRUE(logged("cannot leave")) << log;
    EXPECT_TRUE(logged("input streams of connection b are not announced: out of service")) << log;
}

/// A rule's connection fails at first, and the reader of a route. Then a read puts that route out
/// of service. Another one is out of service for good, when its stream goes.
TEST_F(DiscoveryTest, RulesAndTheirRoutesAreMadeAnew)
{
    using std::chrono::milliseconds;
    configuration.restart = RetrySettings{milliseconds(1), milliseconds(9), {}};
    addRule("r").route.onError = OnError::stop;
    for (const char *call : {"create_connection a", "create_reader s"}) {
        script.errors[call] = "not yet";
        script.hooks[call] = [this, call, failures = 3]() mutable {
            if (failures-- == 0) {
                script.errors.erase(call);
            }
        };
    }
    script.streams["s"].reads = {{{1, 2}, ""}, {{}, "broken"}, {{3}, ""}};
    script.streams["away"].source = [] { return Read{{}, "broken"}; };
    for (const char *stream : {"s", "away"}) {
        script.announce("a", {stream, "T", type("T")});
    }
    start();
    EXPECT_TRUE(waitFor([&] {
        return totals("r/s").written == 3 && script.called("create_reader away") > 3;
    })) << log;
    script.announce("a", gone("away"));
    EXPECT_TRUE(waitFor([&] { return totals("r/away").gone; }));
    const auto made = script.called("create_reader away");
    EXPECT_EQ(stop(), exitErrors);
    EXPECT_EQ(script.called("create_reader away"), made);
    EXPECT_EQ(script.called("create_connection a"), 4);
    EXPECT_EQ(script.called("create_reader s"), 5);
}

/// A thousand streams come and go while two sessions run; nothing is lost, neither of the samples
/// nor of their count.
TEST_F(DiscoveryTest, KeepsCountUnderStress)
{
    configuration.sessions.push_back({"second", std::chrono::milliseconds(10), 0, {}});
    addRule("r").deny.stream = {"*x"};
    addRule("q", 1).allow.stream = {"*x"};
    addRoute("steady", "a/in", {"b/y"});
    script.streams["in"].source = [] { return Read{{1, 2, 3}, ""}; };
    const auto name = [](int i) { return std::to_string(i * 7 % 400) + (i % 2 == 0 ? "x" : ""); };
    for (int i = 0; i < 400; ++i) {
        script.streams[name(i)].source = [n = 0]() mutable {
            return ++n % 4 == 0 ? Read{} : Read{{n, n}, ""};
        };
    }
    start();
    const auto present = [&](const std::string &route, int count) {
        const auto all = supervisor().relay().totals();
        const auto there = [&](const RouteTotals &each) { return !each.gone; };
        return std::any_of(all.begin(), all.end(),
                           [&](const auto &each) { return each.name == route && !each.gone; }) &&
               (count == 0 || std::count_if(all.begin(), all.end(), there) == count);
    };
    for (int i = 0; i < 1000; ++i) {
        script.announce("a", {name(i), "T", type("T")});
        if (i >= 20) {
            script.announce("a", gone(name(i - 20)));
        }
        if (i % 50 == 0) {
            EXPECT_TRUE(waitFor([&] { return present("q/" + name(i), 0); })) << name(i);
        }
    }
    EXPECT_TRUE(waitFor([&] { return present("r/" + name(999), 21); }));
    EXPECT_EQ(supervisor().relay().totals().size(), 21U + 257U); // not one for each that was
    EXPECT_EQ(stop(), exitOk);
    std::uint64_t read = 0;
    for (const RouteTotals &route : supervisor().relay().totals()) {
        EXPECT_EQ(route.read, route.written) << route.name;
        read += route.read;
    }
    for (const auto &[key, stream] : script.streams) {
        for (const std::vector<int> &samples : stream.writes) {
            read -= samples.size();
        }
    }
    EXPECT_EQ(read, 0U);
}

/// A reader that hangs when its stream goes holds up neither other streams nor the end.
TEST_F(DiscoveryTest, ReaderThatHangsAtItsRemoval)
{
    configuration.sessions.push_back({"second", std::chrono::milliseconds(10), 0, {}});
    addRule("r").deny.stream = {"x"};
    addRule("q", 1).allow.stream = {"x"};
    std::atomic<bool> hanging{false};
    script.hooks["read s"] = [&] {
        hanging = true;
        Script::hang();
    };
    script.hooks["delete_reader x"] = [] { dprintf(STDERR_FILENO, "delete_reader x\n"); };
    script.streams["x"].reads = {{{1}, ""}};
    const auto run = [&] {
        QELLog_setSink(nullptr, nullptr);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        options.drain = std::chrono::seconds(2);
        script.announce("a", {"s", "T", type("T")});
        start();
        waitFor([&] { return hanging.load(); });
        script.announce("a", gone("s"));
        script.announce("a", {"x", "T", type("T")});
        waitFor([&] { return totals("q/x").written == 1; });
        _exit(stop());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(exitHung),
                "r/s. hangs in read of a/s and is left behind(.|\n)*delete_reader x(.|\n)*"
                "q/x: 1 read, 1 written");
}

} // namespace
