// See idl_definitions.h.
#include "idl_definitions.h"

#include <algorithm>
#include <cstring>

#include "idl_scan.h"

namespace qddsc {

namespace {

using Tokens = std::vector<IdlToken>;

bool isOneOf(const IdlToken &token, std::initializer_list<const char *> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&](const char *word) { return token.is(word); });
}

/// Where a definition begins behind its annotations.
std::size_t behindAnnotations(const Tokens &tokens)
{
    std::size_t at = 0;
    while (at + 1 < tokens.size() && tokens[at].is("@")) {
        at += 2;
        if (at < tokens.size() && tokens[at].is("(")) {
            int open = 0;
            do {
                open += tokens[at].is("(") ? 1 : tokens[at].is(")") ? -1 : 0;
                ++at;
            } while (open > 0 && at < tokens.size());
        }
    }
    return at;
}

std::size_t behindBrackets(const Tokens &tokens, std::size_t at)
{
    int open = 0;
    for (; at < tokens.size(); ++at) {
        open += isOneOf(tokens[at], {"[", "(", "{", "<"})   ? 1
                : isOneOf(tokens[at], {"]", ")", "}", ">"}) ? -1
                                                            : 0;
        if (open <= 0) {
            return at + 1;
        }
    }
    return at;
}

/// Names between the braces of an enum, or the bits of a bitmask.
void addEnumerators(const Tokens &tokens, std::size_t at, std::vector<std::string> &names)
{
    for (; at + 1 < tokens.size(); ++at) {
        if (tokens[at].is("(")) {
            at = behindBrackets(tokens, at) - 1;
        } else if (tokens[at].isWord() && isOneOf(tokens[at + 1], {",", "}"})) {
            names.push_back(tokens[at].name());
        }
    }
}

/// "A" and "B" of "typedef long A, B[2];"; the name in front of "=" of a constant.
void addDeclarators(const Tokens &tokens, std::size_t at, std::vector<std::string> &names)
{
    for (; at + 1 < tokens.size(); ++at) {
        if (isOneOf(tokens[at], {"<", "{", "(", "["})) {
            at = behindBrackets(tokens, at) - 1;
        } else if (tokens[at].isWord() && isOneOf(tokens[at + 1], {",", ";", "[", "="})) {
            names.push_back(tokens[at].name());
        }
    }
}

/// Fills in what a definition is and declares. `tokens` has its semicolon.
void describe(const Tokens &tokens, IdlDefinition &definition)
{
    std::size_t at = behindAnnotations(tokens);
    at = std::min(at, tokens.size() - 1);
    while (at + 2 < tokens.size() && isOneOf(tokens[at], {"abstract", "local", "custom"})) {
        ++at;
    }
    const IdlToken &keyword = tokens[at];
    definition.keyword = keyword.is(";") ? "" : keyword.text();
    if (keyword.is("typedef") || keyword.is("const")) {
        addDeclarators(tokens, at + 1, definition.names);
        return;
    }
    const bool isAboutOthers = isOneOf(keyword, {"import", "typeid", "typeprefix"});
    if (isAboutOthers || !keyword.isWord() || at + 2 >= tokens.size() || !tokens[at + 1].isWord()) {
        return;
    }
    definition.names.push_back(tokens[at + 1].name());
    definition.isForward = tokens[at + 2].is(";") && !keyword.is("native");
    if (keyword.is("enum") || keyword.is("bitmask")) {
        addEnumerators(tokens, at + 2, definition.names);
    }
    const auto brace = std::find_if(tokens.begin(), tokens.end(),
                                    [](const IdlToken &token) { return token.is("{"); });
    if (brace != tokens.end()) {
        std::size_t behind =
            behindBrackets(tokens, static_cast<std::size_t>(std::distance(tokens.begin(), brace)));
        definition.strayAt = behind < tokens.size() && !tokens[behind].is(";")
                                 ? static_cast<std::size_t>(tokens[behind].at - tokens[0].at)
                                 : IdlDefinition::none;
    }
}

/// Goes through all modules.
class Outline {
public:
    Outline(const std::string &text, IdlOutline &outline) : text_(text), outline_(outline) {}

    void run()
    {
        const char *at = text_.c_str();
        for (IdlToken token = idlTokenAt(at); token.length > 0; token = idlTokenAt(at)) {
            at = token.at + token.length;
            tokens_.push_back(token);
            if (token.is("}") && depth_ == 0) {
                leaveModule();
            } else if (token.is("{") && depth_ == 0 && isModule()) {
                enterModule();
            } else if (token.is(";") && depth_ == 0) {
                finish(offset(at));
            } else {
                count(token);
            }
        }
        if (!tokens_.empty()) {
            outline_.unfinishedAt = offset(tokens_.front().at);
        }
    }

private:
    std::size_t offset(const char *at) const
    {
        return static_cast<std::size_t>(at - text_.c_str());
    }

    bool isModule() const
    {
        const std::size_t at = behindAnnotations(tokens_);
        return at + 3 == tokens_.size() && tokens_[at].is("module");
    }

    void enterModule()
    {
        outline_.modules.push_back({offset(tokens_.front().at), 0, module_, false});
        module_ = outline_.modules.size() - 1;
        outerScopes_.push_back(scope_.size());
        scope_ += tokens_[tokens_.size() - 2].name() + "::";
        tokens_.clear();
    }

    void leaveModule()
    {
        ended_ = module_;
        if (module_ != IdlDefinition::none) {
            outline_.modules[module_].isWhole = tokens_.size() == 1;
            scope_.resize(outerScopes_.back());
            outerScopes_.pop_back();
            module_ = outline_.modules[module_].outer;
        }
        tokens_.clear();
    }

    void count(const IdlToken &token)
    {
        depth_ += token.length == 1 && std::strchr("{([", *token.at) != nullptr ? 1 : 0;
        depth_ -= token.length == 1 && std::strchr("})]", *token.at) != nullptr && depth_ > 0;
    }

    /// Behind a semicolon: of a definition, of a module, or of nothing.
    void finish(std::size_t end)
    {
        if (tokens_.size() == 1 && ended_ != IdlDefinition::none) {
            outline_.modules[ended_].end = end;
        } else {
            IdlDefinition definition{};
            definition.begin = offset(tokens_.front().at);
            definition.end = end;
            definition.module = module_;
            definition.scope = scope_;
            describe(tokens_, definition);
            const std::size_t keyword = std::min(behindAnnotations(tokens_), tokens_.size() - 1);
            definition.keywordAt = offset(tokens_[keyword].at);
            definition.strayAt += definition.strayAt != IdlDefinition::none ? definition.begin : 0;
            definition.isDropped = tokens_.size() == 1; // one semicolon more is no harm
            outline_.definitions.push_back(std::move(definition));
        }
        ended_ = IdlDefinition::none;
        tokens_.clear();
    }

    const std::string &text_;
    IdlOutline &outline_;
    std::string scope_;
    std::vector<std::size_t> outerScopes_;
    /// Of the definition under way.
    Tokens tokens_;
    uint32_t depth_ = 0;
    std::size_t module_ = IdlDefinition::none;
    /// The module that has just ended.
    std::size_t ended_ = IdlDefinition::none;
};

void blank(std::string &text, std::size_t begin, std::size_t end)
{
    std::replace_if(
        text.begin() + static_cast<std::ptrdiff_t>(begin),
        text.begin() + static_cast<std::ptrdiff_t>(end),
        [](char character) { return character != '\n'; }, ' ');
}

} // namespace

bool IdlToken::is(const char *what) const
{
    return length == std::strlen(what) && std::strncmp(at, what, length) == 0;
}

bool IdlToken::isWord() const
{
    return length > 0 && qddsc::isWord(*at);
}

IdlToken idlTokenAt(const char *at)
{
    while (*at != '\0' && (std::isspace(static_cast<unsigned char>(*at)) != 0 ||
                           (*at == '/' && quotedLength(at) > 0))) {
        at += *at == '/' ? quotedLength(at) : 1;
    }
    if (*at == '\0') {
        return {at, 0};
    }
    const std::size_t length = isWord(*at) ? wordLength(at) : quoteLength(at);
    return {at, std::max<std::size_t>(length, 1)};
}

IdlOutline outlineOf(const std::string &text)
{
    IdlOutline outline;
    Outline(text, outline).run();
    return outline;
}

std::vector<IdlToken> tokensOf(const std::string &text, const IdlDefinition &definition)
{
    Tokens tokens;
    const char *at = text.c_str() + definition.keywordAt;
    for (const char *const end = text.c_str() + definition.end; at != end;) {
        tokens.push_back(idlTokenAt(at));
        at = tokens.back().at + tokens.back().length;
    }
    return tokens;
}

void blankDropped(std::string &text, const IdlOutline &outline)
{
    std::vector<std::size_t> kept(outline.modules.size());
    for (const IdlDefinition &each : outline.definitions) {
        if (each.isDropped) {
            blank(text, each.begin, each.end);
        } else if (each.module != IdlDefinition::none) {
            ++kept[each.module];
        }
    }
    // Outer modules come first.
    for (std::size_t i = outline.modules.size(); i-- > 0;) {
        const IdlModule &module = outline.modules[i];
        if (kept[i] == 0 && module.isWhole && module.end != 0) {
            blank(text, module.begin, module.end);
        } else if (module.outer != IdlDefinition::none) {
            ++kept[module.outer];
        }
    }
}

} // namespace qddsc
