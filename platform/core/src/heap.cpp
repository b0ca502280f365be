// The middleware heap over malloc. Every block is preceded by a header; any thread may call, and
// the only shared state is a pair of counters.
#include "qddscore/heap.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "qddscore/log.h"

namespace {

// Reading in front of a pointer that may be a stranger's is the point of the check, so the
// sanitizers are kept out of the function that does it.
#define UNCHECKED __attribute__((no_sanitize("address"), no_sanitize("thread"), noinline))

struct Header {
    /// Mixed with the block's address, so that a copied header is no header. Destroyed, atomically,
    /// by whoever frees or moves the block: of two threads that free one block only one succeeds.
    std::atomic<uint64_t> magic;
    size_t size;
    const char *typeName;
    uint32_t tag;
    uint16_t offset;    // of the block from what malloc returned
    uint16_t alignment; // as asked for, at least defaultAlignment
};

constexpr size_t defaultAlignment = 16;
constexpr size_t maxAlignment = 4096;
constexpr size_t maxSize = PTRDIFF_MAX - sizeof(Header) - maxAlignment;
constexpr uint64_t liveMark = 0x51444448656170ULL;
constexpr uint64_t deadMark = 0xDEADDEADDEADDEADULL;

static_assert(sizeof(Header) % defaultAlignment == 0, "the block behind the header is aligned");

std::atomic<int64_t> liveBlocks{0};
std::atomic<int64_t> liveBytes{0};

uint64_t magicOf(const void *block)
{
    return liveMark ^ (reinterpret_cast<uintptr_t>(block) << 8);
}

void count(int64_t blocks, int64_t bytes)
{
    liveBlocks.fetch_add(blocks, std::memory_order_relaxed);
    liveBytes.fetch_add(bytes, std::memory_order_relaxed);
}

Header *headerOf(const void *block)
{
    return reinterpret_cast<Header *>(reinterpret_cast<uintptr_t>(block) - sizeof(Header));
}

/// The header of a live block, or null for anything else that can be distinguished from one. A
/// block so big that the system took its pages back cannot: touching it again ends the process.
UNCHECKED Header *findHeader(const void *block)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    if (address % defaultAlignment != 0 || address < maxAlignment) {
        return nullptr;
    }
    Header *header = headerOf(block);
    return __atomic_load_n(reinterpret_cast<uint64_t *>(&header->magic), __ATOMIC_ACQUIRE) ==
                   magicOf(block)
               ? header
               : nullptr;
}

void *rawOf(Header *header)
{
    return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(header) + sizeof(Header) -
                                    header->offset);
}

void complain(const char *role, const char *what)
{
    QELLog_printContextAndMsg(role, &QEL_LOG_ANY_FAILURE_s, what);
}

void *allocate(size_t size, size_t alignment, uint32_t tag, const char *typeName)
{
    const size_t slack = alignment > defaultAlignment ? alignment : 0;
    char *raw = static_cast<char *>(std::calloc(1, sizeof(Header) + slack + size));
    if (raw == nullptr) {
        return nullptr;
    }
    const uintptr_t first = reinterpret_cast<uintptr_t>(raw) + sizeof(Header);
    const uintptr_t aligned = (first + alignment - 1) & ~(alignment - 1);
    char *block = raw + sizeof(Header) + (aligned - first);
    Header *header = new (block - sizeof(Header)) Header;
    header->size = size;
    header->typeName = typeName;
    header->tag = tag;
    header->offset = static_cast<uint16_t>(block - raw);
    header->alignment = static_cast<uint16_t>(alignment);
    header->magic.store(magicOf(block), std::memory_order_release);
    count(1, static_cast<int64_t>(size));
    return block;
}

bool kill(Header *header, const void *block)
{
    uint64_t expected = magicOf(block);
    return header->magic.compare_exchange_strong(expected, deadMark, std::memory_order_acq_rel);
}

/// A block of usual alignment grows in place where malloc can do that.
void *resizeInPlace(void *block, Header *header, size_t size)
{
    const size_t oldSize = header->size;
    if (!kill(header, block)) {
        return nullptr;
    }
    void *raw = std::realloc(static_cast<void *>(header), sizeof(Header) + size);
    if (raw == nullptr) {
        header->magic.store(magicOf(block), std::memory_order_release);
        return nullptr;
    }
    char *moved = static_cast<char *>(raw) + sizeof(Header);
    Header *newHeader = headerOf(moved);
    if (size > oldSize) {
        std::memset(moved + oldSize, 0, size - oldSize);
    }
    newHeader->size = size;
    newHeader->magic.store(magicOf(moved), std::memory_order_release);
    count(0, static_cast<int64_t>(size) - static_cast<int64_t>(oldSize));
    return moved;
}

void release(void *block, Header *header)
{
    if (kill(header, block)) {
        count(-1, -static_cast<int64_t>(header->size));
        std::free(rawOf(header));
    }
}

void *resize(void *block, Header *header, size_t size)
{
    if (header->alignment == defaultAlignment) {
        return resizeInPlace(block, header, size);
    }
    void *copy = allocate(size, header->alignment, header->tag, header->typeName);
    if (copy != nullptr) {
        std::memcpy(copy, block, header->size < size ? header->size : size);
        release(block, header);
    }
    return copy;
}

} // namespace

void *QELOsapiHeap_reallocateMemoryInternal(void *block, size_t size, size_t alignment,
                                            const char *role, uint32_t tag,
                                            const char *typeName) noexcept
{
    if (alignment < defaultAlignment && (alignment & (alignment - 1)) == 0) {
        alignment = defaultAlignment;
    }
    if (size > maxSize || alignment > maxAlignment || (alignment & (alignment - 1)) != 0) {
        return nullptr;
    }
    if (block == nullptr) {
        return allocate(size, alignment, tag, typeName);
    }
    Header *header = findHeader(block);
    if (header == nullptr) {
        complain(role, "resize block: it is not a live block of this heap");
        return nullptr;
    }
    if (header->tag != tag) {
        complain(role, "resize block: it was made with another tag");
        return nullptr;
    }
    return resize(block, header, size);
}

int32_t QELOsapiHeap_freeMemoryInternal(void *block, const char *role, uint32_t tag) noexcept
{
    if (block == nullptr) {
        return 1;
    }
    Header *header = findHeader(block);
    if (header == nullptr) {
        complain(role, "free block: it is not a live block of this heap");
        return 0;
    }
    if (header->tag != tag) {
        complain(role, "free block: it was made with another tag");
        return 0;
    }
    release(block, header);
    return 1;
}

void QELOsapiHeap_getUsage(struct QELOsapiHeapUsage *usage) noexcept
{
    usage->blocks = liveBlocks.load(std::memory_order_relaxed);
    usage->bytes = liveBytes.load(std::memory_order_relaxed);
}

const char *QELOsapiHeap_getTypeName(const void *block) noexcept
{
    const Header *header = block != nullptr ? findHeader(block) : nullptr;
    return header != nullptr ? header->typeName : nullptr;
}
