#include "engine/route.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {
namespace {

/// The longest pause after errors in a row (a longer period wins).
constexpr std::chrono::milliseconds maxBackoff{5000};
/// How long a reader whose stream has gone is read while it keeps bringing samples.
constexpr std::chrono::milliseconds leaveLimit{5000};
/// When bad records are tried to be kept again.
constexpr std::chrono::milliseconds keepPause{1000};

} // namespace

Route::Route(const RouteSettings &settings, std::chrono::milliseconds period, PluginHost &host,
             std::function<void()> wake)
    : settings_(settings), period_(period), wake_(std::move(wake)),
      calls_(settings_.name, this, host)
{
    for (const StreamSettings &output : settings_.outputs) {
        deliveries_.push_back(std::make_unique<Delivery>(settings_, output, calls_));
    }
}

void Route::setState(State state)
{
    if (state == State::failed && failedSince_.load() == 0) {
        failedSince_.store(nanoseconds(Clock::now()));
    }
    if (state != state_.load()) {
        stateSince_.store(nanoseconds(Clock::now()));
    }
    state_.store(state);
}

QEL_FerrionStreamReaderListener Route::listener()
{
    return {this, onDataAvailable};
}

/// Marks and wakes, nothing else: the reader may still be under construction, and the caller may
/// hold any lock of the adapter. Only the first signal since the last read has to wake.
void Route::onDataAvailable(QEL_FerrionStreamReader *, void *self)
{
    Route *route = static_cast<Route *>(self);
    if (!route->signalled_.exchange(true)) {
        route->wake_();
    }
}

bool Route::ready(Clock::time_point now) const
{
    if (state() != State::active) {
        return false;
    }
    if (leaving_ && !isLent_) {
        return true;
    }
    if (paused()) {
        return false;
    }
    if (isLent_) {
        return now >= nextDue_ || hurried_.load();
    }
    // After a failure signals do not count: they would make a failing reader spin.
    return now >= nextDue_ ||
           (failuresInRow_ == 0 && (last_ == Outcome::data || signalled_.load()));
}

void Route::setKeeper(DeadLetterKeeper *keeper)
{
    keeper_ = keeper;
    for (const auto &delivery : deliveries_) {
        delivery->setKeeper(keeper);
    }
}

Route::Outcome Route::step(CallGuard &guard)
{
    if (!isLent_) {
        lend(guard, Clock::now());
    }
    if (!records_.empty()) {
        keepRecords();
    }
    const std::int64_t before = pending();
    const CallResult giving = deliver(guard);
    if (state() != State::failed && !isDelivered()) {
        return wait(pending() < before);
    }
    return finish(guard, giving);
}

/// Reads, and has every output expect what came.
void Route::lend(CallGuard &guard, Clock::time_point now)
{
    // In this order: at no moment do both flags say that nothing is going on.
    idle_.store(false);
    if (signalled_.exchange(false) && failuresInRow_ == 0) {
        lastActivity_.store(nanoseconds(now), std::memory_order_relaxed);
    }
    taking_ = CallResult::good;
    lent_ = read(guard, taking_);
    isLent_ = true;
    const Loan loan = measured(withoutGaps(lent_, taking_));
    samplesRead_.add(static_cast<std::uint64_t>(loan.count - loan.ends));
    ends_.add(static_cast<std::uint64_t>(loan.ends));
    if (lent_.count > 0 && firstActivity_.load(std::memory_order_relaxed) == 0) {
        firstActivity_.store(nanoseconds(now), std::memory_order_relaxed);
    }
    for (const auto &delivery : deliveries_) {
        delivery->begin(loan);
    }
}

bool Route::isDelivered() const
{
    return records_.empty() && std::all_of(deliveries_.begin(), deliveries_.end(),
                                           [](const auto &delivery) { return delivery->done(); });
}

/// Has what the read passed over kept elsewhere. The source takes the return of the loan for the
/// acknowledgement of these, too.
void Route::keepRecords()
{
    const Clock::time_point now = Clock::now();
    if (now < recordsDue_) {
        return;
    }
    const std::string obstacle = keeper_->keep(settings_, input_.label, records_);
    if (obstacle.empty()) {
        records_.clear();
        return;
    }
    recordsDue_ = now + keepPause;
    input_.lastFailure.note("set aside", obstacle);
    if (failures_.admit(obstacle.c_str(), now)) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRoute_setAside", name(),
                 "{}: {} bad records cannot be set aside: {}", input_.label, records_.size(),
                 obstacle);
    }
}

/// Samples that outputs have not got, of all of them together.
std::int64_t Route::pending() const
{
    std::int64_t samples = 0;
    for (const auto &delivery : deliveries_) {
        samples += delivery->pending();
    }
    return samples;
}

/// The loan stays out: some output is to be offered more of it later.
Route::Outcome Route::wait(bool progress)
{
    const Clock::time_point now = Clock::now();
    if (progress) {
        lastActivity_.store(nanoseconds(now), std::memory_order_relaxed);
    }
    if (progress || stuckSince_.load() == 0) {
        stuckSince_.store(nanoseconds(now));
    }
    nextDue_ = records_.empty() ? Clock::time_point::max() : recordsDue_;
    for (const auto &delivery : deliveries_) {
        if (!delivery->done()) {
            nextDue_ = std::min(nextDue_, delivery->due());
        }
    }
    if (leaving_) {
        nextDue_ = std::min(nextDue_, leaveBy_);
        drained(true);
    }
    return Outcome::error;
}

/// All outputs have the loan, or the route goes out of service and the loan is not acknowledged.
Route::Outcome Route::finish(CallGuard &guard, CallResult giving)
{
    const bool progress = lent_.count > 0;
    if (state() == State::failed) {
        drop();
    } else {
        returnLoan(guard);
    }
    isLent_ = false;
    stuckSince_.store(0);
    if (progress) {
        lastActivity_.store(nanoseconds(Clock::now()), std::memory_order_relaxed);
    }
    const CallResult result = std::max(taking_, giving);
    const bool error = result == CallResult::failed;
    if (result != CallResult::good && settings_.onError == OnError::stop) {
        setState(State::failed);
    }
    if (state() == State::failed) {
        logError("FERRYRoute_step", FERRY_LOG_TOPICROUTE_ROUTE_FAILURE_s, name().c_str());
    }
    const Outcome outcome = error ? Outcome::error : progress ? Outcome::data : Outcome::empty;
    plan(outcome, progress && giving != CallResult::failed);
    if (leaving_) {
        drained(progress);
    }
    if (!error && state() != State::failed) {
        failedSince_.store(0);
    }
    failing_.store(error);
    idle_.store(!progress);
    return outcome;
}

/// When to read next. Errors in a row double the pause, from one period on: an adapter that always
/// throws neither spins nor fills the log, one that recovers is back within seconds. A read that
/// throws over some of its samples and delivers others (`progress`) costs one period only.
void Route::plan(Outcome outcome, bool progress)
{
    const Clock::time_point now = Clock::now();
    last_ = outcome;
    if (outcome != Outcome::error) {
        if (failuresInRow_ > 0) {
            failuresInRow_ = 0;
            readAgainAt_.store(0);
        }
        nextDue_ = now + period_;
        return;
    }
    const int doublings = progress ? 0 : std::min(failuresInRow_, 20);
    failuresInRow_ = doublings + 1;
    const std::chrono::milliseconds limit = std::max(period_, maxBackoff);
    nextDue_ = now + std::min(limit, period_ * (std::int64_t{1} << doublings));
    if (readAgainAt_.exchange(nanoseconds(nextDue_)) == 0) {
        troubleSince_.store(nanoseconds(now));
    }
}

RouteTotals Route::totals() const
{
    RouteTotals totals;
    totals.name = name();
    totals.read = samplesRead_.get();
    totals.written = totals.read;
    totals.unreadable = unreadable_.get();
    totals.bad = bad_.get();
    totals.ends = ends_.get();
    totals.errors = calls_.errors.get();
    for (const auto &delivery : deliveries_) {
        totals.outputs.push_back(delivery->totals());
        totals.written = std::min(totals.written, totals.outputs.back().written);
        totals.lost += totals.outputs.back().lost;
        totals.retries += totals.outputs.back().retries;
        totals.dead += totals.outputs.back().dead;
        totals.held += totals.outputs.back().held;
    }
    if (input_.buffer != nullptr) {
        const BufferLevel level = input_.buffer->level();
        totals.stored = level.samples;
        totals.lost += level.dropped;
    }
    totals.firstActivity = firstActivity_.load();
    totals.lastActivity = lastActivity_.load();
    totals.failed = state() == State::failed;
    totals.paused = pausedBy(byOperator);
    return totals;
}

void Route::resume(const RouteTotals &totals)
{
    samplesRead_.add(totals.read);
    unreadable_.add(totals.unreadable);
    bad_.add(totals.bad);
    ends_.add(totals.ends);
    calls_.errors.add(totals.errors);
    for (std::size_t i = 0; i < deliveries_.size(); ++i) {
        deliveries_[i]->resume(totals.outputs[i]);
    }
    firstActivity_.store(totals.firstActivity);
    lastActivity_.store(totals.lastActivity);
}

void Route::fail()
{
    calls_.errors.add(1);
    setState(State::failed);
}

void Route::renew()
{
    adopted_ = leaving_ = drained_ = false;
    released_.store(false);
    signalled_.store(false);
    idle_.store(false);
    failing_.store(false);
    last_ = Outcome::empty;
    failuresInRow_ = 0;
    readAgainAt_.store(0);
    restarted_.fetch_add(1);
    nextDue_ = {};
}

void Route::leave(bool drain)
{
    leaving_ = true;
    drained_ = !drain;
    leaveBy_ = Clock::now() + leaveLimit;
}

/// A reader may go on for ever. After the limit the rest is not read, and a warning says so.
void Route::drained(bool progress)
{
    drained_ = !progress;
    if (progress && Clock::now() >= leaveBy_) {
        drained_ = true;
        logAbout(FERRYLOG_BIT_WARNING, "FERRYRoute_leave", name(),
                 "the stream of {} has gone, but {}", input_.label,
                 isLent_ ? "its last samples are not taken: they are not acknowledged"
                         : "its reader still brings samples: what is left of them is not read");
    }
}

Loan Route::read(CallGuard &guard, CallResult &result)
{
    Loan loan;
    calls_.run(guard, "read", input_.reader, [&](QEL_FerrionEnvironment *environment) {
        input_.operations->read(input_.reader, &loan.samples, &loan.infos, &loan.count,
                                environment);
    });
    CallEnvironment &environment = calls_.environment();
    if (!environment.failed() && (loan.count < 0 || (loan.count > 0 && loan.samples == nullptr))) {
        environment.fail(fmt::format("the adapter lends {} samples{}", loan.count,
                                     loan.count < 0 ? "" : " at no address"));
    }
    if (environment.failed()) {
        calls_.errors.add(1);
        calls_.reportFailure(input_, failures_, "read");
        bad_.add(environment.rejected());
        if (keeper_ != nullptr) {
            records_ = environment.records();
            recordsDue_ = {};
        }
        // An adapter that reports what it has passed over has gone on by itself.
        result = environment.rejected() > 0 ? CallResult::flawed : CallResult::failed;
    }
    if (loan.samples == nullptr || loan.count < 0) {
        loan.count = 0;
    }
    return loan;
}

/// The loan without its null samples; as it is when it has none. What a failed read brought along
/// goes on to the outputs too: the adapter will take the loan's return for its acknowledgement.
Loan Route::withoutGaps(const Loan &loan, CallResult &result)
{
    void **const end = loan.samples + loan.count;
    void **const gap = std::find(loan.samples, end, nullptr);
    if (gap == end) {
        return loan;
    }
    compactSamples_.clear();
    compactInfos_.clear();
    for (std::int32_t i = 0; i < loan.count; ++i) {
        if (loan.samples[i] != nullptr) {
            compactSamples_.push_back(loan.samples[i]);
            if (loan.infos != nullptr) {
                compactInfos_.push_back(loan.infos[i]);
            }
        }
    }
    const auto left = static_cast<std::int32_t>(compactSamples_.size());
    unreadable_.add(static_cast<std::uint64_t>(loan.count - left));
    reportGaps(loan, static_cast<std::int32_t>(gap - loan.samples), loan.count - left);
    result = std::max(result, CallResult::flawed);
    return {compactSamples_.data(), loan.infos == nullptr ? nullptr : compactInfos_.data(), left};
}

/// `first` is the index of the first of the `missing` samples.
void Route::reportGaps(const Loan &loan, std::int32_t first, std::int32_t missing)
{
    if (!gaps_.admit("", Clock::now())) {
        return;
    }
    const std::string others = missing > 1 ? fmt::format("; so are {} behind it", missing - 1) : "";
    const std::string text =
        fmt::format("sample {} of the {} of this read is null, as the adapter lends it or after a "
                    "failed conversion{}",
                    first + 1, loan.count, others);
    logError("FERRYRoute_read", FERRY_LOG_ADAPTER_FAILURE_sss, input_.adapter->c_str(),
             calls_.about("read", input_, gaps_).c_str(), text.c_str());
}

/// Offers the loan to one output after the other. One that stops puts the route out of service, but
/// the others get what they can.
CallResult Route::deliver(CallGuard &guard)
{
    CallResult worst = CallResult::good;
    const Clock::time_point now =
        !deliveries_.empty() && stuckSince_.load() != 0 ? Clock::now() : Clock::time_point::max();
    const bool hurried = hurried_.exchange(false);
    for (const auto &delivery : deliveries_) {
        if (hurried && delivery->end().buffer != nullptr) {
            delivery->hurry();
        }
        worst = std::max(worst, deliver(guard, *delivery, now));
        if (delivery->stopped()) {
            setState(State::failed);
        }
    }
    return worst;
}

/// What is due of one output. After a failure that will be repeated, other routes have their turn.
CallResult Route::deliver(CallGuard &guard, Delivery &delivery, Clock::time_point now)
{
    CallResult worst = CallResult::good;
    while (!delivery.done() && !delivery.stopped() && delivery.due() <= now) {
        const CallResult result = delivery.step(guard);
        worst = std::max(worst, result);
        if (result == CallResult::failed && settings_.onError == OnError::retry) {
            break;
        }
    }
    return worst;
}

void Route::returnLoan(CallGuard &guard)
{
    calls_.run(guard, "return_loan", input_.reader, [&](QEL_FerrionEnvironment *environment) {
        input_.operations->return_loan(input_.reader, lent_.samples, lent_.infos, lent_.count,
                                       environment);
    });
    if (calls_.environment().failed()) {
        calls_.errors.add(1);
        calls_.reportFailure(input_, failures_, "return_loan");
        taking_ = CallResult::failed;
    }
}

void Route::drop()
{
    if (!isLent_) {
        return;
    }
    isLent_ = false;
    records_.clear();
    stuckSince_.store(0);
    for (const auto &delivery : deliveries_) {
        delivery->drop();
    }
}

void Route::release()
{
    drop();
    released_.store(true);
}

std::string Route::describe(const CallGuard &guard) const
{
    const RouteEnd *end = &input_;
    for (const auto &delivery : deliveries_) {
        end = delivery->end().writer == guard.object() ? &delivery->end() : end;
    }
    return fmt::format("{} of {}", guard.operation(), end->label);
}

void Route::abandonLoan()
{
    for (const auto &delivery : deliveries_) {
        delivery->abandon();
    }
}

} // namespace ferry
