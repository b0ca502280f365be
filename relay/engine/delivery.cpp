#include "engine/delivery.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {

void Delivery::begin(const Loan &loan)
{
    loan_ = loan;
    pending_.store(loan.count, std::memory_order_relaxed);
}

CallResult Delivery::writeSlice(CallGuard &guard)
{
    const std::int32_t pending = pending_.load(std::memory_order_relaxed);
    const Loan part = slice(*end_.settings, loan_, loan_.count - pending);
    const std::int32_t reported =
        calls_.run(guard, "write", end_.writer, [&](QEL_FerrionEnvironment *environment) {
            return end_.operations->write(end_.writer, part.samples, part.infos, part.count,
                                          environment);
        });
    const CallResult result = account(part, reported);
    pending_.store(pending - part.count, std::memory_order_relaxed);
    return result;
}

/// A call may fail over some of its samples, or only have something to report: what it reports as
/// taken is not lost. The ends among them count as taken before what it left.
CallResult Delivery::account(const Loan &slice, std::int32_t reported)
{
    CallEnvironment &environment = calls_.environment();
    const bool possible = reported >= 0 && reported <= slice.count;
    if (!possible && !environment.failed()) {
        environment.fail(
            fmt::format("the adapter says that it has written {} of the {} samples it was given",
                        reported, slice.count));
    }
    const std::int32_t taken = possible ? reported : 0;
    written_.add(static_cast<std::uint64_t>(std::max(taken - slice.ends, 0)));
    lost_.add(static_cast<std::uint64_t>(slice.count - taken));
    if (environment.failed()) {
        calls_.reportFailure(end_, filter_, "write");
        return taken == slice.count ? CallResult::flawed : CallResult::failed;
    }
    if (taken == slice.count) {
        return CallResult::good;
    }
    reportShortfall(taken, slice.count);
    return CallResult::flawed;
}

void Delivery::reportShortfall(std::int32_t taken, std::int32_t given)
{
    if (filter_.admit("", Clock::now())) {
        logAbout(FERRYLOG_BIT_WARNING, "FERRYRoute_write", calls_.route(),
                 "{}: took {} of {} samples and no error", calls_.about("write", end_, filter_),
                 taken, given);
    }
}

void Delivery::abandon()
{
    lost_.add(static_cast<std::uint64_t>(pending_.exchange(0)));
}

RouteTotals::Output Delivery::totals() const
{
    return {end_.label, written_.get(), lost_.get()};
}

void Delivery::resume(const RouteTotals::Output &totals)
{
    written_.add(totals.written);
    lost_.add(totals.lost);
}

} // namespace ferry
