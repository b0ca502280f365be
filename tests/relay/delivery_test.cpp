// What becomes of samples that an output does not take, and of routes that are out of service.
#include <algorithm>

#include "engine/guarantee.h"
#include "ferryjni/delivery.h"
#include "ferryjni/settings.h"
#include "launcher/retry_plan.h"
#include "numbered.h"
#include "relay_fixture.h"
#include "state/state_directory.h"

namespace {

using namespace ferry;
using namespace scripted;
using Values = std::vector<int>;

class DeliveryTest : public RelayTest, public DeadLetterKeeper {
protected:
    DeliveryTest()
    {
        keeper = this;
    }

    /// One that tries again, quickly.
    RouteSettings &addRetrying(const std::string &name, const std::string &input,
                               const std::vector<std::string> &outputs)
    {
        RouteSettings &route = addRoute(name, input, outputs);
        route.onError = OnError::retry;
        for (StreamSettings &output : route.outputs) {
            output.retry = {std::chrono::milliseconds(1), std::chrono::milliseconds(20), {}};
        }
        return route;
    }

    std::string keep(const DeadLetter &letter) override
    {
        if (obstacles > 0) {
            --obstacles;
            return "no room";
        }
        for (std::int32_t i = 0; i < letter.samples.count; ++i) {
            dead.push_back(numbered::numberOf(letter.samples.samples[i]));
        }
        reasons += letter.output + ": " + letter.reason + "\n";
        return "";
    }

    std::string keep(const RouteSettings &, const std::string &,
                     const std::vector<RejectedRecord> &records) override
    {
        for (const RejectedRecord &record : records) {
            reasons += record.position + ": " + record.reason + "\n";
        }
        return "";
    }

    /// What the stream's writer took, when it takes a whole slice or, if that is bad, none of it.
    Values &collect(const std::string &stream, std::function<bool(int)> isBad)
    {
        Values &taken = collected[stream];
        script.streams[stream].onWrite = [&taken, isBad](const Values &slice, std::string &error) {
            if (std::any_of(slice.begin(), slice.end(), isBad)) {
                error = "bad row";
                return -1;
            }
            taken.insert(taken.end(), slice.begin(), slice.end());
            return static_cast<int>(slice.size());
        };
        return taken;
    }

    static Values upTo(int last)
    {
        Values values(static_cast<std::size_t>(last));
        std::generate(values.begin(), values.end(), [n = 0]() mutable { return ++n; });
        return values;
    }

    int obstacles = 0;
    Values dead;
    std::string reasons;
    std::map<std::string, Values> collected;
};

TEST_F(DeliveryTest, WaitsForAnOutputWithoutHoldingUpOthers)
{
    addRetrying("r", "a/in", {"b/x", "c/y"});
    addRetrying("other", "a/in2", {"b/z"});
    script.streams["in"].reads = {{upTo(5), ""}, {{6}, ""}};
    int failures = 0;
    std::atomic<int> others{0};
    std::vector<Values> &offered = script.streams["x"].writes;
    script.streams["x"].onWrite = [&](const Values &slice, std::string &error) {
        // The outage ends when the other route has gone on during it.
        error = others < 20 ? "no server" : "";
        failures += error.empty() ? 0 : 1;
        return error.empty() ? static_cast<int>(slice.size()) : -1;
    };
    script.streams["in2"].source = [&] { return others < 40 ? Read{{++others}, ""} : Read{}; };
    EXPECT_EQ(runUntilIdle(), exitOk);
    EXPECT_GT(failures, 2);
    // In order, and nothing in front of the first sample was ever left out.
    offered.erase(offered.begin(), offered.begin() + failures);
    Values taken;
    for (const Values &slice : offered) {
        taken.insert(taken.end(), slice.begin(), slice.end());
    }
    EXPECT_EQ(taken, upTo(6));
    EXPECT_EQ(script.streams["y"].writes, (std::vector<Values>{upTo(5), {6}}));
    EXPECT_EQ(dead, Values{});
    EXPECT_EQ(totals("r").retries, static_cast<std::uint64_t>(failures));
}

TEST_F(DeliveryTest, FindsTheSamplesThatAreBadDataAndSetsThemAside)
{
    addRetrying("r", "a/in", {"b/x"});
    script.streams["in"].reads = {{upTo(40), ""}};
    const Values bad = {1, 2, 7, 20, 21, 22, 39};
    const Values &taken =
        collect("x", [&](int n) { return std::find(bad.begin(), bad.end(), n) != bad.end(); });
    obstacles = 2;
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(dead, bad);
    Values good = upTo(40);
    good.erase(
        std::remove_if(good.begin(), good.end(),
                       [&](int n) { return std::find(bad.begin(), bad.end(), n) != bad.end(); }),
        good.end());
    EXPECT_EQ(taken, good);
    EXPECT_EQ(reasons.substr(0, 13), "b/x: bad row\n");
    EXPECT_TRUE(logged("cannot be set aside: no room")) << log;
    EXPECT_EQ(totals("r").dead, bad.size());
}

/// Of two letters one is taken by then. The other stays, with how often it has been tried.
TEST_F(DeliveryTest, WritesDeadLettersOnceMore)
{
    char name[] = "/tmp/ferry-letters-XXXXXX";
    configuration.state = std::filesystem::path(mkdtemp(name)) / "state";
    configuration.deadLetterBytes = 1U << 20;
    keeper = nullptr;
    addRetrying("r", "a/in", {"b/x"}).type = numbered::sampleType();
    script.streams["in"].reads = {{upTo(9), ""}};
    Values bad = {2, 3, 7};
    const Values &taken =
        collect("x", [&](int n) { return std::find(bad.begin(), bad.end(), n) != bad.end(); });
    EXPECT_EQ(runUntilIdle(), exitErrors);
    const std::filesystem::path file = StateDirectory(configuration.state).deadLetters();
    DeadLetters letters({file, 0, false, {}, ""});
    const auto all = [&letters] {
        std::vector<KeptLetter> found;
        letters.visit(0, false, [&](const KeptLetter &letter) {
            found.push_back(letter);
            return true;
        });
        return found;
    };
    std::vector<KeptLetter> chosen = all();
    ASSERT_EQ(chosen.size(), 3U);
    EXPECT_EQ(chosen[2].reason + chosen[2].text, "bad row{\"n\":7,\"rest\":[]}");
    chosen.pop_back();

    RetryPlan plan = planRetry(configuration, file, chosen);
    EXPECT_TRUE(plan.impossible.empty());
    bad = {3, 7};
    Supervisor again(plan.configuration, script, reporter, console, options);
    script.notified = 0;
    EXPECT_EQ(again.run(), exitErrors);
    EXPECT_EQ(script.notified, 2) << "the plug-ins of the run before are gone";
    EXPECT_EQ(taken, (Values{1, 4, 5, 6, 8, 9, 2}));
    const std::vector<KeptLetter> left = all();
    ASSERT_EQ(left.size(), 2U);
    EXPECT_EQ(left[0].text, "{\"n\":3,\"rest\":[]}");
    EXPECT_GT(left[0].attempts, chosen[1].attempts);

    configuration.routes[0].outputs[0].stream = "y";
    EXPECT_EQ(planRetry(configuration, file, left).impossible[left[0].id],
              "the file has no route \"r\" with an output \"b/x\"");
    std::filesystem::remove_all(configuration.state.parent_path());
}

/// Without a place for bad data, for a sample that has no neighbour to compare it with, and after
/// the time that the settings give.
TEST_F(DeliveryTest, KeepsWhatItCannotDeliverOnLoan)
{
    RouteSettings &strict = addRetrying("strict", "a/in", {"b/x"});
    strict.deadLetters = false;
    addRetrying("alone", "a/in2", {"b/y"});
    RouteSettings &patient = addRetrying("patient", "a/in3", {"b/z"});
    patient.outputs[0].retry.limit = std::chrono::milliseconds(30);
    for (const auto &[in, out] : {std::pair("in", "x"), {"in2", "y"}, {"in3", "z"}}) {
        script.streams[in].reads = {{std::string(in) == "in" ? Values{1, 2, 3} : Values{9}, ""}};
        collect(out, [](int n) { return n == 2 || n == 9; });
    }
    bool returned = false;
    for (const char *call : {"return_loan in", "return_loan in2", "return_loan in3"}) {
        script.hooks[call] = [&returned] { returned = true; };
    }
    options.giveUp = std::chrono::milliseconds(100);
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_FALSE(returned);
    EXPECT_EQ(totals("strict").held, 2U);
    EXPECT_EQ(totals("alone").held, 1U);
    EXPECT_EQ(totals("patient").held, 1U);
    EXPECT_TRUE(totals("strict").failed && !totals("alone").failed && totals("patient").failed);
    EXPECT_EQ(dead, Values{});
    EXPECT_TRUE(logged("cannot take sample 2 of a read of 3: bad row")) << log;
    EXPECT_TRUE(logged("route alone has samples that an output does not take: given up")) << log;
}

/// Nobody gives the samples numbers that rise for good, so the output would lose some.
TEST_F(DeliveryTest, RejectsAnOutputThatNeedsNumbersAndHasNoStoreThatKeepsAll)
{
    configuration.restart = RetrySettings();
    addRetrying("r", "a/in", {"b/x"});
    addRetrying("queued", "a/in2", {"b/y"}).input.buffer = 0;
    addRetrying("dropping", "a/in3", {"b/z"}).input.buffer = 1;
    configuration.buffers.emplace_back().settings.stored = false;
    configuration.buffers.emplace_back().settings.whenFull = WhenFull::dropOldest;
    script.delivers = FERRY_DELIVERY_ONCE | FERRY_DELIVERY_NUMBERS | FERRY_DELIVERY_REPEATS;
    EXPECT_EQ(runUntilIdle(), exitNoStart);
    EXPECT_EQ(script.called("create_writer x") + script.called("create_writer y") +
                  script.called("create_writer z"),
              0);
    EXPECT_EQ(times("output b/x writes each sample once by its number"), 1) << log;
    EXPECT_EQ(times("output b/y writes each sample once by its number"), 1) << log;
    EXPECT_EQ(times("and its store drops samples when it is full"), 1) << log;
}

TEST_F(DeliveryTest, GuaranteesWhatTheEndsDeclare)
{
    constexpr std::uint32_t repeats = FERRY_DELIVERY_REPEATS;
    constexpr std::uint32_t once = FERRY_DELIVERY_ONCE;
    constexpr std::uint32_t idempotent = FERRY_DELIVERY_IDEMPOTENT;
    const BufferSettings store = {true, "", 1, WhenFull::block};
    const BufferSettings drops = {true, "", 1, WhenFull::dropNewest};
    const BufferSettings queue = {false, "", 1, WhenFull::dropOldest};
    const struct {
        std::uint32_t reader, writer;
        std::optional<BufferSettings> own;
        const char *guarantee;
    } cases[] = {
        {repeats, 0, {}, "at least once"},
        {0, idempotent, {}, "at most once: the input cannot repeat, and output b/x has no store"},
        {repeats, idempotent, {}, "exactly once"},
        {repeats, 0, store, "at least once"},
        {0, 0, store, "at least once from the store on: the input cannot repeat"},
        {0, once, store, "exactly once from the store on: the input cannot repeat"},
        {repeats, once, store, "exactly once from the store on"},
        {repeats, idempotent, store, "exactly once"},
        {repeats | FERRY_DELIVERY_NUMBERS, once, store, "exactly once"},
        {repeats, once, drops,
         "at most once: the store of output b/x drops samples when it is full"},
        {repeats, 0, queue, "at most once: no output is required"},
    };
    RouteSettings &route = addRetrying("r", "a/in", {"b/x"});
    for (const auto &each : cases) {
        route.outputs[0].own = each.own;
        EXPECT_EQ(guaranteeOf(configuration, route,
                              [&](const StreamSettings &, std::uint32_t role) {
                                  return role == FERRY_SETTING_OF_READER ? each.reader
                                                                         : each.writer;
                              }),
                  each.guarantee);
    }
    route.onError = OnError::carryOn;
    route.outputs[0].own = {};
    EXPECT_EQ(guaranteeOf(configuration, route,
                          [](const StreamSettings &, std::uint32_t) { return repeats; }),
              "at most once: with \"on_error: continue\" what output b/x does not take is lost");
}

/// A call that fails at first, and how often the reader of the route is made until all is well.
class Unavailable : public DeliveryTest,
                    public testing::WithParamInterface<std::pair<const char *, int>> {};

TEST_P(Unavailable, IsMadeAnewUntilItIsThere)
{
    const auto [call, readers] = GetParam();
    configuration.restart =
        RetrySettings{std::chrono::milliseconds(1), std::chrono::milliseconds(9), {}};
    addRetrying("r", "a/in", {"b/x"});
    addRetrying("good", "c/in2", {"d/y"});
    script.streams["in"].reads = {{upTo(3), ""}};
    script.streams["in2"].reads = {{upTo(3), ""}};
    script.errors[call] = "not yet";
    script.hooks[call] = [this, call = call, failures = 3]() mutable {
        if (failures-- == 0) {
            script.errors.erase(call);
        }
    };
    options.giveUp = std::chrono::seconds(100);
    EXPECT_EQ(runUntilIdle(), exitOk) << log;
    EXPECT_EQ(script.streams["x"].writes, std::vector<Values>{upTo(3)});
    EXPECT_EQ(script.streams["y"].writes, std::vector<Values>{upTo(3)});
    EXPECT_EQ(script.called("create_reader in"), readers);
    EXPECT_EQ(script.called("create_reader in2"), 1);
    EXPECT_EQ(times("not yet"), 1) << log;
}

INSTANTIATE_TEST_SUITE_P(All, Unavailable,
                         testing::Values(std::pair("create_connection a", 1),
                                         std::pair("create_session a", 1),
                                         std::pair("create_writer x", 1),
                                         std::pair("create_reader in", 4)));

TEST_F(DeliveryTest, RestartsARouteThatHasStoppedWithFreshObjects)
{
    configuration.restart =
        RetrySettings{std::chrono::milliseconds(1), std::chrono::milliseconds(9), {}};
    RouteSettings &route = addRetrying("r", "a/in", {"b/x"});
    route.onError = OnError::stop;
    // Longer than until the supervisor looks: the run must not end while the only route is made.
    script.hooks["create_connection b"] = [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    };
    script.streams["in"].source = [this, made = std::ptrdiff_t{0}]() mutable {
        // A source that repeats what it did not get back.
        const bool fresh = script.called("create_reader in") > made;
        made = script.called("create_reader in");
        return fresh ? Read{upTo(3), ""} : Read{};
    };
    int failures = 2;
    script.streams["x"].onWrite = [&](const Values &slice, std::string &error) {
        error = failures > 0 ? "broken" : "";
        return failures-- > 0 ? -1 : static_cast<int>(slice.size());
    };
    EXPECT_EQ(runUntilIdle(), exitErrors);
    EXPECT_EQ(script.streams["x"].writes.size(), 3U);
    EXPECT_EQ(script.called("create_connection a"), 3);
    EXPECT_EQ(script.called("create_connection b"), 3);
    EXPECT_EQ(script.called("delete_reader in"), 3);
    EXPECT_EQ(summary(), "r: 9 read, 3 written, 2 errors, 6 not acknowledged\n");
}

} // namespace
