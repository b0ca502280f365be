// What every fuzz target has.
#ifndef TESTS_FUZZ_TARGET_H
#define TESTS_FUZZ_TARGET_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
// The IDL parser loses a little memory with every text that it rejects; that leak is not ours.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libcycloneddsidl";
}

/// Ends the process, which is how a finding is reported.
#define REQUIRE(...)                                                                               \
    ((__VA_ARGS__)                                                                                 \
         ? void()                                                                                  \
         : (std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #__VA_ARGS__), std::abort()))

inline std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

/// Whether an error that starts with "line:column: " and goes on is about a place of that text; its
/// line may be the one behind the last, and parsers end lines at a carriage return, too.
inline bool isPlaceIn(const std::string &text, const char *error)
{
    int64_t line = 0;
    int64_t column = 0;
    int end = 0;
    const auto isEnd = [](char c) { return c == '\n' || c == '\r'; };
    return std::sscanf(error, "%ld:%ld: %n", &line, &column, &end) == 2 && error[end] != '\0' &&
           column > 0 && line > 0 && line <= std::count_if(text.begin(), text.end(), isEnd) + 2;
}

#endif
