// Where the definitions of an IDL text begin and end, and what they define, by its words alone.
// A text that is no IDL has an outline, too: what makes no sense is left to the parser.
#ifndef QDDSC_SRC_IDL_DEFINITIONS_H
#define QDDSC_SRC_IDL_DEFINITIONS_H

#include <string>
#include <vector>

namespace qddsc {

/// A word, a quoted text or a sign. None at the end of the text.
struct IdlToken {
    const char *at;
    std::size_t length;

    std::string text() const
    {
        return {at, length};
    }
    /// An underscore in front only says that a word is no keyword.
    std::string name() const
    {
        return length > 1 && *at == '_' ? std::string(at + 1, length - 1) : text();
    }
    bool is(const char *what) const;
    bool isWord() const;
};

/// The token at a place, or behind the blanks and comments there.
IdlToken idlTokenAt(const char *at);

struct IdlDefinition {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    /// From its first annotation to behind its semicolon.
    std::size_t begin;
    std::size_t end;
    /// Where it begins behind its annotations.
    std::size_t keywordAt;
    /// Which of the modules it is in; `none` outside of all.
    std::size_t module;
    /// "a::b::".
    std::string scope;
    /// "struct", "interface", also for "local interface"; "" for a semicolon alone.
    std::string keyword;
    /// What it declares in its scope: the first is its own name, those of enumerators follow. None
    /// for what is no definition.
    std::vector<std::string> names;
    bool isForward = false;
    /// Where a token stands between its "}" and its semicolon that does not belong there.
    std::size_t strayAt = none;
    bool isDropped = false;
};

struct IdlModule {
    std::size_t begin;
    /// Behind its semicolon; 0 if it has none.
    std::size_t end;
    std::size_t outer;
    /// Whether nothing stands in it behind its last definition.
    bool isWhole;
};

struct IdlOutline {
    std::vector<IdlDefinition> definitions;
    std::vector<IdlModule> modules;
    /// What stands behind the last definition, or in a module that does not end.
    std::size_t unfinishedAt = IdlDefinition::none;
};

/// May throw std::bad_alloc.
IdlOutline outlineOf(const std::string &text);

/// The tokens of a definition behind its annotations, the semicolon included.
std::vector<IdlToken> tokensOf(const std::string &text, const IdlDefinition &definition);

/// Puts blanks in place of dropped definitions, and of modules with nothing else in them, which the
/// parser does not take. Lines stay.
void blankDropped(std::string &text, const IdlOutline &outline);

} // namespace qddsc

#endif
