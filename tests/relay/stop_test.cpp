// The end of a run: orderly, bounded, and honest about what was left behind.
#include <csignal>
#include <thread>
#include <unistd.h>

#include "engine/signals.h"
#include "relay_fixture.h"

namespace {

using namespace ferry;
using namespace scripted;
using std::chrono::milliseconds;

void sleepFor(int time)
{
    std::this_thread::sleep_for(milliseconds(time));
}

/// A write that waits comes back because its plug-in is told of the stop, and when it has to.
TEST_F(RelayTest, FinishesThePresentLoanAndReadsNoMore)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 1;
    options.drain = std::chrono::seconds(20);
    script.streams["in"].source = [] { return Read{{1, -1, 2, 3}, ""}; };
    const auto begin = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
    script.hooks["write x"] = [&] {
        supervisor().requestStop();
        for (int i = 0; i < 1000 && script.told < 2; ++i) {
            sleepFor(10);
        }
    };
    EXPECT_EQ(supervisor().run(), exitErrors); // one sample was not there
    EXPECT_EQ(script.told, 2);
    EXPECT_GE(script.stoppedBy, begin + 19'000'000'000);
    EXPECT_LE(script.stoppedBy,
              std::chrono::nanoseconds(Clock::now().time_since_epoch()).count() + 19'000'000'000);
    EXPECT_EQ(script.streams["x"].writes.size(), 3U);
    EXPECT_EQ(script.streams["in"].readCalls, 1);
}

struct Hang {
    /// The call that never comes back, at its `time`th time.
    const char *call;
    int time;
    int code;
    const char *log;
};

class StopDeathTest : public RelayTest, public testing::WithParamInterface<Hang> {
protected:
    /// Runs and requests a stop after a while; the whole process ends with the run's code, the log,
    /// the summary and some of the plug-in's calls on standard error.
    [[noreturn]] void runAndStop()
    {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        options.drain = milliseconds(300);
        options.stall = milliseconds(20);
        QELLog_setSink(nullptr, nullptr);
        for (const char *call : {"delete_writer x", "delete_reader in", "delete_connection b",
                                 "delete_writer y", "delete_adapter c"}) {
            script.hooks.emplace(call, [call] { dprintf(STDERR_FILENO, "%s\n", call); });
        }
        supervisor();
        std::thread([this] {
            sleepFor(100);
            supervisor().requestStop();
        }).detach();
        _exit(supervisor().run());
    }
};

/// No other object loses its close by it, no other sample is lost.
TEST_P(StopDeathTest, CallThatNeverComesBack)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 2;
    addRoute("s", "c/in2", {"c/y"});
    script.streams["in"].reads = {{{1, 2, 3, 4, 5}, ""}};
    script.hooks[GetParam().call] = [times = 0]() mutable {
        if (++times == GetParam().time) {
            Script::hang();
        }
    };
    EXPECT_EXIT(runAndStop(), testing::ExitedWithCode(GetParam().code), GetParam().log);
}

INSTANTIATE_TEST_SUITE_P(
    All, StopDeathTest,
    testing::Values(
        Hang{"read in", 1, exitHung,
             "read of a/in has not come back for 0 s(.|\n)*main session stop timeout(.|\n)*r. "
             "hangs in read of a/in and is left behind(.|\n)*"
             "delete_writer x\ndelete_writer y\ndelete_connection b\ndelete_adapter c"},
        Hang{"write x", 2, exitHung,
             "hangs in write of b/x and(.|\n)*delete_reader in\n(.|\n)*"
             "r: 5 read, 2 written, 0 errors, 3 lost"},
        Hang{"create_connection b", 1, exitHung,
             "create of connection b has not come back for 0 s(.|\n)*connection b does not come "
             "back("
             ".|\n)*delete_adapter c"},
        Hang{"delete_session b", 1, exitHung,
             "delete of session main of connection b does not come back(.|\n)*delete_adapter c"},
        Hang{"delete_reader in", 1, exitHung,
             "delete of reader of a/in does not come back(.|\n)*delete_writer x\ndelete_writer y\n"
             "(.|\n)*r: 5 read, 5 written"},
        Hang{"stop_by", 1, exitHung, "a plug-in does not come back from being told to stop"},
        Hang{"stop", 1, exitOk, "the Java VM does not end"}));

/// A process that watches for signals as ferry does; the stop takes its time.
[[noreturn]] void watchSignals(int signals, int pause)
{
    blockStopSignals();
    std::atomic<bool> stop{false};
    SignalWatcher watcher([&] { stop = true; }, [] { sleepFor(10); }, milliseconds(200), exitHung);
    watcher.start();
    for (int i = 0; i < signals; ++i) {
        kill(getpid(), SIGTERM);
        sleepFor(50);
    }
    // Asking for dumps neither stops nor puts off the end.
    for (int i = 0; i < pause / 50; ++i) {
        kill(getpid(), SIGQUIT);
        sleepFor(50);
    }
    _exit(stop ? 0 : 99);
}

TEST(SignalDeathTest, FirstStopsSecondEndsLateIsForced)
{
    EXPECT_EXIT(watchSignals(0, 500), testing::ExitedWithCode(99), "");
    EXPECT_EXIT(watchSignals(1, 0), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(watchSignals(2, 5000), testing::ExitedWithCode(128 + SIGTERM), "");
    EXPECT_EXIT(watchSignals(1, 5000), testing::ExitedWithCode(exitHung), "");
}

} // namespace
