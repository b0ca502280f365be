#include "engine/route.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {
namespace {

/// The longest pause after errors in a row (a longer period wins).
constexpr std::chrono::milliseconds maxBackoff{5000};
/// How long the reader of a stream that has gone is read on while it keeps bringing samples.
constexpr std::chrono::milliseconds leaveLimit{5000};

std::int64_t nanoseconds(Clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

} // namespace

Route::Route(const RouteSettings &settings, std::chrono::milliseconds period,
             std::function<void()> wake)
    : settings_(settings), period_(period), wake_(std::move(wake))
{
    for (std::size_t i = 0; i < settings_.outputs.size(); ++i) {
        outputs_.push_back(std::make_unique<Output>());
    }
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
    if (leaving_) {
        return true;
    }
    // After a failure signals do not count: they would make a failing reader spin.
    return now >= nextDue_ || (failuresInRow_ == 0 && (more_ || signalled_.load()));
}

Route::Outcome Route::step(CallGuard &guard)
{
    const Clock::time_point begin = Clock::now();
    // In this order: at no moment do both flags say that nothing is going on.
    idle_.store(false);
    if (signalled_.exchange(false) && failuresInRow_ == 0) {
        lastActivity.store(nanoseconds(begin), std::memory_order_relaxed);
    }
    bool readFailed = false;
    const Loan lent = read(guard, readFailed);
    const Loan loan = withoutGaps(lent);
    samplesRead.add(static_cast<std::uint64_t>(loan.count));
    const bool written = loan.count == 0 || writeAll(guard, loan);
    returnLoan(guard, lent, readFailed);
    if (lent.count > 0) {
        if (firstActivity.load(std::memory_order_relaxed) == 0) {
            firstActivity.store(nanoseconds(begin), std::memory_order_relaxed);
        }
        lastActivity.store(nanoseconds(Clock::now()), std::memory_order_relaxed);
    }
    const bool error = readFailed || !written;
    const Outcome outcome = error            ? Outcome::error
                            : lent.count > 0 ? Outcome::data
                                             : Outcome::empty;
    if (error && settings_.onError == OnError::stop) {
        setState(State::failed);
        logError("FERRYRoute_step", FERRY_LOG_TOPICROUTE_ROUTE_FAILURE_s, name().c_str());
    }
    plan(outcome, lent.count > 0 && written);
    if (leaving_) {
        drained(lent.count > 0);
    }
    failing_.store(error);
    idle_.store(lent.count == 0);
    return outcome;
}

/// When to read next. Errors in a row double the pause, from one period on: an adapter that always
/// throws neither spins nor fills the log, one that recovers is back within seconds. A read that
/// throws over some of its samples and delivers others (`progress`) costs one period only.
void Route::plan(Outcome outcome, bool progress)
{
    const Clock::time_point now = Clock::now();
    more_ = outcome == Outcome::data;
    if (outcome != Outcome::error) {
        failuresInRow_ = 0;
        nextDue_ = now + period_;
        return;
    }
    const int doublings = progress ? 0 : std::min(failuresInRow_, 20);
    failuresInRow_ = doublings + 1;
    const std::chrono::milliseconds limit = std::max(period_, maxBackoff);
    nextDue_ = now + std::min(limit, period_ * (std::int64_t{1} << doublings));
}

RouteTotals Route::totals() const
{
    RouteTotals totals;
    totals.name = name();
    totals.read = samplesRead.get();
    totals.written = totals.read;
    totals.unreadable = unreadable.get();
    totals.errors = errors.get();
    for (const auto &output : outputs_) {
        totals.outputs.push_back({output->label, output->written.get(), output->lost.get()});
        totals.written = std::min(totals.written, totals.outputs.back().written);
        totals.lost += totals.outputs.back().lost;
    }
    totals.firstActivity = firstActivity.load();
    totals.lastActivity = lastActivity.load();
    totals.failed = state() == State::failed;
    return totals;
}

void Route::resume(const RouteTotals &totals)
{
    samplesRead.add(totals.read);
    unreadable.add(totals.unreadable);
    errors.add(totals.errors);
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        outputs_[i]->written.add(totals.outputs[i].written);
        outputs_[i]->lost.add(totals.outputs[i].lost);
    }
    firstActivity.store(totals.firstActivity);
    lastActivity.store(totals.lastActivity);
}

void Route::leave(bool drain)
{
    leaving_ = true;
    drained_ = !drain;
    leaveBy_ = Clock::now() + leaveLimit;
}

/// A reader may go on for ever; what it still has then is given up, and said so.
void Route::drained(bool progress)
{
    drained_ = !progress;
    if (progress && Clock::now() >= leaveBy_) {
        drained_ = true;
        const std::string text = "the stream of " + input_.label +
                                 " has gone, but its reader still brings samples: what is left of "
                                 "them is not read";
        logMessage(FERRYLOG_BIT_WARNING, "FERRYRoute_leave", FERRY_LOG_ENTITY_ANY_ss,
                   name().c_str(), text.c_str());
    }
}

Route::Loan Route::read(CallGuard &guard, bool &readFailed)
{
    Loan loan;
    guard.enter("read", input_.reader, this);
    input_.operations->read(input_.reader, &loan.samples, &loan.infos, &loan.count,
                            environment_.fresh());
    guard.leave();
    if (!environment_.failed() && loan.count > 0 && loan.samples == nullptr) {
        environment_.fail("a read gave a number of samples but no samples");
    }
    if (environment_.failed()) {
        failed(input_, input_.filter, "read");
        readFailed = true;
    }
    if (loan.samples == nullptr || loan.count < 0) {
        loan.count = 0;
    }
    return loan;
}

/// The loan without its null samples; as it is when it has none. What a failed read brought along
/// goes on to the outputs too: the adapter will take the loan's return for its acknowledgement.
Route::Loan Route::withoutGaps(const Loan &loan)
{
    void **const end = loan.samples + loan.count;
    if (std::find(loan.samples, end, nullptr) == end) {
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
    unreadable.add(static_cast<std::uint64_t>(loan.count) - compactSamples_.size());
    return {compactSamples_.data(), loan.infos == nullptr ? nullptr : compactInfos_.data(),
            static_cast<std::int32_t>(compactSamples_.size())};
}

bool Route::writeAll(CallGuard &guard, const Loan &loan)
{
    for (const auto &output : outputs_) {
        output->pending.store(static_cast<std::uint64_t>(loan.count), std::memory_order_relaxed);
    }
    bool good = true;
    for (const auto &output : outputs_) {
        good = writeTo(guard, *output, loan) && good;
    }
    return good;
}

/// Hands a loan to one output, slice by slice, so that a failure is one of a known batch.
bool Route::writeTo(CallGuard &guard, Output &output, const Loan &loan)
{
    bool good = true;
    for (std::int32_t from = 0; from < loan.count;) {
        const std::int32_t count = std::min(output.settings->maxSamplesPerWrite, loan.count - from);
        const bool taken = writeSlice(guard, output, loan, from, count);
        from += count;
        output.pending.store(static_cast<std::uint64_t>(loan.count - from),
                             std::memory_order_relaxed);
        good = good && taken;
        if (!taken && settings_.onError == OnError::stop) {
            output.lost.add(static_cast<std::uint64_t>(loan.count - from));
            output.pending.store(0, std::memory_order_relaxed);
            break;
        }
    }
    return good;
}

bool Route::writeSlice(CallGuard &guard, Output &output, const Loan &loan, std::int32_t from,
                       std::int32_t count)
{
    guard.enter("write", output.writer, this);
    const std::int32_t said = output.operations->write(
        output.writer, loan.samples + from, loan.infos == nullptr ? nullptr : loan.infos + from,
        count, environment_.fresh());
    guard.leave();
    // A call may fail over some of its samples, or only have something to tell: what it says that
    // it took is not lost.
    const std::int32_t taken = std::clamp(said, 0, count);
    output.written.add(static_cast<std::uint64_t>(taken));
    output.lost.add(static_cast<std::uint64_t>(count - taken));
    if (environment_.failed()) {
        failed(output, output.filter, "write");
        return taken == count;
    }
    if (taken < count && output.filter.admit("not taken", Clock::now())) {
        const std::string text = "write of " + output.label + " took " + std::to_string(taken) +
                                 " of " + std::to_string(count) + " samples and no error";
        logMessage(FERRYLOG_BIT_WARNING, "FERRYRoute_write", FERRY_LOG_ENTITY_ANY_ss,
                   name().c_str(), text.c_str());
    }
    return true;
}

void Route::returnLoan(CallGuard &guard, const Loan &loan, bool &readFailed)
{
    guard.enter("return_loan", input_.reader, this);
    input_.operations->return_loan(input_.reader, loan.samples, loan.infos, loan.count,
                                   environment_.fresh());
    guard.leave();
    if (environment_.failed()) {
        failed(input_, input_.filter, "return_loan");
        readFailed = true;
    }
}

void Route::failed(const Endpoint &endpoint, RepeatFilter &filter, const char *operation)
{
    errors.add(1);
    if (!filter.admit(environment_.text(), Clock::now())) {
        return;
    }
    std::string what = "route " + name() + ": " + operation + " of " + endpoint.label;
    const std::uint64_t more = filter.takeSuppressed();
    if (more > 0) {
        what += " (" + std::to_string(more) + " more failures since the last line)";
    }
    logAdapterFailure("FERRYRoute_step", *endpoint.adapter, what, environment_);
}

std::string Route::describe(const CallGuard &guard) const
{
    const Endpoint *end = &input_;
    for (const auto &output : outputs_) {
        end = output->writer == guard.object() ? output.get() : end;
    }
    return std::string(guard.operation()) + " of " + end->label;
}

void Route::loseLoan()
{
    for (const auto &output : outputs_) {
        output->lost.add(output->pending.exchange(0));
    }
}

} // namespace ferry
