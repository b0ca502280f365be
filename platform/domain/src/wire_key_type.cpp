// See wire_key_type.h.
#include "wire_key_type.h"

#include <algorithm>
#include <string>

namespace qddsdomain {

using namespace qddscdr;

namespace {

const DDS_TypeCode *project(const DDS_TypeCode *type, DDS_ErrorText *error);

const DDS_TypeCode *projectStruct(const DDS_TypeCode *type, DDS_ErrorText *error)
{
    std::vector<DDS_StructMember> members;
    bool same = true;
    const bool keyed = DDS_TypeCode_is_keyed(type) != 0;
    for (uint32_t i = 0; i < DDS_TypeCode_get_member_count(type); ++i) {
        const int32_t isKey = DDS_TypeCode_is_member_key(type, i);
        if (keyed && isKey == 0) {
            same = false;
            continue;
        }
        const DDS_TypeCode *member = DDS_TypeCode_get_member_type(type, i);
        const DDS_TypeCode *inner = project(member, error);
        if (inner == nullptr) {
            return nullptr;
        }
        same = same && inner == member;
        members.push_back({DDS_TypeCode_get_member_name(type, i), inner, isKey});
    }
    const std::string name = std::string(DDS_TypeCode_get_name(type)) + "_key_";
    return same ? type
                : DDS_TypeCode_create_struct(name.c_str(), nullptr,
                                             DDS_TypeCode_get_extensibility(type), members.data(),
                                             static_cast<uint32_t>(members.size()), error);
}

void addDimensions(const DDS_TypeCode *array, std::vector<uint32_t> &dimensions)
{
    for (uint32_t i = 0; i < DDS_TypeCode_get_dimension_count(array); ++i) {
        dimensions.push_back(DDS_TypeCode_get_dimension(array, i));
    }
}

const DDS_TypeCode *projectArray(const DDS_TypeCode *type, DDS_ErrorText *error)
{
    const DDS_TypeCode *content = DDS_TypeCode_get_content(type);
    const DDS_TypeCode *element = project(content, error);
    if (element == nullptr || element == content) {
        return element == nullptr ? nullptr : type;
    }
    std::vector<uint32_t> dimensions;
    addDimensions(type, dimensions);
    if (DDS_TypeCode_get_kind(element) == DDS_TK_ARRAY) {
        // Its alias, which the element had to be, is gone.
        addDimensions(element, dimensions);
        element = DDS_TypeCode_get_content(element);
    }
    return DDS_TypeCode_create_array(element, dimensions.data(),
                                     static_cast<uint32_t>(dimensions.size()), error);
}

/// The type itself where nothing is left out.
const DDS_TypeCode *project(const DDS_TypeCode *type, DDS_ErrorText *error)
{
    switch (DDS_TypeCode_get_kind(type)) {
    case DDS_TK_ALIAS: {
        const DDS_TypeCode *resolved = DDS_TypeCode_resolve(type);
        const DDS_TypeCode *target = project(resolved, error);
        return target == resolved ? type : target;
    }
    case DDS_TK_STRUCT:
        return projectStruct(type, error);
    case DDS_TK_ARRAY:
        return projectArray(type, error);
    default:
        return type;
    }
}

/// Greatest end of a value that starts at `position`. It stops growing once it is beyond `limit`.
uint64_t greatestEnd(const Type &type, const Form &form, uint64_t position, uint64_t limit)
{
    const uint32_t size = scalarSize(type.kind);
    if (type.kind == DDS_TK_STRUCT) {
        for (const Member &member : type.members) {
            position = greatestEnd(*member.type, form, position, limit);
        }
    } else if (type.kind == DDS_TK_ARRAY) {
        uint64_t count = 0;
        const Type &element = innermostElement(type, count);
        if (form.delimitedCollections && !isPrimitive(element.kind)) {
            position = alignUp(position, sizeof(uint32_t)) + sizeof(uint32_t);
        }
        for (uint64_t i = 0; i < count && position <= limit; ++i) {
            position = greatestEnd(element, form, position, limit);
        }
    } else if (type.kind == DDS_TK_STRING) {
        const uint64_t text = type.bound != 0 ? uint64_t{type.bound} + 1 : limit + 1;
        position = alignUp(position, size) + size + text;
    } else {
        position = alignUp(position, std::min(size, form.alignment)) + size;
    }
    return position;
}

} // namespace

const DDS_TypeCode *makeKeyType(const DDS_TypeCode *structure, DDS_ErrorText *error)
{
    return projectStruct(structure, error);
}

bool fitsAlways(const Type &type, const Form &form, uint64_t size)
{
    return greatestEnd(type, form, 0, size) <= size;
}

} // namespace qddsdomain
