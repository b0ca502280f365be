// See message_pool.h. A thread has chains of free blocks of its own. What it has too many of goes
// to the others by the chain.
#include "message_pool.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace qddsdomain {

namespace {

constexpr size_t sizeStep = 64;
#ifdef __SANITIZE_ADDRESS__
constexpr size_t largestBlock = 0; // it watches over what the heap hands out, and nothing else
#else
/// Of larger ones the copying takes longer than the heap.
constexpr size_t largestBlock = 2048;
#endif
constexpr size_t classCount = largestBlock / sizeStep;
constexpr uint32_t chainLength = 64;
/// Free blocks that no thread has; beyond that they go back to the heap.
constexpr size_t mostShared = 4 << 20;

/// Free blocks of one size. Between threads chains are always full.
struct Block {
    Block *next;
    Block *nextChain;
};

struct Chain {
    Block *first = nullptr;
    uint32_t count = 0;

    void push(void *memory)
    {
        first = new (memory) Block{first, nullptr};
        ++count;
    }
    Block *pop()
    {
        Block *const block = first;
        first = block->next;
        --count;
        return block;
    }
    void clear()
    {
        while (count > 0) {
            std::free(pop());
        }
    }
};

constexpr size_t sizeOf(size_t sizeClass)
{
    return (sizeClass + 1) * sizeStep;
}

class SharedChains {
public:
    void put(size_t sizeClass, Chain chain)
    {
        const size_t bytes = chainLength * sizeOf(sizeClass);
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            if (bytes_ + bytes <= mostShared) {
                bytes_ += bytes;
                chain.first->nextChain = chains_[sizeClass];
                chains_[sizeClass] = chain.first;
                return;
            }
        }
        chain.clear();
    }
    /// Empty when there is none.
    Chain take(size_t sizeClass)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        Block *const first = chains_[sizeClass];
        if (first == nullptr) {
            return {};
        }
        chains_[sizeClass] = first->nextChain;
        bytes_ -= chainLength * sizeOf(sizeClass);
        return {first, chainLength};
    }

private:
    std::mutex mutex_;
    std::array<Block *, classCount> chains_{};
    size_t bytes_ = 0;
};

/// Never destroyed: threads of the engine may outlive the process's statics.
SharedChains &shared()
{
    static auto &chains = *new SharedChains;
    return chains;
}

/// Of what a thread frees while its own objects are destroyed.
thread_local bool isEnding = false;

/// One thread's blocks of one size: `active` is in use, `spare` is full or empty, so that a thread
/// that frees and makes in turn does not ask the others each time.
struct Cache {
    struct Pair {
        Chain active;
        Chain spare;
    };
    std::array<Pair, classCount> pairs{};

    Cache() = default;
    Cache(const Cache &) = delete;
    Cache &operator=(const Cache &) = delete;
    ~Cache()
    {
        isEnding = true;
        for (Pair &pair : pairs) {
            pair.active.clear();
            pair.spare.clear();
        }
    }
};

Cache::Pair &cached(size_t sizeClass)
{
    thread_local Cache cache;
    return cache.pairs[sizeClass];
}

size_t classOf(size_t size)
{
    return (size - 1) / sizeStep;
}

} // namespace

void *allocateBlock(size_t size)
{
    const size_t sizeClass = classOf(size);
    if (sizeClass >= classCount || isEnding) {
        return std::malloc(size);
    }
    Cache::Pair &pair = cached(sizeClass);
    if (pair.active.count == 0) {
        std::swap(pair.active, pair.spare);
    }
    if (pair.active.count == 0) {
        pair.active = shared().take(sizeClass);
    }
    return pair.active.count > 0 ? pair.active.pop() : std::malloc(sizeOf(sizeClass));
}

void freeBlock(void *block, size_t size)
{
    const size_t sizeClass = classOf(size);
    if (sizeClass >= classCount || isEnding) {
        std::free(block);
        return;
    }
    Cache::Pair &pair = cached(sizeClass);
    if (pair.active.count == chainLength) {
        if (pair.spare.count > 0) {
            shared().put(sizeClass, pair.spare);
        }
        pair.spare = std::exchange(pair.active, Chain());
    }
    pair.active.push(block);
}

} // namespace qddsdomain
