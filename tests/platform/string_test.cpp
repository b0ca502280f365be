// Strings and string sequences.
#include "core_fixture.h"
#include "qddsc/string.h"

namespace {

TEST(String, IsOwnedMemoryOfTheHeap)
{
    const int64_t before = heapUsage().blocks;
    char *text = DDS_String_alloc(5);
    char *copy = DDS_String_dup("hello");
    EXPECT_EQ(std::string(text, 6), std::string(6, '\0'));
    EXPECT_STREQ(copy, "hello");
    EXPECT_EQ(DDS_String_dup(nullptr), nullptr);
    EXPECT_EQ(DDS_String_alloc(SIZE_MAX), nullptr);
    DDS_String_free(text);
    DDS_String_free(copy);
    DDS_String_free(nullptr);

    DDS_StringSeq sequence;
    DDS_StringSeq_initialize(&sequence);
    EXPECT_EQ(DDS_StringSeq_get_reference(&sequence, 0), nullptr);
    for (int32_t i = 0; i < 100; ++i) {
        ASSERT_EQ(DDS_StringSeq_append(&sequence, std::to_string(i).c_str()), 1);
        ASSERT_EQ(DDS_StringSeq_get_length(&sequence), i + 1);
    }
    EXPECT_STREQ(*DDS_StringSeq_get_reference(&sequence, 99), "99");
    EXPECT_EQ(DDS_StringSeq_get_reference(&sequence, 100), nullptr);
    EXPECT_EQ(DDS_StringSeq_get_reference(&sequence, -1), nullptr);
    EXPECT_EQ(DDS_StringSeq_get_length(nullptr), 0);
    DDS_StringSeq_finalize(&sequence);
    EXPECT_EQ(DDS_StringSeq_get_length(&sequence), 0);
    DDS_StringSeq_finalize(&sequence);
    EXPECT_EQ(heapUsage().blocks, before);
}

} // namespace
