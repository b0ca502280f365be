// See idl_defaults.h.
#include "idl_defaults.h"

#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "type_default.h"

namespace qddsc {

namespace {

bool fits(const IdlValue &value, DDS_TCKind kind)
{
    switch (kind) {
    case DDS_TK_STRING:
        return value.form == IdlValue::Form::text;
    case DDS_TK_CHAR:
        return value.form == IdlValue::Form::character;
    case DDS_TK_BOOLEAN:
    case DDS_TK_ENUM:
        return value.form == IdlValue::Form::word;
    default:
        return value.form == IdlValue::Form::number;
    }
}

bool canHaveDefault(DDS_TCKind kind)
{
    return kind == DDS_TK_STRING || kind == DDS_TK_ENUM || kind <= DDS_TK_DOUBLE;
}

/// The integer of "1.0", which others give to members that hold integers.
std::string withoutFraction(const std::string &number)
{
    double value = 0;
    const char *const end = number.data() + number.size();
    const auto [stopped, code] = std::from_chars(number.data(), end, value);
    const bool isWhole = number.find('.') != std::string::npos && code == std::errc{} &&
                         stopped == end && std::trunc(value) == value && std::fabs(value) < 1e15;
    return isWhole ? fmt::format("{:.0f}", value) : number;
}

} // namespace

void IdlDefaults::addConstant(QIdlNode constant, const std::string &scope)
{
    char buffer[64];
    char form = '\0';
    const std::string value = qidl_constant(constant, buffer, sizeof buffer, &form);
    if (form != '\0') {
        using Form = IdlValue::Form;
        constants_[scope + qidl_name(constant)] = {form == 't'   ? Form::text
                                                   : form == 'c' ? Form::character
                                                   : form == 'n' ? Form::number
                                                                 : Form::word,
                                                   value};
    }
}

bool IdlDefaults::find(QIdlNode member, const DDS_TypeCode *type, const std::string &scope,
                       std::optional<std::string> &value, DDS_ErrorText *error)
{
    uint32_t line = 0;
    uint32_t column = 0;
    qidl_location(qidl_first(member), &line, &column);
    const IdlCopy::Default *const found = source_.defaultAround(line, column);
    if (found == nullptr) {
        return true;
    }
    const DDS_TCKind kind = DDS_TypeCode_get_kind(DDS_TypeCode_resolve(type));
    std::optional<IdlValue> read = valueOf(found->arguments, kind, scope);
    if (!read || !canHaveDefault(kind)) {
        source_.note("default", source_.spotOf(found->offset).first);
        return true;
    }
    if (read->form == IdlValue::Form::number && kind < DDS_TK_FLOAT) {
        read->value = withoutFraction(read->value);
    }
    DDS_ErrorText why{};
    std::string bytes;
    const bool isText = read->value.find('\0') == std::string::npos;
    if (!fits(*read, kind) || !isText ||
        !encodeDefault(*DDS_TypeCode_resolve(type), read->value.c_str(), bytes, &why)) {
        const std::string what =
            fmt::format("@default({}) is no value of a member of this type", found->arguments);
        const auto [foundLine, foundColumn] = source_.spotOf(found->offset);
        source_.explain(error, foundLine, foundColumn,
                        why.text[0] != '\0' ? why.text : what.c_str());
        return false;
    }
    value = read->value;
    return true;
}

/// The name of an enumerator is its own value, and that of a constant is the constant's.
std::optional<IdlValue> IdlDefaults::valueOf(const std::string &arguments, DDS_TCKind kind,
                                             const std::string &scope) const
{
    std::optional<IdlValue> value = readIdlValue(arguments);
    if (!value || value->form != IdlValue::Form::word || value->value == "TRUE" ||
        value->value == "FALSE") {
        return value;
    }
    const IdlValue *const constant = findConstant(value->value, scope);
    if (constant != nullptr) {
        return *constant;
    }
    return kind == DDS_TK_ENUM ? value : std::nullopt;
}

/// Looks in the scope and then in those around it.
const IdlValue *IdlDefaults::findConstant(const std::string &name, std::string scope) const
{
    if (name.rfind("::", 0) == 0) {
        const auto found = constants_.find(name.substr(2));
        return found != constants_.end() ? &found->second : nullptr;
    }
    while (true) {
        const auto found = constants_.find(scope + name);
        if (found != constants_.end()) {
            return &found->second;
        }
        if (scope.empty()) {
            return nullptr;
        }
        const size_t outer = scope.size() > 2 ? scope.rfind("::", scope.size() - 3) : 0;
        scope.erase(outer == std::string::npos || outer == 0 ? 0 : outer + 2);
    }
}

} // namespace qddsc
