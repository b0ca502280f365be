// See wire_key_type.h.
#include "wire_key_type.h"

#include <algorithm>
#include <string>

namespace qddsdomain {

namespace {

const DDS_TypeCode *project(const DDS_TypeCode &type, DDS_ErrorText *error);

const DDS_TypeCode *projectStruct(const DDS_TypeCode &type, DDS_ErrorText *error)
{
    std::vector<DDS_StructMember> members;
    bool same = true;
    for (const qddsc::Member &member : type.members) {
        if (type.keyed && !member.isKey) {
            same = false;
            continue;
        }
        const DDS_TypeCode *inner = project(*member.type, error);
        if (inner == nullptr) {
            return nullptr;
        }
        same = same && inner == member.type;
        members.push_back({member.name.c_str(), inner, member.isKey ? 1 : 0});
    }
    const std::string name = type.name + "_key_";
    return same ? &type
                : DDS_TypeCode_create_struct(name.c_str(), nullptr, type.extensibility,
                                             members.data(), static_cast<uint32_t>(members.size()),
                                             error);
}

const DDS_TypeCode *projectArray(const DDS_TypeCode &type, DDS_ErrorText *error)
{
    const DDS_TypeCode *element = project(*type.content, error);
    if (element == nullptr || element == type.content) {
        return element == nullptr ? nullptr : &type;
    }
    std::vector<uint32_t> dimensions = type.dimensions;
    if (element->kind == DDS_TK_ARRAY) { // its alias, which the element had to be, is gone
        dimensions.insert(dimensions.end(), element->dimensions.begin(), element->dimensions.end());
        element = element->content;
    }
    return DDS_TypeCode_create_array(element, dimensions.data(),
                                     static_cast<uint32_t>(dimensions.size()), error);
}

// The type itself where nothing is left out.
const DDS_TypeCode *project(const DDS_TypeCode &type, DDS_ErrorText *error)
{
    if (type.kind == DDS_TK_ALIAS) {
        const DDS_TypeCode *target = project(*type.resolved, error);
        return target == type.resolved ? &type : target;
    }
    if (type.kind == DDS_TK_STRUCT) {
        return projectStruct(type, error);
    }
    return type.kind == DDS_TK_ARRAY ? projectArray(type, error) : &type;
}

// Greatest end of a value that starts at `position`. It stops growing once it is beyond `limit`.
uint64_t greatestEnd(const DDS_TypeCode &type, const Form &form, uint64_t position, uint64_t limit)
{
    const uint32_t size = qddsc::scalarSize(type.kind);
    if (type.kind == DDS_TK_STRUCT) {
        for (const qddsc::Member &member : type.members) {
            position = greatestEnd(*member.type->resolved, form, position, limit);
        }
    } else if (type.kind == DDS_TK_ARRAY) {
        uint64_t count = 0;
        const DDS_TypeCode &element = innermostElement(type, count);
        if (form.delimitedCollections && !qddsc::isPrimitive(element.kind)) {
            position = qddsc::alignUp(position, sizeof(uint32_t)) + sizeof(uint32_t);
        }
        for (uint64_t i = 0; i < count && position <= limit; ++i) {
            position = greatestEnd(element, form, position, limit);
        }
    } else if (type.kind == DDS_TK_STRING) {
        const uint64_t text = type.bound != 0 ? uint64_t{type.bound} + 1 : limit + 1;
        position = qddsc::alignUp(position, size) + size + text;
    } else {
        position = qddsc::alignUp(position, std::min(size, form.alignment)) + size;
    }
    return position;
}

} // namespace

const DDS_TypeCode *makeKeyType(const DDS_TypeCode &structure, DDS_ErrorText *error)
{
    return projectStruct(structure, error);
}

bool fitsAlways(const DDS_TypeCode &type, const Form &form, uint64_t size)
{
    return greatestEnd(type, form, 0, size) <= size;
}

} // namespace qddsdomain
