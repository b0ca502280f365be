// The scalars of samples by kind: one pair of accessors for each, the value travels as bits.
#ifndef TESTS_PLATFORM_SCALARS_H
#define TESTS_PLATFORM_SCALARS_H

#include <cstring>

#include "qddsc/dynamic_data.h"

struct ScalarAccess {
    DDS_ReturnCode_t (*get)(const DDS_DynamicData *data, const char *path, uint64_t &bits);
    DDS_ReturnCode_t (*set)(DDS_DynamicData *data, const char *path, uint64_t bits);
};

template<typename T, auto Get, auto Set>
constexpr ScalarAccess SCALAR_AS = {
    [](const DDS_DynamicData *data, const char *path, uint64_t &bits) {
        T value{};
        const DDS_ReturnCode_t code = Get(data, path, &value);
        bits = 0;
        std::memcpy(&bits, &value, sizeof value);
        return code;
    },
    [](DDS_DynamicData *data, const char *path, uint64_t bits) {
        T value{};
        std::memcpy(&value, &bits, sizeof value);
        return Set(data, path, value);
    }};

#define SCALAR(TYPE, NAME) SCALAR_AS<TYPE, DDS_DynamicData_get_##NAME, DDS_DynamicData_set_##NAME>

// By primitive kind; there is none of kind 0.
constexpr ScalarAccess SCALARS[] = {{},
                                    SCALAR(int32_t, boolean),
                                    SCALAR(char, char),
                                    SCALAR(uint8_t, octet),
                                    SCALAR(int8_t, int8),
                                    SCALAR(int16_t, short),
                                    SCALAR(uint16_t, ushort),
                                    SCALAR(int32_t, long),
                                    SCALAR(uint32_t, ulong),
                                    SCALAR(int64_t, longlong),
                                    SCALAR(uint64_t, ulonglong),
                                    SCALAR(float, float),
                                    SCALAR(double, double)};

// The primitive kind by which a scalar is accessed.
constexpr DDS_TCKind accessKind(DDS_TCKind kind)
{
    return kind == DDS_TK_ENUM ? DDS_TK_LONG : kind;
}

#endif
