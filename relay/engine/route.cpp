#include "engine/route.h"

#include <algorithm>

#include "engine/log.h"
#include "qddsc/dynamic_data.h"

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

std::uint64_t bytesOf(const void *sample)
{
    std::size_t length = 0;
    DDS_DynamicData_get_cdr(static_cast<const DDS_DynamicData *>(sample), &length);
    return length;
}

} // namespace

Route::Route(const RouteSettings &settings, std::chrono::milliseconds period, PluginHost &host,
             std::function<void()> wake)
    : settings_(settings), period_(period), host_(host), wake_(std::move(wake))
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
    if (resting()) {
        return false;
    }
    // After a failure signals do not count: they would make a failing reader spin.
    return now >= nextDue_ ||
           (failuresInRow_ == 0 && (last_ == Outcome::data || signalled_.load()));
}

Route::Outcome Route::step(CallGuard &guard)
{
    const Clock::time_point begin = Clock::now();
    // In this order: at no moment do both flags say that nothing is going on.
    idle_.store(false);
    if (signalled_.exchange(false) && failuresInRow_ == 0) {
        lastActivity.store(nanoseconds(begin), std::memory_order_relaxed);
    }
    Result taking = Result::good;
    const Loan lent = read(guard, taking);
    const Loan loan = measured(withoutGaps(lent, taking));
    samplesRead.add(static_cast<std::uint64_t>(loan.count - loan.ends));
    ends.add(static_cast<std::uint64_t>(loan.ends));
    const Result giving = loan.count == 0 ? Result::good : writeAll(guard, loan);
    returnLoan(guard, lent, taking);
    if (lent.count > 0) {
        if (firstActivity.load(std::memory_order_relaxed) == 0) {
            firstActivity.store(nanoseconds(begin), std::memory_order_relaxed);
        }
        lastActivity.store(nanoseconds(Clock::now()), std::memory_order_relaxed);
    }
    const Result result = std::max(taking, giving);
    const bool error = result == Result::failed;
    const Outcome outcome = error            ? Outcome::error
                            : lent.count > 0 ? Outcome::data
                                             : Outcome::empty;
    if (result != Result::good && settings_.onError == OnError::stop) {
        setState(State::failed);
        logError("FERRYRoute_step", FERRY_LOG_TOPICROUTE_ROUTE_FAILURE_s, name().c_str());
    }
    plan(outcome, lent.count > 0 && giving != Result::failed);
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
    last_ = outcome;
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
    totals.bad = bad.get();
    totals.ends = ends.get();
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
    bad.add(totals.bad);
    ends.add(totals.ends);
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

Route::Loan Route::read(CallGuard &guard, Result &result)
{
    Loan loan;
    guard.enter("read", input_.reader, this);
    input_.operations->read(input_.reader, &loan.samples, &loan.infos, &loan.count,
                            environment_.fresh());
    guard.leave();
    if (!environment_.failed() && (loan.count < 0 || (loan.count > 0 && loan.samples == nullptr))) {
        environment_.fail("the adapter lends " + std::to_string(loan.count) + " samples" +
                          (loan.count < 0 ? "" : " at no address"));
    }
    if (environment_.failed()) {
        failed(input_, input_.filter, "read");
        bad.add(environment_.rejected());
        // An adapter that says what it has passed over has gone on by itself.
        result = environment_.rejected() > 0 ? Result::flawed : Result::failed;
    }
    if (loan.samples == nullptr || loan.count < 0) {
        loan.count = 0;
    }
    return loan;
}

/// The loan without its null samples; as it is when it has none. What a failed read brought along
/// goes on to the outputs too: the adapter will take the loan's return for its acknowledgement.
Route::Loan Route::withoutGaps(const Loan &loan, Result &result)
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
    unreadable.add(static_cast<std::uint64_t>(loan.count - left));
    tellGaps(loan, static_cast<std::int32_t>(gap - loan.samples), loan.count - left);
    result = std::max(result, Result::flawed);
    return {compactSamples_.data(), loan.infos == nullptr ? nullptr : compactInfos_.data(), left};
}

/// `first` is the index of the first of the `missing` samples.
void Route::tellGaps(const Loan &loan, std::int32_t first, std::int32_t missing)
{
    if (!input_.gaps.admit("", Clock::now())) {
        return;
    }
    std::string text =
        "sample " + std::to_string(first + 1) + " of the " + std::to_string(loan.count) +
        " of this read is null, as the adapter lends it or after a failed conversion";
    if (missing > 1) {
        text += "; so are " + std::to_string(missing - 1) + " behind it";
    }
    logError("FERRYRoute_read", FERRY_LOG_ADAPTER_FAILURE_sss, input_.adapter->c_str(),
             about("read", input_, input_.gaps).c_str(), text.c_str());
}

Route::Loan Route::measured(Loan loan)
{
    for (std::int32_t i = 0; i < loan.count; ++i) {
        loan.bytes += bytesOf(loan.samples[i]);
        loan.ends += loan.isEnd(i) ? 1 : 0;
    }
    return loan;
}

/// The part of a loan that goes into one write: from the sample `from` to the one that makes it as
/// many samples, or as many bytes, as the output is to get at a time.
Route::Loan Route::slice(const StreamSettings &output, const Loan &loan, std::int32_t from)
{
    const std::int32_t most = std::min(output.maxSamplesPerWrite, loan.count - from);
    Loan slice{loan.samples + from, loan.infos == nullptr ? nullptr : loan.infos + from, most};
    if (loan.bytes <= output.batchBytes && loan.ends == 0) {
        return slice; // nothing to be found by looking at every sample
    }
    for (slice.count = 0; slice.count < most && slice.bytes < output.batchBytes; ++slice.count) {
        slice.bytes += bytesOf(slice.samples[slice.count]);
        slice.ends += slice.isEnd(slice.count) ? 1 : 0;
    }
    return slice;
}

Route::Result Route::writeAll(CallGuard &guard, const Loan &loan)
{
    for (const auto &output : outputs_) {
        output->pending.store(static_cast<std::uint64_t>(loan.count), std::memory_order_relaxed);
    }
    Result worst = Result::good;
    for (const auto &output : outputs_) {
        worst = std::max(worst, writeTo(guard, *output, loan));
    }
    return worst;
}

/// Hands a loan to one output, slice by slice, so that a failure is one of a known batch.
Route::Result Route::writeTo(CallGuard &guard, Output &output, const Loan &loan)
{
    Result worst = Result::good;
    for (std::int32_t from = 0; from < loan.count;) {
        const Loan part = slice(*output.settings, loan, from);
        worst = std::max(worst, writeSlice(guard, output, part));
        from += part.count;
        output.pending.store(static_cast<std::uint64_t>(loan.count - from),
                             std::memory_order_relaxed);
        if (worst != Result::good && settings_.onError == OnError::stop) {
            output.lost.add(static_cast<std::uint64_t>(loan.count - from));
            output.pending.store(0, std::memory_order_relaxed);
            break;
        }
    }
    return worst;
}

Route::Result Route::writeSlice(CallGuard &guard, Output &output, const Loan &slice)
{
    guard.enter("write", output.writer, this);
    const std::int32_t said = output.operations->write(output.writer, slice.samples, slice.infos,
                                                       slice.count, environment_.fresh());
    guard.leave();
    const bool possible = said >= 0 && said <= slice.count;
    if (!possible && !environment_.failed()) {
        environment_.fail("the adapter says that it has written " + std::to_string(said) +
                          " of the " + std::to_string(slice.count) + " samples it was given");
    }
    // A call may fail over some of its samples, or only have something to tell: what it says that
    // it took is not lost. The ends among them are taken before what it left.
    const std::int32_t taken = possible ? said : 0;
    output.written.add(static_cast<std::uint64_t>(std::max(taken - slice.ends, 0)));
    output.lost.add(static_cast<std::uint64_t>(slice.count - taken));
    if (environment_.failed()) {
        failed(output, output.filter, "write");
        return taken == slice.count ? Result::flawed : Result::failed;
    }
    if (taken == slice.count) {
        return Result::good;
    }
    tellShortfall(output, taken, slice.count);
    return Result::flawed;
}

void Route::tellShortfall(Output &output, std::int32_t taken, std::int32_t given)
{
    if (!output.filter.admit("", Clock::now())) {
        return;
    }
    const std::string text = about("write", output, output.filter) + ": took " +
                             std::to_string(taken) + " of " + std::to_string(given) +
                             " samples and no error";
    logMessage(FERRYLOG_BIT_WARNING, "FERRYRoute_write", FERRY_LOG_ENTITY_ANY_ss, name().c_str(),
               text.c_str());
}

void Route::returnLoan(CallGuard &guard, const Loan &loan, Result &result)
{
    guard.enter("return_loan", input_.reader, this);
    input_.operations->return_loan(input_.reader, loan.samples, loan.infos, loan.count,
                                   environment_.fresh());
    guard.leave();
    if (environment_.failed()) {
        failed(input_, input_.filter, "return_loan");
        result = Result::failed;
    }
}

void Route::failed(const Endpoint &endpoint, RepeatFilter &filter, const char *operation)
{
    errors.add(1);
    if (!environment_.explained()) {
        environment_.explain(host_.takeFailure(*endpoint.adapter));
    }
    if (filter.admit(environment_.cause(), Clock::now())) {
        logAdapterFailure("FERRYRoute_step", *endpoint.adapter, about(operation, endpoint, filter),
                          environment_);
    }
}

/// What a line is about, with the number of those like it that the filter has held back.
std::string Route::about(const char *operation, const Endpoint &endpoint,
                         RepeatFilter &filter) const
{
    std::string what = "route " + name() + ": " + operation + " of " + endpoint.label;
    const std::uint64_t more = filter.takeSuppressed();
    if (more > 0) {
        what += " (" + std::to_string(more) + " more failures since the last line)";
    }
    return what;
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
