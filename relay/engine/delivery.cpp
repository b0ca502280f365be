#include "engine/delivery.h"

#include <algorithm>

#include "engine/log.h"
#include "ferryjni/delivery.h"

namespace ferry {

Delivery::Delivery(const RouteSettings &route, const StreamSettings &output, RouteCalls &calls)
    : route_(route), output_(output), calls_(calls), retry_(output.retry)
{
}

void Delivery::begin(const Loan &loan)
{
    loan_ = loan;
    retry_.begin();
    pending_.store(loan.count, std::memory_order_relaxed);
}

CallResult Delivery::step(CallGuard &guard)
{
    if (bad_ > 0) {
        return setAside();
    }
    const Loan part = next();
    const Clock::time_point begin = Clock::now();
    const std::int32_t reported =
        calls_.run(guard, "write", end_.writer, [&](QEL_FerrionEnvironment *environment) {
            return end_.operations->write(end_.writer, part.samples, part.infos, part.count,
                                          environment);
        });
    calls_.explain(end_);
    const std::int32_t taken = takenOf(part, reported);
    if (taken == part.count) {
        return accept(part);
    }
    return route_.onError == OnError::retry ? retry(part, taken, reported, begin)
                                            : lose(part, taken);
}

/// What is to be offered now.
Loan Delivery::next() const
{
    const std::int32_t first = loan_.count - pending_.load(std::memory_order_relaxed);
    return slice(output_, loan_, first + retry_.skip(), retry_.most());
}

/// How many samples at the beginning of a slice the output has. A call may fail over some of its
/// samples, or only have something to report: what it reports as taken is not lost.
std::int32_t Delivery::takenOf(const Loan &part, std::int32_t reported)
{
    CallEnvironment &environment = calls_.environment();
    const bool possible = reported >= 0 && reported <= part.count;
    if (!possible && !environment.failed()) {
        environment.fail(
            fmt::format("the adapter says that it has written {} of the {} samples it was given",
                        reported, part.count));
    }
    // A call into Java that throws has no result of its own.
    if (environment.taken() > 0) {
        return std::min(environment.taken(), part.count);
    }
    if (!possible) {
        return 0;
    }
    // Which of its samples a short write took is known only if the adapter says so.
    const bool known =
        reported == part.count || (end_.delivery & FERRY_DELIVERY_COUNTS_PREFIX) != 0;
    return known || route_.onError != OnError::retry ? reported : 0;
}

/// All of the slice is taken, whatever the call reports besides.
CallResult Delivery::accept(const Loan &part)
{
    CallResult result = CallResult::good;
    if (calls_.environment().failed()) {
        calls_.errors.add(1);
        calls_.reportFailure(end_, filter_, "write");
        result = CallResult::flawed;
    }
    bad_ = retry_.taken(part.count);
    publishDue();
    if (bad_ > 0) {
        takenBehind_ = part.count;
        return std::max(result, setAside());
    }
    countWritten(part);
    settle(part.count);
    return result;
}

/// The ends among them count as taken before what the call left.
CallResult Delivery::lose(const Loan &part, std::int32_t taken)
{
    const bool failed = calls_.environment().failed();
    written_.add(static_cast<std::uint64_t>(std::max(taken - part.ends, 0)));
    if (failed) {
        calls_.errors.add(1);
        calls_.reportFailure(end_, filter_, "write");
    } else {
        reportShortfall(taken, part.count);
    }
    if (route_.onError == OnError::stop) {
        settle(taken);
        stopped_ = true;
    } else {
        lost_.add(static_cast<std::uint64_t>(part.count - taken));
        settle(part.count);
    }
    return failed ? CallResult::failed : CallResult::flawed;
}

CallResult Delivery::retry(const Loan &part, std::int32_t taken, std::int32_t reported,
                           Clock::time_point begin)
{
    const Clock::time_point now = Clock::now();
    retries_.add(1);
    CallEnvironment &environment = calls_.environment();
    if (environment.failed()) {
        calls_.reportFailure(end_, filter_, "write");
    } else {
        reportShortfall(taken, part.count);
        environment.fail(fmt::format("took {} of {} samples and no error", taken, part.count));
    }
    if (retry_.skip() == 0) {
        reason_ = environment.text();
    }
    if (taken > 0) {
        countWritten(measured({part.samples, part.infos, taken}));
        settle(taken);
    }
    if (output_.retry.oneAttempt && part.count == 1) {
        return nameBad(0, 0);
    }
    const bool isNamed = reported >= 0 && reported < part.count && environment.rejected() > 0;
    if (isNamed && retry_.skip() == 0) {
        return nameBad(taken, reported - taken);
    }
    // Of what takes anything none is tried beside others: a small sample may have room, a large one
    // not.
    const std::int32_t left = end_.takesAnything ? 1 : pending_.load(std::memory_order_relaxed);
    retry_.failed(part.count, taken, left, now - begin, now);
    publishDue();
    if (retry_.exhausted(now)) {
        return stop(fmt::format(
            "the writer of {} has failed for {} s: {}", end_.label,
            std::chrono::duration_cast<std::chrono::seconds>(output_.retry.limit).count(),
            reason_));
    }
    return CallResult::failed;
}

/// The adapter says which sample is bad data: the one behind the `before` samples that follow
/// those it has taken. These it may not have, so they are offered again, by themselves.
CallResult Delivery::nameBad(std::int32_t taken, std::int32_t before)
{
    retry_.taken(taken);
    if (before > 0) {
        retry_.stopBefore(before);
        return CallResult::failed;
    }
    bad_ = 1;
    return setAside();
}

/// Has the bad samples kept elsewhere. While that fails nothing else is written.
CallResult Delivery::setAside()
{
    const std::int32_t first = loan_.count - pending_.load(std::memory_order_relaxed);
    const auto at = [&](auto *array) { return array == nullptr ? nullptr : array + first; };
    const Loan bad = measured({at(loan_.samples), at(loan_.infos), bad_});
    if (keeper_ == nullptr) {
        return stop(fmt::format("the writer of {} cannot take sample {} of a read of {}: {}",
                                end_.label, first + 1, loan_.count, reason_));
    }
    const std::string obstacle =
        keeper_->keep({route_, end_.label, reason_, retry_.attempts(), bad});
    if (!obstacle.empty()) {
        if (filter_.admit(obstacle.c_str(), Clock::now())) {
            logAbout(FERRYLOG_BIT_ERROR, "FERRYRoute_setAside", calls_.route(),
                     "{}: {} samples are bad data, but cannot be set aside: {}", end_.label,
                     bad.count, obstacle);
        }
        end_.lastFailure.note("set aside", obstacle);
        retry_.postpone(Clock::now());
        publishDue();
        return CallResult::failed;
    }
    if (filter_.admit(reason_.c_str(), Clock::now())) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRoute_setAside", calls_.route(),
                 "{}: set aside as bad data, {} samples: {}", calls_.about("write", end_, filter_),
                 bad.count, reason_);
    }
    dead_.add(static_cast<std::uint64_t>(bad.count));
    if (takenBehind_ > 0) {
        retry_.kept();
        countWritten(measured(
            {bad.samples + bad_, bad.infos == nullptr ? nullptr : bad.infos + bad_, takenBehind_}));
    } else {
        retry_.setAside();
    }
    publishDue();
    settle(bad_ + takenBehind_);
    bad_ = takenBehind_ = 0;
    return CallResult::flawed;
}

void Delivery::settle(std::int32_t count)
{
    pending_.store(pending_.load(std::memory_order_relaxed) - count, std::memory_order_relaxed);
}

void Delivery::countWritten(const Loan &part)
{
    written_.add(static_cast<std::uint64_t>(part.count - part.ends));
}

CallResult Delivery::stop(const std::string &reason)
{
    calls_.errors.add(1);
    end_.lastFailure.note("write", reason);
    logAbout(FERRYLOG_BIT_ERROR, "FERRYRoute_write", calls_.route(), "{}", reason);
    stopped_ = true;
    return CallResult::failed;
}

void Delivery::reportShortfall(std::int32_t taken, std::int32_t given)
{
    end_.lastFailure.note("write", fmt::format("took {} of {} samples and no error", taken, given));
    if (filter_.admit("", Clock::now())) {
        logAbout(FERRYLOG_BIT_WARNING, "FERRYRoute_write", calls_.route(),
                 "{}: took {} of {} samples and no error", calls_.about("write", end_, filter_),
                 taken, given);
    }
}

void Delivery::drop()
{
    held_.add(static_cast<std::uint64_t>(pending_.exchange(0)));
    bad_ = takenBehind_ = 0;
    stopped_ = false;
    retry_ = Retry(output_.retry);
    publishDue();
}

/// For other threads. What goes well changes nothing.
void Delivery::publishDue()
{
    const std::int64_t due = nanoseconds(retry_.due());
    if (retryAt_.load(std::memory_order_relaxed) != due) {
        retryAt_.store(due, std::memory_order_relaxed);
    }
}

void Delivery::abandon()
{
    lost_.add(static_cast<std::uint64_t>(pending_.exchange(0)));
}

RouteTotals::Output Delivery::totals() const
{
    return {end_.label, written_.get(), lost_.get(), retries_.get(), dead_.get(), held_.get()};
}

void Delivery::resume(const RouteTotals::Output &totals)
{
    written_.add(totals.written);
    lost_.add(totals.lost);
    retries_.add(totals.retries);
    dead_.add(totals.dead);
    held_.add(totals.held);
}

} // namespace ferry
