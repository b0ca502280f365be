// See idl_expression.h.
#include "idl_expression.h"

#include <cstdlib>
#include <vector>

#include <fmt/format.h>

#include "idl_macros.h"
#include "idl_scan.h"

namespace qddsc {
namespace {

class Expression {
public:
    explicit Expression(const std::string &text) : text_(text), at_(text_.c_str()) {}

    std::int64_t evaluate()
    {
        const std::int64_t value = choice();
        if (*skip() != '\0') {
            fail();
        }
        return value;
    }

private:
    static constexpr int deepest = 100;

    const char *skip()
    {
        return at_ = skipBlanks(at_);
    }
    [[noreturn]] void fail()
    {
        throw IdlFault(fmt::format("\"{}\" is no expression", trimmed(text_)));
    }
    bool take(const char *sign)
    {
        const std::size_t length = std::strlen(sign);
        const bool found = std::strncmp(skip(), sign, length) == 0;
        at_ += found ? length : 0;
        return found;
    }

    std::int64_t choice()
    {
        if (++depth_ > deepest) {
            fail();
        }
        const std::int64_t condition = binary(0);
        std::int64_t value = condition;
        if (take("?")) {
            const std::int64_t yes = choice();
            if (!take(":")) {
                fail();
            }
            const std::int64_t no = choice();
            value = condition != 0 ? yes : no;
        }
        --depth_;
        return value;
    }

    /// The operators by their precedence, the longer ones of a level first.
    std::int64_t binary(std::size_t level)
    {
        static const std::vector<std::vector<const char *>> levels = {{"||"},
                                                                      {"&&"},
                                                                      {"|"},
                                                                      {"^"},
                                                                      {"&"},
                                                                      {"==", "!="},
                                                                      {"<=", ">=", "<", ">"},
                                                                      {"<<", ">>"},
                                                                      {"+", "-"},
                                                                      {"*", "/", "%"}};
        if (level == levels.size()) {
            return unary();
        }
        std::int64_t value = binary(level + 1);
        for (const char *sign = found(levels[level]); sign != nullptr;
             sign = found(levels[level])) {
            at_ += std::strlen(sign);
            const bool known = std::strcmp(sign, value != 0 ? "||" : "&&") == 0;
            unused_ += known ? 1 : 0;
            const std::int64_t other = binary(level + 1);
            unused_ -= known ? 1 : 0;
            value = apply(sign, value, other);
        }
        return value;
    }

    /// Which of the operators stands here: "<" is not the beginning of "<<", "|" not that of "||".
    const char *found(const std::vector<const char *> &signs)
    {
        skip();
        for (const char *sign : signs) {
            const std::size_t length = std::strlen(sign);
            const auto isDoubled = [&] {
                return length == 1 && std::strchr("|&<>", *sign) != nullptr && at_[1] == *sign;
            };
            if (std::strncmp(at_, sign, length) == 0 && !isDoubled()) {
                return sign;
            }
        }
        return nullptr;
    }

    std::int64_t apply(const std::string &sign, std::int64_t a, std::int64_t b)
    {
        const auto ua = static_cast<std::uint64_t>(a);
        const auto ub = static_cast<std::uint64_t>(b);
        const auto wrapped = [](std::uint64_t value) { return static_cast<std::int64_t>(value); };
        switch (sign[0]) {
        case '|':
            return sign.size() == 2 ? (a != 0 || b != 0) : a | b;
        case '&':
            return sign.size() == 2 ? (a != 0 && b != 0) : a & b;
        case '^':
            return a ^ b;
        case '=':
            return a == b;
        case '!':
            return a != b;
        case '<':
            return sign == "<<" ? wrapped(ua << (ub & 63)) : sign == "<=" ? a <= b : a < b;
        case '>':
            return sign == ">>" ? a >> (ub & 63) : sign == ">=" ? a >= b : a > b;
        case '+':
            return wrapped(ua + ub);
        case '-':
            return wrapped(ua - ub);
        case '*':
            return wrapped(ua * ub);
        default:
            if (b == 0 || b == -1) {
                return b == 0 ? divisionByZero() : sign == "/" ? wrapped(0 - ua) : 0;
            }
            return sign == "/" ? a / b : a % b;
        }
    }

    std::int64_t divisionByZero() const
    {
        if (unused_ == 0) {
            throw IdlFault("a division by zero");
        }
        return 0;
    }

    std::int64_t unary()
    {
        if (++depth_ > deepest) {
            fail();
        }
        std::int64_t value = 0;
        if (take("!")) {
            value = unary() == 0 ? 1 : 0;
        } else if (take("-")) {
            value = static_cast<std::int64_t>(0 - static_cast<std::uint64_t>(unary()));
        } else if (take("+")) {
            value = unary();
        } else if (take("~")) {
            value = ~unary();
        } else if (take("(")) {
            value = choice();
            if (!take(")")) {
                fail();
            }
        } else {
            value = operand();
        }
        --depth_;
        return value;
    }

    /// A name that is left counts as 0, as in C.
    std::int64_t operand()
    {
        const std::size_t length = wordLength(skip());
        const std::string word(at_, length);
        at_ += length;
        if (word.empty()) {
            fail();
        }
        if (std::isdigit(static_cast<unsigned char>(word[0])) == 0) {
            return 0;
        }
        char *end = nullptr;
        const auto value = static_cast<std::int64_t>(std::strtoull(word.c_str(), &end, 0));
        if (end[std::strspn(end, "uUlL")] != '\0') {
            fail();
        }
        return value;
    }

    const std::string text_;
    const char *at_;
    int depth_ = 0;
    /// Operands under way that decide nothing: what stands before "||" or "&&" does.
    int unused_ = 0;
};

} // namespace

std::int64_t evaluateIdlExpression(const std::string &text)
{
    return Expression(text).evaluate();
}

} // namespace qddsc
