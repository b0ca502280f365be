// The operations on messages that the engine asks for. Its receiving threads and writers' threads
// are in here.
#include "sertype_internal.h"

#include "engine_log.h"
#include "message_pool.h"

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

const uint8_t *start(const nn_rdata *fragment)
{
    return NN_RMSG_PAYLOADOFF(fragment->rmsg, NN_RDATA_PAYLOAD_OFF(fragment));
}

/// They are in order and all there, though they may overlap.
void gather(const nn_rdata *fragments, size_t total, uint8_t *to)
{
    for (const nn_rdata *f = fragments; f != nullptr && f->min < total; f = f->nextfrag) {
        std::memcpy(to + f->min, start(f), std::min<size_t>(f->maxp1, total) - f->min);
    }
}

/// Returns how much there is, which is `total` at most.
size_t gather(const ddsrt_iovec_t *parts, ddsrt_msg_iovlen_t count, size_t total, uint8_t *to)
{
    size_t passed = 0;
    for (ddsrt_msg_iovlen_t i = 0; i < count && passed < total; ++i) {
        const size_t length = std::min<size_t>(parts[i].iov_len, total - passed);
        std::memcpy(to + passed, parts[i].iov_base, length);
        passed += length;
    }
    return passed;
}

ddsi_serdata *fromFragments(const ddsi_sertype *type, ddsi_serdata_kind kind,
                            const nn_rdata *fragments, size_t total)
try {
    const Sertype &sertype = own(type);
    if (sertype.wire->opaque() != nullptr) {
        Serdata *const message = allocateOpaque(sertype, kind, total);
        if (message != nullptr) {
            gather(fragments, total, message->payload());
        }
        return receiveOpaque(sertype, message, total);
    }
    if (fragments->nextfrag == nullptr) {
        return receive(sertype, kind, start(fragments), total);
    }
    Bytes &whole = scratch().whole;
    whole.resize(total);
    gather(fragments, total, whole.data());
    return receive(sertype, kind, whole.data(), total);
} catch (...) {
    return nullptr;
}

ddsi_serdata *fromVector(const ddsi_sertype *type, ddsi_serdata_kind kind, ddsrt_msg_iovlen_t count,
                         const ddsrt_iovec_t *parts, size_t total)
try {
    const Sertype &sertype = own(type);
    if (sertype.wire->opaque() != nullptr) {
        Serdata *const message = allocateOpaque(sertype, kind, total);
        return receiveOpaque(sertype, message,
                             message == nullptr ? 0
                                                : gather(parts, count, total, message->payload()));
    }
    Bytes &whole = scratch().whole;
    whole.resize(total);
    return receive(sertype, kind, whole.data(), gather(parts, count, total, whole.data()));
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
    if (sertype.wire->opaque() != nullptr && sertype.wire->isKeyed()) {
        dropNextEngineLine();
        sertype.arrivals->reject(
            "the end of an instance of an unknown type, by the hash of its key");
        return nullptr;
    }
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
    const Serdata &self = own(message);
    freeBlock(message, sizeof self + self.payloadSize + self.keySize);
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
