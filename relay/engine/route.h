// A route: one reader, and the writers that get all it reads. Opened and closed on the control
// thread, run by its session's thread in between, watched by the supervisor, marked by any thread
// of a plug-in.
#ifndef FERRY_ENGINE_ROUTE_H
#define FERRY_ENGINE_ROUTE_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/call_guard.h"
#include "engine/plugin_host.h"
#include "engine/repeat_filter.h"
#include "qddsc/sample_info.h"

namespace ferry {

using Clock = std::chrono::steady_clock;

/// A number that one thread changes and others look at.
class Counter {
public:
    void add(std::uint64_t amount)
    {
        value_.store(get() + amount, std::memory_order_relaxed);
    }
    std::uint64_t get() const
    {
        return value_.load(std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint64_t> value_{0};
};

/// A stream's place in the plug-in that serves it. The names are the configuration's.
struct Endpoint {
    const StreamSettings *settings = nullptr;
    const std::string *adapter = nullptr;
    const QEL_FerrionAdapterOperations *operations = nullptr;
    /// "connection/stream", for messages.
    std::string label;
};

struct Output : Endpoint {
    QEL_FerrionStreamWriter *writer = nullptr;
    RepeatFilter filter;
    /// Samples of the present loan that have not been offered yet.
    std::atomic<std::uint64_t> pending{0};
    Counter written;
    /// Of failed writes, and of writes that took fewer than they were given; with the ends of
    /// instances among them.
    Counter lost;
};

struct Input : Endpoint {
    QEL_FerrionStreamReader *reader = nullptr;
    RepeatFilter filter;
    RepeatFilter gaps;
};

/// What a route has done so far. Samples are those that carry data.
struct RouteTotals {
    struct Output {
        std::string label;
        std::uint64_t written = 0;
        std::uint64_t lost = 0;
    };

    std::string name;
    std::uint64_t read = 0;
    /// Samples that every output has.
    std::uint64_t written = 0;
    /// Null samples of loans: the adapter or the conversion failed for that one.
    std::uint64_t unreadable = 0;
    /// What the adapter says that its reads had to pass over.
    std::uint64_t bad = 0;
    /// Ends of instances, which carry no data.
    std::uint64_t ends = 0;
    /// Failed calls.
    std::uint64_t errors = 0;
    /// By all outputs together.
    std::uint64_t lost = 0;
    std::vector<Output> outputs;
    /// Nanoseconds of Clock; 0 before the first samples.
    std::int64_t firstActivity = 0;
    std::int64_t lastActivity = 0;
    bool failed = false;
    /// The route has been deleted.
    bool gone = false;
};

class Route {
public:
    enum class State { closed, active, failed };
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
    Input &input()
    {
        return input_;
    }
    std::vector<std::unique_ptr<Output>> &outputs()
    {
        return outputs_;
    }
    const std::vector<std::unique_ptr<Output>> &outputs() const
    {
        return outputs_;
    }
    /// What a reader of this route is created with; may be called from then on.
    QEL_FerrionStreamReaderListener listener();

    State state() const
    {
        return state_.load();
    }
    void setState(State state)
    {
        state_.store(state);
    }

    /// Any thread.
    RouteTotals totals() const;
    /// Control thread, before a session has the route: goes on from what it did in an earlier life.
    void resume(const RouteTotals &totals);

    /// Session thread: the stream has gone, or is not wanted any more. With `drain` the reader is
    /// read until it has nothing left, else not again.
    void leave(bool drain);
    /// Session thread: whether it is done with leaving, after which it does not touch the route.
    bool hasLeft() const
    {
        return leaving_ && (drained_ || state() != State::active);
    }
    /// Session thread, as the last it does with the route.
    void release()
    {
        released_.store(true);
    }
    /// Control thread: whether the session has let go of the route.
    bool released() const
    {
        return released_.load();
    }

    /// Control thread: has the reader left alone until told otherwise, unless the route leaves. The
    /// session is to be woken.
    void rest(bool resting)
    {
        resting_.store(resting);
    }
    bool resting() const
    {
        return resting_.load();
    }

    /// Session thread: whether the reader is to be read now, and when at the latest otherwise.
    bool ready(Clock::time_point now) const;
    Clock::time_point nextDue() const
    {
        return nextDue_;
    }
    /// Session thread: one read, its writes and the return of its loan. The state is `failed`
    /// afterwards when the route goes out of service.
    Outcome step(CallGuard &guard);

    /// The last read found nothing, and nothing has come since (signals of a reader that only fails
    /// count for nothing).
    bool idle() const
    {
        return idle_.load() && (!signalled_.load() || failing_.load());
    }
    /// What a guard says of a call for this route: "read of connection/stream".
    std::string describe(const CallGuard &guard) const;
    /// Counts what is pending as lost: its thread has been given up.
    void loseLoan();

    /// As in RouteTotals.
    Counter samplesRead;
    Counter unreadable;
    Counter bad;
    Counter ends;
    Counter errors;
    /// Nanoseconds of Clock; 0 before the first samples.
    std::atomic<std::int64_t> firstActivity{0};
    std::atomic<std::int64_t> lastActivity{0};

private:
    struct Loan {
        void **samples = nullptr;
        DDS_SampleInfo **infos = nullptr;
        std::int32_t count = 0;
        /// Of its samples, those that are the end of an instance.
        std::int32_t ends = 0;
        /// Of its samples together.
        std::uint64_t bytes = 0;

        bool isEnd(std::int32_t index) const
        {
            return infos != nullptr && infos[index] != nullptr && infos[index]->valid_data == 0;
        }
    };
    /// How a call went, the worse the higher. What is flawed was no success, but the next call may
    /// come at once.
    enum class Result { good, flawed, failed };

    static void onDataAvailable(QEL_FerrionStreamReader *reader, void *self);
    Loan read(CallGuard &guard, Result &result);
    Loan withoutGaps(const Loan &loan, Result &result);
    void tellGaps(const Loan &loan, std::int32_t first, std::int32_t missing);
    static Loan measured(Loan loan);
    static Loan slice(const StreamSettings &output, const Loan &loan, std::int32_t from);
    Result writeAll(CallGuard &guard, const Loan &loan);
    Result writeTo(CallGuard &guard, Output &output, const Loan &loan);
    Result writeSlice(CallGuard &guard, Output &output, const Loan &slice);
    void tellShortfall(Output &output, std::int32_t taken, std::int32_t given);
    void returnLoan(CallGuard &guard, const Loan &loan, Result &result);
    void failed(const Endpoint &endpoint, RepeatFilter &filter, const char *operation);
    std::string about(const char *operation, const Endpoint &endpoint, RepeatFilter &filter) const;
    void plan(Outcome outcome, bool progress);
    void drained(bool progress);

    const RouteSettings settings_;
    const std::chrono::milliseconds period_;
    PluginHost &host_;
    const std::function<void()> wake_;
    Input input_;
    std::vector<std::unique_ptr<Output>> outputs_;
    std::atomic<State> state_{State::closed};
    std::atomic<bool> signalled_{false};
    std::atomic<bool> idle_{false};
    std::atomic<bool> failing_{false};
    std::atomic<bool> released_{false};
    std::atomic<bool> resting_{false};

    // Session thread only.
    CallEnvironment environment_;
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
