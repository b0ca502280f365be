// Types as peers see them: byte for byte what the engine's own IDL compiler announces, and back.
#include <dds/ddsi/ddsi_xt_typeinfo.h>

#include <sstream>

#include "../platform/fixture.h"
#include "../platform/records.h"
#include "described.h"
#include "rejected.h"
#include "type_mapping.h"

using namespace qddsdomain;

namespace {

using Bytes = std::vector<uint8_t>;

const DDS_TypeCode *fromIdl(const char *name)
{
    std::stringstream text;
    text << std::ifstream(DESCRIBED_IDL).rdbuf();
    return typeFromIdl(text.str().c_str(), name);
}

Bytes bytesOf(const dds_type_meta_ser &blob)
{
    return {blob.data, blob.data + blob.sz};
}

TEST(TypeObject, IsWhatTheEnginesCompilerMakes)
{
    for (const dds_topic_descriptor_t *compiled :
         {&described_SamePosition_desc, &described_Ident_desc, &described_Detail_desc,
          &described_Base_desc, &described_Observation_desc, &described_Scalars_desc,
          &described_Eight_desc, &described_inner_Outer_desc}) {
        SCOPED_TRACE(compiled->m_typename);
        TypeDescription ours;
        DDS_ErrorText error{};
        ASSERT_TRUE(describeType(*fromIdl(compiled->m_typename), ours, &error)) << error.text;
        EXPECT_EQ(ours.typeInformation, bytesOf(compiled->type_information));
        EXPECT_EQ(ours.typeMapping, bytesOf(compiled->type_mapping));
    }
}

TEST(TypeObject, BecomesTheSameTypeAgain)
{
    for (const char *name : {"described::Observation", "described::Scalars", "described::Base"}) {
        TypeDescription ours;
        ASSERT_TRUE(describeType(*fromIdl(name), ours, nullptr));
        const TypeAssembler assembler = assembled(objectsOf(ours.typeMapping));
        EXPECT_EQ(assembler.type(), fromIdl(name)) << assembler.problem();
    }
}

TEST(TypeObject, MalformedIsRejectedOrAnotherType)
{
    Objects objects = objectsOf(bytesOf(described_Observation_desc.type_mapping));
    for (auto &[hash, object] : objects.all) {
        const Bytes whole = object;
        for (size_t i = 0; i < whole.size(); ++i) {
            object.assign(whole.data(), whole.data() + i);
            EXPECT_NE(assembled(objects).problem(), "") << i;
            for (const uint8_t flip : Bytes{0x01, 0x80, 0xFF}) {
                object = whole;
                object[i] ^= flip;
                const TypeAssembler assembler = assembled(objects);
                EXPECT_TRUE(assembler.type() == nullptr || assembler.problem().empty());
            }
        }
        object = whole;
    }
}

TEST(TypeObject, NotCarriedIsRejectedByName)
{
    const std::pair<const dds_topic_descriptor_t *, std::string> compiled[] = {
        {&rejected_WithSmall_desc,
         "enum rejected::Small: a bit bound of 8 is not supported: enums have 32 bits"},
        {&rejected_WithUnion_desc, "union rejected::Either: unions are not supported"},
        {&rejected_WithBits_desc, "type rejected::Bits: bit masks are not supported"},
        {&rejected_WithMutable_desc, "struct rejected::Inner: mutable types are not supported"},
        {&rejected_WithOptional_desc,
         "struct rejected::WithOptional, member m: optional members are not supported"},
        {&rejected_WithId_desc, "struct rejected::WithId, member m: its id is 7, not 0; ids out of "
                                "sequence are not supported"}};
    for (const auto &[type, problem] : compiled) {
        EXPECT_EQ(assembled(objectsOf(bytesOf(type->type_mapping))).problem(), problem);
    }
    for (const Record &test : recordsOf("domain/data/rejected_types.txt")) {
        EXPECT_EQ(assembled({{}, {{EquivalenceHash{}, fromHex(test.at(0))}}}).problem(),
                  test.at(1));
    }
}

} // namespace
