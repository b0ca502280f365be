// The store of one output: what the relay has taken on for it, on the disk, synced, until the
// output has it. One SQLite file, a row for each slice.
//
//   Store store(settings);
//   StateResult result = store.open();     rejected: another route's store, or another type; a
//                                          damaged or foreign file is set aside and said so
//   result = store.append(samples);        the route's thread; after ok a power cut loses nothing
//   result = store.oldest(slice);          the output's thread: what to write next
//   store.advance();                       the output has it: it goes with the next commit
//
// The deletion of a slice is on the disk before the next slice is handed out. So of each crash the
// output sees one slice twice at most. The deletion has a sync of its own only if no append comes
// along whose sync can carry it.
//
// Samples are numbered from their append on. The numbers only rise, over restarts as well. A new
// file begins at the time of day in nanoseconds: beyond all that an earlier file gave, unless the
// clock has been set back.
#ifndef FERRY_STATE_STORE_H
#define FERRY_STATE_STORE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "state/store_file.h"

namespace ferry {

class Store : public SampleBuffer {
public:
    explicit Store(StoreSettings settings) : settings_(std::move(settings)), file_(settings_) {}
    /// Brings what was delivered to the disk, if that is possible.
    ~Store() override;

    /// Before anything else, on one thread. After a failure it may be called again.
    StateResult open();

    StateResult append(const SampleList &samples) override;
    StateResult oldest(StoredSlice &slice) override;
    void advance() override;
    void rewind() override;
    BufferLevel level() const override;

private:
    using Lock = std::unique_lock<std::mutex>;

    StateResult apply(const StoreChange &change);
    StateResult settle(Lock &lock);
    StateResult settleAlone();
    void show();

    const StoreSettings settings_;
    std::mutex mutex_;
    std::condition_variable committed_;

    // Under the mutex.
    StoreFile file_;
    /// Whether there was an append since deliveries were last settled.
    bool appended_ = false;
    /// What the last commit took.
    std::chrono::steady_clock::duration commitTime_{0};

    // The appending thread's.
    std::vector<std::uint8_t> bytes_;
    std::vector<SliceRow> rows_;

    // The output's thread changes them.
    /// Up to this number all is delivered.
    std::atomic<std::int64_t> delivered_{0};
    /// The last number that is out for delivery; 0 if none is.
    std::atomic<std::int64_t> lent_{0};

    // For level().
    std::atomic<std::uint64_t> shownSamples_{0};
    std::atomic<std::uint64_t> shownBytes_{0};
    std::atomic<std::uint64_t> shownDropped_{0};
    std::atomic<std::uint64_t> shownDamaged_{0};
    std::atomic<std::int64_t> shownOldest_{0};
};

} // namespace ferry

#endif
