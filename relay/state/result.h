// How an operation on kept state went.
#ifndef FERRY_STATE_RESULT_H
#define FERRY_STATE_RESULT_H

#include <string>

namespace ferry {

/// What kind of failure it was, as far as the caller has to act on it.
enum class Fault {
    none,
    /// No room: on the disk, or within the limit that was set. It may go away by itself.
    full,
    /// Somebody else holds the file.
    busy,
    /// The file is damaged.
    corrupt,
    /// The file is another program's, or no database at all.
    foreign,
    /// Asked for what cannot be: a file of another route, a newer version. Trying again is no use.
    rejected,
    /// Anything else that a file system does. It may go away by itself.
    io
};

struct StateResult {
    Fault fault = Fault::none;
    /// A sentence for people that names the file; "" if nothing failed.
    std::string text = {};

    bool ok() const
    {
        return fault == Fault::none;
    }
};

} // namespace ferry

#endif
