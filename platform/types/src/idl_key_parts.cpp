// See idl_key_parts.h.
#include "idl_key_parts.h"

#include <algorithm>

#include <fmt/format.h>

#include "type_code.h"
#include "type_default.h"

namespace qddsc {

/// Type of the member of a base that gets the key, or null. The base that declares it has the key.
const DDS_TypeCode *IdlKeyParts::addInherited(const std::string &name, const DDS_TypeCode *base)
{
    const uint32_t index = base != nullptr ? findMember(*base->resolved, name) : UINT32_MAX;
    if (index == UINT32_MAX) {
        return nullptr;
    }
    const DDS_TypeCode *owner = base->resolved;
    while (owner->base != nullptr && index < owner->base->members.size()) {
        owner = owner->base;
    }
    byType_[owner].insert(name);
    return owner->members[index].type;
}

bool IdlKeyParts::add(const std::string &path, const std::string &name, const DDS_TypeCode *base,
                      std::vector<DDS_StructMember> &members, std::string &problem)
{
    size_t end = std::min(path.find('.'), path.size());
    const std::string first = path.substr(0, end);
    const auto member =
        std::find_if(members.begin(), members.end(),
                     [&](const DDS_StructMember &each) { return each.name == first; });
    const DDS_TypeCode *type = nullptr;
    if (member != members.end()) {
        member->isKey = 1;
        type = member->type;
    } else {
        type = addInherited(first, base);
    }
    if (type == nullptr) {
        problem = fmt::format("\"{}\" has no member \"{}\"", name, first);
        return false;
    }
    type = type->resolved;
    while (end < path.size()) {
        const size_t begin = end + 1;
        auto &[owner, keys] = byPath_[path.substr(0, end)];
        end = std::min(path.find('.', begin), path.size());
        const std::string part = path.substr(begin, end - begin);
        const uint32_t index = type->kind == DDS_TK_STRUCT ? findMember(*type, part) : UINT32_MAX;
        if (index == UINT32_MAX) {
            problem = fmt::format("\"{}\" of \"{}\" has no member \"{}\"",
                                  path.substr(0, begin - 1), name, part);
            return false;
        }
        owner = type;
        keys.insert(part);
        type = type->members[index].type->resolved;
    }
    while (type->kind == DDS_TK_ARRAY) {
        type = type->content->resolved;
    }
    byPath_[path].first = type;
    return true;
}

bool IdlKeyParts::apply(std::vector<DDS_StructMember> &members, const DDS_TypeCode *&base,
                        std::string &problem)
{
    const bool hasParts = !byType_.empty() ||
                          std::any_of(byPath_.begin(), byPath_.end(),
                                      [](const auto &each) { return !each.second.second.empty(); });
    for (const auto &[path, wanted] : byPath_) {
        const auto &[type, keys] = wanted;
        const auto [known, isNew] = byType_.emplace(type, keys);
        if (type->kind == DDS_TK_STRUCT && !isNew && known->second != keys) {
            problem =
                fmt::format("two members of \"{}\" have different parts in the key", type->name);
            return false;
        }
    }
    if (hasParts && base != nullptr && (base = rebuilt(base)) == nullptr) {
        problem = why_.text;
        return false;
    }
    for (DDS_StructMember &member : members) {
        const DDS_TypeCode *const type = hasParts ? rebuilt(member.type) : member.type;
        if (type == nullptr) {
            problem = why_.text;
            return false;
        }
        member.type = type;
    }
    return true;
}

/// Null, with why_ filled, where a type cannot have the keys.
const DDS_TypeCode *IdlKeyParts::rebuilt(const DDS_TypeCode *type)
{
    const auto known = rebuilt_.find(type);
    if (known != rebuilt_.end()) {
        return known->second;
    }
    return rebuilt_[type] = type->kind == DDS_TK_STRUCT ? rebuiltStruct(type) : rebuiltPart(type);
}

const DDS_TypeCode *IdlKeyParts::rebuiltPart(const DDS_TypeCode *type)
{
    if (type->content == nullptr) {
        return type;
    }
    const DDS_TypeCode *const content = rebuilt(type->content);
    if (content == nullptr || content == type->content) {
        return content == nullptr ? nullptr : type;
    }
    if (type->kind == DDS_TK_ALIAS) {
        return DDS_TypeCode_create_alias(type->name.c_str(), content, &why_);
    }
    if (type->kind == DDS_TK_SEQUENCE) {
        return DDS_TypeCode_create_sequence(content, type->bound, &why_);
    }
    return DDS_TypeCode_create_array(content, type->dimensions.data(),
                                     static_cast<uint32_t>(type->dimensions.size()), &why_);
}

const DDS_TypeCode *IdlKeyParts::rebuiltStruct(const DDS_TypeCode *type)
{
    const DDS_TypeCode *const base = type->base != nullptr ? rebuilt(type->base) : nullptr;
    if (type->base != nullptr && base == nullptr) {
        return nullptr;
    }
    const auto wanted = byType_.find(type);
    bool isChanged = base != type->base;
    std::vector<DDS_StructMember> members;
    std::vector<std::pair<std::string, std::string>> values;
    for (size_t i = base != nullptr ? base->members.size() : 0; i < type->members.size(); ++i) {
        const Member &member = type->members[i];
        const DDS_TypeCode *const inner = rebuilt(member.type);
        if (inner == nullptr) {
            return nullptr;
        }
        const bool isKey =
            member.isKey || (wanted != byType_.end() && wanted->second.count(member.name) != 0);
        isChanged = isChanged || inner != member.type || isKey != member.isKey;
        members.push_back({member.name.c_str(), inner, isKey ? 1 : 0});
        if (!member.initial.empty()) {
            values.emplace_back(member.name, defaultAsText(*inner->resolved, member.initial));
        }
    }
    if (!isChanged) {
        return type;
    }
    const DDS_TypeCode *made =
        DDS_TypeCode_create_struct(type->name.c_str(), base, type->extensibility, members.data(),
                                   static_cast<uint32_t>(members.size()), &why_);
    std::vector<DDS_MemberDefault> defaults;
    defaults.reserve(values.size());
    for (const auto &[member, value] : values) {
        defaults.push_back({member.c_str(), value.c_str()});
    }
    if (made != nullptr && !defaults.empty()) {
        made = DDS_TypeCode_create_with_defaults(made, defaults.data(),
                                                 static_cast<uint32_t>(defaults.size()), &why_);
    }
    return made != nullptr && type->nested ? DDS_TypeCode_create_nested(made, &why_) : made;
}

} // namespace qddsc
