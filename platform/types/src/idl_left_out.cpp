// See idl_left_out.h.
#include "idl_left_out.h"

#include <algorithm>

#include <fmt/format.h>

#include "idl_words.h"

namespace qddsc {

namespace {

using Tokens = std::vector<IdlToken>;

/// A struct in a struct and the like, which IDL had before version 4.
bool isInnerType(const Tokens &tokens, std::size_t at)
{
    return (tokens[at].is("struct") || tokens[at].is("union") || tokens[at].is("enum")) &&
           at + 2 < tokens.size() && tokens[at + 1].isWord() &&
           (tokens[at + 2].is("{") || tokens[at + 2].is("switch"));
}

} // namespace

bool IdlTextLeftOuts::findReason(const IdlDefinition &definition, std::size_t &at,
                                 std::string &why) const
{
    at = definition.keywordAt;
    if (isUncarriedDefinition(definition.keyword)) {
        why = fmt::format("{}{}{} is not supported", definition.keyword,
                          definition.names.empty() ? "" : " ",
                          definition.names.empty() ? "" : definition.names.front());
        return true;
    }
    const Tokens tokens = tokensOf(text_, definition);
    if (tokens[0].is("module")) {
        why = "a template module is not supported";
        return tokens.size() > 2 && tokens[2].is("<");
    }
    for (std::size_t i = 1; i + 1 < tokens.size(); ++i) {
        at = static_cast<std::size_t>(tokens[i].at - text_.c_str());
        const bool isWide = tokens[i].is("L") && *tokens[i + 1].at == '\'';
        const bool isWideText = tokens[i].is("L") && *tokens[i + 1].at == '"';
        if (isUncarriedType(tokens[i].text()) && !isNameGiven(tokens, i, 0)) {
            why = fmt::format("{} is not supported", tokens[i].text());
        } else if (isWide || isWideText) {
            why = fmt::format("{} is not supported", isWide ? "wchar" : "wstring");
        } else if (i > 2 && isInnerType(tokens, i)) {
            why = fmt::format("{} {} inside of another type is not supported", tokens[i].text(),
                              tokens[i + 1].text());
        }
        if (!why.empty()) {
            return true;
        }
    }
    return false;
}

void IdlTextLeftOuts::find()
{
    names_.emplace(text_, outline_);
    for (std::size_t i = 0; i < outline_.definitions.size(); ++i) {
        const IdlDefinition &definition = outline_.definitions[i];
        if (definition.isDropped) {
            continue;
        }
        std::size_t at = 0;
        std::string why;
        if (definition.isForward && names_->find(nameOf(definition)) != i) {
            continue; // it goes with its definition
        }
        if (findReason(definition, at, why)) {
            drop(i, at, why);
        } else if (definition.isForward) {
            drop(i, definition.keywordAt,
                 fmt::format("{} {} is declared and never defined", definition.keyword,
                             definition.names.front()));
        }
    }
}

const IdlDefinition *IdlTextLeftOuts::around(std::size_t at) const
{
    const auto behind = std::upper_bound(
        outline_.definitions.begin(), outline_.definitions.end(), at,
        [](std::size_t place, const IdlDefinition &each) { return place < each.end; });
    const bool isAround =
        behind != outline_.definitions.end() && at >= behind->begin && !behind->isDropped;
    return isAround ? &*behind : nullptr;
}

void IdlTextLeftOuts::dropAround(std::size_t at, const std::string &why)
{
    const IdlDefinition *const definition = around(at);
    if (definition != nullptr) {
        drop(static_cast<std::size_t>(definition - outline_.definitions.data()), at, why);
    }
}

/// Drops a definition and everything that uses it, directly or not.
void IdlTextLeftOuts::drop(std::size_t definition, std::size_t at, const std::string &why)
{
    if (outline_.definitions[definition].isDropped) {
        return;
    }
    findUses();
    leftOuts_.push_back({definition, at, why, ""});
    outline_.definitions[definition].isDropped = true;
    for (std::size_t next = leftOuts_.size() - 1; next < leftOuts_.size(); ++next) {
        const std::size_t dropped = leftOuts_[next].definition;
        const std::string name = nameOf(outline_.definitions[dropped]);
        for (const std::size_t forward : forwards_[name]) {
            outline_.definitions[forward].isDropped = true;
        }
        for (const User &user : users_[dropped]) {
            if (!outline_.definitions[user.definition].isDropped) {
                outline_.definitions[user.definition].isDropped = true;
                leftOuts_.push_back(
                    {user.definition, user.at, fmt::format("it uses \"{}\"", name), name});
            }
        }
    }
}

void IdlTextLeftOuts::findUses()
{
    if (!users_.empty()) {
        return;
    }
    users_.resize(outline_.definitions.size());
    for (std::size_t i = 0; i < outline_.definitions.size(); ++i) {
        const IdlDefinition &definition = outline_.definitions[i];
        if (definition.isForward) {
            forwards_[nameOf(definition)].push_back(i);
        }
        if (!definition.isDropped) {
            for (const IdlNames::Use &use : names_->usesOf(i)) {
                users_[use.definition].push_back({i, use.at});
            }
        }
    }
}

} // namespace qddsc
