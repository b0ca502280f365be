// From a type code to the plain record that works on its samples. See qddscdr/type.h.
#include "qddsc/type_record.h"

#include "type_code.h"

namespace qddsc {

namespace {

/// The record of a member's type with the member's own default. Layouts point into records, so it
/// is made where it stays.
const qddscdr::Type *withDefault(const Member &member, qddscdr::Tables &tables)
{
    std::vector<qddscdr::Type> records{member.type->resolved->record};
    qddscdr::Type &record = records.front();
    record.initial =
        tables.keep(std::vector<uint8_t>(member.initial.begin(), member.initial.end()));
    record.layout = {};
    computeLayout(record, tables);
    return tables.keep(std::move(records)).begin();
}

std::vector<qddscdr::Member> membersOf(DDS_TypeCode &structure)
{
    std::vector<qddscdr::Member> members;
    for (const Member &member : structure.members) {
        const qddscdr::Type *const record = member.initial.empty()
                                                ? &member.type->resolved->record
                                                : withDefault(member, structure.tables);
        members.push_back({member.name, record, member.isKey});
    }
    return members;
}

std::vector<int32_t> valuesOf(const DDS_TypeCode &enumeration)
{
    std::vector<int32_t> values;
    for (const Member &member : enumeration.members) {
        values.push_back(member.value);
    }
    std::sort(values.begin(), values.end());
    return values;
}

} // namespace

bool makeRecord(DDS_TypeCode &type)
{
    if (type.kind == DDS_TK_ALIAS) {
        return true;
    }
    qddscdr::Type &record = type.record;
    record.kind = type.kind;
    record.appendable =
        type.kind == DDS_TK_STRUCT && type.extensibility == DDS_EXTENSIBILITY_APPENDABLE;
    record.keyed = type.keyed;
    record.bound = type.bound;
    record.elementCount = type.elementCount;
    record.name = type.name;
    if (type.content != nullptr) {
        record.element = &type.content->resolved->record;
    }
    record.dimensions = type.tables.keep(type.dimensions);
    if (type.kind == DDS_TK_STRUCT) {
        record.members = type.tables.keep(membersOf(type));
        record.membersByName = type.tables.keep(type.membersByName);
    } else if (type.kind == DDS_TK_ENUM) {
        record.firstEnumerator = type.members.front().value;
        record.enumerators = type.tables.keep(valuesOf(type));
    }
    return computeLayout(record, type.tables);
}

} // namespace qddsc

const qddscdr::Type *DDS_TypeCode_get_record(const DDS_TypeCode *self) noexcept
{
    return &self->resolved->record;
}
