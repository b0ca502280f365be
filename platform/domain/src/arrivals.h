// What has arrived for one reader beside good samples: messages rejected, and the keys behind the
// hashes that disposals may name. The engine's receiving threads fill it.
#ifndef QDDSDOMAIN_SRC_ARRIVALS_H
#define QDDSDOMAIN_SRC_ARRIVALS_H

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>

#include "keyed_hash.h"
#include "wire.h"

namespace qddsdomain {

class Arrivals {
public:
    /// Keys remembered for each reader. A disposal that names a key by its hash alone can be
    /// understood as long as the key is among those that arrived last.
    static constexpr size_t mostKeys = 65536;

    /// `wake` runs after each rejection, on the thread that received the message.
    void watch(void (*function)(void *), void *user)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        wake = function;
        argument = user;
    }
    /// Nothing more is let in; once it returns `wake` does not run any more.
    void close()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        closed.store(true, std::memory_order_release);
        wake = nullptr;
    }
    bool isClosed() const
    {
        return closed.load(std::memory_order_acquire);
    }
    /// A message came when nothing is let in any more.
    void countLate()
    {
        late.fetch_add(1, std::memory_order_relaxed);
    }
    uint64_t lateCount() const
    {
        return late.load(std::memory_order_relaxed);
    }

    void reject(const char *reason)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        count.fetch_add(1, std::memory_order_relaxed);
        lastReason = reason;
        if (wake != nullptr) {
            wake(argument);
        }
    }
    uint64_t rejected() const
    {
        return count.load(std::memory_order_relaxed);
    }
    std::string reason() const
    {
        const std::lock_guard<std::mutex> guard(mutex);
        return lastReason;
    }

    void remember(const KeyHash &hash, const Bytes &key)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        const auto found = byHash.find(hash);
        if (found != byHash.end()) {
            keys.splice(keys.begin(), keys, found->second);
            return;
        }
        if (keys.size() >= mostKeys) {
            byHash.erase(keys.back().hash);
            keys.pop_back();
            forgotten = true;
        }
        keys.push_front({hash, key});
        byHash.emplace(hash, keys.begin());
    }
    bool recall(const KeyHash &hash, Bytes &key) const
    {
        const std::lock_guard<std::mutex> guard(mutex);
        const auto found = byHash.find(hash);
        if (found == byHash.end()) {
            return false;
        }
        key = found->second->key;
        return true;
    }
    /// Whether a hash that is not known may belong to a key that was.
    bool hasForgotten() const
    {
        const std::lock_guard<std::mutex> guard(mutex);
        return forgotten;
    }

private:
    struct Known {
        KeyHash hash;
        Bytes key;
    };
    struct Spread {
        size_t operator()(const KeyHash &hash) const
        {
            return keyedHash(hash.data(), hash.size());
        }
    };

    mutable std::mutex mutex;
    std::atomic<uint64_t> count{0};
    std::string lastReason;
    std::atomic<bool> closed{false};
    std::atomic<uint64_t> late{0};
    void (*wake)(void *) = nullptr;
    void *argument = nullptr;
    std::list<Known> keys; // most recent first
    std::unordered_map<KeyHash, std::list<Known>::iterator, Spread> byHash;
    bool forgotten = false;
};

} // namespace qddsdomain

#endif
