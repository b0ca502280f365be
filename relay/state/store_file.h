// The file of a store: whose it is, its rows, and what it counts. It knows nothing of threads; the
// store sees to it that one at a time uses it.
#ifndef FERRY_STATE_STORE_FILE_H
#define FERRY_STATE_STORE_FILE_H

#include <functional>
#include <vector>

#include "qddsc/type_code.h"
#include "state/database.h"
#include "state/sample_buffer.h"
#include "state/source_marks.h"

namespace ferry {

struct StoreSettings {
    std::filesystem::path file;
    /// Of kept samples. A single append may pass it if nothing else is kept; the file itself and
    /// its log take a few megabytes more.
    std::uint64_t maxBytes = 0;
    WhenFull whenFull = WhenFull::block;
    /// What one row, and one answer of oldest(), holds at most. (A sample that is larger has a row
    /// of its own.)
    std::int32_t maxSamples = 1024;
    std::uint64_t sliceBytes = 8U << 20;
    /// Whose it is. The file remembers, and is opened for no other.
    std::string route;
    std::string output;
    /// Null if it is not known; then the file takes any.
    const DDS_TypeCode *type = nullptr;
    /// Told what an operator has to know and no result says: a file that was set aside, damaged
    /// rows. Any of the store's threads.
    std::function<void(const std::string &)> notify = {};
    /// As in DatabaseFile. With one, no file is set aside.
    std::string vfs = {};
    /// The number of the first sample of a new file; 0 for the time of day.
    std::int64_t firstNumber = 0;
};

/// What one commit changes.
struct StoreChange {
    /// Rows up to this number are delivered.
    std::int64_t delivered = 0;
    /// Rows up to this number are being delivered, so they are not dropped.
    std::int64_t lent = 0;
    const std::uint8_t *bytes = nullptr;
    /// Null if nothing is appended.
    const std::vector<SliceRow> *rows = nullptr;
};

class StoreFile {
public:
    struct Counts {
        /// The number of the sample that is appended next.
        std::int64_t next = 0;
        std::int64_t samples = 0;
        std::int64_t bytes = 0;
        std::int64_t dropped = 0;
        std::int64_t damaged = 0;
        /// As in BufferLevel.
        std::int64_t oldest = 0;
    };

    explicit StoreFile(const StoreSettings &settings) : settings_(settings) {}

    /// Before anything else; after a failure it may be called again.
    StateResult open();
    /// What of the samples has not been appended yet. The thread that appends, without the others
    /// being kept out.
    SampleList newOf(const SampleList &samples)
    {
        return marks_.newOf(samples);
    }
    /// All of the change, synced, or nothing of it; its rows are those of the last newOf(). `full`:
    /// the rows have no room; what was delivered has gone all the same.
    StateResult apply(const StoreChange &change);
    /// Fills an empty slice with the rows behind the number `after`, as many as it may have.
    StateResult read(std::int64_t after, StoredSlice &slice);
    /// Up to this number all rows are gone from the disk, too.
    std::int64_t removed() const
    {
        return removed_;
    }
    /// As they were after the last change.
    const Counts &counts() const
    {
        return counts_;
    }

private:
    /// What a row takes beside its samples, for the limit.
    static constexpr std::int64_t rowOverhead = 64;

    /// Where a row lies and what it holds, by the file.
    struct RowHead {
        std::int64_t first = 0;
        std::int64_t count = 0;
        std::int64_t length = 0;
    };

    StateResult ready();
    template<class Operation> StateResult attempt(Operation &&operation);
    StateResult load();
    StateResult addOwner();
    StateResult checkOwner(const std::string &route, const std::string &output) const;
    StateResult checkType(const std::string &name, const std::string &idl) const;
    StateResult undo(const Counts &found);

    StateResult commit(const StoreChange &change, bool &room);
    StateResult change(const StoreChange &change, Counts &counts, bool &room);
    bool isSettled(bool room) const;
    StateResult makeRoom(const StoreChange &change, Counts &counts, bool &room);
    StateResult removeDelivered(std::int64_t last, Counts &counts);
    StateResult dropOne(std::int64_t behind, Counts &counts, bool &dropped);
    StateResult insert(const StoreChange &change, Counts &counts);
    StateResult save(Counts &counts);
    StateResult readRows(std::int64_t after, StoredSlice &slice, RowHead &damaged);
    StateResult readHead(std::int64_t after, RowHead &row);
    StateResult readRow(const RowHead &row, StoredSlice &slice, bool &good);
    StateResult removeDamaged(const RowHead &row);
    void notify(const std::string &text) const;

    const StoreSettings &settings_;
    Database database_;
    Counts counts_;
    SourceMarks marks_;
    std::int64_t removed_ = 0;
    /// Whether the counts have ever been those of the file.
    bool known_ = false;
};

} // namespace ferry

#endif
