// A loan on its way to one output: which part of it has been offered, what was taken, what is tried
// again and what was lost. It knows neither the reader that lent nor the outputs beside its own.
#ifndef FERRY_ENGINE_DELIVERY_H
#define FERRY_ENGINE_DELIVERY_H

#include "engine/dead_letter.h"
#include "engine/loan.h"
#include "engine/retry.h"
#include "engine/route_calls.h"

namespace ferry {

class Delivery {
public:
    /// `calls` are those of the route, `output` is one of its outputs.
    Delivery(const RouteSettings &route, const StreamSettings &output, RouteCalls &calls);

    /// Control thread, while no session has the route.
    WriterEnd &end()
    {
        return end_;
    }
    const WriterEnd &end() const
    {
        return end_;
    }
    /// Control thread, before the first loan: where bad data goes. Without a keeper the delivery
    /// stops for it.
    void setKeeper(DeadLetterKeeper *keeper)
    {
        keeper_ = keeper;
    }

    /// Session thread: takes on a measured loan. Its samples stay valid until the delivery is done
    /// or dropped.
    void begin(const Loan &loan);
    /// Session thread: whether all of the loan has been taken, set aside or lost.
    bool done() const
    {
        return pending_.load(std::memory_order_relaxed) == 0;
    }
    /// Samples of the loan that are not settled. Any thread.
    std::int32_t pending() const
    {
        return pending_.load(std::memory_order_relaxed);
    }
    /// Session thread: whether it will go no further with this loan.
    bool stopped() const
    {
        return stopped_;
    }
    /// Session thread: when it is to go on at the earliest.
    Clock::time_point due() const
    {
        return retry_.due();
    }
    /// Session thread: has the next attempt due at once.
    void hurry()
    {
        retry_.hurry();
        publishDue();
    }
    /// When the output is offered again what it has not taken, in nanoseconds of Clock; 0 if it
    /// takes what it gets. Any thread.
    std::int64_t retryAt() const
    {
        return retryAt_.load(std::memory_order_relaxed);
    }
    /// Session thread: offers the output the next slice, so that a failure is one of a known batch.
    CallResult step(CallGuard &guard);
    /// Session thread: forgets the loan, which is not acknowledged. What was not taken is held.
    void drop();
    /// Counts what has not been taken as lost. Session thread, or another one once that has been
    /// given up inside a call.
    void abandon();

    /// Any thread.
    std::uint64_t written() const
    {
        return written_.get();
    }
    RouteTotals::Output totals() const;
    /// Before the first loan: goes on from these.
    void resume(const RouteTotals::Output &totals);

private:
    Loan next() const;
    std::int32_t takenOf(const Loan &part, std::int32_t reported);
    CallResult accept(const Loan &part);
    CallResult lose(const Loan &part, std::int32_t taken);
    CallResult retry(const Loan &part, std::int32_t taken, std::int32_t reported,
                     Clock::time_point begin);
    CallResult nameBad(std::int32_t taken, std::int32_t before);
    CallResult setAside();
    void settle(std::int32_t count);
    void countWritten(const Loan &part);
    void reportShortfall(std::int32_t taken, std::int32_t given);
    CallResult stop(const std::string &reason);
    void publishDue();

    const RouteSettings &route_;
    const StreamSettings &output_;
    RouteCalls &calls_;
    DeadLetterKeeper *keeper_ = nullptr;
    WriterEnd end_;
    RepeatFilter filter_;
    Retry retry_;
    Loan loan_;
    /// Samples at the end of the loan that are not settled.
    std::atomic<std::int32_t> pending_{0};
    std::atomic<std::int64_t> retryAt_{0};
    /// Of those, the first ones that are bad data and have yet to be set aside, and the ones behind
    /// them that have been taken since.
    std::int32_t bad_ = 0;
    std::int32_t takenBehind_ = 0;
    /// What the output said of the first sample when it last failed.
    std::string reason_;
    bool stopped_ = false;

    Counter written_;
    /// Of failed writes that nobody repeats; with the ends of instances among them.
    Counter lost_;
    Counter retries_;
    Counter dead_;
    /// Of loans that were dropped.
    Counter held_;
};

} // namespace ferry

#endif
