// See idl_source.h.
#include "idl_source.h"

#include <cctype>
#include <cstring>
#include <string>

#include "error_text.h"

namespace qddsc {

namespace {

// Moves behind the comment or the quoted text that starts at `at`; returns `at` for anything else.
const char *skipQuoted(const char *at, uint32_t &line, const char *&lineStart)
{
    const char *end = at;
    if (at[0] == '/' && at[1] == '/') {
        return at + std::strcspn(at, "\n");
    }
    if (at[0] == '/' && at[1] == '*') {
        end = std::strstr(at + 2, "*/");
        end = end != nullptr ? end + 2 : at + std::strlen(at);
    } else if (*at == '"' || *at == '\'') {
        for (end = at + 1; *end != '\0' && *end != *at && *end != '\n'; ++end) {
            end += *end == '\\' && end[1] != '\0' ? 1 : 0;
        }
        end += *end == *at ? 1 : 0;
    }
    for (; at < end; ++at) {
        if (*at == '\n') {
            ++line;
            lineStart = at + 1;
        }
    }
    return end;
}

// The word or sign at a position, as far as the text reaches.
std::string wordAt(const char *text, uint32_t line, uint32_t column)
{
    for (; line > 1; --line) {
        text = std::strchr(text, '\n');
        if (text == nullptr) {
            return "";
        }
        ++text;
    }
    const size_t width = std::strcspn(text, "\n");
    if (column == 0 || column > width) {
        return "";
    }
    const char *start = text + column - 1;
    const char *end = start;
    while (std::isalnum(static_cast<unsigned char>(*end)) || *end == '_') {
        ++end;
    }
    return std::string(start, end > start ? end : start + 1);
}

bool isRefusedType(const std::string &word)
{
    static const char *const words[] = {"any",       "bitfield", "bitset",   "fixed",
                                        "interface", "map",      "native",   "Object",
                                        "valuetype", "wstring",  "ValueBase"};
    for (const char *refused : words) {
        if (word == refused) {
            return true;
        }
    }
    return false;
}

} // namespace

bool checkSource(const char *text, const char *sourceName, DDS_ErrorText *error)
{
    uint32_t line = 1;
    const char *lineStart = text;
    bool blank = true; // nothing but blanks since the line started
    while (*text != '\0') {
        const char *next = skipQuoted(text, line, lineStart);
        if (next != text) {
            blank = false;
            text = next;
            continue;
        }
        if (*text == '#' && blank) {
            setError(error,
                     "%s:%u:%u: there is no preprocessor: #include, #define, #pragma and other "
                     "lines that start with '#' are not supported",
                     sourceName, line, static_cast<unsigned>(text - lineStart + 1));
            return false;
        }
        blank = *text == '\n' || (blank && std::isspace(static_cast<unsigned char>(*text)));
        if (*text++ == '\n') {
            ++line;
            lineStart = text;
        }
    }
    return true;
}

void explainProblem(const char *text, const char *sourceName, const QIdlProblem &problem,
                    DDS_ErrorText *error)
{
    if (problem.line == 0) {
        setError(error, "%s: %s", sourceName, problem.text);
        return;
    }
    const std::string word = wordAt(text, problem.line, problem.column);
    if (isRefusedType(word)) {
        setError(error, "%s:%u:%u: %s is not supported", sourceName, problem.line, problem.column,
                 word.c_str());
    } else if (std::strcmp(problem.text, "syntax error") != 0) {
        setError(error, "%s:%u:%u: %s", sourceName, problem.line, problem.column, problem.text);
    } else if (word.empty()) {
        setError(error, "%s:%u:%u: syntax error at the end of the line or text", sourceName,
                 problem.line, problem.column);
    } else {
        setError(error, "%s:%u:%u: syntax error at \"%s\"", sourceName, problem.line,
                 problem.column, word.c_str());
    }
}

} // namespace qddsc
