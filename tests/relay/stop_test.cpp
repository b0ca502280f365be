// The end of a run: orderly, bounded, and honest about what was left behind.
#include <csignal>
#include <cstring>
#include <thread>
#include <unistd.h>

#include "process/signals.h"
#include "relay_fixture.h"

namespace {

using namespace ferry;
using namespace scripted;
using std::chrono::milliseconds;

void sleepFor(int time)
{
    std::this_thread::sleep_for(milliseconds(time));
}

/// A write that waits comes back because its plug-in is notified of the stop, and when it has to.
TEST_F(RelayTest, FinishesThePresentLoanAndReadsNoMore)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 1;
    options.drain = std::chrono::seconds(20);
    script.streams["in"].source = [] { return Read{{1, -1, 2, 3}, ""}; };
    const auto begin = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
    script.hooks["write x"] = [&] {
        supervisor().requestStop();
        for (int i = 0; i < 1000 && script.notified < 2; ++i) {
            sleepFor(10);
        }
    };
    EXPECT_EQ(supervisor().run(), exitErrors); // one sample was not there
    EXPECT_EQ(script.notified, 2);
    EXPECT_GE(script.stoppedBy, begin + 19'000'000'000);
    EXPECT_LE(script.stoppedBy,
              std::chrono::nanoseconds(Clock::now().time_since_epoch()).count() + 19'000'000'000);
    EXPECT_EQ(script.streams["x"].writes.size(), 3U);
    EXPECT_EQ(script.streams["in"].readCalls, 1);
}

struct Hang {
    /// The calls that never return, at their `time`th time.
    std::vector<const char *> calls;
    int time;
    int code;
    const char *log;
};

class StopDeathTest : public RelayTest, public testing::WithParamInterface<Hang> {
protected:
    /// Runs, and requests a stop when the call hangs and that has been reported, or all is written;
    /// the whole process ends with the run's code, the log, the summary and some of the plug-in's
    /// calls on standard error.
    [[noreturn]] void runAndStop()
    {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        options.drain = milliseconds(2000); // in which a thread is to be notified
        options.stall = milliseconds(20);
        QELLog_setSink(
            [](void *self, const char *line, std::size_t length) {
                dprintf(STDERR_FILENO, "%.*s\n", static_cast<int>(length), line);
                auto *test = static_cast<StopDeathTest *>(self);
                const bool stall = std::strstr(line, "has not returned") != nullptr;
                test->reported = test->reported || (test->hanging && stall);
            },
            this);
        for (const char *call : {"delete_writer x", "delete_reader in", "delete_connection b",
                                 "delete_writer y", "delete_adapter c"}) {
            script.hooks.emplace(call, [call] { dprintf(STDERR_FILENO, "%s\n", call); });
        }
        supervisor();
        std::thread([this] {
            waitFor([this] {
                return reported || (totals("r").written == 5 && totals("s").written == 1);
            });
            supervisor().requestStop();
        }).detach();
        _exit(supervisor().run());
    }

    std::atomic<bool> hanging{false};
    std::atomic<bool> reported{false};
};

/// No other object loses its close by it, no other sample is lost.
TEST_P(StopDeathTest, CallThatNeverReturns)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 2;
    addRoute("s", "c/in2", {"c/y"});
    script.streams["in"].reads = {{{1, 2, 3, 4, 5}, ""}};
    script.streams["in2"].reads = {{{1}, ""}};
    for (const char *call : GetParam().calls) {
        script.hooks[call] = [this, times = 0]() mutable {
            if (++times == GetParam().time) {
                hanging = true;
                Script::hang();
            }
        };
    }
    EXPECT_EXIT(runAndStop(), testing::ExitedWithCode(GetParam().code), GetParam().log);
}

INSTANTIATE_TEST_SUITE_P(
    All, StopDeathTest,
    testing::Values(
        Hang{{"read in"},
             1,
             exitHung,
             "read of a/in has not returned for 0 s; behind it in session main wait s\n(.|\n)*"
             "main session stop timeout(.|\n)*r. "
             "hangs in read of a/in and is left behind(.|\n)*"
             "delete_writer x\ndelete_writer y\ndelete_connection b\ndelete_adapter c"},
        Hang{{"write x"},
             2,
             exitHung,
             "hangs in write of b/x and(.|\n)*delete_reader in\n(.|\n)*"
             "r: 5 read, 2 written, 0 errors, 3 lost(.|\n)*s: [01] read, [^(\n]*\n"},
        Hang{{"create_connection b"},
             1,
             exitHung,
             "create of connection b has not returned for 0 s(.|\n)*connection b does not return"
             "(.|\n)*delete_adapter c"},
        Hang{{"delete_session b"},
             1,
             exitHung,
             "delete of session main of connection b does not return(.|\n)*delete_adapter c"},
        Hang{{"delete_reader in"},
             1,
             exitHung,
             "delete of reader of a/in does not return(.|\n)*delete_writer x\ndelete_writer y\n"
             "(.|\n)*r: 5 read, 5 written"},
        Hang{{"delete_reader in", "delete_reader in2", "delete_writer x"},
             1,
             exitHung,
             "delete of reader of c/in2 does not return(.|\n)*delete of writer of b/x does not "
             "return(.|\n)*test stop timeout"},
        Hang{{"stop_by"}, 1, exitHung, "a plug-in does not return from the request to stop"},
        Hang{{"stop"}, 1, exitOk, "the Java VM does not end"}));

/// A process that watches for signals as ferry does; the stop takes its time.
[[noreturn]] void watchSignals(const std::vector<int> &signals, int limit, bool end)
{
    std::signal(SIGHUP, SIG_IGN);
    ignoreStraySignals();
    std::atomic<bool> stop{false};
    int asked = 0;
    std::atomic<int> dumps{0};
    SignalWatcher watcher([&] { stop = true; }, [&] { ++dumps; }, milliseconds(limit), exitHung);
    watcher.start();
    for (const int signal : signals) {
        kill(getpid(), signal);
        while ((signal == SIGTERM || signal == SIGXCPU) && watcher.received() == 0) {
            sleepFor(1);
        }
        asked += signal == SIGQUIT ? 1 : 0;
        while (dumps < asked) {
            sleepFor(1);
        }
    }
    // Asking for dumps does not put off the end.
    while (!end || (stop && limit < 1000)) {
        kill(getpid(), SIGQUIT);
        sleepFor(10);
    }
    _exit(stop ? 0 : 99);
}

TEST(SignalDeathTest, FirstStopsSecondEndsLateIsForced)
{
    constexpr int never = 1000000;
    EXPECT_EXIT(watchSignals({SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2, SIGALRM, SIGPROF, SIGXFSZ, SIGIO,
                              SIGPIPE, SIGQUIT},
                             never, true),
                testing::ExitedWithCode(99), "");
    EXPECT_EXIT(watchSignals({SIGXCPU}, never, true), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(watchSignals({SIGTERM, SIGTERM}, never, false),
                testing::ExitedWithCode(128 + SIGTERM), "");
    EXPECT_EXIT(watchSignals({SIGTERM}, 200, false), testing::ExitedWithCode(exitHung), "");
}

/// A call is reported soon after the limit, whenever it began; of several at least one is, as the
/// machine may be busy.
TEST_F(RelayTest, ReportsACallSoonAfterItsTime)
{
    addRoute("r", "a/in", {"b/x"});
    for (int i = 0; i < 7; ++i) {
        addRoute("q" + std::to_string(i), "a/q", {"b/y"});
    }
    options.stall = milliseconds(300);
    configuration.sessions.push_back({"second", milliseconds(10), 0, {}});
    std::atomic<int> reported{0};
    script.streams["in"].source = [n = 0]() mutable { return Read{{++n}, ""}; };
    Clock::duration quickest = std::chrono::hours(1);
    script.hooks["write x"] = [&] {
        if (reported >= 10) {
            return;
        }
        EXPECT_TRUE(waitFor([&] { return supervisor().relay().callsUnderWay().size() == 1; }));
        const auto begin = Clock::now();
        EXPECT_TRUE(waitFor([&] { return times("write of b/x has not") > reported; }));
        // The first begins together with the watch.
        quickest = reported == 0 ? quickest : std::min(quickest, Clock::now() - begin);
        reported = quickest < 1.5 * options.stall ? 10 : reported + 1;
    };
    EXPECT_EQ(runUntil([&] { return reported >= 10; }), exitOk);
    EXPECT_LT(quickest, 1.5 * options.stall);
    EXPECT_TRUE(logged("; behind it in session main wait q0, q1, q2, q3, q4 and 2 more")) << log;
}

TEST_F(RelayTest, AwaitsAFirstSampleIfAskedTo)
{
    addRoute("r", "a/in", {"b/x"});
    addRoute("idle", "a/in2", {"b/y"});
    options.afterFirst = true;
    script.streams["in"].reads.resize(20); // with pauses longer than what counts as idle
    // What goes on is not idle beside a route that is.
    script.streams["in"].source = [n = 0]() mutable {
        sleepFor(5);
        return ++n <= 20 ? Read{{n}, ""} : Read{};
    };
    EXPECT_EQ(runUntilIdle(20), exitOk);
    EXPECT_EQ(summary(), "r: 20 read, 20 written, 0 errors\nidle: 0 read, 0 written, 0 errors\n");
}

/// At once, however soon after the start, and not when somebody looks.
TEST_F(RelayTest, EndsWhenNoRouteIsLeft)
{
    addRoute("r", "a/in", {"b/x"}).onError = OnError::stop;
    script.streams["in"].reads = {{{1, 2}, ""}, {{}, "out of order"}};
    options.stall = std::chrono::hours(100);
    EXPECT_EQ(supervisor().run(), exitErrors);
    EXPECT_EQ(summary(), "r: 2 read, 2 written, 1 errors (out of service)\n");
}

TEST_F(RelayTest, ACheckThatIsStoppedIsNoSuccess)
{
    addRoute("r", "a/in", {"b/x"});
    options.task = Task::check;
    script.hooks["create_reader in"] = [this] { supervisor().requestStop(); };
    EXPECT_EQ(supervisor().run(), exitErrors);
}

TEST_F(RelayTest, StartsNothingWithoutItsHost)
{
    addRoute("r", "a/in", {"b/x"});
    script.cannotStart = true;
    EXPECT_EQ(supervisor().run(), exitNoStart);
    EXPECT_TRUE(script.calls.empty() && logged("!start test")) << log;
}

/// Sessions whose threads cannot run leave nothing to wait for: that is no start.
TEST_F(RelayTest, StartsNothingWithoutItsThreads)
{
    addRoute("r", "a/in", {"b/x"});
    addRoute("bad", "a/in2", {"b/y"});
    script.errors["create_reader in2"] = "not today";
    addRule("d");
    configuration.sessions.push_back({"nobody's", std::chrono::milliseconds(10), 0, {}});
    script.rejectsThreads = true;
    EXPECT_EQ(supervisor().run(), exitNoStart);
    EXPECT_TRUE(logged("!start main session") && !logged("started OK")) << log;
    EXPECT_FALSE(logged("!start nobody's session")) << log;
    EXPECT_EQ(summary(), "r: 0 read, 0 written, 1 errors (out of service)\n"
                         "bad: 0 read, 0 written, 0 errors (out of service)\n");
}

} // namespace
