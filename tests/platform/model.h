// A naive model of samples: a tree of values, a reader that goes through the accessors, an encoder
// that writes CDR value by value, and random types. It shares nothing with the library but the type
// codes it looks at.
#ifndef TESTS_PLATFORM_MODEL_H
#define TESTS_PLATFORM_MODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "scalars.h"

namespace model {

struct Value {
    const DDS_TypeCode *type = nullptr; // resolved
    uint64_t bits = 0;                  // of a scalar
    std::string text;
    std::vector<Value> children;
};

// Children of every value of a resolved type; of a sequence none.
inline size_t childCount(const DDS_TypeCode *type)
{
    if (DDS_TypeCode_get_kind(type) == DDS_TK_STRUCT) {
        return DDS_TypeCode_get_member_count(type);
    }
    size_t count = DDS_TypeCode_get_kind(type) == DDS_TK_ARRAY ? 1 : 0;
    for (uint32_t i = 0; i < DDS_TypeCode_get_dimension_count(type); ++i) {
        count *= DDS_TypeCode_get_dimension(type, i);
    }
    return count;
}

inline const DDS_TypeCode *childType(const DDS_TypeCode *type, size_t child)
{
    return DDS_TypeCode_get_kind(type) == DDS_TK_STRUCT
               ? DDS_TypeCode_get_member_type(type, static_cast<uint32_t>(child))
               : DDS_TypeCode_get_content(type);
}

inline Value makeDefault(const DDS_TypeCode *type)
{
    Value value;
    value.type = DDS_TypeCode_resolve(type);
    if (DDS_TypeCode_get_kind(value.type) == DDS_TK_ENUM) {
        value.bits = static_cast<uint32_t>(DDS_TypeCode_get_member_value(value.type, 0));
    }
    for (size_t i = 0; i < childCount(value.type); ++i) {
        value.children.push_back(makeDefault(childType(value.type, i)));
    }
    return value;
}

inline size_t sizeOf(DDS_TCKind kind)
{
    static const size_t sizes[] = {0, 1, 1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 4, 4};
    return sizes[kind];
}

// How CDR is written: inside, and to start with, as little-endian XCDR1.
struct Form {
    bool xcdr2 = false;
    bool bigEndian = false;
};

inline void put(std::vector<uint8_t> &out, uint64_t bits, size_t size, Form form)
{
    out.resize(out.size() + -out.size() % (form.xcdr2 ? std::min<size_t>(size, 4) : size));
    for (size_t i = 0; i < size; ++i) {
        out.push_back(static_cast<uint8_t>(bits >> (8 * (form.bigEndian ? size - 1 - i : i))));
    }
}

inline bool isAppendable(const DDS_TypeCode *type)
{
    return DDS_TypeCode_get_kind(type) == DDS_TK_STRUCT &&
           DDS_TypeCode_get_extensibility(type) == DDS_EXTENSIBILITY_APPENDABLE;
}

// Whether XCDR2 puts the size in front. An array of arrays is one array to it.
inline bool isDelimited(const DDS_TypeCode *type, bool inArray)
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(type);
    if (kind == DDS_TK_ARRAY || kind == DDS_TK_SEQUENCE) {
        const DDS_TypeCode *inner = DDS_TypeCode_resolve(DDS_TypeCode_get_content(type));
        const bool nested = kind == DDS_TK_ARRAY && DDS_TypeCode_get_kind(inner) == DDS_TK_ARRAY;
        return !(inArray && kind == DDS_TK_ARRAY) &&
               (nested ? isDelimited(inner, false) : DDS_TypeCode_get_kind(inner) > DDS_TK_DOUBLE);
    }
    return isAppendable(type);
}

inline void encode(const Value &value, std::vector<uint8_t> &out, Form form, bool inArray = false)
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
    const bool delimited = form.xcdr2 && isDelimited(value.type, inArray);
    if (delimited) {
        put(out, 0, 4, form);
    }
    const size_t start = out.size();
    if (kind == DDS_TK_STRING) {
        put(out, value.text.size() + 1, 4, form);
        out.insert(out.end(), value.text.c_str(), value.text.c_str() + value.text.size() + 1);
    } else if (kind < DDS_TK_STRUCT) {
        put(out, value.bits, sizeOf(kind), form);
    } else if (kind == DDS_TK_SEQUENCE) {
        put(out, value.children.size(), 4, form);
    }
    for (const Value &child : value.children) {
        encode(child, out, form, kind == DDS_TK_ARRAY);
    }
    if (delimited) {
        std::vector<uint8_t> size;
        put(size, out.size() - start, 4, form);
        std::copy(size.begin(), size.end(), out.begin() + static_cast<std::ptrdiff_t>(start) - 4);
    }
}

inline std::vector<uint8_t> encode(const Value &value, Form form = {})
{
    std::vector<uint8_t> out;
    encode(value, out, form);
    return out;
}

inline std::string step(const Value &parent, size_t child)
{
    if (DDS_TypeCode_get_kind(parent.type) == DDS_TK_STRUCT) {
        return std::string(".") +
               DDS_TypeCode_get_member_name(parent.type, static_cast<uint32_t>(child));
    }
    std::string text;
    for (uint32_t i = DDS_TypeCode_get_dimension_count(parent.type); i-- > 0;) {
        const uint32_t dimension = DDS_TypeCode_get_dimension(parent.type, i);
        text = "[" + std::to_string(child % dimension) + "]" + text;
        child /= dimension;
    }
    return text.empty() ? "[" + std::to_string(child) + "]" : text;
}

// Asks for a scalar by every kind: none but its own may read it.
inline bool readScalar(const DDS_DynamicData *data, const char *path, Value &value)
{
    const DDS_TCKind own = accessKind(DDS_TypeCode_get_kind(value.type));
    DDS_ReturnCode_t result = DDS_RETCODE_ERROR;
    for (uint32_t kind = DDS_TK_BOOLEAN; kind <= DDS_TK_DOUBLE; ++kind) {
        uint64_t bits = 0;
        const DDS_ReturnCode_t code = SCALARS[kind].get(data, path, bits);
        if (kind == own) {
            result = code;
            value.bits = bits;
        } else {
            EXPECT_NE(code, DDS_RETCODE_OK) << path << " as kind " << kind;
        }
    }
    return result == DDS_RETCODE_OK;
}

// Reads a value and everything below, in which a count may be a lie: of very many elements a few
// are tried. Returns whether all could be read.
inline bool read(const DDS_DynamicData *data, Value &value, const std::string &path = "")
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
    const char *name = path.c_str() + (path.empty() ? 0 : 1); // without the leading dot
    size_t count = childCount(value.type);
    if (kind == DDS_TK_STRING) {
        const char *text = "";
        const DDS_ReturnCode_t code = DDS_DynamicData_get_string(data, name, &text, &count);
        EXPECT_EQ(text[count], '\0') << name;
        value.text.assign(text, count);
        return code == DDS_RETCODE_OK;
    }
    if (kind < DDS_TK_STRUCT) {
        return readScalar(data, name, value);
    }
    if (kind == DDS_TK_SEQUENCE) {
        uint32_t length = 0;
        if (DDS_DynamicData_get_length(data, name, &length) != DDS_RETCODE_OK) {
            return false;
        }
        count = length;
    }
    bool good = true;
    for (size_t i = 0; i < count; i += count / 100 + 1) {
        Value child;
        child.type = DDS_TypeCode_resolve(childType(value.type, i));
        good = read(data, child, path + step(value, i)) && good;
        value.children.push_back(std::move(child));
    }
    return good;
}

class Random {
public:
    explicit Random(uint32_t seed) : engine_(seed) {}

    uint32_t below(uint32_t end)
    {
        return static_cast<uint32_t>(engine_() % end);
    }
    uint64_t bits()
    {
        return engine_();
    }

    // A struct whose members nest up to `depth` levels.
    const DDS_TypeCode *structure(int depth)
    {
        std::vector<std::string> names;
        std::vector<DDS_StructMember> members;
        const uint32_t count = 1 + below(6);
        for (uint32_t i = 0; i < count; ++i) {
            names.push_back("m" + std::to_string(i));
        }
        for (uint32_t i = 0; i < count; ++i) {
            members.push_back({names[i].c_str(), type(depth - 1), below(4) == 0});
        }
        const std::string name = "t::S" + std::to_string(serial_++);
        const auto extensibility = static_cast<DDS_ExtensibilityKind>(below(2));
        const auto make = [&] {
            return DDS_TypeCode_create_struct(name.c_str(), nullptr, extensibility, members.data(),
                                              count, nullptr);
        };
        const DDS_TypeCode *made = make();
        for (DDS_StructMember &member : members) { // a sequence cannot be a key
            member.isKey = made != nullptr && member.isKey;
        }
        return made != nullptr ? made : make();
    }

    // The bits of a scalar that may have them.
    uint64_t scalar(const DDS_TypeCode *type)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(type);
        if (kind == DDS_TK_BOOLEAN) {
            return below(2);
        }
        if (kind == DDS_TK_ENUM) {
            const uint32_t index = below(DDS_TypeCode_get_member_count(type));
            return static_cast<uint32_t>(DDS_TypeCode_get_member_value(type, index));
        }
        return bits() >> (64 - 8 * sizeOf(kind));
    }
    std::string text()
    {
        return std::string(below(21), static_cast<char>('a' + below(26)));
    }

    // Gives a default value and everything below another content.
    void fill(Value &value)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
        if (kind == DDS_TK_SEQUENCE) {
            value.children.resize(below(6), makeDefault(DDS_TypeCode_get_content(value.type)));
        }
        for (Value &child : value.children) {
            fill(child);
        }
        if (kind == DDS_TK_STRING) {
            value.text = text();
        } else if (kind < DDS_TK_STRUCT) {
            value.bits = scalar(value.type);
        }
    }

private:
    const DDS_TypeCode *type(int depth)
    {
        const uint32_t choice = below(depth > 0 ? 24 : 15);
        if (choice < 12) {
            return DDS_TypeCode_get_primitive(static_cast<DDS_TCKind>(choice + 1));
        }
        if (choice < 14) {
            return DDS_TypeCode_create_string(below(2) * 20, nullptr);
        }
        if (choice == 14) {
            const DDS_EnumMember members[] = {{"A", 7}, {"B", 0}, {"C", 100000}};
            return DDS_TypeCode_create_enum("t::E", members, 3, nullptr);
        }
        if (choice < 18) {
            return structure(depth);
        }
        const DDS_TypeCode *element = type(depth - 1);
        if (DDS_TypeCode_get_kind(element) == DDS_TK_ARRAY) {
            const std::string name = "t::A" + std::to_string(serial_++);
            element = DDS_TypeCode_create_alias(name.c_str(), element, nullptr);
        }
        if (choice < 22) {
            return DDS_TypeCode_create_sequence(element, below(2) * 5, nullptr);
        }
        const uint32_t dimensions[] = {1 + below(3), 1 + below(3)};
        return DDS_TypeCode_create_array(element, dimensions, 1 + below(2), nullptr);
    }

    std::mt19937_64 engine_;
    uint32_t serial_ = 0;
};

} // namespace model

#endif
