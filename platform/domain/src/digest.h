// MD5, which identifies instances and types on the wire. No protection against anybody.
#ifndef QDDSDOMAIN_SRC_DIGEST_H
#define QDDSDOMAIN_SRC_DIGEST_H

#include <dds/ddsrt/md5.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace qddsdomain {

inline std::array<uint8_t, 16> md5(const void *bytes, size_t length)
{
    ddsrt_md5_state_t state;
    std::array<uint8_t, 16> digest{};
    ddsrt_md5_init(&state);
    ddsrt_md5_append(&state, static_cast<const uint8_t *>(bytes), static_cast<unsigned>(length));
    ddsrt_md5_finish(&state, digest.data());
    return digest;
}

} // namespace qddsdomain

#endif
