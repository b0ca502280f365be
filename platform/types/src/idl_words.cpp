// See idl_words.h.
#include "idl_words.h"

#include <algorithm>
#include <cstring>

namespace qddsc {

namespace {

template<std::size_t Count>
bool isOneOf(std::string_view word, const std::string_view (&words)[Count])
{
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

/// Words of the language that are names where only a name can be: because they were no keywords
/// once, or because other compilers do not mind. The parser takes them for such with an underscore
/// in front, which is no part of the name.
bool isKeywordThatNames(std::string_view word)
{
    static constexpr std::string_view words[] = {
        "abstract",   "any",       "attribute",   "bitfield",  "bitmask",   "bitset",
        "case",       "component", "connector",   "const",     "consumes",  "context",
        "custom",     "default",   "emits",       "enum",      "eventtype", "exception",
        "factory",    "finder",    "fixed",       "getraises", "home",      "import",
        "in",         "inout",     "interface",   "local",     "manages",   "map",
        "mirrorport", "module",    "multiple",    "native",    "oneway",    "out",
        "port",       "porttype",  "primarykey",  "private",   "provides",  "public",
        "publishes",  "raises",    "readonly",    "sequence",  "setraises", "struct",
        "supports",   "switch",    "truncatable", "typedef",   "typeid",    "typename",
        "typeprefix", "union",     "uses",        "valuetype"};
    return isOneOf(word, words);
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

} // namespace

bool isUncarriedDefinition(std::string_view word)
{
    static constexpr std::string_view words[] = {
        "bitmask", "bitset",    "component", "connector", "eventtype",  "exception", "home",
        "import",  "interface", "native",    "porttype",  "typeprefix", "typeid",    "valuetype"};
    return isOneOf(word, words);
}

bool isUncarriedType(std::string_view word)
{
    static constexpr std::string_view words[] = {"any",    "fixed",     "map",
                                                 "Object", "ValueBase", "wstring"};
    return isOneOf(word, words);
}

bool isKeywordAsName(std::string_view word, char behind)
{
    return behind != '\0' && std::strchr(";,[=}", behind) != nullptr && isKeywordThatNames(word);
}

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

bool isKnownAnnotation(std::string_view word)
{
    return isOneOf(word, knownAnnotations);
}

std::string nearestAnnotation(std::string_view word)
{
    for (const std::string_view known : knownAnnotations) {
        if (known.size() > 2 && isAlmost(word, known)) {
            return std::string(known);
        }
    }
    return "";
}

} // namespace qddsc
