// Runs a relay from start to end, on the main thread: watches it, shows its progress, stops it and
// bounds the time that takes. It never enters a plug-in, so no adapter can hold it up.
#ifndef FERRY_PROCESS_SUPERVISOR_H
#define FERRY_PROCESS_SUPERVISOR_H

#include "engine/relay.h"
#include "process/console.h"
#include "process/progress.h"
#include "process/run_options.h"

namespace ferry {

/// What remains of the drain limit once calls that wait have returned, for everything else that a
/// stop does; of a short limit a quarter.
constexpr std::chrono::milliseconds stopReserve{1000};
/// Time beyond the drain limit for closing what does not hang.
constexpr std::chrono::milliseconds closeGrace{2000};
/// How many closings that hang may be left behind, each with another such time for what remains.
constexpr int maxRescues = 2;
/// When a stop that was asked for has to be over at the latest, beyond the drain limit.
constexpr std::chrono::milliseconds stopGrace = (maxRescues + 2) * closeGrace;

class Supervisor {
public:
    Supervisor(const Configuration &configuration, PluginHost &host, Reporter &reporter,
               Console &console, RunOptions options, DeadLetterKeeper *keeper = nullptr);

    /// Runs until the end and returns the exit code. When an adapter hangs, the process is ended
    /// from here with exitHung.
    int run();
    /// Any thread.
    void requestStop();
    /// Any thread: the quick way out, with the summary. A thread that hangs in a plug-in would hold
    /// up every other one.
    [[noreturn]] void endProcess(int code);

    /// Before the run: what is done when the process is ended quickly.
    void beforeEnd(std::function<void()> body)
    {
        beforeEnd_ = std::move(body);
    }
    Relay &relay()
    {
        return relay_;
    }

private:
    bool waitForStart();
    void watch();
    void report(Clock::time_point now);
    void stop();
    void notifyPlugins(Clock::time_point deadline,
                       const std::function<void(Clock::time_point)> &notify);
    void waitSessions(Clock::time_point deadline);
    bool waitClosed(Clock::time_point deadline);
    void giveUp();
    void reportStalls();
    void measure(Clock::time_point now);
    void summarize();
    void printStreams();
    int result() const;

    const Configuration &configuration_;
    PluginHost &host_;
    Console &console_;
    const RunOptions options_;
    Relay relay_;
    Progress progress_;
    std::atomic<bool> stopRequested_{false};
    std::function<void()> beforeEnd_;
    bool started_ = false;
    bool found_ = true;
    bool unfinished_ = false;
    Clock::time_point nextReport_;
    Clock::time_point nextMeasure_;
};

} // namespace ferry

#endif
