// The operations on messages that the engine asks for. Its receiving threads and writers' threads
// are in here.
#include "sertype_internal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <tuple>

namespace qddsdomain {

namespace {

// None of these may throw into the engine.

bool equalKeys(const ddsi_serdata *left, const ddsi_serdata *right)
{
    const auto all = [](const Serdata &of) {
        return std::make_tuple(
            of.keyType, of.identity,
            std::string_view(reinterpret_cast<const char *>(of.key()), of.keySize));
    };
    return all(own(left)) == all(own(right));
}

uint32_t size(const ddsi_serdata *message)
{
    return own(message).payloadSize;
}

ddsi_serdata *fromFragments(const ddsi_sertype *type, ddsi_serdata_kind kind,
                            const nn_rdata *fragments, size_t total)
try {
    const auto start = [](const nn_rdata *fragment) {
        return NN_RMSG_PAYLOADOFF(fragment->rmsg, NN_RDATA_PAYLOAD_OFF(fragment));
    };
    if (fragments->nextfrag == nullptr) {
        return receive(own(type), kind, start(fragments), total);
    }
    // In order and all there, though they may overlap.
    Bytes &whole = scratch().whole;
    whole.clear();
    for (const nn_rdata *f = fragments; f != nullptr; f = f->nextfrag) {
        const size_t passed = std::min<size_t>(whole.size(), f->maxp1);
        whole.insert(whole.end(), start(f) + (passed - f->min), start(f) + (f->maxp1 - f->min));
    }
    whole.resize(total);
    return receive(own(type), kind, whole.data(), total);
} catch (...) {
    return nullptr;
}

ddsi_serdata *fromVector(const ddsi_sertype *type, ddsi_serdata_kind kind, ddsrt_msg_iovlen_t count,
                         const ddsrt_iovec_t *parts, size_t total)
try {
    Bytes &whole = scratch().whole;
    whole.clear();
    for (ddsrt_msg_iovlen_t i = 0; i < count; ++i) {
        const auto *bytes = static_cast<const uint8_t *>(parts[i].iov_base);
        whole.insert(whole.end(), bytes, bytes + parts[i].iov_len);
    }
    return receive(own(type), kind, whole.data(), std::min(total, whole.size()));
} catch (...) {
    return nullptr;
}

/// A disposal that names its instance by hash alone. One of an instance that this process never saw
/// concerns nobody; one of an instance that was forgotten is a loss.
ddsi_serdata *fromKeyHash(const ddsi_sertype *type, const ddsi_keyhash *keyHash)
try {
    const Sertype &sertype = own(type);
    Bytes &key = scratch().key;
    key.clear();
    if (sertype.wire->keyType() == nullptr) {
        return fromKey(sertype, key);
    }
    KeyHash hash;
    std::memcpy(hash.data(), keyHash->value, hash.size());
    if (sertype.wire->hashIsKey(sertype.representation)) {
        if (!sertype.wire->keyFromHash(hash, key, sertype.representation)) {
            sertype.arrivals->reject("a key hash that is no key of the type");
            return nullptr;
        }
    } else if (!sertype.arrivals->recall(hash, key)) {
        if (sertype.arrivals->hasForgotten()) {
            sertype.arrivals->reject("a disposal by the hash of a key that is no longer known");
        }
        return nullptr;
    }
    return fromKey(sertype, key);
} catch (...) {
    return nullptr;
}

ddsi_serdata *fromSample(const ddsi_sertype *, ddsi_serdata_kind, const void *)
{
    return nullptr; // no application writes samples through the engine's typed interface
}

void copyOut(const ddsi_serdata *message, size_t offset, size_t count, void *to)
{
    std::memcpy(to, own(message).payload() + offset, count);
}

ddsi_serdata *lend(const ddsi_serdata *message, size_t offset, size_t count, ddsrt_iovec_t *loan)
{
    loan->iov_base = const_cast<uint8_t *>(own(message).payload() + offset);
    loan->iov_len = count;
    return ddsi_serdata_ref(message);
}

void takeBack(ddsi_serdata *message, const ddsrt_iovec_t *)
{
    ddsi_serdata_unref(message);
}

bool toSample(const ddsi_serdata *, void *, void **, void *)
{
    return false;
}

bool untypedToSample(const ddsi_sertype *, const ddsi_serdata *, void *, void **, void *)
{
    return false;
}

ddsi_serdata *toUntyped(const ddsi_serdata *message)
{
    Serdata *key = keyAlone(own(message));
    if (key == nullptr) {
        std::abort(); // the engine has no way to go on without
    }
    key->type = nullptr;
    return key;
}

void destroy(ddsi_serdata *message)
{
    std::free(static_cast<Serdata *>(message));
}

size_t print(const ddsi_sertype *, const ddsi_serdata *message, char *text, size_t room)
{
    return static_cast<size_t>(
        std::snprintf(text, room, "(%u bytes)", own(message).payloadSize)); // which cannot fail
}

/// An MD5 where there is none yet is asked for by security plug-ins alone, which nobody loads here.
void keyHash(const ddsi_serdata *message, ddsi_keyhash *hash, bool)
{
    std::memcpy(hash->value, own(message).identity.data(), own(message).identity.size());
}

/// Shared memory is off in every domain's configuration.
uint32_t sharedSize(const ddsi_serdata *)
{
    return 0;
}

ddsi_serdata *fromShared(const ddsi_sertype *, ddsi_serdata_kind, void *, void *)
{
    return nullptr;
}

} // namespace

const ddsi_serdata_ops serdataOperations = {
    equalKeys, size,  fromFragments, fromVector, fromKeyHash, fromSample,
    copyOut,   lend,  takeBack,      toSample,   toUntyped,   untypedToSample,
    destroy,   print, keyHash,       sharedSize, fromShared};

} // namespace qddsdomain
