// See idl_names.h.
#include "idl_names.h"

#include <string_view>

namespace qddsc {

namespace {

using Tokens = std::vector<IdlToken>;

/// A name with its modules, as it is written from a token on.
std::vector<std::string> scopedNameAt(const Tokens &tokens, std::size_t &at)
{
    std::vector<std::string> parts;
    if (tokens[at].is(":")) {
        parts.emplace_back(); // from the outermost scope
        at += 2;
    }
    parts.push_back(tokens[at].name());
    while (at + 3 < tokens.size() && tokens[at + 1].is(":") && tokens[at + 2].is(":") &&
           tokens[at + 3].isWord()) {
        at += 3;
        parts.push_back(tokens[at].name());
    }
    return parts;
}

} // namespace

bool isNameGiven(const std::vector<IdlToken> &tokens, std::size_t at, int depth)
{
    const auto isIn = [](const IdlToken &token, std::string_view signs) {
        return token.length == 1 && signs.find(*token.at) != std::string_view::npos;
    };
    return depth == 0 && at > 0 && at + 1 < tokens.size() && isIn(tokens[at + 1], ";,[=}") &&
           (tokens[at - 1].isWord() || isIn(tokens[at - 1], ">,{)"));
}

std::string nameOf(const IdlDefinition &definition)
{
    return definition.names.empty() ? definition.keyword
                                    : definition.scope + definition.names.front();
}

IdlNames::IdlNames(const std::string &text, const IdlOutline &outline)
    : text_(text), outline_(outline)
{
    for (std::size_t i = 0; i < outline_.definitions.size(); ++i) {
        const IdlDefinition &definition = outline_.definitions[i];
        for (const std::string &name : definition.names) {
            if (!definition.isDropped) {
                std::size_t &known = declared_.emplace(definition.scope + name, i).first->second;
                known = outline_.definitions[known].isForward ? i : known;
            }
        }
    }
}

std::size_t IdlNames::find(const std::string &name) const
{
    const auto found = declared_.find(name);
    return found != declared_.end() ? found->second : IdlDefinition::none;
}

std::vector<IdlNames::Use> IdlNames::usesOf(std::size_t user, bool onlyWithModules) const
{
    const IdlDefinition &definition = outline_.definitions[user];
    const Tokens tokens = tokensOf(text_, definition);
    std::vector<Use> uses;
    int depth = 0;
    for (std::size_t i = 1; i + 1 < tokens.size(); ++i) {
        depth += tokens[i].is("<") && tokens[i - 1].isWord() ? 1 : 0;
        depth -= tokens[i].is(">") && depth > 0 ? 1 : 0;
        const bool isAbsolute = tokens[i].is(":") && tokens[i + 1].is(":") &&
                                i + 2 < tokens.size() && tokens[i + 2].isWord();
        if (!isAbsolute && (!tokens[i].isWord() || isNameGiven(tokens, i, depth))) {
            continue;
        }
        const auto at = static_cast<std::size_t>(tokens[i].at - text_.c_str());
        const std::vector<std::string> parts = scopedNameAt(tokens, i);
        if (onlyWithModules && parts.size() == 1) {
            continue;
        }
        std::string scope = definition.scope;
        const std::size_t used = resolve(parts, scope);
        if (used != IdlDefinition::none && used != user) {
            uses.push_back({at, used, scope, isAbsolute});
        }
    }
    return uses;
}

/// Which definition a name stands for, or one of its first parts: looked for in the scope and then
/// in those around it. `scope` becomes the one where it is found.
std::size_t IdlNames::resolve(const std::vector<std::string> &parts, std::string &scope) const
{
    const std::size_t first = parts.front().empty() ? 1 : 0;
    scope = first == 1 ? "" : scope;
    while (true) {
        std::string name = scope;
        for (std::size_t i = first; i < parts.size(); ++i) {
            name += parts[i];
            const auto found = declared_.find(name);
            if (found != declared_.end()) {
                return found->second;
            }
            name += "::";
        }
        if (scope.empty()) {
            return IdlDefinition::none;
        }
        const std::size_t outer =
            scope.size() > 2 ? scope.rfind("::", scope.size() - 3) : std::string::npos;
        scope.resize(outer == std::string::npos ? 0 : outer + 2);
    }
}

} // namespace qddsc
