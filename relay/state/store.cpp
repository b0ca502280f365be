#include "state/store.h"

#include <algorithm>

namespace ferry {
namespace {

using Ticks = std::chrono::steady_clock;

std::int64_t lastNumber(StoredSlice &slice)
{
    const DDS_SequenceNumber_t &number = slice.info(slice.count() - 1).publication_sequence_number;
    return std::int64_t{number.high} << 32 | number.low;
}

} // namespace

Store::~Store()
{
    const Lock lock(mutex_);
    settleAlone();
}

StateResult Store::open()
{
    const Lock lock(mutex_);
    StateResult result = file_.open();
    show();
    return result;
}

StateResult Store::append(const SampleList &samples)
{
    const SampleList fresh = file_.newOf(samples);
    if (fresh.count == 0) {
        return {};
    }
    layOut(fresh, settings_.maxSamples, settings_.sliceBytes, bytes_, rows_);
    const Lock lock(mutex_);
    StoreChange change;
    // In this order: what is no longer lent is known as delivered.
    change.lent = lent_.load();
    change.delivered = delivered_.load();
    change.lent = std::max(change.lent, change.delivered);
    change.bytes = bytes_.data();
    change.rows = &rows_;
    StateResult result = apply(change);
    appended_ = true;
    committed_.notify_one();
    return result;
}

StateResult Store::apply(const StoreChange &change)
{
    const Ticks::time_point begin = Ticks::now();
    StateResult result = file_.apply(change);
    if (result.ok()) {
        commitTime_ = Ticks::now() - begin;
    }
    show();
    return result;
}

StateResult Store::oldest(StoredSlice &slice)
{
    Lock lock(mutex_);
    slice.clear();
    StateResult result = settle(lock);
    if (result.ok()) {
        result = file_.read(delivered_.load(), slice);
        show();
    }
    lent_.store(slice.count() == 0 ? 0 : lastNumber(slice));
    return result;
}

/// Waits for an append that carries the deletion as long as a sync of its own would take: that is
/// never much worse than either. Without appends in between none is likely to come, and an output
/// that has fallen behind must not fall further.
StateResult Store::settle(Lock &lock)
{
    const auto settled = [this] { return file_.removed() >= delivered_.load(); };
    const bool abreast =
        file_.counts().next - delivered_.load() <= std::int64_t{2} * settings_.maxSamples;
    if (!settled() && appended_ && abreast) {
        committed_.wait_for(lock, commitTime_, settled);
    }
    appended_ = false;
    return settleAlone();
}

StateResult Store::settleAlone()
{
    StoreChange change;
    change.delivered = delivered_.load();
    return file_.removed() >= change.delivered ? StateResult() : apply(change);
}

void Store::advance()
{
    if (lent_.load() != 0) {
        delivered_.store(lent_.load());
        lent_.store(0);
    }
}

void Store::rewind()
{
    lent_.store(0);
}

void Store::show()
{
    const StoreFile::Counts &counts = file_.counts();
    shownSamples_.store(static_cast<std::uint64_t>(counts.samples));
    shownBytes_.store(static_cast<std::uint64_t>(counts.bytes));
    shownDropped_.store(static_cast<std::uint64_t>(counts.dropped));
    shownDamaged_.store(static_cast<std::uint64_t>(counts.damaged));
    shownOldest_.store(counts.oldest);
}

BufferLevel Store::level() const
{
    return {shownSamples_.load(), shownBytes_.load(), shownDropped_.load(), shownDamaged_.load(),
            shownOldest_.load()};
}

} // namespace ferry
