// Samples that an output will never take, and records that a source could not decode, with all that
// is known of why: one SQLite file for a configuration. Other processes read it and delete from it
// while a relay adds to it.
//
//   DeadLetters letters(settings);
//   result = letters.add(about, samples);     synced; `full`: wait, and try again
//   result = letters.visit(...);              oldest first
//
// Any thread; one at a time is in the file. The file is opened when it is first needed.
#ifndef FERRY_STATE_DEAD_LETTERS_H
#define FERRY_STATE_DEAD_LETTERS_H

#include <functional>
#include <mutex>
#include <vector>

#include "qddsc/type_code.h"
#include "state/database.h"
#include "state/slice.h"

namespace ferry {

/// What is known of a letter, as it was when it was added.
struct DeadLetterAbout {
    std::string route;
    /// "connection/stream": the output that did not take the sample, or the input that could not
    /// decode the record.
    std::string end;
    std::string reason;
    std::int64_t attempts = 0;
};

/// A record as the source has it.
struct RejectedText {
    std::string text;
    std::string reason;
    /// Where it stands: "a.csv:17".
    std::string position;
};

struct KeptLetter : DeadLetterAbout {
    std::int64_t id = 0;
    /// Milliseconds since 1970.
    std::int64_t time = 0;
    /// Scoped name; "" for a record that was not decoded.
    std::string type;
    std::string idl;
    std::string position;
    /// The sample as JSON (its beginning if it is long), or the record.
    std::string text;
    /// The sample's CDR, and its information in the form of a row of a store; empty for a record.
    std::vector<std::uint8_t> cdr;
    std::vector<std::uint8_t> info;
};

class DeadLetters {
public:
    struct Settings {
        std::filesystem::path file;
        std::uint64_t maxBytes = 256U << 20;
        /// Whether a damaged or foreign file makes place for a new one; else it is an error.
        bool setsAside = true;
        std::function<void(const std::string &)> notify = {};
        std::string vfs = {};
    };

    explicit DeadLetters(Settings settings);

    /// Adds all of the samples, or none.
    StateResult add(const DeadLetterAbout &about, const DDS_TypeCode &type,
                    const SampleList &samples);
    /// Adds all of the records, or none; each has a reason of its own.
    StateResult add(const DeadLetterAbout &about, const std::vector<RejectedText> &texts);

    /// The letters behind the number `after`, oldest first, until `visit` returns false. Bytes are
    /// filled if `whole`. It must not call back.
    StateResult visit(std::int64_t after, bool whole,
                      const std::function<bool(const KeptLetter &)> &visit);
    /// A letter as it was looked at.
    struct Seen {
        std::int64_t id;
        std::int64_t attempts;
    };
    /// Deletes letters but for those that have been tried again since; `deleted` tells how many.
    /// All of them, or none.
    StateResult remove(const std::vector<Seen> &letters, std::size_t &deleted);
    /// It was tried again, in vain.
    StateResult failedAgain(std::int64_t id, const std::string &reason, std::int64_t attempts);

private:
    StateResult ready();
    template<class Operation> StateResult change(Operation &&operation);
    StateResult number();
    bool isDone();
    StateResult checkRoom(std::uint64_t more);
    StateResult typeId(const DDS_TypeCode &type, std::int64_t &id);
    StateResult insert(const KeptLetter &letter, std::int64_t type);

    const Settings settings_;
    /// Of this object, in the file: nanoseconds since 1970.
    const std::int64_t writer_;
    std::int64_t changes_ = 0;
    std::mutex mutex_;
    Database database_;
};

/// The letter's sample as the row of a store, for StoredSlice.
std::vector<std::uint8_t> rowOf(const KeptLetter &letter);

} // namespace ferry

#endif
