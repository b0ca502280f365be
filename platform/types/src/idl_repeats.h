// Definitions that come again, which the parser does not take. Files that are not guarded against
// being included twice, or that bring what they need along, repeat themselves.
#ifndef QDDSC_SRC_IDL_REPEATS_H
#define QDDSC_SRC_IDL_REPEATS_H

#include <cstddef>
#include <map>
#include <string>

#include "idl_definitions.h"

namespace qddsc {

/// Two definitions of one name that are not the same.
struct IdlConflict {
    std::string name;
    /// Where the two begin in the text.
    std::size_t first;
    std::size_t second;
};

/// Drops each definition that came before, word by word the same, in the same module. `hidden` are
/// words that count but are not in the text, by the place where they stood. False, with `conflict`
/// filled, where a name gets another meaning. May throw std::bad_alloc.
bool dropRepeats(const std::string &text, IdlOutline &outline,
                 const std::map<std::size_t, std::string> &hidden, IdlConflict &conflict);

} // namespace qddsc

#endif
