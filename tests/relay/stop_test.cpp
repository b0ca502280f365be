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

class StopTest : public RelayTest {
protected:
    /// Runs and requests a stop after a while; the whole process ends with the run's code, the log
    /// and the plug-in's calls on standard error.
    [[noreturn]] void runAndStop(int after)
    {
        options.drain = milliseconds(300);
        QELLog_setSink(nullptr, nullptr);
        for (const char *call : {"delete_writer x", "delete_reader in", "delete_connection b",
                                 "delete_writer y", "delete_adapter c"}) {
            script.hooks.emplace(call, [call] { dprintf(STDERR_FILENO, "%s\n", call); });
        }
        supervisor();
        std::thread stopper([this, after] {
            sleepFor(after);
            supervisor().requestStop();
        });
        const int code = supervisor().run();
        stopper.join();
        _exit(code);
    }
};

TEST_F(StopTest, FinishesThePresentLoanAndReadsNoMore)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 1;
    script.stream("in").source = [] { return Read{{1, 2, 3}, ""}; };
    std::atomic<bool> inside{false};
    script.hooks["write x"] = [&] {
        inside = true;
        sleepFor(60);
    };
    std::thread stopper([&] {
        while (!inside) {
            sleepFor(1);
        }
        supervisor().requestStop();
    });
    supervisor();
    EXPECT_EQ(supervisor().run(), exitOk);
    stopper.join();
    EXPECT_EQ(script.stream("x").writes.size(), 3U);
    EXPECT_EQ(script.stream("in").readCalls, 1);
    EXPECT_EQ(script.calls().back(), "stop");
}

using StopDeathTest = StopTest;

TEST_F(StopDeathTest, ReaderThatNeverComesBackCostsNoOtherObjectItsClose)
{
    addRoute("r", "a/in", {"b/x"});
    addRoute("s", "c/in2", {"c/y"});
    script.hooks["read in"] = Script::hang;
    EXPECT_EXIT(runAndStop(50), testing::ExitedWithCode(exitHung),
                "main session stop timeout(.|\n)*r. hangs in read and is left behind(.|\n)*"
                "delete_writer x\ndelete_writer y\ndelete_connection b\ndelete_adapter c");
}

TEST_F(StopDeathTest, WriterThatNeverComesBackLosesItsLoan)
{
    addRoute("r", "a/in", {"b/x"}).outputs[0].maxSamplesPerWrite = 2;
    script.stream("in").reads = {{{1, 2, 3, 4, 5}, ""}};
    script.stream("x").onWrite = [&](const Write &write, std::string &) {
        if (write.samples[0] == 3) {
            Script::hang();
        }
        return 2;
    };
    testing::FLAGS_gtest_death_test_style = "fast";
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            runAndStop(50);
        },
        testing::ExitedWithCode(exitHung),
        "hangs in write(.|\n)*delete_reader in\n(.|\n)*r: 5 read, 2 written, 0 errors, 3 lost");
}

TEST_F(StopDeathTest, ConstructorThatNeverComesBack)
{
    addRoute("r", "a/in", {"b/x"});
    script.hooks["create_connection b null"] = Script::hang;
    EXPECT_EXIT(runAndStop(50), testing::ExitedWithCode(exitHung),
                "create of connection b does not come back(.|\n)*test stop timeout");
}

TEST_F(StopDeathTest, DestructorThatNeverComesBack)
{
    addRoute("r", "a/in", {"b/x"});
    script.hooks["delete_session b"] = Script::hang;
    EXPECT_EXIT(runAndStop(50), testing::ExitedWithCode(exitHung),
                "delete of session main of connection b does not come back");
}

TEST_F(StopDeathTest, ThreadsLeftInTheVmDoNotHoldUpAGoodEnd)
{
    addRoute("r", "a/in", {"b/x"});
    script.hooks["stop"] = Script::hang;
    EXPECT_EXIT(runAndStop(50), testing::ExitedWithCode(exitOk), "the Java VM does not end");
}

/// A process that watches for signals as ferry does; the stop takes its time.
[[noreturn]] void watchSignals(int signals, int pause)
{
    blockStopSignals();
    std::atomic<bool> stop{false};
    SignalWatcher watcher([&] { stop = true; }, milliseconds(200), exitHung);
    watcher.start();
    for (int i = 0; i < signals; ++i) {
        kill(getpid(), SIGTERM);
        sleepFor(50);
    }
    sleepFor(pause);
    _exit(stop ? 0 : 99);
}

TEST(SignalDeathTest, FirstStopsSecondEndsLateIsForced)
{
    EXPECT_EXIT(watchSignals(1, 0), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(watchSignals(2, 5000), testing::ExitedWithCode(128 + SIGTERM), "");
    EXPECT_EXIT(watchSignals(1, 5000), testing::ExitedWithCode(exitHung), "");
}

} // namespace
