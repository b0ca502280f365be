// See idl_source.h.
#include "idl_source.h"

#include "qddscdr/error_text.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <strings.h>

#include <fmt/format.h>

#include "idl_repeats.h"
#include "idl_scan.h"

namespace qddsc {

using qddscdr::setError;

namespace {

bool isRejectedType(std::string_view word)
{
    static constexpr std::string_view words[] = {"any",     "bitset",   "fixed",  "interface",
                                                 "map",     "native",   "Object", "ValueBase",
                                                 "wstring", "valuetype"};
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

/// Words of the language that older texts use as names. The parser takes them for such with an
/// underscore in front, which is no part of the name.
bool isLaterKeyword(std::string_view word)
{
    static constexpr std::string_view words[] = {
        "abstract",  "any",        "attribute",  "bitfield",  "bitmask",   "bitset",
        "component", "connector",  "consumes",   "context",   "custom",    "emits",
        "eventtype", "exception",  "factory",    "finder",    "getraises", "home",
        "import",    "in",         "inout",      "interface", "local",     "manages",
        "map",       "mirrorport", "multiple",   "native",    "oneway",    "out",
        "port",      "porttype",   "primarykey", "private",   "provides",  "public",
        "publishes", "raises",     "readonly",   "setraises", "supports",  "truncatable",
        "typeid",    "typename",   "typeprefix", "uses",      "valuetype"};
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

/// Whether a word stands where only a name can: a declarator or an enumerator.
bool isName(std::string_view word, char behind)
{
    return behind != '\0' && std::strchr(";,[=}", behind) != nullptr && isLaterKeyword(word);
}

/// Words that other compilers take in another form, none of them longer for the parser.
std::string_view asParserHasIt(std::string_view word)
{
    static constexpr std::pair<std::string_view, std::string_view> words[] = {
        {"true", "TRUE"},
        {"false", "FALSE"},
        {"FINAL_EXTENSIBILITY", "FINAL"},
        {"APPENDABLE_EXTENSIBILITY", "APPENDABLE"},
        {"EXTENSIBLE_EXTENSIBILITY", "APPENDABLE"},
        {"MUTABLE_EXTENSIBILITY", "MUTABLE"}};
    const auto found = std::find_if(std::begin(words), std::end(words),
                                    [&](const auto &each) { return each.first == word; });
    return found != std::end(words) ? found->second : word;
}

/// What the parser understands and the reader judges.
constexpr std::string_view knownAnnotations[] = {"appendable",
                                                 "autoid",
                                                 "bit_bound",
                                                 "data_representation",
                                                 "default_literal",
                                                 "default_nested",
                                                 "extensibility",
                                                 "final",
                                                 "id",
                                                 "key",
                                                 "mutable",
                                                 "nested",
                                                 "optional",
                                                 "topic",
                                                 "value"};

bool isKnownAnnotation(std::string_view word)
{
    return std::find(std::begin(knownAnnotations), std::end(knownAnnotations), word) !=
           std::end(knownAnnotations);
}

/// Whether one letter too many, too few, another one or two changed places make one of the other.
bool isAlmost(std::string_view a, std::string_view b)
{
    if (a.size() > b.size()) {
        std::swap(a, b);
    }
    if (b.size() - a.size() > 1) {
        return false;
    }
    const auto start =
        static_cast<size_t>(std::mismatch(a.begin(), a.end(), b.begin()).first - a.begin());
    const std::string_view x = a.substr(start);
    const std::string_view y = b.substr(start);
    if (a.size() < b.size()) {
        return x == y.substr(1);
    }
    return x.empty() || x.substr(1) == y.substr(1) ||
           (x.size() > 1 && x[0] == y[1] && x[1] == y[0] && x.substr(2) == y.substr(2));
}

/// The annotation that a word of four letters and more is a slip of; "" if there is none. "kye" is
/// one of "key", as a key is what nobody wants to lose.
std::string nearestAnnotation(const std::string &word)
{
    for (const std::string_view known : knownAnnotations) {
        if (known.size() > 2 && isAlmost(word, known)) {
            return std::string(known);
        }
    }
    return "";
}

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

} // namespace

void IdlSource::copy(char character)
{
    prepared_ += character;
    ++column_;
    if (character == '\n') {
        ++line_;
        column_ = 1;
    }
}

void IdlSource::insert(char character)
{
    inserted_.push_back({line_, column_});
    copy(character);
}

/// Leaves blanks and line ends in place of a part, so that what follows stays where it is.
void IdlSource::blank(const char *from, const char *to)
{
    std::for_each(from, to, [this](char character) { copy(character == '\n' ? '\n' : ' '); });
}

/// The parser and the reader recurse into what is nested, so it must not be without end.
bool IdlSource::checkNesting(char character, DDS_ErrorText *error)
{
    openBraces_ += character == '{' ? 1 : 0;
    openBraces_ -= character == '}' && openBraces_ > 0 ? 1 : 0;
    openTemplates_ = character == ';' ? 0 : openTemplates_;
    if (openBraces_ > maxNesting || openTemplates_ > maxNesting) {
        explain(error, line_, column_, "nested deeper than 64 levels");
        return false;
    }
    return true;
}

bool IdlSource::copyCode(const char *&at, DDS_ErrorText *error)
{
    if (!checkNesting(*at, error)) {
        return false;
    }
    if (*at == '@') {
        return copyAnnotation(at, error);
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

void IdlSource::endDeclaration()
{
    for (auto each = defaults_.rbegin(); each != defaults_.rend() && each->endLine == 0; ++each) {
        each->endLine = line_;
        each->endColumn = column_;
    }
}

void IdlSource::copyWord(const char *&at)
{
    const size_t length = wordLength(at);
    const std::string_view name(at, length);
    const char *const behind = at + length + std::strspn(at + length, " \t\r\n");
    openTemplates_ += *behind == '<' && (name == "sequence" || name == "string") ? 1 : 0;
    if (isName(name, *behind)) {
        insert('_');
    }
    const std::string_view written = asParserHasIt(name);
    std::for_each(written.begin(), written.end(), [this](char character) { copy(character); });
    blank(at + written.size(), at + length);
    at += length;
}

/// Drops what does not change samples. What the parser knows goes on to it, and so does what looks
/// like a misspelt one of these, which the parser rejects.
bool IdlSource::copyAnnotation(const char *&at, DDS_ErrorText *error)
{
    const char *name = at + 1;
    const size_t length = wordLength(name);
    std::string word(name, length);
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char character) { return std::tolower(character); });
    const bool declares = word == "annotation";
    if (!declares && isKnownAnnotation(word) && std::strncmp(name + length, "::", 2) != 0) {
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
        explain(error, line_, column_,
                fmt::format("@{} is unknown; did you mean @{}?", std::string(name, length), meant)
                    .c_str());
        return false;
    }
    const char *const end = declares ? endOfDeclaration(name) : endOfAnnotation(name);
    if (!declares) {
        dropAnnotation(name, end);
    }
    blank(at, end);
    at = end;
    return true;
}

void IdlSource::dropAnnotation(const char *name, const char *end)
{
    const char *const behind = nameEnd(name);
    const std::string word(name, static_cast<size_t>(behind - name));
    const char *const open = std::find(behind, end, '(');
    if (strcasecmp(word.c_str(), "default") == 0 && open != end) {
        defaults_.push_back(
            {line_, column_, prepared_.size(), 0, 0, std::string(open + 1, end - 1)});
    } else {
        note(word, line_);
    }
}

const IdlSource::Default *IdlSource::defaultAround(uint32_t line, uint32_t column) const
{
    const auto at = std::make_pair(line, column);
    const auto behind =
        std::upper_bound(defaults_.begin(), defaults_.end(), at, [](auto place, const auto &each) {
            return place < std::make_pair(each.line, each.column);
        });
    if (behind == defaults_.begin()) {
        return nullptr;
    }
    const Default &last = *std::prev(behind);
    return at < std::make_pair(last.endLine, last.endColumn) ? &last : nullptr;
}

void IdlSource::note(const std::string &name, uint32_t line)
{
    const auto known = std::find_if(passed_.begin(), passed_.end(),
                                    [&](const Passed &each) { return each.name == name; });
    if (known != passed_.end()) {
        ++known->count;
    } else {
        passed_.push_back({name, text_.place(line), 1});
    }
}

std::vector<std::string> IdlSource::notes() const
{
    std::vector<std::string> notes;
    for (const Passed &each : passed_) {
        notes.push_back(each.count == 1
                            ? fmt::format("{}: @{} has no effect", each.place, each.name)
                            : fmt::format("{}: @{} has no effect, here and {} times more",
                                          each.place, each.name, each.count - 1));
    }
    return notes;
}

bool IdlSource::prepare(DDS_ErrorText *error)
{
    const char *at = text_.text().c_str();
    while (*at != '\0') {
        const size_t quoted = quotedLength(at);
        std::for_each(at, at + quoted, [this](char character) { copy(character); });
        at += quoted;
        if (quoted == 0 && !copyCode(at, error)) {
            return false;
        }
    }
    return dropRepeated(error);
}

bool IdlSource::dropRepeated(DDS_ErrorText *error)
{
    std::map<std::size_t, std::string> hidden;
    for (const Default &each : defaults_) {
        hidden[each.offset] = each.arguments;
    }
    IdlConflict conflict;
    if (dropRepeats(prepared_, hidden, conflict)) {
        return true;
    }
    const auto lineOf = [this](std::size_t offset) {
        const auto end = prepared_.begin() + static_cast<std::ptrdiff_t>(offset);
        return static_cast<uint32_t>(1 + std::count(prepared_.begin(), end, '\n'));
    };
    const std::size_t start = prepared_.rfind('\n', conflict.second) + 1;
    explain(error, lineOf(conflict.second), static_cast<uint32_t>(conflict.second - start + 1),
            fmt::format("\"{}\" is defined in another way at {}", conflict.name,
                        text_.place(lineOf(conflict.first)))
                .c_str());
    return false;
}

void IdlSource::explain(DDS_ErrorText *error, uint32_t line, uint32_t column,
                        const char *what) const
{
    const auto inFront = [line, column](const Inserted &each) {
        return each.line == line && each.column < column;
    };
    column -= static_cast<uint32_t>(std::count_if(inserted_.begin(), inserted_.end(), inFront));
    setError(error, "%s:%u: %s", text_.place(line).c_str(), column, what);
}

/// The word or sign at a position, as far as the text reaches.
std::string IdlSource::wordAt(uint32_t line, uint32_t column) const
{
    const char *at = prepared_.c_str();
    for (; line > 1; --line) {
        at = std::strchr(at, '\n');
        if (at == nullptr) {
            return "";
        }
        ++at;
    }
    if (column == 0 || column > std::strcspn(at, "\n")) {
        return "";
    }
    at += column - 1;
    return std::string(at, std::max<size_t>(wordLength(at), 1));
}

void IdlSource::explain(DDS_ErrorText *error, const QIdlProblem &problem) const
{
    if (problem.line == 0) {
        setError(error, "%s: %s", text_.sourceName(0).c_str(), problem.text);
        return;
    }
    const std::string word = wordAt(problem.line, problem.column);
    std::string what = problem.text;
    if (isRejectedType(word)) {
        what = fmt::format("{} is not supported", word);
    } else if (what == "syntax error") {
        what = word.empty() ? "syntax error at the end of the line or text"
                            : fmt::format("syntax error at \"{}\"", word);
    }
    explain(error, problem.line, problem.column, what.c_str());
}

} // namespace qddsc
