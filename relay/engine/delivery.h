// A loan on its way to one output: which part of it has been offered, what was taken and what was
// lost. It knows neither the reader that lent nor the outputs beside its own.
#ifndef FERRY_ENGINE_DELIVERY_H
#define FERRY_ENGINE_DELIVERY_H

#include "engine/loan.h"
#include "engine/route_calls.h"

namespace ferry {

class Delivery {
public:
    /// `calls` are those of the route.
    explicit Delivery(RouteCalls &calls) : calls_(calls) {}

    /// Control thread, while no session has the route.
    WriterEnd &end()
    {
        return end_;
    }
    const WriterEnd &end() const
    {
        return end_;
    }

    /// Session thread: takes on a measured loan. Its samples stay valid until the delivery is done.
    void begin(const Loan &loan);
    /// Session thread: whether all of the loan has been offered, or was given up.
    bool done() const
    {
        return pending_.load(std::memory_order_relaxed) == 0;
    }
    /// Session thread: offers the output the next slice, so that a failure is one of a known batch.
    CallResult writeSlice(CallGuard &guard);
    /// Counts what has not been offered as lost. Session thread, or another one once that has been
    /// given up inside a call.
    void abandon();

    /// Any thread.
    RouteTotals::Output totals() const;
    /// Before the first loan: goes on from these.
    void resume(const RouteTotals::Output &totals);

private:
    CallResult account(const Loan &slice, std::int32_t reported);
    void reportShortfall(std::int32_t taken, std::int32_t given);

    RouteCalls &calls_;
    WriterEnd end_;
    RepeatFilter filter_;
    Loan loan_;
    /// Samples at the end of the loan that have not been offered yet.
    std::atomic<std::int32_t> pending_{0};
    Counter written_;
    /// Of failed writes, and of writes that took fewer than they were given; with the ends of
    /// instances among them.
    Counter lost_;
};

} // namespace ferry

#endif
