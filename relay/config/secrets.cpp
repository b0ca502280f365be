// Hides secrets in texts that nobody has written for it: messages of drivers, URLs, JSON, XML,
// properties. It reads from left to right and remembers nothing; each byte is looked at a few times
// at most, however hostile the text.
#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

#include "config/printable.h"

namespace ferry {
namespace {

constexpr std::string_view mask = "***";
constexpr std::size_t nowhere = std::string_view::npos;

bool isNameChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
}

bool isSpace(char c)
{
    return c == ' ' || c == '\t';
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// The words of a name, in small letters: "ssl.keyStorePassword" is ssl, key, store, password.
std::vector<std::string> wordsOf(std::string_view name)
{
    std::vector<std::string> words(1);
    char before = '\0';
    for (const char c : name) {
        const bool hump = std::isupper(static_cast<unsigned char>(c)) != 0 &&
                          std::islower(static_cast<unsigned char>(before)) != 0;
        const bool letter = c != '_' && c != '-' && c != '.';
        if ((hump || !letter) && !words.back().empty()) {
            words.emplace_back();
        }
        if (letter) {
            words.back() += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        before = c;
    }
    return words;
}

enum class Doubt {
    /// No name of a secret.
    innocent,
    /// It may be another thing in a sentence: "unexpected token: }".
    some,
    /// Nobody has a password that is not secret.
    none
};

/// What stands behind such a name.
Doubt judge(std::string_view name)
{
    constexpr std::array certain = {"password",   "passwd",   "passphrase",
                                    "passwort",   "passcode", "secret",
                                    "credential", "apikey",   "authorization"};
    constexpr std::array open = {"primary", "foreign", "public", "unique", "partition", "routing"};
    constexpr std::array closed = {"access",  "private", "ssl",        "auth",
                                   "account", "storage", "encryption", "signing"};
    std::vector<std::string> words = wordsOf(name);
    if (words.back().empty() && words.size() > 1) {
        words.pop_back();
    }
    // "InvalidPasswordException: ..." has a message behind it.
    if (words.back() == "exception" || words.back() == "error") {
        return Doubt::innocent;
    }
    std::string all;
    for (const std::string &word : words) {
        all += word;
    }
    const auto within = [&](const char *word) { return all.find(word) != nowhere; };
    if (std::any_of(certain.begin(), certain.end(), within)) {
        return Doubt::none;
    }
    const std::string last = words.back();
    words.pop_back();
    if (endsWith(all, "pwd") || last == "pass" || last == "pw") {
        return Doubt::none;
    }
    const auto isBefore = [&](const char *word) { return !words.empty() && words.back() == word; };
    const auto compound = [&](const char *word) { return last == std::string(word) + "key"; };
    const bool key = (last == "key" && std::none_of(open.begin(), open.end(), isBefore)) ||
                     std::any_of(closed.begin(), closed.end(), compound);
    return key || endsWith(all, "token") || last == "auth" ? Doubt::some : Doubt::innocent;
}

/// Hides what stands behind names.
class NamedSecrets {
public:
    explicit NamedSecrets(std::string_view text) : text_(text) {}

    std::string hide()
    {
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (at_ == content_) {
                content_ = nowhere;
                hideValue(false);
            } else if (isNameChar(c)) {
                readName();
            } else {
                // The letter of an escape, such as "\n", begins no name.
                const bool escape = c == '\\' && std::isalpha(peek(at_ + 1)) != 0;
                copy(escape ? 2 : 1);
                lineBegins_ = c == '\n' || (escape && text_[at_ - 1] == 'n') ||
                              (lineBegins_ && (isSpace(c) || c == '#'));
            }
        }
        return std::move(result_);
    }

private:
    int peek(std::size_t at) const
    {
        return at < text_.size() ? static_cast<unsigned char>(text_[at]) : 0;
    }

    void copy(std::size_t count)
    {
        result_ += text_.substr(at_, count);
        at_ = std::min(text_.size(), at_ + count);
    }

    void readName()
    {
        std::size_t end = at_;
        while (end < text_.size() && isNameChar(text_[end])) {
            ++end;
        }
        const Doubt doubt = judge(text_.substr(at_, end - at_));
        const char before = at_ == 0 ? '\0' : text_[at_ - 1];
        const bool alone = lineBegins_;
        lineBegins_ = false;
        copy(end - at_);
        if (doubt == Doubt::innocent) {
            return;
        }
        if (before == '<' && (peek(at_) == '>' || isSpace(static_cast<char>(peek(at_))))) {
            // Its attributes come first, and may be secrets themselves.
            const std::size_t close = std::min(text_.find('>', at_), lineEnd());
            content_ = peek(close) == '>' ? close + 1 : nowhere;
            return;
        }
        const std::size_t value = findValue(before, doubt, alone);
        if (value != nowhere) {
            copy(value - at_);
            hideValue(alone);
        }
    }

    /// Behind a name: where its value begins, or nowhere.
    std::size_t findValue(char before, Doubt doubt, bool alone) const
    {
        std::size_t at = at_;
        bool quoted = false;
        if (before == '"' || before == '\'') {
            at += peek(at) == '\\' ? 1 : 0;
            quoted = peek(at) == before;
            at += quoted ? 1 : 0;
        }
        const std::size_t spaces = skipSpaces(at);
        const int sign = peek(spaces);
        if (sign == '=') {
            return skipSpaces(spaces + (peek(spaces + 1) == '>' ? 2 : 1));
        }
        if (sign == ':' && !isLineOfCode(before, spaces + 1)) {
            const std::size_t value = skipSpaces(spaces + 1);
            const bool sentence = doubt == Doubt::some && !quoted && !alone && value > spaces + 1;
            return sentence ? nowhere : value;
        }
        // "property "password" must be a word, not "x"".
        constexpr std::string_view complaint = ", not \"";
        const std::size_t end = std::min(text_.find('\n', at), text_.size());
        const std::size_t rejected = text_.substr(0, end).find(complaint, at);
        if (text_.substr(spaces, 8) == "must be " && rejected != nowhere) {
            return rejected + complaint.size() - 1;
        }
        // "property 'password' is 'x'", "PASSWORD 'x'".
        const std::size_t word =
            spaces > at && text_.substr(spaces, 3) == "is " ? skipSpaces(spaces + 3) : spaces;
        return doubt == Doubt::none && word > at && (peek(word) == '\'' || peek(word) == '"')
                   ? word
                   : nowhere;
    }

    /// As in "at Password.check(Password.java:12)".
    bool isLineOfCode(char before, std::size_t at) const
    {
        const std::size_t end = std::min(text_.find_first_not_of("0123456789", at), text_.size());
        return before == '(' && end > at && peek(end) == ')';
    }

    std::size_t skipSpaces(std::size_t at) const
    {
        while (isSpace(static_cast<char>(peek(at)))) {
            ++at;
        }
        return at;
    }

    std::size_t lineEnd() const
    {
        return std::min(text_.find('\n', at_), text_.size());
    }

    void hideValue(bool alone)
    {
        // Of a text that is quoted itself, as JSON in a message, the quotes are escaped.
        const std::size_t escape = peek(at_) == '\\' && peek(at_ + 1) == '"' ? 1 : 0;
        const auto first = static_cast<char>(peek(at_ + escape));
        const bool quoted = first == '"' || first == '\'';
        if (quoted) {
            copy(escape + 1);
        }
        const bool whole = alone || first == '{' || first == '[';
        const std::size_t end = quoted  ? endOfQuoted(first, escape != 0)
                                : whole ? lineEnd()
                                        : endOfWord();
        if (end > at_) {
            result_ += mask;
            at_ = end;
        }
    }

    std::size_t endOfQuoted(char quote, bool escaped) const
    {
        std::size_t at = at_;
        while (at < text_.size() && text_[at] != quote && text_[at] != '\n') {
            if (escaped && text_[at] == '\\' && peek(at + 1) == quote) {
                return at;
            }
            at += text_[at] == '\\' ? 2 : 1;
        }
        return std::min(at, text_.size());
    }

    /// Of a value that stands among others.
    std::size_t endOfWord() const
    {
        std::size_t at = at_;
        for (; at < text_.size(); ++at) {
            const char c = text_[at];
            if (isSpace(c) || c == '\n' || c == '&' || c == ';' || c == '"' || c == '\'' ||
                c == '<' || (c == ',' && beginsNext(at + 1))) {
                break;
            }
            at += c == '\\' ? 1 : 0;
        }
        at = std::min(at, text_.size());
        while (at > at_ && std::string_view(")]},.:").find(text_[at - 1]) != nowhere) {
            --at;
        }
        // A bearer's token, or a name and a password.
        const std::string_view word = text_.substr(at_, at - at_);
        return word == "Bearer" || word == "Basic" ? lineEnd() : at;
    }

    /// Whether `name=` stands there.
    bool beginsNext(std::size_t at) const
    {
        const std::size_t begin = at;
        while (at < text_.size() && isNameChar(text_[at])) {
            ++at;
        }
        return at > begin && peek(at) == '=';
    }

    const std::string_view text_;
    std::size_t at_ = 0;
    /// Nothing but spaces has come since the line began: a name here is a property's.
    bool lineBegins_ = true;
    /// Where the content of an XML element begins that is a secret, or nowhere.
    std::size_t content_ = nowhere;
    std::string result_;
};

/// Where what identifies the user begins in a URL, or nowhere: behind `//`, and behind the driver's
/// name of a `jdbc:oracle:scott/tiger@...`.
std::size_t userInfo(std::string_view text, std::size_t at)
{
    if (text.substr(at, 2) == "//") {
        return at + 2;
    }
    constexpr std::string_view jdbc = "jdbc:";
    if (text.substr(at, jdbc.size()) != jdbc) {
        return nowhere;
    }
    const std::size_t driver = text.find_first_of(": \t\n/", at + jdbc.size());
    return driver != nowhere && text[driver] == ':' && text.substr(driver + 1, 2) != "//"
               ? driver + 1
               : nowhere;
}

/// Up to the last `@` of what may be one URL: a password has any character, who writes it down may
/// not have escaped it.
std::string withoutUserInfo(std::string_view text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = userInfo(text, at);
        if (begin == nowhere) {
            result += text[at++];
            continue;
        }
        const std::size_t end = std::min(text.find_first_of(" \t\n\"'`<>", begin), text.size());
        const std::size_t sign = text.substr(begin, end - begin).rfind('@');
        result += text.substr(at, begin - at);
        if (sign != nowhere) {
            result += mask;
        }
        const std::size_t rest = sign == nowhere ? begin : begin + sign;
        result += text.substr(rest, end - rest);
        at = end;
    }
    return result;
}

} // namespace

std::string withoutSecrets(std::string_view text)
{
    return withoutUserInfo(NamedSecrets(text).hide());
}

} // namespace ferry
