// See idl_types.h.
#include "idl_types.h"

#include <vector>

#include <fmt/format.h>

namespace qddsc {

bool IdlTypes::leave(QIdlNode node, const std::string &why, const std::string &cause)
{
    reason_ = {node, why, cause};
    return false;
}

const DDS_TypeCode *IdlTypes::declaredType(QIdlNode node, QIdlNode declarator)
{
    const DDS_TypeCode *type = typeOf(node, qidl_type(node));
    std::vector<uint32_t> dimensions;
    uint32_t dimension = 0;
    while (qidl_dimension(declarator, static_cast<uint32_t>(dimensions.size()), &dimension)) {
        dimensions.push_back(dimension);
    }
    if (type == nullptr || dimensions.empty()) {
        return type;
    }
    DDS_ErrorText why{};
    type = DDS_TypeCode_create_array(type, dimensions.data(),
                                     static_cast<uint32_t>(dimensions.size()), &why);
    if (type == nullptr) {
        leave(declarator, why.text);
    }
    return type;
}

const DDS_TypeCode *IdlTypes::typeOf(QIdlNode user, QIdlNode spec)
{
    DDS_ErrorText why{};
    const DDS_TypeCode *type = nullptr;
    const QIdlKind kind = qidl_kind(spec);
    if (kind == QIDL_SEQUENCE) {
        const DDS_TypeCode *element = typeOf(user, qidl_type(spec));
        if (element == nullptr) {
            return nullptr;
        }
        type = DDS_TypeCode_create_sequence(element, qidl_bound(spec), &why);
    } else if (kind == QIDL_STRING) {
        type = DDS_TypeCode_create_string(qidl_bound(spec), &why);
    } else if (kind > QIDL_UNSUPPORTED && kind <= QIDL_PRIMITIVE_LAST) {
        type = DDS_TypeCode_get_primitive(static_cast<DDS_TCKind>(kind));
    } else {
        return namedType(user, spec, kind);
    }
    if (type == nullptr) {
        leave(user, why.text);
    }
    return type;
}

const DDS_TypeCode *IdlTypes::namedType(QIdlNode user, QIdlNode spec, QIdlKind kind)
{
    const QIdlNode forward = kind == QIDL_FORWARD ? qidl_type(spec) : nullptr;
    const QIdlNode definition = forward != nullptr ? forward : spec;
    if (forward != nullptr && byNode_.count(forward) == 0 && leftOut_.count(forward) == 0) {
        readAhead(forward);
    }
    const auto found = byNode_.find(definition);
    if (found != byNode_.end()) {
        return found->second;
    }
    const auto left = leftOut_.find(definition);
    if (left != leftOut_.end()) {
        leave(user, fmt::format("it uses \"{}\"", left->second), left->second);
    } else if (kind == QIDL_UNSUPPORTED) {
        leave(user, fmt::format("{} is not supported", qidl_construct(spec)));
    } else {
        leave(user,
              fmt::format("{} is used before it is complete: recursive types are not supported",
                          qidl_name(spec)));
    }
    return nullptr;
}

} // namespace qddsc
