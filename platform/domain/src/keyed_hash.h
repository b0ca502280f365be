// A hash that nobody outside this process can foresee: peers choose the keys of instances, and a
// table of the engine grows without bound when many of them fall on one place.
#ifndef QDDSDOMAIN_SRC_KEYED_HASH_H
#define QDDSDOMAIN_SRC_KEYED_HASH_H

#include <cstddef>
#include <cstdint>

namespace qddsdomain {

struct HashSecret {
    uint64_t first, second;
};

/// SipHash-2-4 (Aumasson and Bernstein, 2012).
uint64_t sipHash(const HashSecret &secret, const uint8_t *bytes, size_t size);

/// From the system's random numbers; another one with each call.
HashSecret makeHashSecret();

/// With the secret of this process, so that equal bytes have one hash as long as it lives.
uint64_t keyedHash(const uint8_t *bytes, size_t size);

} // namespace qddsdomain

#endif
