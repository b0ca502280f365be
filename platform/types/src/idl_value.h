// Values as annotations and constants write them.
#ifndef QDDSC_SRC_IDL_VALUE_H
#define QDDSC_SRC_IDL_VALUE_H

#include <optional>
#include <string>

namespace qddsc {

struct IdlValue {
    enum class Form { text, character, number, word };
    Form form;
    /// What is between the quotes, escapes resolved; numbers and words as they stand.
    std::string value;
};

/// Reads the arguments of an annotation: `5`, `value = "a" "b"`, `geo::RED`. Nothing where they are
/// an expression or anything else.
std::optional<IdlValue> readIdlValue(const std::string &arguments);

} // namespace qddsc

#endif
