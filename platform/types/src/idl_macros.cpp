#include "idl_macros.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "idl_expression.h"
#include "idl_scan.h"

namespace qddsc {
namespace {

/// A line that becomes longer is one of macros that double each other.
constexpr std::size_t longestLine = 1U << 20;
constexpr std::size_t mostReplaced = 100000;
constexpr std::size_t deepest = 200;

/// The text without its comments, which are blanks to a directive.
std::string withoutComments(const std::string &text)
{
    std::string out;
    for (const char *at = text.c_str(); *at != '\0';) {
        const std::size_t quoted = quotedLength(at);
        if (quoted > 0 && *at == '/') {
            out += ' ';
        } else {
            out.append(at, quoted > 0 ? quoted : 1);
        }
        at += quoted > 0 ? quoted : 1;
    }
    return out;
}

/// The arguments of a macro from its "(" on, split at the commas of the first level.
std::vector<std::string> arguments(const std::string &name, const char *&at)
{
    std::vector<std::string> all(1);
    int depth = 0;
    do {
        const std::size_t quoted = quotedLength(at);
        if (*at == '\0') {
            throw IdlFault(
                fmt::format("the arguments of macro \"{}\" do not end in this line", name));
        }
        const char character = *at;
        depth += character == '(' ? 1 : character == ')' ? -1 : 0;
        if (quoted > 0) {
            all.back().append(at, quoted);
        } else if (character == ',' && depth == 1) {
            all.emplace_back();
        } else if (!(character == '(' && depth == 1) && depth > 0) {
            all.back() += character;
        }
        at += quoted > 0 ? quoted : 1;
    } while (depth > 0);
    for (std::string &argument : all) {
        argument = trimmed(argument);
    }
    return all;
}

std::vector<std::string> parametersOf(const std::string &name, const char *&at)
{
    std::vector<std::string> parameters = arguments(name, at);
    if (parameters.size() == 1 && parameters[0].empty()) {
        parameters.clear();
    }
    for (const std::string &parameter : parameters) {
        if (parameter.empty() || wordLength(parameter.c_str()) != parameter.size()) {
            throw IdlFault(
                fmt::format("\"{}\" cannot be a parameter of macro \"{}\"", parameter, name));
        }
    }
    return parameters;
}

} // namespace

void IdlMacros::define(const std::string &line)
{
    const std::string text = withoutComments(line);
    const char *at = skipBlanks(text.c_str());
    const std::string name(at, wordLength(at));
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0 ||
        name == "defined") {
        throw IdlFault("#define needs a name");
    }
    at += name.size();
    Macro macro;
    if (*at == '(') {
        macro.parameters = parametersOf(name, at);
    }
    macro.body = trimmed(at);
    if (macro.body.find('#') != std::string::npos) {
        throw IdlFault(fmt::format("macro \"{}\": # and ## are not supported", name));
    }
    const auto known = macros_.find(name);
    if (known != macros_.end() &&
        (known->second.body != macro.body || known->second.parameters != macro.parameters)) {
        throw IdlFault(fmt::format("macro \"{}\" has another definition already", name));
    }
    macros_[name] = macro;
}

std::string IdlMacros::expand(const std::string &line, bool inComment) const
{
    if (macros_.empty()) {
        return line;
    }
    const std::size_t close = inComment ? line.find("*/") : 0;
    if (close == std::string::npos) {
        return line;
    }
    const std::size_t code = inComment ? close + 2 : 0;
    std::string out = line.substr(0, code);
    Expansion expansion;
    replace(line.substr(code), expansion, out);
    return out;
}

void IdlMacros::replace(const std::string &line, Expansion &expansion, std::string &out) const
{
    for (const char *at = line.c_str(); *at != '\0';) {
        const std::size_t quoted = quotedLength(at);
        const std::size_t word = quoted > 0 ? 0 : wordLength(at);
        const std::string name(at, word);
        const auto macro =
            word > 0 && expansion.hidden.count(name) == 0 ? macros_.find(name) : macros_.end();
        const bool isCall =
            macro != macros_.end() && (!macro->second.parameters || *skipBlanks(at + word) == '(');
        if (isCall) {
            at += word;
            replaceOne(name, macro->second, at, expansion, out);
        } else {
            const std::size_t length = quoted > 0 ? quoted : word > 0 ? word : 1;
            out.append(at, length);
            at += length;
        }
        if (out.size() > longestLine) {
            throw IdlFault("macros make a line of more than 1 MiB of this one");
        }
    }
}

/// A macro is not replaced inside itself, so that every expansion ends.
void IdlMacros::replaceOne(const std::string &name, const Macro &macro, const char *&at,
                           Expansion &expansion, std::string &out) const
{
    if (++expansion.replaced > mostReplaced || expansion.hidden.size() > deepest) {
        throw IdlFault(fmt::format("the macros that \"{}\" stands for have no end in sight", name));
    }
    const std::string body = macro.parameters ? fill(name, macro, at, expansion) : macro.body;
    expansion.hidden.insert(name);
    replace(body, expansion, out);
    expansion.hidden.erase(name);
}

/// The body with the arguments, which `at` stands in front of, for the parameters. What stands in
/// an argument is no parameter.
std::string IdlMacros::fill(const std::string &name, const Macro &macro, const char *&at,
                            Expansion &expansion) const
{
    at = skipBlanks(at);
    std::vector<std::string> given = arguments(name, at);
    if (macro.parameters->empty() && given.size() == 1 && given[0].empty()) {
        given.clear();
    }
    if (given.size() != macro.parameters->size()) {
        throw IdlFault(fmt::format("macro \"{}\" has {} parameters and is given {}", name,
                                   macro.parameters->size(), given.size()));
    }
    std::map<std::string, std::string> values;
    for (std::size_t i = 0; i < given.size(); ++i) {
        replace(given[i], expansion, values[(*macro.parameters)[i]]);
    }
    std::string filled;
    for (const char *part = macro.body.c_str(); *part != '\0';) {
        const std::size_t word = wordLength(part);
        const std::size_t whole = std::max<std::size_t>(word + quoteLength(part), 1);
        const auto value = word > 0 ? values.find(std::string(part, word)) : values.end();
        filled += value != values.end() ? value->second : std::string(part, whole);
        part += whole;
    }
    return filled;
}

/// "defined X" and "defined(X)" say whether there is such a macro, not what it stands for.
std::string IdlMacros::replaceDefined(const std::string &expression) const
{
    std::string out;
    for (const char *at = expression.c_str(); *at != '\0';) {
        const std::size_t word = wordLength(at);
        if (std::string(at, word) != "defined") {
            out.append(at, word > 0 ? word : 1);
            at += word > 0 ? word : 1;
            continue;
        }
        at = skipBlanks(at + word);
        const bool inParentheses = *at == '(';
        at = skipBlanks(inParentheses ? at + 1 : at);
        const std::string name(at, wordLength(at));
        at += name.size();
        if (name.empty() || (inParentheses && *(at = skipBlanks(at)) != ')')) {
            throw IdlFault("\"defined\" needs a name");
        }
        at += inParentheses ? 1 : 0;
        out += isDefined(name) ? '1' : '0';
    }
    return out;
}

bool IdlMacros::isTrue(const std::string &expression) const
{
    return evaluateIdlExpression(expand(replaceDefined(withoutComments(expression)))) != 0;
}

} // namespace qddsc
