// A route: moves loans from one reader to the deliveries of all its outputs. Opened and closed on
// the control thread, run by its session's thread in between, watched by the supervisor, marked by
// any thread of a plug-in.
#ifndef FERRY_ENGINE_ROUTE_H
#define FERRY_ENGINE_ROUTE_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/clock.h"
#include "engine/delivery.h"
#include "engine/status.h"

namespace ferry {

class Route {
public:
    enum class State { closed, active, failed };
    /// Who has the reader left alone: discovery, because nobody is there to write to, or an
    /// operator. The route goes on when both let it.
    enum PausedBy : unsigned { byDiscovery = 1, byOperator = 2 };
    enum class Outcome { empty, data, error };

    /// `wake` is called when the reader has data, on any thread.
    Route(const RouteSettings &settings, std::chrono::milliseconds period, PluginHost &host,
          std::function<void()> wake);

    const RouteSettings &settings() const
    {
        return settings_;
    }
    const std::string &name() const
    {
        return settings_.name;
    }
    ReaderEnd &input()
    {
        return input_;
    }
    /// One for each output, in the configuration's order.
    const std::vector<std::unique_ptr<Delivery>> &deliveries() const
    {
        return deliveries_;
    }
    /// What a reader of this route is created with; may be called from then on.
    QEL_FerrionStreamReaderListener listener();

    State state() const
    {
        return state_.load();
    }
    void setState(State state);
    /// Since when the route has been out of service, or has come to nothing each time that it was
    /// made anew, in nanoseconds of Clock; 0 while it works. Any thread.
    std::int64_t failedSince() const
    {
        return failedSince_.load();
    }

    /// Control thread, before the first loan: where bad data goes; null if the route stops for it.
    void setKeeper(DeadLetterKeeper *keeper);

    /// When the route is to be made anew, in nanoseconds of Clock; 0 if nothing is planned.
    /// Control thread.
    void setRestartAt(std::int64_t time)
    {
        restartAt_.store(time);
    }
    /// Any thread. What the route itself does not know is left empty: its session, and the calls of
    /// that.
    RouteStatus status() const;
    /// Once in a while, on one thread: how fast it goes.
    void measure(Clock::time_point now);
    /// Any thread.
    RouteTotals totals() const;
    /// Control thread, before a session has the route: goes on from what it did in an earlier life.
    void resume(const RouteTotals &totals);
    /// Puts the route out of service, which counts as an error. No session runs it.
    void fail();
    /// Control thread: forgets what a session left of an earlier life. No session has the route. It
    /// counts as failed until it is open again, so that nobody takes the run for ended meanwhile.
    void renew();
    /// Control thread: it can never be in service, whatever is made anew.
    void reject()
    {
        rejected_.store(true);
    }
    /// Any thread.
    bool isRejected() const
    {
        return rejected_.load();
    }
    /// Control thread: whether a session has been given the route since it was made or renewed.
    bool isAdopted() const
    {
        return adopted_;
    }
    void setAdopted()
    {
        adopted_ = true;
    }

    /// Session thread: the stream has gone, or is not wanted any more. With `drain` the reader is
    /// read until it has nothing left, else not again.
    void leave(bool drain);
    /// Session thread: whether it is done with leaving, after which it does not touch the route.
    bool hasLeft() const
    {
        return leaving_ && (drained_ || state() != State::active);
    }
    /// Session thread: nobody touches a loan that is still out any more, and its reader does not
    /// get it back.
    void drop();
    /// Session thread, as the last it does with the route. A loan that is still out is dropped.
    void release();
    /// Control thread: whether the session has released the route.
    bool released() const
    {
        return released_.load();
    }

    /// Any thread: has the reader left alone or not, unless the route leaves. The session is to be
    /// woken.
    void pause(PausedBy who, bool paused)
    {
        const unsigned before =
            paused ? pauses_.fetch_or(who) : pauses_.fetch_and(~static_cast<unsigned>(who));
        if (paused && (before & who) == 0) {
            pausedAt_.store(nanoseconds(Clock::now()));
        }
    }
    bool pausedBy(PausedBy who) const
    {
        return (pauses_.load() & who) != 0;
    }
    /// Session thread: whether it is left alone now. A route that leaves is not.
    bool paused() const
    {
        return pauses_.load() != 0 && !leaving_;
    }

    /// Any thread: what is offered again need not wait for its time. The session is to be woken.
    void hurry()
    {
        hurried_.store(true);
    }

    /// Session thread: whether the reader is to be read now, and when at the latest otherwise.
    bool ready(Clock::time_point now) const;
    Clock::time_point nextDue() const
    {
        return nextDue_;
    }
    /// Session thread: one read, its writes and the return of its loan; or, if an output has not
    /// taken all of an earlier loan, what is due of that. The state is `failed` afterwards when the
    /// route goes out of service.
    Outcome step(CallGuard &guard);

    /// The last read found nothing, and nothing has come since (signals of a reader that only fails
    /// count for nothing).
    bool idle() const
    {
        return idle_.load() && (!signalled_.load() || failing_.load());
    }
    /// Since when no output has taken anything of a loan that is out, in nanoseconds of Clock; 0
    /// while all goes well. Any thread.
    std::int64_t stuckSince() const
    {
        return stuckSince_.load();
    }
    /// What a guard says of a call for this route: "read of connection/stream".
    std::string describe(const CallGuard &guard) const;
    /// What the outputs have not been offered of the present loan is lost: the thread has been
    /// given up.
    void abandonLoan();
    /// As in RouteTotals.
    std::int64_t lastActivity() const
    {
        return lastActivity_.load();
    }

private:
    static void onDataAvailable(QEL_FerrionStreamReader *reader, void *self);
    Loan read(CallGuard &guard, CallResult &result);
    Loan withoutGaps(const Loan &loan, CallResult &result);
    void reportGaps(const Loan &loan, std::int32_t first, std::int32_t missing);
    void keepRecords();
    void lend(CallGuard &guard, Clock::time_point now);
    CallResult deliver(CallGuard &guard);
    CallResult deliver(CallGuard &guard, Delivery &delivery, Clock::time_point now);
    bool isDelivered() const;
    Outcome wait(bool progress);
    Outcome finish(CallGuard &guard, CallResult giving);
    void returnLoan(CallGuard &guard);
    void plan(Outcome outcome, bool progress);
    void drained(bool progress);
    std::int64_t pending() const;
    std::uint64_t writtenByAll() const;
    RouteStatus::State stateNow() const;

    const RouteSettings settings_;
    const std::chrono::milliseconds period_;
    const std::function<void()> wake_;
    RouteCalls calls_;
    DeadLetterKeeper *keeper_ = nullptr;
    ReaderEnd input_;
    std::vector<std::unique_ptr<Delivery>> deliveries_;
    std::atomic<State> state_{State::closed};
    std::atomic<bool> signalled_{false};
    std::atomic<bool> idle_{false};
    std::atomic<bool> failing_{false};
    std::atomic<bool> released_{false};
    std::atomic<bool> rejected_{false};
    std::atomic<unsigned> pauses_{0};
    std::atomic<bool> hurried_{false};

    /// Control thread only.
    bool adopted_ = false;

    // As in RouteTotals.
    Counter samplesRead_;
    Counter unreadable_;
    Counter bad_;
    Counter ends_;
    std::atomic<std::int64_t> firstActivity_{0};
    std::atomic<std::int64_t> lastActivity_{0};
    std::atomic<std::int64_t> stuckSince_{0};
    std::atomic<std::int64_t> failedSince_{0};
    std::atomic<std::int64_t> stateSince_{0};
    std::atomic<std::int64_t> pausedAt_{0};
    /// When the reader is read again after a failure, and since when there have been such in a row;
    /// the first is 0 if there is none.
    std::atomic<std::int64_t> readAgainAt_{0};
    std::atomic<std::int64_t> troubleSince_{0};
    std::atomic<std::int64_t> restartAt_{0};
    std::atomic<std::uint64_t> restarted_{0};
    RateMeter meter_;

    // Session thread only.
    /// What the reader has lent and not got back.
    Loan lent_;
    bool isLent_ = false;
    /// What that read passed over and nobody has kept yet; the loan is not returned before.
    std::vector<RejectedRecord> records_;
    Clock::time_point recordsDue_;
    /// How the read of that loan went.
    CallResult taking_ = CallResult::good;
    RepeatFilter failures_;
    RepeatFilter gaps_;
    std::vector<void *> compactSamples_;
    std::vector<DDS_SampleInfo *> compactInfos_;
    Outcome last_ = Outcome::empty;
    int failuresInRow_ = 0;
    Clock::time_point nextDue_;
    bool leaving_ = false;
    bool drained_ = false;
    Clock::time_point leaveBy_;
};

} // namespace ferry

#endif
