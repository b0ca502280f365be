// See type_default.h.
#include "type_default.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <fmt/format.h>

namespace qddsc {

namespace {

template<typename Value> std::string bytesOf(Value value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

template<typename Value> Value valueOf(const std::string &bytes)
{
    Value value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
    return value;
}

/// Decimal, octal or hexadecimal, as IDL writes integers.
template<typename Integer> bool encodeInteger(const char *text, std::string &bytes)
{
    const bool isNegative = text[0] == '-';
    const char *const digits = text + (isNegative || text[0] == '+' ? 1 : 0);
    char *end = nullptr;
    errno = 0;
    const unsigned long long size = std::strtoull(digits, &end, 0);
    if (*digits < '0' || *digits > '9' || *end != '\0' || errno != 0) {
        return false;
    }
    using Limits = std::numeric_limits<Integer>;
    const auto most = static_cast<unsigned long long>(Limits::max());
    if (size > (isNegative ? (Limits::is_signed ? most + 1 : 0) : most)) {
        return false;
    }
    bytes = bytesOf(static_cast<Integer>(isNegative ? 0 - size : size));
    return true;
}

template<typename Real> bool encodeReal(const char *text, std::string &bytes)
{
    Real value{};
    const char *const begin = text + (*text == '+' ? 1 : 0);
    const char *const end = begin + std::strlen(begin);
    const auto [stopped, code] = std::from_chars(begin, end, value);
    bytes = bytesOf(value);
    return code == std::errc{} && stopped == end && begin != end && std::isfinite(value);
}

bool encodeBoolean(const std::string &text, std::string &bytes)
{
    bytes.assign(1, text == "TRUE" ? '\1' : '\0');
    return text == "TRUE" || text == "FALSE";
}

bool encodeCharacter(const std::string &text, std::string &bytes)
{
    bytes = text.empty() ? std::string(1, '\0') : text;
    return bytes.size() == 1;
}

bool encodeText(const DDS_TypeCode &type, const std::string &text, std::string &bytes)
{
    bytes = bytesOf(static_cast<uint32_t>(text.size() + 1)) + text + '\0';
    return text.size() < qddscdr::maxSample && (type.bound == 0 || text.size() <= type.bound);
}

/// `text` may be qualified: the enum says which enumerators there are.
bool encodeEnumerator(const DDS_TypeCode &type, const std::string &text, std::string &bytes)
{
    const size_t scope = text.rfind("::");
    const uint32_t index =
        findMember(type, std::string_view(text).substr(scope == std::string::npos ? 0 : scope + 2));
    bytes = index != UINT32_MAX ? bytesOf(type.members[index].value) : "";
    return index != UINT32_MAX;
}

bool encode(const DDS_TypeCode &type, const char *text, std::string &bytes)
{
    switch (type.kind) {
    case DDS_TK_BOOLEAN:
        return encodeBoolean(text, bytes);
    case DDS_TK_CHAR:
        return encodeCharacter(text, bytes);
    case DDS_TK_OCTET:
        return encodeInteger<uint8_t>(text, bytes);
    case DDS_TK_INT8:
        return encodeInteger<int8_t>(text, bytes);
    case DDS_TK_SHORT:
        return encodeInteger<int16_t>(text, bytes);
    case DDS_TK_USHORT:
        return encodeInteger<uint16_t>(text, bytes);
    case DDS_TK_LONG:
        return encodeInteger<int32_t>(text, bytes);
    case DDS_TK_ULONG:
        return encodeInteger<uint32_t>(text, bytes);
    case DDS_TK_LONGLONG:
        return encodeInteger<int64_t>(text, bytes);
    case DDS_TK_ULONGLONG:
        return encodeInteger<uint64_t>(text, bytes);
    case DDS_TK_FLOAT:
        return encodeReal<float>(text, bytes);
    case DDS_TK_DOUBLE:
        return encodeReal<double>(text, bytes);
    case DDS_TK_ENUM:
        return encodeEnumerator(type, text, bytes);
    case DDS_TK_STRING:
        return encodeText(type, text, bytes);
    default:
        return false;
    }
}

std::string ownDefault(const DDS_TypeCode &type)
{
    switch (type.kind) {
    case DDS_TK_ENUM:
        return bytesOf(type.members.front().value);
    case DDS_TK_STRING:
        return bytesOf(uint32_t{1}) + '\0';
    default:
        return std::string(qddscdr::scalarSize(type.kind), '\0');
    }
}

std::string quoted(const std::string &text, char quote)
{
    std::string result(1, quote);
    for (const char character : text) {
        if (character == quote || character == '\\') {
            result += '\\';
        }
        if (static_cast<unsigned char>(character) < ' ') {
            result += fmt::format("\\x{:02x}", static_cast<unsigned>(character));
        } else {
            result += character;
        }
    }
    return result + quote;
}

/// A point makes it a floating-point literal for every parser.
template<typename Real> std::string realAsIdl(const std::string &bytes)
{
    const std::string text = fmt::format("{}", valueOf<Real>(bytes));
    return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

const char *enumeratorOf(const DDS_TypeCode &type, int32_t value)
{
    for (const Member &member : type.members) {
        if (member.value == value) {
            return member.name.c_str();
        }
    }
    return "";
}

} // namespace

bool encodeDefault(const DDS_TypeCode &type, const char *value, std::string &bytes,
                   DDS_ErrorText *error)
{
    if (!encode(type, value, bytes)) {
        const char *const kind = type.kind < DDS_TK_STRING    ? qddscdr::idlNames[type.kind]
                                 : type.kind == DDS_TK_STRING ? "string"
                                 : type.kind == DDS_TK_ENUM   ? type.name.c_str()
                                                              : "sequence, array or struct";
        setError(error, "%s%s cannot have the default \"%s\"", kind,
                 type.bound > 0 ? fmt::format(" of at most {} bytes", type.bound).c_str() : "",
                 value);
        return false;
    }
    if (bytes == ownDefault(type)) {
        bytes.clear();
    }
    return true;
}

std::string defaultAsText(const DDS_TypeCode &type, const std::string &bytes)
{
    switch (type.kind) {
    case DDS_TK_BOOLEAN:
        return bytes[0] != 0 ? "TRUE" : "FALSE";
    case DDS_TK_CHAR:
        return bytes;
    case DDS_TK_OCTET:
        return fmt::format("{}", valueOf<uint8_t>(bytes));
    case DDS_TK_INT8:
        return fmt::format("{}", valueOf<int8_t>(bytes));
    case DDS_TK_SHORT:
        return fmt::format("{}", valueOf<int16_t>(bytes));
    case DDS_TK_USHORT:
        return fmt::format("{}", valueOf<uint16_t>(bytes));
    case DDS_TK_LONG:
        return fmt::format("{}", valueOf<int32_t>(bytes));
    case DDS_TK_ULONG:
        return fmt::format("{}", valueOf<uint32_t>(bytes));
    case DDS_TK_LONGLONG:
        return fmt::format("{}", valueOf<int64_t>(bytes));
    case DDS_TK_ULONGLONG:
        return fmt::format("{}", valueOf<uint64_t>(bytes));
    case DDS_TK_FLOAT:
        return realAsIdl<float>(bytes);
    case DDS_TK_DOUBLE:
        return realAsIdl<double>(bytes);
    case DDS_TK_ENUM:
        return enumeratorOf(type, valueOf<int32_t>(bytes));
    default:
        return bytes.substr(sizeof(uint32_t), bytes.size() - sizeof(uint32_t) - 1);
    }
}

std::string defaultAsIdl(const DDS_TypeCode &type, const std::string &bytes)
{
    const std::string text = defaultAsText(type, bytes);
    return type.kind == DDS_TK_STRING ? quoted(text, '"')
           : type.kind == DDS_TK_CHAR ? quoted(text, '\'')
                                      : text;
}

} // namespace qddsc
