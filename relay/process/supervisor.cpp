#include "process/supervisor.h"

#include <unistd.h>

#include "engine/log.h"
#include "process/exit_code.h"
#include "process/stream_table.h"

namespace ferry {
namespace {

constexpr std::chrono::milliseconds liveInterval{200};
constexpr std::chrono::milliseconds lineInterval{10000};
/// What a write may take after a request to stop before it is told.
constexpr std::chrono::milliseconds writePatience{100};
/// How often quiet is looked for; bounds how much later than asked the end comes.
constexpr std::chrono::milliseconds idleInterval{20};
/// Calls that do not return are looked for that often in the time after which one is
/// reported.
constexpr int stallLooks = 10;

} // namespace

Supervisor::Supervisor(const Configuration &configuration, PluginHost &host, Reporter &reporter,
                       Console &console, RunOptions options, DeadLetterKeeper *keeper)
    : configuration_(configuration), host_(host), console_(console), options_(std::move(options)),
      relay_(configuration, host, reporter, keeper)
{
}

void Supervisor::requestStop()
{
    stopRequested_.store(true);
    relay_.requestStop();
}

int Supervisor::run()
{
    if (!relay_.start(options_.task)) {
        logError("FERRYSupervisor_run", FERRY_LOG_SERVICE_START_FAILURE_s,
                 configuration_.name.c_str());
        return exitNoStart;
    }
    if (!waitForStart()) {
        relay_.join();
        logError("FERRYSupervisor_run", FERRY_LOG_SERVICE_START_FAILURE_s,
                 configuration_.name.c_str());
        return exitNoStart;
    }
    if (options_.task == Task::run) {
        watch();
    } else if (options_.task == Task::list) {
        relay_.waitUntil(Clock::now() + options_.wait, [this] { return stopRequested_.load(); });
    }
    stop();
    summarize();
    return result();
}

/// False when the plug-in host failed. A stop that comes first is a start that went well.
bool Supervisor::waitForStart()
{
    while (!relay_.waitUntil(Clock::now() + options_.stall / stallLooks, [this] {
        return relay_.phase() != Relay::Phase::starting || stopRequested_.load();
    })) {
        reportStalls();
    }
    if (relay_.phase() == Relay::Phase::failed) {
        return false;
    }
    const bool isRun = options_.task == Task::run;
    started_ = relay_.phase() == Relay::Phase::running && (!isRun || relay_.started());
    if (started_ && isRun) {
        logMessage(FERRYLOG_BIT_STATUS, "FERRYSupervisor_run", FERRY_LOG_SERVICE_START_STATUS_ss,
                   configuration_.name.c_str(), "ferry");
    } else if (!stopRequested_.load() && isRun) {
        logError("FERRYSupervisor_run", FERRY_LOG_SERVICE_START_FAILURE_s,
                 configuration_.name.c_str());
    }
    return true;
}

void Supervisor::watch()
{
    const Clock::time_point begin = Clock::now();
    nextReport_ = begin + (console_.live() ? liveInterval : lineInterval);
    const auto ended = [this] { return stopRequested_.load() || !relay_.anyActive(); };
    for (;;) {
        const Clock::time_point now = Clock::now();
        reportStalls();
        measure(now);
        Clock::time_point next = now + options_.stall / stallLooks;
        next = options_.verbosity == Verbosity::quiet ? next : std::min(next, nextReport_);
        if (options_.untilIdle) {
            const std::chrono::milliseconds quiet = *options_.untilIdle;
            if (now - begin >= quiet && relay_.idleSince(now - quiet, now - options_.giveUp) &&
                (!options_.afterFirst || relay_.anyRead())) {
                giveUp();
                return;
            }
            next = std::min(next, now + idleInterval);
        }
        if (relay_.waitUntil(next, ended)) {
            return;
        }
        report(Clock::now());
    }
}

void Supervisor::measure(Clock::time_point now)
{
    if (now >= nextMeasure_) {
        nextMeasure_ = now + RateMeter::interval;
        relay_.measure(now);
    }
}

/// Reports what will not be waited for any longer, if there is anything.
void Supervisor::giveUp()
{
    for (const std::string &what : relay_.unfinished()) {
        unfinished_ = true;
        logAbout(FERRYLOG_BIT_ERROR, "FERRYSupervisor_watch", configuration_.name,
                 "{}: given up, nothing but failing retries has been left for {} s", what,
                 std::chrono::duration_cast<std::chrono::seconds>(options_.giveUp).count());
    }
}

/// A call that does not return must not pass in silence; there is nothing else to be done.
void Supervisor::reportStalls()
{
    for (const std::string &line : relay_.stalls(options_.stall)) {
        logAbout(FERRYLOG_BIT_WARNING, "FERRYSupervisor_watch", configuration_.name, "{}", line);
    }
}

void Supervisor::report(Clock::time_point now)
{
    if (options_.verbosity == Verbosity::quiet || now < nextReport_) {
        return;
    }
    nextReport_ = now + (console_.live() ? liveInterval : lineInterval);
    const std::vector<std::string> lines = progress_.lines(
        relay_.totals(), now, console_.live() ? Progress::Which::all : Progress::Which::changed);
    if (console_.live()) {
        console_.show(lines);
    } else {
        for (const std::string &line : lines) {
            console_.print(line);
        }
    }
}

/// Stops reading, lets present loans be finished, then has everything deleted; whatever does not
/// return in time is left behind, so that the rest is still closed in order.
void Supervisor::stop()
{
    const Clock::time_point deadline = Clock::now() + options_.drain;
    relay_.requestStop();
    if (host_.anyStopBy()) {
        notifyPlugins(deadline, [this](Clock::time_point by) { host_.stopBy(by); });
    }
    waitSessions(deadline);
    relay_.close();
    const Clock::time_point closeDeadline = std::max(deadline, Clock::now() + closeGrace);
    if (!waitClosed(closeDeadline)) {
        logError("FERRYSupervisor_stop", FERRY_LOG_SERVICE_STOPPING_TIMEOUT_s,
                 configuration_.name.c_str());
        endProcess(exitHung);
    }
    if (relay_.leftSomething()) {
        endProcess(exitHung);
    }
    const auto gone = [this] { return relay_.phase() == Relay::Phase::ended; };
    if (!relay_.waitUntil(closeDeadline, gone)) {
        logAbout(FERRYLOG_BIT_WARNING, "FERRYSupervisor_stop", configuration_.name,
                 "the Java VM does not end: an adapter has left a thread running that is no "
                 "daemon");
        endProcess(result());
    }
    relay_.join();
}

/// Has calls that wait return in time, so that what they could not do is reported and not cut off.
/// On a thread of its own, as this one enters no plug-in.
void Supervisor::notifyPlugins(Clock::time_point deadline,
                               const std::function<void(Clock::time_point)> &notify)
{
    std::atomic<bool> notified{false};
    Thread notifier;
    const bool started = notifier.start("ferry:notify", [&] {
        notify(deadline - std::min(stopReserve, options_.drain / 4));
        notified.store(true);
        relay_.notify();
    });
    if (started && !relay_.waitUntil(deadline, [&] { return notified.load(); })) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYSupervisor_stop", configuration_.name,
                 "a plug-in does not return from the request to stop");
        endProcess(exitHung);
    }
    notifier.join();
}

/// False when even the threads that take over from those that hang do not come to the end.
bool Supervisor::waitClosed(Clock::time_point deadline)
{
    const auto closed = [this] { return relay_.phase() >= Relay::Phase::closed; };
    const Clock::time_point end = deadline + maxRescues * closeGrace;
    while (!relay_.waitUntil(deadline, closed)) {
        const bool leftBehind = relay_.giveUpControl();
        if (deadline >= end) {
            return false;
        }
        // A thread between two calls cannot be given up; it will be inside one, or done, in no
        // time.
        deadline =
            std::min(end, Clock::now() + (leftBehind ? closeGrace : std::chrono::milliseconds(5)));
    }
    return true;
}

void Supervisor::waitSessions(Clock::time_point deadline)
{
    const auto finished = [this] { return relay_.sessionsFinished(); };
    bool done = relay_.waitUntil(std::min(deadline, Clock::now() + writePatience), finished);
    if (!done) {
        notifyPlugins(deadline, [this](Clock::time_point by) { host_.endWritesBy(by); });
        done = relay_.waitUntil(deadline, finished);
    }
    // A thread between two calls cannot be given up; it will be inside one, or finished, in no
    // time.
    while (!done) {
        relay_.giveUpSessions();
        done = relay_.waitUntil(Clock::now() + std::chrono::milliseconds(5), finished);
    }
}

void Supervisor::summarize()
{
    console_.show({});
    if (options_.task == Task::list) {
        printStreams();
    } else if (options_.task == Task::run) {
        for (const std::string &line : summaryLines(relay_.totals())) {
            console_.print(line);
        }
    }
}

void Supervisor::printStreams()
{
    const std::vector<AnnouncedStream> streams = relay_.streams();
    if (options_.streams) {
        options_.streams(streams);
        return;
    }
    for (const std::string &line : streamTable(configuration_, streams)) {
        console_.print(line);
    }
    if (!options_.idl) {
        return;
    }
    const std::vector<std::string> texts = streamTypes(streams, *options_.idl);
    for (const std::string &text : texts) {
        console_.printText(fmt::format("\n{}", text));
    }
    found_ = !texts.empty() || options_.idl->empty();
    if (!found_) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYSupervisor_list", *options_.idl,
                 "no stream of that type is announced with its type");
    }
}

int Supervisor::result() const
{
    const bool stopped = stopRequested_.load();
    if (!started_ && !stopped && options_.task == Task::run) {
        return exitNoStart;
    }
    const bool whole = !stopped || options_.task != Task::check;
    const bool clean = isClean(relay_.totals()) && relay_.problems() == 0 && found_ && !unfinished_;
    return whole && clean ? exitOk : exitErrors;
}

void Supervisor::endProcess(int code)
{
    summarize();
    if (beforeEnd_) {
        beforeEnd_();
    }
    _exit(code == exitOk && console_.lostResults() ? exitErrors : code);
}

} // namespace ferry
