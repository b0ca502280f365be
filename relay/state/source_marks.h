// Up to which number a store has had the samples of each of its sources. A source that numbers its
// samples gives those that it lends again the same numbers, so the store can leave them out: in
// front of a store, too, each sample counts once.
//
//   SampleList fresh = marks.newOf(samples);     what is above the marks
//   result = marks.save(database, order);        in the transaction that appends them
//   marks.accept();                              when it is on the disk
#ifndef FERRY_STATE_SOURCE_MARKS_H
#define FERRY_STATE_SOURCE_MARKS_H

#include <array>
#include <map>
#include <vector>

#include "state/database.h"
#include "state/slice.h"

namespace ferry {

/// newOf() is for the thread that appends. The others are for one thread at a time.
class SourceMarks {
public:
    /// Takes over the marks of a file. Later on memory knows better than any file.
    StateResult load(Database &database);
    /// Puts the marks into a file in place of those that it has.
    StateResult replace(Database &database);

    /// The samples that no mark covers, in their order; all of them if they are not numbered. Valid
    /// until the next call.
    SampleList newOf(const SampleList &samples);
    /// Writes the marks that the samples of the last newOf() move. `order` rises from save to save.
    StateResult save(Database &database, std::int64_t order);
    /// What was saved last is committed.
    void accept();

private:
    /// The publication handle of the samples.
    using Source = std::array<std::uint8_t, 16>;
    struct Mark {
        std::int64_t number = 0;
        /// Of the marks of all sources those that moved last are kept.
        std::int64_t order = 0;
    };

    Mark &moved(const Source &source);
    static StateResult write(Database &database, const Source &source, const Mark &mark);

    std::map<Source, Mark> marks_;
    /// Of the last newOf(); used again, so that a steady source allocates nothing.
    std::vector<std::pair<Source, Mark>> moved_;
    std::vector<void *> samples_;
    std::vector<DDS_SampleInfo *> infos_;
};

} // namespace ferry

#endif
