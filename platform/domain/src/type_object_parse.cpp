// See type_object_parse.h. The order of fields is that of the IDL in XTypes 1.3, annex B.
#include "type_object_parse.h"

#include <algorithm>

#include <fmt/format.h>

#include "qddscdr/type.h"
#include "type_object_codes.h"
#include "xcdr2_reader.h"

namespace qddsdomain {

namespace {

std::string checkedName(std::string name)
{
    constexpr const char *nameCharacters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_:";
    if (name.empty() || name.size() > xtypes::TYPE_NAME_MAX_LENGTH ||
        name.find_first_not_of(nameCharacters) != std::string::npos) {
        throw Rejection("its description holds a name that is none");
    }
    return name;
}

class Parser {
public:
    Parser(const uint8_t *bytes, size_t length, ParsedType &type) : in_(bytes, length), type_(type)
    {
    }

    void run()
    {
        in_.delimited([this] {
            if (in_.u8() != xtypes::EK_COMPLETE) {
                throw Rejection("its description is not a complete one");
            }
            type_.kind = in_.u8();
            body();
        });
    }

private:
    void body()
    {
        switch (type_.kind) {
        case xtypes::TK_STRUCTURE:
            structure();
            break;
        case xtypes::TK_ENUM:
            enumeration();
            break;
        case xtypes::TK_ALIAS:
            alias();
            break;
        case xtypes::TK_SEQUENCE:
            sequence();
            break;
        case xtypes::TK_ARRAY:
            in_.delimited([this] { array(); });
            break;
        case xtypes::TK_UNION:
            type_.flags = in_.u16();
            in_.delimited([this] { typeDetail(); });
            throw Rejection("unions are not supported");
        case xtypes::TK_BITMASK:
            in_.delimited([this] { bits(true); });
            throw Rejection("bit masks are not supported");
        case xtypes::TK_BITSET:
            in_.delimited([this] { bits(false); });
            throw Rejection("bit sets are not supported");
        case xtypes::TK_MAP:
            throw Rejection("maps are not supported");
        default:
            throw Rejection(fmt::format("types of kind {} are not supported", type_.kind));
        }
    }

    /// Annotations say nothing about how samples lie on the wire.
    void annotations()
    {
        in_.skipOptional();
        in_.skipOptional();
    }

    void typeDetail()
    {
        annotations();
        type_.name = checkedName(in_.string());
    }

    void memberDetail(ParsedMember &member)
    {
        member.name = checkedName(in_.string());
        annotations();
    }

    void structure()
    {
        type_.flags = in_.u16();
        in_.delimited([this] {
            type_.related = typeId();
            typeDetail();
        });
        members([this](ParsedMember &member) {
            member.id = in_.u32();
            member.flags = in_.u16();
            member.type = typeId();
        });
    }

    void enumeration()
    {
        uint16_t bits = 0;
        type_.flags = in_.u16();
        in_.delimited([this, &bits] {
            bits = in_.u16();
            typeDetail();
        });
        if (bits != 32) {
            throw Rejection(
                fmt::format("a bit bound of {} is not supported: enums have 32 bits", bits));
        }
        members([this](ParsedMember &member) {
            in_.delimited([this, &member] {
                member.value = static_cast<int32_t>(in_.u32());
                member.flags = in_.u16();
            });
        });
    }

    template<typename Common> void members(const Common &common)
    {
        in_.delimited([&] {
            in_.elements([&] {
                ParsedMember member;
                in_.delimited([&] {
                    common(member);
                    memberDetail(member);
                });
                type_.members.push_back(std::move(member));
            });
        });
    }

    void alias()
    {
        type_.flags = in_.u16();
        in_.delimited([this] { typeDetail(); });
        in_.delimited([this] {
            in_.u16();
            type_.related = typeId();
        });
    }

    void sequence()
    {
        type_.flags = in_.u16();
        type_.related.kind = xtypes::TI_PLAIN_SEQUENCE_LARGE;
        in_.delimited([this] { type_.related.bound = in_.u32(); });
        element();
    }

    void array()
    {
        type_.flags = in_.u16();
        type_.related.kind = xtypes::TI_PLAIN_ARRAY_LARGE;
        in_.delimited(
            [this] { in_.elements([this] { type_.related.dimensions.push_back(in_.u32()); }); });
        element();
    }

    void element()
    {
        in_.delimited([this] {
            in_.u16();
            type_.related.element.push_back(typeId());
        });
    }

    void bits(bool hasBound)
    {
        in_.u16();
        in_.delimited([this, hasBound] {
            if (hasBound) {
                in_.u16();
            }
            typeDetail();
        });
    }

    TypeId typeId(uint32_t depth = 1)
    {
        if (depth > qddscdr::maxDepth) {
            throw Rejection(fmt::format("nested deeper than {} levels", qddscdr::maxDepth));
        }
        TypeId id;
        id.kind = in_.u8();
        switch (id.kind) {
        case xtypes::TI_STRING8_SMALL:
        case xtypes::TI_STRING16_SMALL:
            id.bound = in_.u8();
            break;
        case xtypes::TI_STRING8_LARGE:
        case xtypes::TI_STRING16_LARGE:
            id.bound = in_.u32();
            break;
        case xtypes::TI_STRONGLY_CONNECTED_COMPONENT:
            in_.delimited([] {});
            break;
        case xtypes::EK_COMPLETE:
        case xtypes::EK_MINIMAL:
            std::copy_n(in_.take(id.hash.size()), id.hash.size(), id.hash.begin());
            break;
        default:
            plainCollection(id, depth);
            break;
        }
        return id;
    }

    /// A primitive has nothing more to read.
    void plainCollection(TypeId &id, uint32_t depth)
    {
        if (id.kind < xtypes::TI_PLAIN_SEQUENCE_SMALL) {
            return;
        }
        if (id.kind > xtypes::TI_PLAIN_MAP_LARGE || (id.kind & 0x0E) != 0) {
            throw Rejection(fmt::format("it uses a type of unknown kind {}", id.kind));
        }
        in_.u8();
        in_.u16();
        const bool isLarge = (id.kind & 1) != 0;
        const auto bound = [this, isLarge] { return isLarge ? in_.u32() : in_.u8(); };
        if (id.kind == xtypes::TI_PLAIN_ARRAY_SMALL || id.kind == xtypes::TI_PLAIN_ARRAY_LARGE) {
            in_.elements([&] { id.dimensions.push_back(bound()); });
        } else {
            id.bound = bound();
        }
        id.element.push_back(typeId(depth + 1));
        if (id.kind == xtypes::TI_PLAIN_MAP_SMALL || id.kind == xtypes::TI_PLAIN_MAP_LARGE) {
            in_.u16();
            typeId(depth + 1);
        }
    }

    Xcdr2Reader in_;
    ParsedType &type_;
};

} // namespace

std::string ParsedType::title() const
{
    const char *what = "type";
    switch (kind) {
    case xtypes::TK_STRUCTURE:
        what = "struct";
        break;
    case xtypes::TK_ENUM:
        what = "enum";
        break;
    case xtypes::TK_ALIAS:
        what = "typedef";
        break;
    case xtypes::TK_UNION:
        what = "union";
        break;
    default:
        break;
    }
    return name.empty() ? fmt::format("a {}", what) : fmt::format("{} {}", what, name);
}

ParsedType parseTypeObject(const uint8_t *bytes, size_t length)
{
    ParsedType type;
    try {
        Parser(bytes, length, type).run();
    } catch (const Rejection &rejection) {
        throw Rejection(fmt::format("{}: {}", type.title(), rejection.what()));
    }
    return type;
}

} // namespace qddsdomain
