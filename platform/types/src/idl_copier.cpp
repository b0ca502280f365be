// See idl_copier.h.
#include "idl_copier.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <strings.h>

#include <fmt/format.h>

#include "idl_scan.h"
#include "idl_words.h"

namespace qddsc {

namespace {

const char *behindBlanks(const char *at)
{
    while (std::isspace(static_cast<unsigned char>(*at)) != 0 ||
           (*at == '/' && quotedLength(at) > 0)) {
        at += *at == '/' ? quotedLength(at) : 1;
    }
    return at;
}

const char *nameEnd(const char *at)
{
    at += wordLength(at);
    while (at[0] == ':' && at[1] == ':' && wordLength(at + 2) > 0) {
        at += 2 + wordLength(at + 2);
    }
    return at;
}

/// Behind the bracket that closes the one at `at`.
const char *behindBrackets(const char *at, char open, char close)
{
    int depth = 0;
    do {
        const size_t quoted = quotedLength(at);
        depth += quoted > 0 ? 0 : *at == open ? 1 : *at == close ? -1 : 0;
        at += quoted > 0 ? quoted : 1;
    } while (depth > 0 && *at != '\0');
    return at;
}

/// Behind an annotation's name and arguments.
const char *endOfAnnotation(const char *name)
{
    const char *const end = nameEnd(name);
    const char *const behind = end + std::strspn(end, " \t\r\n");
    return *behind == '(' ? behindBrackets(behind, '(', ')') : end;
}

/// Behind "annotation NAME { ... };".
const char *endOfDeclaration(const char *name)
{
    const char *at = name + std::strcspn(name, "{;");
    at = *at == '{' ? behindBrackets(at, '{', '}') : at;
    at += std::strspn(at, " \t\r\n");
    return *at == ';' ? at + 1 : at;
}

/// The parser ends the process over one of these that has no value.
bool needsValue(std::string_view annotation)
{
    return annotation == "bit_bound" || annotation == "data_representation" ||
           annotation == "extensibility" || annotation == "id" || annotation == "value";
}

/// Whether an annotation's arguments hold more than signs. They end in front of `end`.
bool hasValue(const char *arguments, const char *end)
{
    const char *at = behindBlanks(arguments);
    at = at < end ? behindBlanks(at + 1) : end;
    at += std::strncmp(at, "value", 5) == 0 && *behindBlanks(at + 5) == '=' ? 5 : 0;
    return at < end && std::any_of(at, end, [](char each) {
               return isWord(each) || each == '"' || each == '\'';
           });
}

/// A number without the letters of C that give it a type.
std::string_view withoutSuffix(std::string_view word)
{
    const bool isNumber = std::isdigit(static_cast<unsigned char>(word.front())) != 0;
    const bool isHex = word.size() > 1 && (word[1] == 'x' || word[1] == 'X');
    const size_t end = word.find_last_not_of(isHex ? "lLuU" : "fFlLuU");
    return isNumber && end != std::string_view::npos ? word.substr(0, end + 1) : word;
}

} // namespace

void IdlCopy::note(const std::string &name, uint32_t noteLine)
{
    const auto known = std::find_if(passed.begin(), passed.end(),
                                    [&](const Passed &each) { return each.name == name; });
    if (known != passed.end()) {
        ++known->count;
    } else {
        passed.push_back({name, noteLine, 1});
    }
}

void IdlCopy::insert(const std::vector<Insertion> &insertions)
{
    std::string whole;
    std::vector<std::size_t> added;
    // How far everything from a place of the old text on has moved.
    std::vector<std::pair<std::size_t, std::size_t>> moves = {{0, 0}};
    std::size_t from = 0;
    for (const auto &[at, words] : insertions) {
        whole.append(text, from, at - from);
        for (std::size_t i = 0; i < words.size(); ++i) {
            added.push_back(whole.size() + i);
        }
        whole += words;
        moves.emplace_back(at, whole.size() - at);
        from = at;
    }
    text = whole.append(text, from, std::string::npos);
    const auto moved = [&](std::size_t at) {
        const auto behind = std::upper_bound(
            moves.begin(), moves.end(), at,
            [](std::size_t place, const auto &move) { return place < move.first; });
        return at + std::prev(behind)->second;
    };
    for (std::size_t &each : inserted) {
        each = moved(each);
    }
    inserted.insert(inserted.end(), added.begin(), added.end());
    std::sort(inserted.begin(), inserted.end());
    for (Default &each : defaults) {
        each.offset = moved(each.offset);
        each.end = moved(each.end);
    }
}

bool IdlCopier::copyAll(const char *text, IdlComplaint &complaint)
{
    complaint_ = &complaint;
    while (*text != '\0') {
        const size_t quoted = quotedLength(text);
        std::for_each(text, text + quoted, [this](char character) { copy(character); });
        text += quoted;
        if (quoted == 0 && !copyCode(text)) {
            return false;
        }
    }
    return true;
}

bool IdlCopier::fail(const std::string &what)
{
    *complaint_ = {line_, column_, what};
    return false;
}

void IdlCopier::copy(char character)
{
    copy_.text += character;
    ++column_;
    if (character == '\n') {
        ++line_;
        column_ = 1;
    }
}

void IdlCopier::insert(char character)
{
    copy_.inserted.push_back(copy_.text.size());
    copy(character);
}

/// Leaves blanks and line ends in place of a part, so that what follows stays where it is.
void IdlCopier::blank(const char *from, const char *to)
{
    std::for_each(from, to, [this](char character) { copy(character == '\n' ? '\n' : ' '); });
}

/// The parser and the reader recurse into what is nested, so it must not be without end.
bool IdlCopier::checkNesting(char character)
{
    openBraces_ += character == '{' ? 1 : 0;
    openBraces_ -= character == '}' && openBraces_ > 0 ? 1 : 0;
    openTemplates_ = character == ';' ? 0 : openTemplates_;
    if (openBraces_ > maxNesting || openTemplates_ > maxNesting) {
        return fail("nested deeper than 64 levels");
    }
    return true;
}

bool IdlCopier::copyCode(const char *&at)
{
    if (!checkNesting(*at)) {
        return false;
    }
    if (*at == '@') {
        return copyAnnotation(at);
    }
    if (wordLength(at) > 0) {
        copyWord(at);
        return true;
    }
    if (*at == '>' && openTemplates_ > 0) {
        --openTemplates_;
        if (at[1] == '>' && openTemplates_ > 0) {
            copy('>');
            insert(' ');
            ++at;
            return true;
        }
    }
    if (*at == ';' || *at == '{' || *at == '}') {
        endDeclaration();
    }
    if (*at == ',' && *behindBlanks(at + 1) == '}') { // which enums of other compilers may have
        copy(' ');
        ++at;
        return true;
    }
    copy(*at++);
    return true;
}

void IdlCopier::endDeclaration()
{
    for (auto each = copy_.defaults.rbegin(); each != copy_.defaults.rend() && each->end == 0;
         ++each) {
        each->end = copy_.text.size();
    }
}

void IdlCopier::copyWord(const char *&at)
{
    const size_t length = wordLength(at);
    const std::string_view name(at, length);
    const char *const behind = at + length + std::strspn(at + length, " \t\r\n");
    openTemplates_ += *behind == '<' && (name == "sequence" || name == "string") ? 1 : 0;
    if (isKeywordAsName(name, *behind)) {
        insert('_');
    }
    const std::string_view written = asParserHasIt(withoutSuffix(name));
    std::for_each(written.begin(), written.end(), [this](char character) { copy(character); });
    blank(at + written.size(), at + length);
    at += length;
}

/// Drops what does not change samples. What the parser knows goes on to it, and so does what looks
/// like a misspelt one of these, which the parser rejects.
bool IdlCopier::copyAnnotation(const char *&at)
{
    const char *name = at + 1;
    const size_t length = wordLength(name);
    std::string word(name, length);
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char character) { return std::tolower(character); });
    const bool declares = word == "annotation";
    if (!declares && isKnownAnnotation(word) && std::strncmp(name + length, "::", 2) != 0) {
        if (needsValue(word) && *behindBlanks(name + length) != '(') {
            return fail(fmt::format("@{} needs a value", word));
        }
        copy('@');
        std::for_each(word.begin(), word.end(), [this](char character) { copy(character); });
        at = name + length;
        if (word == "topic") { // what it says of the topic is not for the types
            const char *const end = endOfAnnotation(name);
            blank(at, end);
            at = end;
        }
        return true;
    }
    const std::string meant = nearestAnnotation(word);
    if (!meant.empty()) {
        return fail(
            fmt::format("@{} is unknown; did you mean @{}?", std::string(name, length), meant));
    }
    const char *const end = declares ? endOfDeclaration(name) : endOfAnnotation(name);
    if (word == "default" && !hasValue(name + length, end)) {
        return fail("@default needs a value");
    }
    if (!declares) {
        dropAnnotation(name, end);
    }
    blank(at, end);
    at = end;
    return true;
}

void IdlCopier::dropAnnotation(const char *name, const char *end)
{
    const char *const behind = nameEnd(name);
    const std::string word(name, static_cast<size_t>(behind - name));
    const char *const open = std::find(behind, end, '(');
    if (strcasecmp(word.c_str(), "default") == 0 && open != end) {
        copy_.defaults.push_back({copy_.text.size(), 0, std::string(open + 1, end - 1)});
    } else {
        copy_.note(word, line_);
    }
}

} // namespace qddsc
