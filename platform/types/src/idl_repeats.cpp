// See idl_repeats.h.
#include "idl_repeats.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "idl_scan.h"

namespace qddsc {

namespace {

/// A word, a quoted text or a sign. None at the end of the text.
struct Token {
    const char *at;
    size_t length;

    std::string text() const
    {
        return {at, length};
    }
    bool is(const char *what) const
    {
        return length == std::strlen(what) && std::strncmp(at, what, length) == 0;
    }
};

Token tokenAt(const char *at)
{
    while (*at != '\0' && (std::isspace(static_cast<unsigned char>(*at)) != 0 ||
                           (*at == '/' && quotedLength(at) > 0))) {
        at += *at == '/' ? quotedLength(at) : 1;
    }
    if (*at == '\0') {
        return {at, 0};
    }
    const size_t length = isWord(*at) ? wordLength(at) : quoteLength(at);
    return {at, std::max<size_t>(length, 1)};
}

class Repeats {
public:
    Repeats(std::string &text, const std::map<size_t, std::string> &hidden, IdlConflict &conflict)
        : text_(text), hidden_(hidden), conflict_(conflict), at_(text.c_str())
    {
    }

    /// Goes through all modules.
    bool run()
    {
        for (Token token = next(); token.length > 0; token = next()) {
            tokens_.push_back(token);
            if (token.is("}") && depth_ == 0) {
                leaveModule();
            } else if (token.is("{") && depth_ == 0 && isModule()) {
                enterModule();
            } else if (token.is(";") && depth_ == 0 && !finish()) {
                return false;
            } else {
                count(token);
            }
        }
        return true;
    }

private:
    struct Known {
        size_t begin;
        std::string words;
    };

    struct Module {
        std::string outerScope;
        size_t begin;
        size_t kept;
        size_t dropped;
    };

    size_t offset(const char *at) const
    {
        return static_cast<size_t>(at - text_.c_str());
    }

    void enterModule()
    {
        modules_.push_back({scope_, offset(tokens_.front().at), 0, 0});
        scope_ += tokens_[tokens_.size() - 2].text() + "::";
        tokens_.clear();
    }

    /// The parser takes no module that has nothing left in it.
    void leaveModule()
    {
        tokens_.clear();
        if (modules_.empty()) {
            return;
        }
        const Module module = modules_.back();
        modules_.pop_back();
        scope_ = module.outerScope;
        emptied_ = module.kept == 0 && module.dropped > 0 ? module.begin : std::string::npos;
        tally(emptied_ == std::string::npos);
    }

    void tally(bool isKept)
    {
        if (!modules_.empty()) {
            (isKept ? modules_.back().kept : modules_.back().dropped) += 1;
        }
    }

    void blank(size_t begin)
    {
        std::replace_if(
            text_.begin() + static_cast<std::ptrdiff_t>(begin),
            text_.begin() + (at_ - text_.c_str()), [](char character) { return character != '\n'; },
            ' ');
    }

    Token next()
    {
        const Token token = tokenAt(at_);
        at_ = token.at + token.length;
        return token;
    }

    void count(const Token &token)
    {
        depth_ += token.length == 1 && std::strchr("{([", *token.at) != nullptr ? 1 : 0;
        depth_ -= token.length == 1 && std::strchr("})]", *token.at) != nullptr && depth_ > 0;
    }

    /// Where the definition begins behind its annotations.
    size_t keyword() const
    {
        size_t at = 0;
        while (at + 1 < tokens_.size() && tokens_[at].is("@")) {
            at += 2;
            if (at < tokens_.size() && tokens_[at].is("(")) {
                int open = 0;
                do {
                    open += tokens_[at].is("(") ? 1 : tokens_[at].is(")") ? -1 : 0;
                    ++at;
                } while (open > 0 && at < tokens_.size());
            }
        }
        return at;
    }

    bool isModule() const
    {
        const size_t at = keyword();
        return at + 3 == tokens_.size() && tokens_[at].is("module");
    }

    /// What a definition defines; "" for a forward declaration, and for what is none.
    std::string name() const
    {
        const size_t at = keyword();
        const size_t size = tokens_.size();
        static constexpr std::array<const char *, 6> scopes = {"struct", "union",   "enum",
                                                               "bitset", "bitmask", "exception"};
        if (at + 3 >= size) {
            return "";
        }
        if (std::any_of(scopes.begin(), scopes.end(),
                        [&](const char *word) { return tokens_[at].is(word); })) {
            return tokens_[at + 1].text();
        }
        if (tokens_[at].is("typedef")) {
            return lastDeclarator();
        }
        const auto equals =
            std::find_if(tokens_.begin() + static_cast<std::ptrdiff_t>(at), tokens_.end(),
                         [](const Token &token) { return token.is("="); });
        return tokens_[at].is("const") && equals != tokens_.end() ? std::prev(equals)->text() : "";
    }

    /// Of "typedef long A, B[2];" it is B.
    std::string lastDeclarator() const
    {
        size_t at = tokens_.size() - 2;
        while (at > 0 && tokens_[at].is("]")) {
            while (at > 0 && !tokens_[at].is("[")) {
                --at;
            }
            at -= at > 0 ? 1 : 0;
        }
        return tokens_[at].text();
    }

    /// Behind a semicolon.
    bool finish()
    {
        const std::string name = this->name();
        const size_t begin = offset(tokens_.front().at);
        const bool isEmpty = tokens_.size() == 1;
        std::string words = wordsFrom(begin);
        tokens_.clear();
        if (isEmpty && emptied_ != std::string::npos) {
            blank(emptied_);
        }
        emptied_ = std::string::npos;
        if (isEmpty) {
            return true;
        }
        if (name.empty()) {
            tally(true);
            return true;
        }
        const auto [known, isNew] = known_.emplace(scope_ + name, Known{begin, words});
        tally(isNew);
        if (isNew) {
            return true;
        }
        if (known->second.words != words) {
            conflict_ = {known->first, known->second.begin, begin};
            return false;
        }
        blank(begin);
        return true;
    }

    std::string wordsFrom(size_t begin) const
    {
        std::string words;
        for (const Token &token : tokens_) {
            words += token.text() + ' ';
        }
        const auto until = hidden_.lower_bound(offset(at_));
        for (auto each = hidden_.lower_bound(begin); each != until; ++each) {
            words += each->second + ' ';
        }
        return words;
    }

    std::string &text_;
    const std::map<size_t, std::string> &hidden_;
    IdlConflict &conflict_;
    const char *at_;
    std::string scope_;
    /// Of the definition under way.
    std::vector<Token> tokens_;
    uint32_t depth_ = 0;
    std::vector<Module> modules_;
    /// Where the module begins that has just ended with nothing left in it.
    size_t emptied_ = std::string::npos;
    std::unordered_map<std::string, Known> known_;
};

} // namespace

bool dropRepeats(std::string &text, const std::map<size_t, std::string> &hidden,
                 IdlConflict &conflict)
{
    return Repeats(text, hidden, conflict).run();
}

} // namespace qddsc
