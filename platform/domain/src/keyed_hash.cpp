// See keyed_hash.h. Pure functions, any thread.
#include "keyed_hash.h"

#include <cstring>
#include <random>

namespace qddsdomain {

namespace {

constexpr size_t wordSize = sizeof(uint64_t);

uint64_t rotate(uint64_t value, unsigned bits)
{
    return value << bits | value >> (64 - bits);
}

struct SipState {
    uint64_t a, b, c, d;

    void round()
    {
        a += b;
        b = rotate(b, 13) ^ a;
        a = rotate(a, 32);
        c += d;
        d = rotate(d, 16) ^ c;
        a += d;
        d = rotate(d, 21) ^ a;
        c += b;
        b = rotate(b, 17) ^ c;
        c = rotate(c, 32);
    }
    void absorb(uint64_t word)
    {
        d ^= word;
        round();
        round();
        a ^= word;
    }
};

} // namespace

uint64_t sipHash(const HashSecret &secret, const uint8_t *bytes, size_t size)
{
    SipState state{secret.first ^ 0x736f6d6570736575U, secret.second ^ 0x646f72616e646f6dU,
                   secret.first ^ 0x6c7967656e657261U, secret.second ^ 0x7465646279746573U};
    const uint8_t *end = bytes + (size - size % wordSize);
    uint64_t word = 0;
    for (; bytes != end; bytes += wordSize) {
        std::memcpy(&word, bytes, wordSize);
        state.absorb(word);
    }
    word = 0;
    if (size % wordSize > 0) {
        std::memcpy(&word, bytes, size % wordSize);
    }
    state.absorb(word | static_cast<uint64_t>(size) << 56U);
    state.c ^= 0xff;
    for (int i = 0; i < 4; ++i) {
        state.round();
    }
    return state.a ^ state.b ^ state.c ^ state.d;
}

HashSecret makeHashSecret()
{
    std::random_device random;
    const auto word = [&random] { return uint64_t{random()} << 32U | random(); };
    const uint64_t first = word();
    return {first, word()};
}

uint64_t keyedHash(const uint8_t *bytes, size_t size)
{
    static const HashSecret processSecret = makeHashSecret();
    return sipHash(processSecret, bytes, size);
}

} // namespace qddsdomain
