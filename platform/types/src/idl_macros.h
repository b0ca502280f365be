// Macros of IDL texts: what #define says, what becomes of a line, and what #if comes to. There are
// no # and ## operators. Failures are thrown as sentences.
#ifndef QDDSC_SRC_IDL_MACROS_H
#define QDDSC_SRC_IDL_MACROS_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace qddsc {

/// What is wrong with a preprocessor line. Leaves the reader of IDL as an error text.
class IdlFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class IdlMacros {
public:
    /// Takes what stands behind "#define".
    void define(const std::string &line);
    void undefine(const std::string &name)
    {
        macros_.erase(name);
    }
    bool isDefined(const std::string &name) const
    {
        return macros_.count(name) != 0;
    }
    /// The line with every macro replaced, but in comments and quotes. `inComment` says whether the
    /// line begins inside a comment.
    std::string expand(const std::string &line, bool inComment = false) const;
    /// Whether the expression behind "#if" is true.
    bool isTrue(const std::string &expression) const;

private:
    struct Macro {
        /// Null for a macro without parentheses.
        std::optional<std::vector<std::string>> parameters;
        std::string body;
    };

    /// Of one line, so that macros that double each other end.
    struct Expansion {
        /// Macros that are being replaced.
        std::set<std::string> hidden;
        std::size_t replaced = 0;
    };

    void replace(const std::string &line, Expansion &expansion, std::string &out) const;
    void replaceOne(const std::string &name, const Macro &macro, const char *&at,
                    Expansion &expansion, std::string &out) const;
    std::string fill(const std::string &name, const Macro &macro, const char *&at,
                     Expansion &expansion) const;
    std::string replaceDefined(const std::string &expression) const;

    std::map<std::string, Macro> macros_;
};

} // namespace qddsc

#endif
