// See idl_source.h.
#include "idl_source.h"

#include "qddscdr/error_text.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

namespace qddsc {

using qddscdr::setError;

namespace {

/// Length of the comment or quoted text at `at`; 0 for anything else.
size_t quotedLength(const char *at)
{
    if (at[0] == '/' && at[1] == '/') {
        return std::strcspn(at, "\n");
    }
    if (at[0] == '/' && at[1] == '*') {
        const char *end = std::strstr(at + 2, "*/");
        return end != nullptr ? static_cast<size_t>(end + 2 - at) : std::strlen(at);
    }
    if (*at != '"' && *at != '\'') {
        return 0;
    }
    const char *end = at + 1;
    while (*end != '\0' && *end != *at && *end != '\n') {
        end += *end == '\\' && end[1] != '\0' ? 2 : 1;
    }
    return static_cast<size_t>(end - at) + (*end == *at ? 1 : 0);
}

size_t wordLength(const char *at)
{
    const char *end = at;
    while (std::isalnum(static_cast<unsigned char>(*end)) != 0 || *end == '_') {
        ++end;
    }
    return static_cast<size_t>(end - at);
}

bool isRejectedType(std::string_view word)
{
    static constexpr std::string_view words[] = {"any",     "bitset",   "fixed",  "interface",
                                                 "map",     "native",   "Object", "ValueBase",
                                                 "wstring", "valuetype"};
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

} // namespace

/// A carriage return by itself ends lines and comments for the parser, so it has to do so here.
IdlSource::IdlSource(const char *text, const char *name) : text_(text), name_(name)
{
    for (size_t i = 0; i < text_.size(); ++i) {
        text_[i] = text_[i] == '\r' && text_[i + 1] != '\n' ? '\n' : text_[i];
    }
}

void IdlSource::copy(char character)
{
    prepared_ += character;
    ++column_;
    if (character == '\n') {
        ++line_;
        column_ = 1;
        lineIsBlank_ = true;
    } else if (std::isspace(static_cast<unsigned char>(character)) == 0) {
        lineIsBlank_ = false;
    }
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
    if (*at == '#' && lineIsBlank_) {
        explain(error, line_, column_,
                "there is no preprocessor: #include, #define, #pragma and other lines that start "
                "with '#' are not supported");
        return false;
    }
    const size_t word = wordLength(at);
    if (word > 0) {
        const std::string_view name(at, word);
        const char *behind = at + word + std::strspn(at + word, " \t\r\n");
        openTemplates_ += *behind == '<' && (name == "sequence" || name == "string") ? 1 : 0;
        std::for_each(name.begin(), name.end(), [this](char character) { copy(character); });
        at += word;
        return true;
    }
    if (*at == '>' && openTemplates_ > 0) {
        --openTemplates_;
        if (at[1] == '>' && openTemplates_ > 0) {
            copy('>');
            blanks_.push_back({line_, column_});
            copy(' ');
            ++at;
            return true;
        }
    }
    copy(*at++);
    return true;
}

bool IdlSource::prepare(DDS_ErrorText *error)
{
    const char *at = text_.c_str();
    while (*at != '\0') {
        const size_t quoted = quotedLength(at);
        std::for_each(at, at + quoted, [this](char character) { copy(character); });
        at += quoted;
        if (quoted == 0 && !copyCode(at, error)) {
            return false;
        }
    }
    return true;
}

void IdlSource::explain(DDS_ErrorText *error, uint32_t line, uint32_t column,
                        const char *what) const
{
    const auto inFront = [line, column](const Blank &blank) {
        return blank.line == line && blank.column < column;
    };
    column -= static_cast<uint32_t>(std::count_if(blanks_.begin(), blanks_.end(), inFront));
    setError(error, "%s:%u:%u: %s", name_, line, column, what);
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
        setError(error, "%s: %s", name_, problem.text);
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
