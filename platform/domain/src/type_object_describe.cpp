// From a type code to its type objects. Ids match those of the engine's own IDL compiler byte for
// byte, so that peers built from the same IDL know the type by its hash alone.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "digest.h"
#include "qddscdr/error_text.h"
#include "type_object.h"
#include "type_object_codes.h"
#include "xcdr2_writer.h"

namespace qddsdomain {

namespace {

/// The two forms of a type object: minimal has hashes for names, complete has the names.
enum Form { minimal, complete };
constexpr std::array<uint8_t, 2> formKind = {xtypes::EK_MINIMAL, xtypes::EK_COMPLETE};

constexpr uint16_t elementFlags = xtypes::TRY_CONSTRUCT1;
constexpr uint16_t keyFlags = xtypes::IS_KEY | xtypes::IS_MUST_UNDERSTAND;
/// The engine's compiler puts this on enums although it means nothing there.
constexpr uint16_t enumFlags = xtypes::IS_FINAL;
constexpr uint16_t enumBits = 32;
/// A bound that fits a byte has a shorter form.
constexpr uint32_t maxSmallBound = 255;

struct Described {
    std::array<EquivalenceHash, 2> hash{};
    std::array<std::vector<uint8_t>, 2> object;
};

/// Whether an identifier holds the whole type, so that it is the same in both forms.
bool isSelfContained(const DDS_TypeCode *type)
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(type);
    if (kind == DDS_TK_SEQUENCE || kind == DDS_TK_ARRAY) {
        return isSelfContained(DDS_TypeCode_get_content(type));
    }
    return kind <= DDS_TK_STRING;
}

/// Bounds of a sequence (one) or array (its dimensions).
std::vector<uint32_t> boundsOf(const DDS_TypeCode *collection)
{
    if (DDS_TypeCode_get_kind(collection) == DDS_TK_SEQUENCE) {
        return {DDS_TypeCode_get_bound(collection)};
    }
    std::vector<uint32_t> bounds(DDS_TypeCode_get_dimension_count(collection));
    for (uint32_t i = 0; i < bounds.size(); ++i) {
        bounds[i] = DDS_TypeCode_get_dimension(collection, i);
    }
    return bounds;
}

/// Indices of members from `begin` on.
std::vector<uint32_t> membersFrom(const DDS_TypeCode *type, uint32_t begin)
{
    std::vector<uint32_t> members(DDS_TypeCode_get_member_count(type) - begin);
    std::iota(members.begin(), members.end(), begin);
    return members;
}

class Describer {
public:
    explicit Describer(const DDS_TypeCode *top)
    {
        describe(top);
    }

    /// Every type says which others it needs, itself first.
    std::vector<uint8_t> information() const
    {
        constexpr uint32_t minimalHeader = 0x40001001; // member id, length follows
        constexpr uint32_t completeHeader = 0x40001002;
        Xcdr2Writer out;
        out.delimited([&] {
            out.u32(minimalHeader);
            out.delimited([&] { writeDependencies(out, minimal); });
            out.u32(completeHeader);
            out.delimited([&] { writeDependencies(out, complete); });
        });
        return out.bytes();
    }

    std::vector<uint8_t> mapping() const
    {
        Xcdr2Writer out;
        for (const Form form : {minimal, complete}) {
            out.sequence(described_, [&](const Described &type) {
                writeHash(out, type, form);
                out.align(4);
                out.raw(type.object[form]);
            });
        }
        out.sequence(described_, [&](const Described &type) {
            writeHash(out, type, complete);
            writeHash(out, type, minimal);
        });
        return out.bytes();
    }

private:
    /// The type's place in described_: a type stands before those that it needs.
    size_t describe(const DDS_TypeCode *type)
    {
        const auto [known, isNew] = indices_.emplace(type, described_.size());
        const size_t index = known->second;
        if (isNew) {
            described_.emplace_back();
            for (const Form form : {minimal, complete}) {
                Xcdr2Writer out;
                out.delimited([&] { writeObject(out, type, form); });
                const auto digest = md5(out.bytes().data(), out.bytes().size());
                std::copy_n(digest.begin(), sizeof(EquivalenceHash),
                            described_[index].hash[form].begin());
                described_[index].object[form] = out.bytes();
            }
        }
        return index;
    }

    static void writeHash(Xcdr2Writer &out, const Described &type, Form form)
    {
        out.u8(formKind[form]);
        out.raw(type.hash[form]);
    }

    /// Types that differ in names only have one minimal object, which is listed once.
    void writeDependencies(Xcdr2Writer &out, Form form) const
    {
        std::vector<const Described *> others;
        std::set<EquivalenceHash> listed = {described_.front().hash[form]};
        for (const Described &type : described_) {
            if (listed.insert(type.hash[form]).second) {
                others.push_back(&type);
            }
        }
        const auto writeOne = [&out, form](const Described *type) {
            out.delimited([&] {
                writeHash(out, *type, form);
                out.u32(static_cast<uint32_t>(type->object[form].size()));
            });
        };
        out.delimited([&] {
            writeOne(&described_.front());
            out.u32(static_cast<uint32_t>(others.size()));
            out.sequence(others, writeOne);
        });
    }

    void writeIdentifier(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(type);
        switch (kind) {
        case DDS_TK_STRING:
            writeBound(out, DDS_TypeCode_get_bound(type), xtypes::TI_STRING8_SMALL,
                       xtypes::TI_STRING8_LARGE);
            break;
        case DDS_TK_SEQUENCE:
        case DDS_TK_ARRAY:
            writeCollection(out, type, form);
            break;
        case DDS_TK_ENUM:
        case DDS_TK_STRUCT:
        case DDS_TK_ALIAS:
            writeHash(out, described_[describe(type)], form);
            break;
        default:
            out.u8(xtypes::primitiveKinds[kind]);
            break;
        }
    }

    static void writeBound(Xcdr2Writer &out, uint32_t bound, uint8_t small, uint8_t large)
    {
        const bool fits = bound <= maxSmallBound;
        out.u8(fits ? small : large);
        fits ? out.u8(static_cast<uint8_t>(bound)) : out.u32(bound);
    }

    void writeCollection(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        const bool isArray = DDS_TypeCode_get_kind(type) == DDS_TK_ARRAY;
        const std::vector<uint32_t> bounds = boundsOf(type);
        const bool large = std::any_of(bounds.begin(), bounds.end(),
                                       [](uint32_t bound) { return bound > maxSmallBound; });
        constexpr uint8_t toArray = xtypes::TI_PLAIN_ARRAY_SMALL - xtypes::TI_PLAIN_SEQUENCE_SMALL;
        const int kind =
            (large ? xtypes::TI_PLAIN_SEQUENCE_LARGE : xtypes::TI_PLAIN_SEQUENCE_SMALL) +
            (isArray ? toArray : 0);
        out.u8(static_cast<uint8_t>(kind));
        out.u8(isSelfContained(type) ? uint8_t{xtypes::EK_BOTH} : formKind[form]);
        out.u16(elementFlags);
        if (isArray) {
            out.u32(static_cast<uint32_t>(bounds.size()));
        }
        for (const uint32_t bound : bounds) {
            large ? out.u32(bound) : out.u8(static_cast<uint8_t>(bound));
        }
        writeIdentifier(out, DDS_TypeCode_get_content(type), form);
    }

    void writeObject(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        const char *name = DDS_TypeCode_get_name(type);
        if (std::strlen(name) > xtypes::TYPE_NAME_MAX_LENGTH) {
            throw std::length_error(name);
        }
        out.u8(formKind[form]);
        switch (DDS_TypeCode_get_kind(type)) {
        case DDS_TK_STRUCT:
            writeStruct(out, type, form);
            break;
        case DDS_TK_ENUM:
            writeEnum(out, type, form);
            break;
        default:
            writeAlias(out, type, form);
            break;
        }
    }

    static void writeNoAnnotations(Xcdr2Writer &out)
    {
        out.u8(0); // builtin ones
        out.u8(0); // others
    }

    static void writeTypeName(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        if (form == complete) {
            writeNoAnnotations(out);
            out.string(DDS_TypeCode_get_name(type));
        }
    }

    static void writeMemberName(Xcdr2Writer &out, const DDS_TypeCode *type, uint32_t member,
                                Form form)
    {
        const std::string name = DDS_TypeCode_get_member_name(type, member);
        if (name.size() > xtypes::MEMBER_NAME_MAX_LENGTH) {
            throw std::length_error(name);
        }
        if (form == complete) {
            out.string(name);
            writeNoAnnotations(out);
        } else {
            const auto digest = md5(name.data(), name.size());
            out.raw(std::vector<uint8_t>(digest.begin(), digest.begin() + 4));
        }
    }

    static uint16_t structFlags(const DDS_TypeCode *type)
    {
        const int extensibility = DDS_TypeCode_get_extensibility(type) == DDS_EXTENSIBILITY_FINAL
                                      ? xtypes::IS_FINAL
                                      : xtypes::IS_APPENDABLE;
        return static_cast<uint16_t>(extensibility |
                                     (DDS_TypeCode_is_nested(type) != 0 ? xtypes::IS_NESTED : 0));
    }

    void writeStruct(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        const DDS_TypeCode *base = DDS_TypeCode_get_base(type);
        out.u8(xtypes::TK_STRUCTURE);
        out.u16(structFlags(type));
        out.delimited([&] {
            if (base != nullptr) {
                writeIdentifier(out, base, form);
            } else {
                out.u8(xtypes::TK_NONE);
            }
            writeTypeName(out, type, form);
        });
        const uint32_t inherited = base != nullptr ? DDS_TypeCode_get_member_count(base) : 0;
        // A member's id is its number, those of the base included.
        out.sequence(membersFrom(type, inherited), [&](uint32_t id) {
            out.delimited([&] {
                out.u32(id);
                out.u16(DDS_TypeCode_is_member_key(type, id) != 0 ? elementFlags | keyFlags
                                                                  : elementFlags);
                writeIdentifier(out, DDS_TypeCode_get_member_type(type, id), form);
                writeMemberName(out, type, id, form);
            });
        });
    }

    static void writeEnum(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        out.u8(xtypes::TK_ENUM);
        out.u16(enumFlags);
        out.delimited([&] {
            out.u16(enumBits);
            writeTypeName(out, type, form);
        });
        out.sequence(membersFrom(type, 0), [&](uint32_t literal) {
            out.delimited([&] {
                out.delimited([&] {
                    out.u32(static_cast<uint32_t>(DDS_TypeCode_get_member_value(type, literal)));
                    out.u16(0);
                });
                writeMemberName(out, type, literal, form);
            });
        });
    }

    void writeAlias(Xcdr2Writer &out, const DDS_TypeCode *type, Form form)
    {
        out.u8(xtypes::TK_ALIAS);
        out.u16(0);
        out.delimited([&] { writeTypeName(out, type, form); });
        out.delimited([&] {
            out.u16(0);
            writeIdentifier(out, DDS_TypeCode_get_content(type), form);
            if (form == complete) {
                writeNoAnnotations(out);
            }
        });
    }

    std::vector<Described> described_;
    std::unordered_map<const DDS_TypeCode *, size_t> indices_;
};

} // namespace

bool describeType(const DDS_TypeCode &type, TypeDescription &description, DDS_ErrorText *error)
{
    const DDS_TypeCode *structure = DDS_TypeCode_resolve(&type);
    if (DDS_TypeCode_get_kind(structure) != DDS_TK_STRUCT) {
        qddscdr::setError(error, "only a struct can be described to peers");
        return false;
    }
    try {
        const Describer describer(structure);
        description = {describer.information(), describer.mapping()};
        return true;
    } catch (const std::length_error &tooLong) {
        qddscdr::setError(error, "%s: name is longer than %d bytes", tooLong.what(),
                          xtypes::TYPE_NAME_MAX_LENGTH);
    } catch (const std::bad_alloc &) {
        qddscdr::setError(error, "memory is short");
    }
    return false;
}

} // namespace qddsdomain
