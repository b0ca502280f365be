// Samples that are known by a number, and what a plug-in does with an error.
#ifndef TESTS_RELAY_NUMBERED_H
#define TESTS_RELAY_NUMBERED_H

#include <cstdio>
#include <string>

#include "ferryjni/environment.h"
#include "qddsc/dynamic_data.h"

namespace numbered {

/// A number, and bytes without meaning.
inline const DDS_TypeCode *sampleType()
{
    static const DDS_StructMember members[] = {
        {"n", DDS_TypeCode_get_primitive(DDS_TK_LONG), 0},
        {"rest", DDS_TypeCode_create_sequence(DDS_TypeCode_get_primitive(DDS_TK_OCTET), 0, nullptr),
         0}};
    static const DDS_TypeCode *const type = DDS_TypeCode_create_struct(
        "Numbered", nullptr, DDS_EXTENSIBILITY_FINAL, members, 2, nullptr);
    return type;
}

inline int numberOf(const void *sample)
{
    std::int32_t number = 0;
    DDS_DynamicData_get_long(static_cast<const DDS_DynamicData *>(sample), "n", &number);
    return number;
}

/// Gives a sample its number and so many bytes.
inline void set(DDS_DynamicData *sample, int number, std::uint32_t bytes)
{
    DDS_DynamicData_set_long(sample, "n", number);
    DDS_DynamicData_set_length(sample, "rest", bytes);
}

/// Has a call fail if there is a text.
inline void fail(QEL_FerrionEnvironment &environment, const std::string &text)
{
    if (!text.empty()) {
        environment.errorFlag = 1;
        std::snprintf(environment.message, sizeof environment.message, "%s", text.c_str());
    }
}

} // namespace numbered

#endif
