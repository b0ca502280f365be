// What the names of an IDL text stand for, by its words alone.
#ifndef QDDSC_SRC_IDL_NAMES_H
#define QDDSC_SRC_IDL_NAMES_H

#include <string>
#include <unordered_map>
#include <vector>

#include "idl_definitions.h"

namespace qddsc {

/// Whether a name is given here, not used. `depth` counts open templates.
bool isNameGiven(const std::vector<IdlToken> &tokens, std::size_t at, int depth);

class IdlNames {
public:
    /// A name that a definition uses.
    struct Use {
        /// Where it begins in the text.
        std::size_t at;
        std::size_t definition;
        /// Of the scope that it was found in: "a::".
        std::string scope;
        /// With "::" in front.
        bool isAbsolute;
    };

    /// Takes the names of all definitions that are not dropped. May throw std::bad_alloc.
    IdlNames(const std::string &text, const IdlOutline &outline);

    /// What a definition uses, itself left out; by names with modules alone, if wanted.
    std::vector<Use> usesOf(std::size_t user, bool onlyWithModules = false) const;

    /// The definition of a scoped name; a forward declaration if there is no other. `none` if
    /// there is nothing of that name.
    std::size_t find(const std::string &name) const;

private:
    std::size_t resolve(const std::vector<std::string> &parts, std::string &scope) const;

    const std::string &text_;
    const IdlOutline &outline_;
    std::unordered_map<std::string, std::size_t> declared_;
};

/// "weather::Either", "import": what a definition is called in a report.
std::string nameOf(const IdlDefinition &definition);

} // namespace qddsc

#endif
