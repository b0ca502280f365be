// Looking at type codes. Everything here reads immutable objects.
#include "type_code.h"

namespace qddsc {

namespace {

const Member *memberAt(const DDS_TypeCode *self, uint32_t index)
{
    return index < self->members.size() ? &self->members[index] : nullptr;
}

} // namespace

} // namespace qddsc

using qddsc::Member;

DDS_TCKind DDS_TypeCode_get_kind(const DDS_TypeCode *self) noexcept
{
    return self->kind;
}

const char *DDS_TypeCode_get_name(const DDS_TypeCode *self) noexcept
{
    return self->name.empty() ? nullptr : self->name.c_str();
}

const DDS_TypeCode *DDS_TypeCode_resolve(const DDS_TypeCode *self) noexcept
{
    return self->resolved;
}

const DDS_TypeCode *DDS_TypeCode_get_base(const DDS_TypeCode *self) noexcept
{
    return self->base;
}

DDS_ExtensibilityKind DDS_TypeCode_get_extensibility(const DDS_TypeCode *self) noexcept
{
    return self->extensibility;
}

const DDS_TypeCode *DDS_TypeCode_get_content(const DDS_TypeCode *self) noexcept
{
    return self->content;
}

uint32_t DDS_TypeCode_get_bound(const DDS_TypeCode *self) noexcept
{
    return self->bound;
}

uint32_t DDS_TypeCode_get_dimension_count(const DDS_TypeCode *self) noexcept
{
    return static_cast<uint32_t>(self->dimensions.size());
}

uint32_t DDS_TypeCode_get_dimension(const DDS_TypeCode *self, uint32_t index) noexcept
{
    return index < self->dimensions.size() ? self->dimensions[index] : 0;
}

uint32_t DDS_TypeCode_get_member_count(const DDS_TypeCode *self) noexcept
{
    return static_cast<uint32_t>(self->members.size());
}

const char *DDS_TypeCode_get_member_name(const DDS_TypeCode *self, uint32_t index) noexcept
{
    const Member *member = qddsc::memberAt(self, index);
    return member != nullptr ? member->name.c_str() : nullptr;
}

const DDS_TypeCode *DDS_TypeCode_get_member_type(const DDS_TypeCode *self, uint32_t index) noexcept
{
    const Member *member = qddsc::memberAt(self, index);
    return member != nullptr ? member->type : nullptr;
}

int32_t DDS_TypeCode_is_member_key(const DDS_TypeCode *self, uint32_t index) noexcept
{
    const Member *member = qddsc::memberAt(self, index);
    return member != nullptr && member->isKey ? 1 : 0;
}

const uint8_t *DDS_TypeCode_get_member_default(const DDS_TypeCode *self, uint32_t index,
                                               size_t *size) noexcept
{
    const Member *member = qddsc::memberAt(self, index);
    *size = member != nullptr ? member->initial.size() : 0;
    return *size > 0 ? reinterpret_cast<const uint8_t *>(member->initial.data()) : nullptr;
}

int32_t DDS_TypeCode_get_member_value(const DDS_TypeCode *self, uint32_t index) noexcept
{
    const Member *member = qddsc::memberAt(self, index);
    return member != nullptr ? member->value : 0;
}

int32_t DDS_TypeCode_holds_appendable(const DDS_TypeCode *self) noexcept
{
    return self->holdsAppendable ? 1 : 0;
}

int32_t DDS_TypeCode_is_nested(const DDS_TypeCode *self) noexcept
{
    return self->nested ? 1 : 0;
}

int32_t DDS_TypeCode_is_keyed(const DDS_TypeCode *self) noexcept
{
    return self->keyed ? 1 : 0;
}

const DDS_OpaqueType *DDS_TypeCode_get_opaque(const DDS_TypeCode *self) noexcept
{
    const auto &opaque = self->resolved->opaque;
    return opaque != nullptr ? &opaque->record : nullptr;
}
