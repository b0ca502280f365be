// Types as peers see them: byte for byte what the engine's own IDL compiler announces, and back.
#include <gtest/gtest.h>

#include "described.h"
#include "type_code.h"
#include "type_object.h"

using namespace qddsdomain;

namespace {

using Bytes = std::vector<uint8_t>;

const DDS_TypeCode *fromIdl(const char *name)
{
    static DDS_TypeLibrary *const library = [] {
        DDS_TypeLibrary *made = DDS_TypeLibrary_new();
        DDS_ErrorText error{};
        EXPECT_EQ(DDS_TypeLibrary_add_idl_file(made, DESCRIBED_IDL, &error), 1) << error.text;
        return made;
    }();
    return DDS_TypeLibrary_find(library, name);
}

Bytes bytesOf(const dds_type_meta_ser &blob)
{
    return {blob.data, blob.data + blob.sz};
}

TEST(TypeObject, IsWhatTheEnginesCompilerMakes)
{
    for (const dds_topic_descriptor_t *compiled :
         {&described_Position_desc, &described_Ident_desc, &described_Detail_desc,
          &described_Base_desc, &described_Observation_desc, &described_Scalars_desc,
          &described_Eight_desc}) {
        SCOPED_TRACE(compiled->m_typename);
        TypeDescription ours;
        DDS_ErrorText error{};
        ASSERT_TRUE(describeType(*fromIdl(compiled->m_typename), ours, &error)) << error.text;
        EXPECT_EQ(ours.typeInformation, bytesOf(compiled->type_information));
        EXPECT_EQ(ours.typeMapping, bytesOf(compiled->type_mapping));
    }
}

} // namespace
