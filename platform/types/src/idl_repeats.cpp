// See idl_repeats.h.
#include "idl_repeats.h"

#include <unordered_map>

namespace qddsc {

namespace {

/// What a definition is known by; "" for a forward declaration, and for what is none.
std::string nameOf(const IdlDefinition &definition)
{
    if (definition.isForward || definition.names.empty()) {
        return "";
    }
    const bool isTypedef = definition.keyword == "typedef";
    return definition.scope + (isTypedef ? definition.names.back() : definition.names.front());
}

std::string wordsOf(const std::string &text, const IdlDefinition &definition,
                    const std::map<std::size_t, std::string> &hidden)
{
    std::string words;
    const char *const end = text.c_str() + definition.end;
    for (const char *at = text.c_str() + definition.begin; at != end;) {
        const IdlToken token = idlTokenAt(at);
        words += token.text() + ' ';
        at = token.at + token.length;
    }
    const auto until = hidden.lower_bound(definition.end);
    for (auto each = hidden.lower_bound(definition.begin); each != until; ++each) {
        words += each->second + ' ';
    }
    return words;
}

} // namespace

bool dropRepeats(const std::string &text, IdlOutline &outline,
                 const std::map<std::size_t, std::string> &hidden, IdlConflict &conflict)
{
    std::unordered_map<std::string, std::size_t> known;
    for (std::size_t i = 0; i < outline.definitions.size(); ++i) {
        IdlDefinition &definition = outline.definitions[i];
        const std::string name = nameOf(definition);
        if (name.empty()) {
            continue;
        }
        const auto [found, isNew] = known.emplace(name, i);
        if (isNew) {
            continue;
        }
        const IdlDefinition &first = outline.definitions[found->second];
        if (wordsOf(text, first, hidden) != wordsOf(text, definition, hidden)) {
            conflict = {name, first.begin, definition.begin};
            return false;
        }
        definition.isDropped = true;
    }
    return true;
}

} // namespace qddsc
