// Making and interning of type codes: checks first, then one table under one lock. A type refers to
// the types inside by their interned addresses, so a key of names, numbers and addresses is the
// whole structure.
#include <algorithm>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

#include "type_code.h"
#include "type_default.h"
#include "type_rules.h"

namespace qddsc {

namespace {

struct InternTable {
    std::mutex mutex;
    std::unordered_map<std::string, std::unique_ptr<DDS_TypeCode>> types;
};

/// Never destroyed: type codes are used until the last thread has ended.
InternTable &internTable()
{
    static InternTable &table = *new InternTable;
    return table;
}

void addNumber(std::string &key, uint64_t number)
{
    key += '/';
    key += std::to_string(number);
}

void addType(std::string &key, const DDS_TypeCode *type)
{
    addNumber(key, reinterpret_cast<uintptr_t>(type));
}

std::string keyOf(const DDS_TypeCode &type)
{
    std::string key = std::to_string(type.kind) + ":" + type.name;
    addNumber(key, type.bound);
    addNumber(key, static_cast<uint64_t>(type.extensibility));
    addNumber(key, type.nested ? 1 : 0);
    addType(key, type.content);
    addType(key, type.base);
    for (const uint32_t dimension : type.dimensions) {
        addNumber(key, dimension);
    }
    for (const Member &member : type.members) {
        key += "," + member.name;
        addType(key, member.type);
        addNumber(key, member.isKey ? 1 : 0);
        addNumber(key, static_cast<uint32_t>(member.value));
        addNumber(key, member.initial.size());
        key += member.initial;
    }
    if (type.opaque != nullptr) {
        addNumber(key, type.opaque->record.isKeyed != 0 ? 2 : 1);
        addNumber(key, type.opaque->information.size());
        key += type.opaque->information + type.opaque->mapping;
    }
    return key;
}

void completeMembers(DDS_TypeCode &type)
{
    for (uint32_t i = 0; i < type.members.size(); ++i) {
        const Member &member = type.members[i];
        type.membersByName.push_back(i);
        type.keyed = type.keyed || member.isKey;
        if (member.type != nullptr) {
            type.depth = std::max(type.depth, member.type->depth + 1);
        }
    }
    std::sort(
        type.membersByName.begin(), type.membersByName.end(),
        [&type](uint32_t a, uint32_t b) { return type.members[a].name < type.members[b].name; });
}

/// Values can be compared as keys when they hold no sequence. Of a struct only its key members
/// count; without any, all do.
bool canBeKey(const DDS_TypeCode &type)
{
    if (type.kind == DDS_TK_STRUCT) {
        return type.keyed || std::all_of(type.members.begin(), type.members.end(),
                                         [](const Member &member) { return member.type->keyable; });
    }
    return type.kind != DDS_TK_SEQUENCE && (type.content == nullptr || type.content->keyable);
}

bool holdsAppendable(const DDS_TypeCode &type)
{
    const auto inside = [](const DDS_TypeCode *part) {
        return part != nullptr && part->holdsAppendable;
    };
    return (type.kind == DDS_TK_STRUCT && type.extensibility == DDS_EXTENSIBILITY_APPENDABLE) ||
           inside(type.content) ||
           std::any_of(type.members.begin(), type.members.end(),
                       [&](const Member &member) { return inside(member.type); });
}

const char *describe(const DDS_TypeCode &type)
{
    if (!type.name.empty()) {
        return type.name.c_str();
    }
    return type.kind == DDS_TK_ARRAY ? "array" : "sequence";
}

const DDS_TypeCode *intern(DDS_TypeCode &&made, DDS_ErrorText *error)
{
    auto type = std::make_unique<DDS_TypeCode>(std::move(made));
    type->resolved = type->kind == DDS_TK_ALIAS ? type->content->resolved : type.get();
    if (type->content != nullptr) {
        const bool isAlias = type->kind == DDS_TK_ALIAS;
        type->depth = type->content->depth + (isAlias ? 0 : 1);
        type->aliases = isAlias ? type->content->aliases + 1 : 0;
    }
    completeMembers(*type);
    type->keyable = canBeKey(*type);
    type->holdsAppendable = holdsAppendable(*type);
    if (type->depth > qddscdr::maxDepth || type->aliases > qddscdr::maxDepth) {
        setError(error, "%s: nested deeper than %u levels", describe(*type), qddscdr::maxDepth);
        return nullptr;
    }
    if (!makeRecord(*type)) {
        setError(error, "%s: a sample would be larger than 2 GiB", describe(*type));
        return nullptr;
    }
    std::string key = keyOf(*type);
    InternTable &table = internTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    return table.types.try_emplace(std::move(key), std::move(type)).first->second.get();
}

/// Runs a maker; memory that runs out in it becomes an error.
template<typename Maker>
const DDS_TypeCode *guarded(DDS_ErrorText *error, const Maker &make) noexcept
{
    try {
        return make();
    } catch (const std::bad_alloc &) {
        setError(error, "memory is short");
    } catch (...) {
        setError(error, "type cannot be made");
    }
    return nullptr;
}

bool checkElement(const DDS_TypeCode *element, DDS_ErrorText *error)
{
    if (element == nullptr) {
        setError(error, "element type is null");
        return false;
    }
    if (element->kind == DDS_TK_ARRAY) {
        setError(error, "an array that is an element needs a name: make an alias of it");
        return false;
    }
    return true;
}

const DDS_TypeCode *makeArray(const DDS_TypeCode *element, const uint32_t *dimensions,
                              uint32_t count, DDS_ErrorText *error)
{
    if (!checkElement(element, error)) {
        return nullptr;
    }
    if (dimensions == nullptr || count == 0) {
        setError(error, "an array needs a dimension");
        return nullptr;
    }
    DDS_TypeCode type;
    type.kind = DDS_TK_ARRAY;
    type.content = element;
    type.dimensions.assign(dimensions, dimensions + count);
    uint64_t elements = 1;
    for (const uint32_t dimension : type.dimensions) {
        elements *= dimension;
        if (dimension == 0 || elements > std::numeric_limits<int32_t>::max()) {
            setError(error, dimension == 0 ? "an array dimension is 0"
                                           : "an array has more than 2^31 - 1 elements");
            return nullptr;
        }
    }
    type.elementCount = static_cast<uint32_t>(elements);
    return intern(std::move(type), error);
}

const DDS_TypeCode *makeEnum(const char *name, const DDS_EnumMember *members, uint32_t count,
                             DDS_ErrorText *error)
{
    if (!checkTypeName(name, error)) {
        return nullptr;
    }
    DDS_TypeCode type;
    type.kind = DDS_TK_ENUM;
    type.name = name;
    for (uint32_t i = 0; members != nullptr && i < count; ++i) {
        if (!checkMemberName(name, members[i].name, error)) {
            return nullptr;
        }
        type.members.push_back({members[i].name, nullptr, false, members[i].value, {}});
    }
    return checkEnum(type, error) ? intern(std::move(type), error) : nullptr;
}

const DDS_TypeCode *makeStruct(const char *name, const DDS_TypeCode *base,
                               DDS_ExtensibilityKind extensibility, const DDS_StructMember *members,
                               uint32_t count, DDS_ErrorText *error)
{
    if (!checkTypeName(name, error)) {
        return nullptr;
    }
    DDS_TypeCode type;
    type.kind = DDS_TK_STRUCT;
    type.name = name;
    type.base = base != nullptr ? base->resolved : nullptr;
    type.extensibility = extensibility;
    if (!checkBase(type, error)) {
        return nullptr;
    }
    if (type.base != nullptr) {
        type.members = type.base->members;
        type.depth = type.base->depth + 1;
    }
    for (uint32_t i = 0; members != nullptr && i < count; ++i) {
        const DDS_StructMember &member = members[i];
        if (!checkMemberName(name, member.name, error) || !checkMember(type, member, error)) {
            return nullptr;
        }
        type.members.push_back({member.name, member.type, member.isKey != 0, 0, {}});
    }
    return checkStruct(type, error) ? intern(std::move(type), error) : nullptr;
}

/// A struct that is not interned yet, with all that another one was declared with.
DDS_TypeCode declaredLike(const DDS_TypeCode &structure)
{
    DDS_TypeCode type;
    type.kind = DDS_TK_STRUCT;
    type.name = structure.name;
    type.base = structure.base;
    type.extensibility = structure.extensibility;
    type.members = structure.members;
    type.depth = structure.depth;
    type.nested = structure.nested;
    return type;
}

const DDS_TypeCode *makeNested(const DDS_TypeCode *structure, DDS_ErrorText *error)
{
    if (structure == nullptr || structure->resolved->kind != DDS_TK_STRUCT) {
        setError(error, "only a struct can be nested");
        return nullptr;
    }
    DDS_TypeCode type = declaredLike(*structure->resolved);
    type.nested = true;
    return intern(std::move(type), error);
}

const DDS_TypeCode *makeWithDefaults(const DDS_TypeCode *structure,
                                     const DDS_MemberDefault *defaults, uint32_t count,
                                     DDS_ErrorText *error)
{
    if (structure == nullptr || structure->resolved->kind != DDS_TK_STRUCT) {
        setError(error, "only a struct can have defaults of members");
        return nullptr;
    }
    DDS_TypeCode type = declaredLike(*structure->resolved);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t index = findMember(*structure->resolved, defaults[i].member);
        if (index == UINT32_MAX) {
            setError(error, "%s has no member %s", type.name.c_str(), defaults[i].member);
            return nullptr;
        }
        Member &member = type.members[index];
        if (!encodeDefault(*member.type->resolved, defaults[i].value, member.initial, error)) {
            return nullptr;
        }
    }
    return intern(std::move(type), error);
}

const DDS_TypeCode *makeOpaque(const char *name, const DDS_OpaqueType &from, DDS_ErrorText *error)
{
    if (name == nullptr || name[0] == '\0') {
        setError(error, "an opaque type needs a name");
        return nullptr;
    }
    const DDS_TypeCode *const bytes =
        DDS_TypeCode_create_sequence(DDS_TypeCode_get_primitive(DDS_TK_OCTET), 0, error);
    if (bytes == nullptr) {
        return nullptr;
    }
    auto opaque = std::make_unique<Opaque>();
    opaque->information.assign(reinterpret_cast<const char *>(from.information),
                               from.informationSize);
    opaque->mapping.assign(reinterpret_cast<const char *>(from.mapping), from.mappingSize);
    opaque->record = {from.isKeyed, reinterpret_cast<const uint8_t *>(opaque->information.data()),
                      opaque->information.size(),
                      reinterpret_cast<const uint8_t *>(opaque->mapping.data()),
                      opaque->mapping.size()};
    DDS_TypeCode type;
    type.kind = DDS_TK_STRUCT;
    type.name = name;
    type.members.push_back({"serialized", bytes, false, 0, {}});
    type.opaque = std::move(opaque);
    return intern(std::move(type), error);
}

} // namespace

} // namespace qddsc

using namespace qddsc;

const DDS_TypeCode *DDS_TypeCode_get_primitive(DDS_TCKind kind) noexcept
{
    if (kind < DDS_TK_BOOLEAN || kind > DDS_TK_DOUBLE) {
        return nullptr;
    }
    return guarded(nullptr, [kind] {
        DDS_TypeCode type;
        type.kind = kind;
        return intern(std::move(type), nullptr);
    });
}

const DDS_TypeCode *DDS_TypeCode_create_string(uint32_t bound, DDS_ErrorText *error) noexcept
{
    return guarded(error, [bound, error] {
        DDS_TypeCode type;
        type.kind = DDS_TK_STRING;
        type.bound = bound;
        return intern(std::move(type), error);
    });
}

const DDS_TypeCode *DDS_TypeCode_create_sequence(const DDS_TypeCode *element, uint32_t bound,
                                                 DDS_ErrorText *error) noexcept
{
    return guarded(error, [element, bound, error]() -> const DDS_TypeCode * {
        if (!checkElement(element, error)) {
            return nullptr;
        }
        DDS_TypeCode type;
        type.kind = DDS_TK_SEQUENCE;
        type.content = element;
        type.bound = bound;
        return intern(std::move(type), error);
    });
}

const DDS_TypeCode *DDS_TypeCode_create_array(const DDS_TypeCode *element,
                                              const uint32_t *dimensions, uint32_t dimensionCount,
                                              DDS_ErrorText *error) noexcept
{
    return guarded(error, [=] { return makeArray(element, dimensions, dimensionCount, error); });
}

const DDS_TypeCode *DDS_TypeCode_create_alias(const char *name, const DDS_TypeCode *target,
                                              DDS_ErrorText *error) noexcept
{
    return guarded(error, [name, target, error]() -> const DDS_TypeCode * {
        if (!checkTypeName(name, error)) {
            return nullptr;
        }
        if (target == nullptr) {
            setError(error, "target type of %s is null", name);
            return nullptr;
        }
        DDS_TypeCode type;
        type.kind = DDS_TK_ALIAS;
        type.name = name;
        type.content = target;
        return intern(std::move(type), error);
    });
}

const DDS_TypeCode *DDS_TypeCode_create_enum(const char *name, const DDS_EnumMember *members,
                                             uint32_t count, DDS_ErrorText *error) noexcept
{
    return guarded(error, [=] { return makeEnum(name, members, count, error); });
}

const DDS_TypeCode *DDS_TypeCode_create_struct(const char *name, const DDS_TypeCode *base,
                                               DDS_ExtensibilityKind extensibility,
                                               const DDS_StructMember *members, uint32_t count,
                                               DDS_ErrorText *error) noexcept
{
    return guarded(error,
                   [=] { return makeStruct(name, base, extensibility, members, count, error); });
}

const DDS_TypeCode *DDS_TypeCode_create_nested(const DDS_TypeCode *structure,
                                               DDS_ErrorText *error) noexcept
{
    return guarded(error, [=] { return makeNested(structure, error); });
}

const DDS_TypeCode *DDS_TypeCode_create_with_defaults(const DDS_TypeCode *structure,
                                                      const DDS_MemberDefault *defaults,
                                                      uint32_t count, DDS_ErrorText *error) noexcept
{
    return guarded(error, [=] { return makeWithDefaults(structure, defaults, count, error); });
}

const DDS_TypeCode *DDS_TypeCode_create_opaque(const char *name, const DDS_OpaqueType *opaque,
                                               DDS_ErrorText *error) noexcept
{
    return guarded(error, [=] { return makeOpaque(name, *opaque, error); });
}
