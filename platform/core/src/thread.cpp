// Thread-specific storage over POSIX keys. The table of keys only grows, so reading it takes no
// lock.
#include "qddscore/thread.h"

#include <limits.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <mutex>

struct QELOsapiThreadTssFactory {
    std::mutex mutex; // held while a key is made
    std::array<pthread_key_t, PTHREAD_KEYS_MAX> keys;
    std::atomic<uint32_t> count; // keys[0] .. keys[count - 1] are live
};

namespace {

QELOsapiThreadTssFactory theFactory{};

/// Key numbers start at 1, so a zeroed record holds no key.
const pthread_key_t *findKey(uint32_t key)
{
    const uint32_t count = theFactory.count.load(std::memory_order_acquire);
    return key >= 1 && key <= count ? &theFactory.keys[key - 1] : nullptr;
}

} // namespace

QELOsapiThreadTssFactory *QELOsapiThread_getTssFactory(void) noexcept
{
    return &theFactory;
}

int32_t QELOsapiThread_createKey(uint32_t *key, QELOsapiThreadTssFactory *factory) noexcept
{
    if (key == nullptr || factory == nullptr) {
        return 0;
    }
    const std::lock_guard<std::mutex> guard(factory->mutex);
    const uint32_t count = factory->count.load(std::memory_order_relaxed);
    if (count == factory->keys.size() || pthread_key_create(&factory->keys[count], nullptr) != 0) {
        return 0;
    }
    factory->count.store(count + 1, std::memory_order_release);
    *key = count + 1;
    return 1;
}

void *QELOsapiThread_getTss(uint32_t key) noexcept
{
    const pthread_key_t *found = findKey(key);
    return found != nullptr ? pthread_getspecific(*found) : nullptr;
}

int32_t QELOsapiThread_setTss(uint32_t key, void *value) noexcept
{
    const pthread_key_t *found = findKey(key);
    return found != nullptr && pthread_setspecific(*found, value) == 0 ? 1 : 0;
}
