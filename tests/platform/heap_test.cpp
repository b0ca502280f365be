// The heap and thread-specific storage.
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "core_fixture.h"
#include "qddscore/thread.h"

namespace {

constexpr uint32_t TAG = QEL_OSAPI_HEAP_STRUCTURE_TAG;
constexpr const char *ROLE = "test";

void *take(size_t size, size_t alignment = QEL_OSAPI_HEAP_DEFAULT_ALIGNMENT, void *block = nullptr)
{
    return QELOsapiHeap_reallocateMemoryInternal(block, size, alignment, ROLE, TAG, "test block");
}

// What the C library has given out; nothing below a sanitizer.
size_t inUse()
{
    const struct mallinfo2 all = mallinfo2();
    return all.uordblks + all.hblkhd;
}

bool isZero(const void *block, size_t from, size_t to)
{
    const auto *bytes = static_cast<const unsigned char *>(block);
    return std::all_of(bytes + from, bytes + to, [](unsigned char byte) { return byte == 0; });
}

TEST(Heap, GivesZeroedAlignedBlocksThatKeepTheirBytesWhenTheyGrowAndShrink)
{
    const QELOsapiHeapUsage before = heapUsage();
    const size_t usedBefore = inUse();
    for (const size_t alignment : {size_t{0}, size_t{1}, size_t{8}, size_t{64}, size_t{4096}}) {
        const size_t expected = alignment > 16 ? alignment : 16;
        void *block = take(100, alignment);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % expected, 0U);
        EXPECT_TRUE(isZero(block, 0, 100));
        std::memset(block, 0xA5, 100);
        for (const size_t size : {size_t{100000}, size_t{50}, size_t{200000}}) {
            block = take(size, 0, block);
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % expected, 0U);
            EXPECT_EQ(static_cast<unsigned char *>(block)[49], 0xA5);
        }
        EXPECT_EQ(take(PTRDIFF_MAX - 8192, 0, block), nullptr) << "more than there is";
        EXPECT_TRUE(isZero(block, 50, 200000)) << "bytes cut away must not come back";
        EXPECT_STREQ(QELOsapiHeap_getTypeName(block), "test block");
        EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(block, ROLE, TAG), 1);
    }
    EXPECT_EQ(heapUsage().blocks, before.blocks);
    EXPECT_EQ(heapUsage().bytes, before.bytes);
    EXPECT_LT(inUse(), usedBefore + 100000) << "what was freed is not given back";
}

TEST(Heap, RejectsWhatIsNotALiveBlockOfItsOwn)
{
    const Lines lines;
    auto *block = static_cast<char *>(take(64));
    std::memset(block, 0, 64);
    const int64_t blocks = heapUsage().blocks;
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(block, ROLE, QEL_OSAPI_HEAP_STRING_TAG), 0);
    EXPECT_EQ(QELOsapiHeap_reallocateMemoryInternal(block, 8, 0, ROLE, 1, "x"), nullptr);
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(block + 1, ROLE, TAG), 0);
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(block + 48, ROLE, TAG), 0);
    alignas(16) std::array<char, 128> foreign{};
    // Not even the copy of a real header makes a block.
    std::memcpy(foreign.data(), block - 32, 96);
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(foreign.data() + 32, ROLE, TAG), 0);
    EXPECT_EQ(take(8, 0, foreign.data() + 32), nullptr);
    // Nor is anything read in front of an address that cannot be one.
    EXPECT_EQ(QELOsapiHeap_getTypeName(reinterpret_cast<void *>(64)), nullptr);
    EXPECT_EQ(QELOsapiHeap_getTypeName(foreign.data() + 32), nullptr);
    EXPECT_EQ(heapUsage().blocks, blocks);
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(block, ROLE, TAG), 1);
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(block, ROLE, TAG), 0) << "freed twice";
    EXPECT_EQ(QELOsapiHeap_freeMemoryInternal(nullptr, ROLE, TAG), 1);
    EXPECT_EQ(heapUsage().blocks, blocks - 1);
    ASSERT_EQ(lines.all.size(), 7U);
    EXPECT_EQ(lines.all.front(), "test:!free block: it was made with another tag");

    EXPECT_EQ(take(SIZE_MAX), nullptr);
    EXPECT_EQ(take(SIZE_MAX - 40), nullptr);
    EXPECT_EQ(take(8, 3), nullptr);
    EXPECT_EQ(take(8, 24), nullptr);
    EXPECT_EQ(take(8, 8192), nullptr);
}

TEST(Heap, CountsBlocksOfManyThreads)
{
    const int64_t before = heapUsage().blocks;
    onThreads(4, [](int) {
        for (size_t i = 1; i < 2000; ++i) {
            void *block = take(i, 0, take(i / 2));
            QELOsapiHeap_freeMemoryInternal(block, ROLE, TAG);
        }
    });
    EXPECT_EQ(heapUsage().blocks, before);
}

TEST(Tss, KeepsOneValueAThreadUnderEachKey)
{
    uint32_t first = 0;
    uint32_t second = 0;
    ASSERT_EQ(QELOsapiThread_createKey(&first, QELOsapiThread_getTssFactory()), 1);
    ASSERT_EQ(QELOsapiThread_createKey(&second, QELOsapiThread_getTssFactory()), 1);
    EXPECT_NE(first, 0U);
    EXPECT_NE(first, second);
    int here = 0;
    int there = 0;
    EXPECT_EQ(QELOsapiThread_setTss(first, &here), 1);
    std::thread([&] {
        EXPECT_EQ(QELOsapiThread_getTss(first), nullptr);
        EXPECT_EQ(QELOsapiThread_setTss(first, &there), 1);
        EXPECT_EQ(QELOsapiThread_getTss(first), &there);
    }).join();
    EXPECT_EQ(QELOsapiThread_getTss(first), &here);
    EXPECT_EQ(QELOsapiThread_getTss(second), nullptr);
    for (const uint32_t dead : {uint32_t{0}, second + 1, UINT32_MAX}) {
        EXPECT_EQ(QELOsapiThread_getTss(dead), nullptr);
        EXPECT_EQ(QELOsapiThread_setTss(dead, &here), 0);
    }
    EXPECT_EQ(QELOsapiThread_createKey(&second, nullptr), 0);
    EXPECT_EQ(QELOsapiThread_createKey(nullptr, QELOsapiThread_getTssFactory()), 0);
}

TEST(Tss, SaysWhenTheProcessHasNoKeyLeft)
{
    uint32_t key = 0;
    int made = 0;
    while (made < 5000 && QELOsapiThread_createKey(&key, QELOsapiThread_getTssFactory()) == 1) {
        ++made;
    }
    EXPECT_GT(made, 100);
    EXPECT_LT(made, 5000);
    EXPECT_EQ(QELOsapiThread_setTss(key, &key), 1);
    EXPECT_EQ(QELOsapiThread_getTss(key), &key);
}

} // namespace
