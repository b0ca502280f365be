// From a peer's type objects to our type code, through the public makers, so that their rules hold
// for peers too.

#include <algorithm>
#include <iterator>
#include <new>
#include <set>

#include <fmt/format.h>

#include "qddscdr/type.h"
#include "type_object_codes.h"
#include "type_object_parse.h"
#include "xcdr2_reader.h"

namespace qddsdomain {

namespace {

const DDS_TypeCode *made(const DDS_TypeCode *type, const std::string &where,
                         const DDS_ErrorText &error)
{
    if (type == nullptr) {
        throw Rejection(where + error.text);
    }
    return type;
}

/// Null for what is no primitive that we carry.
const DDS_TypeCode *primitive(uint8_t kind)
{
    if (kind == xtypes::TK_INT8 || kind == xtypes::TK_UINT8) {
        return DDS_TypeCode_get_primitive(kind == xtypes::TK_INT8 ? DDS_TK_INT8 : DDS_TK_OCTET);
    }
    const uint8_t *found =
        std::find(std::begin(xtypes::primitiveKinds) + 1, std::end(xtypes::primitiveKinds), kind);
    return found != std::end(xtypes::primitiveKinds)
               ? DDS_TypeCode_get_primitive(
                     static_cast<DDS_TCKind>(found - std::begin(xtypes::primitiveKinds)))
               : nullptr;
}

[[noreturn]] void rejectKind(uint8_t kind, const std::string &where)
{
    const char *what = nullptr;
    switch (kind) {
    case xtypes::TI_STRING16_SMALL:
    case xtypes::TI_STRING16_LARGE:
        what = "wide strings are not supported";
        break;
    case xtypes::TK_CHAR16:
        what = "wide characters are not supported";
        break;
    case xtypes::TK_FLOAT128:
        what = "long double is not supported";
        break;
    case xtypes::TI_PLAIN_MAP_SMALL:
    case xtypes::TI_PLAIN_MAP_LARGE:
        what = "maps are not supported";
        break;
    case xtypes::TI_STRONGLY_CONNECTED_COMPONENT:
        what = "recursive types are not supported";
        break;
    case xtypes::EK_MINIMAL:
        what = "types without names (minimal ones) are not supported";
        break;
    default:
        throw Rejection(fmt::format("{}types of kind {} are not supported", where, kind));
    }
    throw Rejection(where + what);
}

} // namespace

/// One attempt. Functions return null where type objects are missing, and throw Rejection. `where`
/// stands in front of problems; `depth` bounds the recursion.
class Assembly {
public:
    explicit Assembly(TypeAssembler &with) : with_(with) {}

    const DDS_TypeCode *run()
    {
        with_.missing_.clear();
        const DDS_TypeCode *type = byHash(with_.root_, "", 1);
        if (type != nullptr && DDS_TypeCode_get_kind(type) != DDS_TK_STRUCT) {
            throw Rejection("a topic's type must be a struct, and this one is not");
        }
        return type;
    }

private:
    const DDS_TypeCode *byHash(const EquivalenceHash &hash, const std::string &where,
                               uint32_t depth)
    {
        const auto known = with_.made_.find(hash);
        if (known != with_.made_.end()) {
            return known->second;
        }
        if (open_.count(hash) != 0) {
            throw Rejection(fmt::format("{}recursive types are not supported", where));
        }
        if (!seen_.insert(hash).second) {
            return nullptr;
        }
        const auto object = with_.objects_.find(hash);
        if (object == with_.objects_.end()) {
            with_.missing_.push_back(hash);
            return nullptr;
        }
        open_.insert(hash);
        const DDS_TypeCode *type =
            build(parseTypeObject(object->second.data(), object->second.size()), depth);
        open_.erase(hash);
        if (type != nullptr) {
            with_.made_.emplace(hash, type);
        }
        return type;
    }

    const DDS_TypeCode *build(const ParsedType &type, uint32_t depth)
    {
        switch (type.kind) {
        case xtypes::TK_STRUCTURE:
            return structure(type, depth);
        case xtypes::TK_ENUM:
            return enumeration(type);
        case xtypes::TK_ALIAS:
            return alias(type, depth);
        default:
            return byId(type.related, fmt::format("{}: ", type.title()), depth);
        }
    }

    const DDS_TypeCode *byId(const TypeId &id, const std::string &where, uint32_t depth)
    {
        if (depth > qddscdr::maxDepth) {
            throw Rejection(
                fmt::format("{}nested deeper than {} levels", where, qddscdr::maxDepth));
        }
        DDS_ErrorText error{};
        switch (id.kind) {
        case xtypes::EK_COMPLETE:
            return byHash(id.hash, where, depth + 1);
        case xtypes::TI_STRING8_SMALL:
        case xtypes::TI_STRING8_LARGE:
            return made(DDS_TypeCode_create_string(id.bound, &error), where, error);
        case xtypes::TI_PLAIN_SEQUENCE_SMALL:
        case xtypes::TI_PLAIN_SEQUENCE_LARGE:
        case xtypes::TI_PLAIN_ARRAY_SMALL:
        case xtypes::TI_PLAIN_ARRAY_LARGE:
            return collection(id, where, depth);
        default:
            break;
        }
        const DDS_TypeCode *type = primitive(id.kind);
        if (type == nullptr) {
            rejectKind(id.kind, where);
        }
        return type;
    }

    const DDS_TypeCode *collection(const TypeId &id, const std::string &where, uint32_t depth)
    {
        DDS_ErrorText error{};
        const DDS_TypeCode *element = byId(id.element.front(), where, depth + 1);
        if (element == nullptr) {
            return nullptr;
        }
        if (id.kind < xtypes::TI_PLAIN_ARRAY_SMALL) {
            return made(DDS_TypeCode_create_sequence(element, id.bound, &error), where, error);
        }
        // An array of unnamed arrays is one array, here and on the wire.
        std::vector<uint32_t> dimensions = id.dimensions;
        if (DDS_TypeCode_get_kind(element) == DDS_TK_ARRAY) {
            for (uint32_t i = 0; i < DDS_TypeCode_get_dimension_count(element); ++i) {
                dimensions.push_back(DDS_TypeCode_get_dimension(element, i));
            }
            element = DDS_TypeCode_get_content(element);
        }
        return made(DDS_TypeCode_create_array(element, dimensions.data(),
                                              static_cast<uint32_t>(dimensions.size()), &error),
                    where, error);
    }

    const DDS_TypeCode *alias(const ParsedType &type, uint32_t depth)
    {
        DDS_ErrorText error{};
        const DDS_TypeCode *target =
            byId(type.related, fmt::format("{}: ", type.title()), depth + 1);
        return target != nullptr
                   ? made(DDS_TypeCode_create_alias(type.name.c_str(), target, &error), "", error)
                   : nullptr;
    }

    static const DDS_TypeCode *enumeration(const ParsedType &type)
    {
        std::vector<DDS_EnumMember> members;
        for (const ParsedMember &member : type.members) {
            if ((member.flags & xtypes::IS_DEFAULT) != 0 && !members.empty()) {
                throw Rejection(fmt::format("{}, enumerator {}: a default that is not the first "
                                            "enumerator is not supported",
                                            type.title(), member.name));
            }
            members.push_back({member.name.c_str(), member.value});
        }
        DDS_ErrorText error{};
        return made(DDS_TypeCode_create_enum(type.name.c_str(), members.data(),
                                             static_cast<uint32_t>(members.size()), &error),
                    "", error);
    }

    static DDS_ExtensibilityKind extensibility(const ParsedType &type)
    {
        switch (type.flags & xtypes::MINIMAL_TYPE_FLAGS) {
        case xtypes::IS_FINAL:
            return DDS_EXTENSIBILITY_FINAL;
        case 0: // what XTypes takes for said when nothing is
        case xtypes::IS_APPENDABLE:
            return DDS_EXTENSIBILITY_APPENDABLE;
        case xtypes::IS_MUTABLE:
            throw Rejection(fmt::format("{}: mutable types are not supported", type.title()));
        default:
            throw Rejection(fmt::format("{}: it says more than one extensibility", type.title()));
        }
    }

    const DDS_TypeCode *structure(const ParsedType &type, uint32_t depth)
    {
        const DDS_ExtensibilityKind kind = extensibility(type);
        const DDS_TypeCode *base = nullptr;
        if (type.related.kind != xtypes::TK_NONE) {
            base = byId(type.related, fmt::format("{}, its base: ", type.title()), depth + 1);
            if (base == nullptr) {
                lookAhead(type, depth);
                return nullptr;
            }
        }
        bool isWhole = true;
        std::vector<DDS_StructMember> members;
        uint32_t nextId =
            base != nullptr ? DDS_TypeCode_get_member_count(DDS_TypeCode_resolve(base)) : 0;
        for (const ParsedMember &member : type.members) {
            checkMember(type, member, nextId++);
            const DDS_TypeCode *memberType = byId(member.type, place(type, member), depth + 1);
            isWhole = isWhole && memberType != nullptr;
            members.push_back(
                {member.name.c_str(), memberType, (member.flags & xtypes::IS_KEY) != 0 ? 1 : 0});
        }
        if (!isWhole) {
            return nullptr;
        }
        DDS_ErrorText error{};
        const DDS_TypeCode *plain =
            made(DDS_TypeCode_create_struct(type.name.c_str(), base, kind, members.data(),
                                            static_cast<uint32_t>(members.size()), &error),
                 "", error);
        return (type.flags & xtypes::IS_NESTED) != 0
                   ? made(DDS_TypeCode_create_nested(plain, &error), "", error)
                   : plain;
    }

    /// Finds what else is missing, so that it can be asked for together with the base.
    void lookAhead(const ParsedType &type, uint32_t depth)
    {
        for (const ParsedMember &member : type.members) {
            byId(member.type, place(type, member), depth + 1);
        }
    }

    static std::string place(const ParsedType &type, const ParsedMember &member)
    {
        return fmt::format("{}, member {}: ", type.title(), member.name);
    }

    /// Samples of final and appendable types do not show their members' ids, but peers compare
    /// them.
    static void checkMember(const ParsedType &type, const ParsedMember &member, uint32_t id)
    {
        if ((member.flags & xtypes::IS_OPTIONAL) != 0) {
            throw Rejection(
                fmt::format("{}optional members are not supported", place(type, member)));
        }
        if (member.id != id) {
            throw Rejection(
                fmt::format("{}its id is {}, not {}; ids out of sequence are not supported",
                            place(type, member), member.id, id));
        }
    }

    TypeAssembler &with_;
    std::set<EquivalenceHash> open_; // being built further up
    std::set<EquivalenceHash> seen_; // tried in this attempt
};

void TypeAssembler::add(const EquivalenceHash &hash, const uint8_t *bytes, size_t length)
{
    objects_.try_emplace(hash, bytes, bytes + length);
}

TypeAssembler::State TypeAssembler::assemble()
{
    if (problem_.empty() && type_ == nullptr) {
        try {
            type_ = Assembly(*this).run();
        } catch (const Rejection &rejection) {
            problem_ = rejection.what();
        } catch (const std::bad_alloc &) {
            problem_ = "memory is short";
        }
    }
    if (problem_.empty() && type_ == nullptr) {
        return State::incomplete;
    }
    objects_.clear();
    made_.clear();
    missing_.clear();
    return type_ != nullptr ? State::made : State::rejected;
}

} // namespace qddsdomain
