// From a type code to its type objects. Ids match those of the engine's own IDL compiler byte for
// byte, so that peers built from the same IDL know the type by its hash alone.
#include <dds/ddsrt/md5.h>

#include <set>
#include <stdexcept>
#include <unordered_map>

#include "error_text.h"
#include "type_code.h"
#include "type_object.h"
#include "type_object_codes.h"
#include "xcdr2_writer.h"

namespace qddsdomain {

namespace {

// The two forms of a type object: minimal has hashes for names, complete has the names.
enum Form { minimal, complete };
constexpr std::array<uint8_t, 2> FORM_KIND = {xtypes::EK_MINIMAL, xtypes::EK_COMPLETE};

constexpr uint16_t ELEMENT_FLAGS = xtypes::TRY_CONSTRUCT1;
constexpr uint16_t KEY_FLAGS = xtypes::IS_KEY | xtypes::IS_MUST_UNDERSTAND;
// The engine's compiler puts this on enums although it means nothing there.
constexpr uint16_t ENUM_FLAGS = xtypes::IS_FINAL;
constexpr uint16_t ENUM_BITS = 32;
// A bound that fits a byte has a shorter form.
constexpr uint32_t MAX_SMALL_BOUND = 255;

struct Described {
    std::array<EquivalenceHash, 2> hash{};
    std::array<std::vector<uint8_t>, 2> object;
};

std::array<uint8_t, 16> md5(const void *bytes, size_t length)
{
    ddsrt_md5_state_t state;
    std::array<uint8_t, 16> digest{};
    ddsrt_md5_init(&state);
    ddsrt_md5_append(&state, static_cast<const uint8_t *>(bytes), static_cast<uint32_t>(length));
    ddsrt_md5_finish(&state, digest.data());
    return digest;
}

// Whether an identifier holds the whole type, so that it is the same in both forms.
bool isSelfContained(const DDS_TypeCode &type)
{
    if (type.kind == DDS_TK_SEQUENCE || type.kind == DDS_TK_ARRAY) {
        return isSelfContained(*type.content);
    }
    return type.kind <= DDS_TK_STRING;
}

uint8_t primitiveKind(DDS_TCKind kind)
{
    // The engine's release knows no 8-bit integers: its compiler makes a char of int8.
    static constexpr uint8_t kinds[] = {xtypes::TK_NONE,   xtypes::TK_BOOLEAN, xtypes::TK_CHAR8,
                                        xtypes::TK_BYTE,   xtypes::TK_CHAR8,   xtypes::TK_INT16,
                                        xtypes::TK_UINT16, xtypes::TK_INT32,   xtypes::TK_UINT32,
                                        xtypes::TK_INT64,  xtypes::TK_UINT64,  xtypes::TK_FLOAT32,
                                        xtypes::TK_FLOAT64};
    return kinds[kind];
}

class Describer {
public:
    explicit Describer(const DDS_TypeCode &top)
    {
        describe(top);
    }

    // Every type says which others it needs, itself first.
    std::vector<uint8_t> information() const
    {
        constexpr uint32_t MINIMAL_HEADER = 0x40001001; // member id, length follows
        constexpr uint32_t COMPLETE_HEADER = 0x40001002;
        Xcdr2Writer out;
        out.delimited([&] {
            out.u32(MINIMAL_HEADER);
            out.delimited([&] { writeDependencies(out, minimal); });
            out.u32(COMPLETE_HEADER);
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
    // The type's place in described_: a type stands before those that it needs.
    size_t describe(const DDS_TypeCode &type)
    {
        const auto [known, isNew] = indices_.emplace(&type, described_.size());
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
        out.u8(FORM_KIND[form]);
        out.raw(type.hash[form]);
    }

    // Types that differ in names only have one minimal object, which is listed once.
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

    void writeIdentifier(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        switch (type.kind) {
        case DDS_TK_STRING:
            writeBound(out, type.bound, xtypes::TI_STRING8_SMALL, xtypes::TI_STRING8_LARGE);
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
            out.u8(primitiveKind(type.kind));
            break;
        }
    }

    static void writeBound(Xcdr2Writer &out, uint32_t bound, uint8_t small, uint8_t large)
    {
        const bool fits = bound <= MAX_SMALL_BOUND;
        out.u8(fits ? small : large);
        fits ? out.u8(static_cast<uint8_t>(bound)) : out.u32(bound);
    }

    void writeCollection(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        const bool isArray = type.kind == DDS_TK_ARRAY;
        const auto isLarge = [](uint32_t bound) { return bound > MAX_SMALL_BOUND; };
        const bool large =
            isArray ? std::any_of(type.dimensions.begin(), type.dimensions.end(), isLarge)
                    : isLarge(type.bound);
        constexpr uint8_t TO_ARRAY = xtypes::TI_PLAIN_ARRAY_SMALL - xtypes::TI_PLAIN_SEQUENCE_SMALL;
        const int kind =
            (large ? xtypes::TI_PLAIN_SEQUENCE_LARGE : xtypes::TI_PLAIN_SEQUENCE_SMALL) +
            (isArray ? TO_ARRAY : 0);
        out.u8(static_cast<uint8_t>(kind));
        out.u8(isSelfContained(type) ? uint8_t{xtypes::EK_BOTH} : FORM_KIND[form]);
        out.u16(ELEMENT_FLAGS);
        const auto writeOne = [&out, large](uint32_t bound) {
            large ? out.u32(bound) : out.u8(static_cast<uint8_t>(bound));
        };
        if (isArray) {
            out.u32(static_cast<uint32_t>(type.dimensions.size()));
            std::for_each(type.dimensions.begin(), type.dimensions.end(), writeOne);
        } else {
            writeOne(type.bound);
        }
        writeIdentifier(out, *type.content, form);
    }

    void writeObject(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        if (type.name.size() > xtypes::TYPE_NAME_MAX_LENGTH) {
            throw std::length_error(type.name);
        }
        out.u8(FORM_KIND[form]);
        switch (type.kind) {
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

    static void writeTypeName(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        if (form == complete) {
            writeNoAnnotations(out);
            out.string(type.name);
        }
    }

    static void writeMemberName(Xcdr2Writer &out, const qddsc::Member &member, Form form)
    {
        if (member.name.size() > xtypes::MEMBER_NAME_MAX_LENGTH) {
            throw std::length_error(member.name);
        }
        if (form == complete) {
            out.string(member.name);
            writeNoAnnotations(out);
        } else {
            const auto digest = md5(member.name.data(), member.name.size());
            out.raw(std::vector<uint8_t>(digest.begin(), digest.begin() + 4));
        }
    }

    static uint16_t structFlags(const DDS_TypeCode &type)
    {
        const int extensibility = type.extensibility == DDS_EXTENSIBILITY_FINAL
                                      ? xtypes::IS_FINAL
                                      : xtypes::IS_APPENDABLE;
        return static_cast<uint16_t>(extensibility | (type.nested ? xtypes::IS_NESTED : 0));
    }

    void writeStruct(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        out.u8(xtypes::TK_STRUCTURE);
        out.u16(structFlags(type));
        out.delimited([&] {
            if (type.base != nullptr) {
                writeIdentifier(out, *type.base, form);
            } else {
                out.u8(xtypes::TK_NONE);
            }
            writeTypeName(out, type, form);
        });
        // Numbers go on from those of the base.
        auto id = static_cast<uint32_t>(type.base != nullptr ? type.base->members.size() : 0);
        const std::vector<qddsc::Member> own(type.members.begin() + id, type.members.end());
        out.sequence(own, [&](const qddsc::Member &member) {
            out.delimited([&] {
                out.u32(id++);
                out.u16(member.isKey ? ELEMENT_FLAGS | KEY_FLAGS : ELEMENT_FLAGS);
                writeIdentifier(out, *member.type, form);
                writeMemberName(out, member, form);
            });
        });
    }

    static void writeEnum(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        out.u8(xtypes::TK_ENUM);
        out.u16(ENUM_FLAGS);
        out.delimited([&] {
            out.u16(ENUM_BITS);
            writeTypeName(out, type, form);
        });
        out.sequence(type.members, [&](const qddsc::Member &literal) {
            out.delimited([&] {
                out.delimited([&] {
                    out.u32(static_cast<uint32_t>(literal.value));
                    out.u16(0);
                });
                writeMemberName(out, literal, form);
            });
        });
    }

    void writeAlias(Xcdr2Writer &out, const DDS_TypeCode &type, Form form)
    {
        out.u8(xtypes::TK_ALIAS);
        out.u16(0);
        out.delimited([&] { writeTypeName(out, type, form); });
        out.delimited([&] {
            out.u16(0);
            writeIdentifier(out, *type.content, form);
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
    if (type.resolved->kind != DDS_TK_STRUCT) {
        qddsc::setError(error, "only a struct can be described to peers");
        return false;
    }
    try {
        const Describer describer(*type.resolved);
        description = {describer.information(), describer.mapping()};
        return true;
    } catch (const std::length_error &tooLong) {
        qddsc::setError(error, "%s: name is longer than %d bytes", tooLong.what(),
                        xtypes::TYPE_NAME_MAX_LENGTH);
    } catch (const std::bad_alloc &) {
        qddsc::setError(error, "memory is short");
    }
    return false;
}

} // namespace qddsdomain
