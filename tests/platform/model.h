// A naive model of samples: a tree of values, an encoder that writes CDR value by value, and random
// types. It shares nothing with the library but the type codes it looks at.
#ifndef TESTS_PLATFORM_MODEL_H
#define TESTS_PLATFORM_MODEL_H

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qddsc/dynamic_data.h"

namespace model {

struct Value {
    const DDS_TypeCode *type = nullptr; // resolved
    uint64_t bits = 0;                  // of a scalar
    std::string text;
    std::vector<Value> children;
};

inline Value makeDefault(const DDS_TypeCode *type)
{
    Value value;
    value.type = DDS_TypeCode_resolve(type);
    switch (DDS_TypeCode_get_kind(value.type)) {
    case DDS_TK_ENUM:
        value.bits = static_cast<uint32_t>(DDS_TypeCode_get_member_value(value.type, 0));
        break;
    case DDS_TK_STRUCT:
        for (uint32_t i = 0; i < DDS_TypeCode_get_member_count(value.type); ++i) {
            value.children.push_back(makeDefault(DDS_TypeCode_get_member_type(value.type, i)));
        }
        break;
    case DDS_TK_ARRAY: {
        size_t count = 1;
        for (uint32_t i = 0; i < DDS_TypeCode_get_dimension_count(value.type); ++i) {
            count *= DDS_TypeCode_get_dimension(value.type, i);
        }
        value.children.resize(count, makeDefault(DDS_TypeCode_get_content(value.type)));
        break;
    }
    default:
        break;
    }
    return value;
}

inline size_t sizeOf(DDS_TCKind kind)
{
    static const size_t sizes[] = {0, 1, 1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 4, 4};
    return sizes[kind];
}

inline void put(std::vector<uint8_t> &out, uint64_t bits, size_t size)
{
    while (out.size() % size != 0) {
        out.push_back(0);
    }
    for (size_t i = 0; i < size; ++i) {
        out.push_back(static_cast<uint8_t>(bits >> (8 * i)));
    }
}

inline void encode(const Value &value, std::vector<uint8_t> &out)
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
    if (kind == DDS_TK_STRING) {
        put(out, value.text.size() + 1, 4);
        out.insert(out.end(), value.text.c_str(), value.text.c_str() + value.text.size() + 1);
    } else if (kind < DDS_TK_STRUCT) {
        put(out, value.bits, sizeOf(kind));
    } else if (kind == DDS_TK_SEQUENCE) {
        put(out, value.children.size(), 4);
    }
    for (const Value &child : value.children) {
        encode(child, out);
    }
}

inline std::vector<uint8_t> encode(const Value &value)
{
    std::vector<uint8_t> out;
    encode(value, out);
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
            members.push_back({names[i].c_str(), type(depth - 1), 0});
        }
        const std::string name = "t::S" + std::to_string(serial_++);
        return DDS_TypeCode_create_struct(name.c_str(), nullptr, DDS_EXTENSIBILITY_FINAL,
                                          members.data(), count, nullptr);
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
