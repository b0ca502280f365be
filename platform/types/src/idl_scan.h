// What all who look at IDL as text have to know: words, comments and quotes.
#ifndef QDDSC_SRC_IDL_SCAN_H
#define QDDSC_SRC_IDL_SCAN_H

#include <cctype>
#include <cstring>
#include <string>

namespace qddsc {

inline bool isWord(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

/// Length of the word at `at`, numbers included.
inline std::size_t wordLength(const char *at)
{
    const char *end = at;
    while (isWord(*end)) {
        ++end;
    }
    return static_cast<std::size_t>(end - at);
}

/// Length of the quoted text at `at`, which ends with the line at the latest; 0 for anything else.
inline std::size_t quoteLength(const char *at)
{
    if (*at != '"' && *at != '\'') {
        return 0;
    }
    const char *end = at + 1;
    while (*end != '\0' && *end != *at && *end != '\n') {
        end += *end == '\\' && end[1] != '\0' ? 2 : 1;
    }
    return static_cast<std::size_t>(end - at) + (*end == *at ? 1 : 0);
}

/// Length of the comment or quoted text at `at`; 0 for anything else.
inline std::size_t quotedLength(const char *at)
{
    if (at[0] == '/' && at[1] == '/') {
        return std::strcspn(at, "\n");
    }
    if (at[0] == '/' && at[1] == '*') {
        const char *end = std::strstr(at + 2, "*/");
        return end != nullptr ? static_cast<std::size_t>(end + 2 - at) : std::strlen(at);
    }
    return quoteLength(at);
}

/// Behind the blanks of a line.
inline const char *skipBlanks(const char *at)
{
    return at + std::strspn(at, " \t\r");
}

inline std::string trimmed(const std::string &text)
{
    const std::size_t from = text.find_first_not_of(" \t\r");
    return from == std::string::npos ? ""
                                     : text.substr(from, text.find_last_not_of(" \t\r") - from + 1);
}

} // namespace qddsc

#endif
