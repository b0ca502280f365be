// Messages as the engine sees them. The engine's receiving threads and writers' threads are in
// here; nothing is locked but what Arrivals locks.
#include "sertype_internal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "engine_log.h"

namespace qddsdomain {

namespace {

constexpr std::array<uint8_t, ENCAPSULATION_SIZE> PLAIN_HEADER = {0, 1, 0, 0};
// Fast DDS 2.9 takes a key's payload for the hash of its instance, unless it is longer than a hash;
// then it takes the hash.
constexpr size_t SHORTEST_KEY = ENCAPSULATION_SIZE + sizeof(KeyHash);
constexpr size_t LARGEST = std::numeric_limits<int32_t>::max();

// Buffers that keep their size, so that a steady flow of messages allocates the message alone.
struct Scratch {
    Bytes whole, plain, key, payload;
};
Scratch &scratch()
{
    thread_local Scratch buffers;
    return buffers;
}

uint32_t spread(const KeyHash &hash)
{
    uint64_t low = 0;
    uint64_t high = 0;
    std::memcpy(&low, hash.data(), sizeof low);
    std::memcpy(&high, hash.data() + sizeof low, sizeof high);
    const uint64_t mixed = (low ^ (high * 0x9E3779B97F4A7C15U)) * 0xBF58476D1CE4E5B9U;
    return static_cast<uint32_t>(mixed >> 32U) ^ static_cast<uint32_t>(mixed);
}

// What a new message is made of. With `plain` the payload is the plain header and those bytes.
struct Parts {
    const Bytes *payload;
    const uint8_t *plain;
    size_t plainLength;
    const uint8_t *key;
    size_t keyLength;
    KeyHash hash;
    const DDS_TypeCode *keyType;
};

// The length of the padding goes into the header, where receivers look for it (XTypes 1.3,
// 7.6.3.1.2).
void fill(Serdata &message, const Parts &parts, size_t used)
{
    uint8_t *to = message.payload();
    if (parts.payload != nullptr) {
        std::memcpy(to, parts.payload->data(), used);
    } else {
        std::memcpy(to, PLAIN_HEADER.data(), PLAIN_HEADER.size());
        if (parts.plainLength > 0) {
            std::memcpy(to + ENCAPSULATION_SIZE, parts.plain, parts.plainLength);
        }
    }
    const size_t padding = message.payloadSize - used;
    std::memset(to + used, 0, padding);
    to[3] = static_cast<uint8_t>(to[3] | (padding & 3));
    if (parts.keyLength > 0) {
        std::memcpy(to + message.payloadSize, parts.key, parts.keyLength);
    }
}

Serdata *create(const ddsi_sertype *type, ddsi_serdata_kind kind, const Parts &parts)
{
    const size_t used =
        parts.payload != nullptr ? parts.payload->size() : ENCAPSULATION_SIZE + parts.plainLength;
    size_t padded = (used + 3) & ~size_t{3};
    if (kind == SDK_KEY && parts.payload == nullptr && parts.keyType != nullptr) {
        padded = std::max(padded, SHORTEST_KEY);
    }
    if (padded > LARGEST || parts.keyLength > LARGEST) {
        return nullptr;
    }
    void *memory = std::malloc(sizeof(Serdata) + padded + parts.keyLength);
    if (memory == nullptr) {
        return nullptr;
    }
    auto *message = new (memory) Serdata;
    ddsi_serdata_init(message, type, kind);
    message->payloadSize = static_cast<uint32_t>(padded);
    message->plainSize = static_cast<uint32_t>(parts.plainLength);
    message->keySize = static_cast<uint32_t>(parts.keyLength);
    message->identity = parts.hash;
    message->keyType = parts.keyType;
    message->hash = type->serdata_basehash ^ spread(parts.hash);
    fill(*message, parts, used);
    return message;
}

// A message from a checked key.
Serdata *fromKey(const Sertype &type, const Bytes &key)
{
    const DDS_TypeCode *keyType = type.wire->keyType();
    Parts parts{nullptr, key.data(), key.size(), key.data(), key.size(), KeyHash{}, keyType};
    if (keyType != nullptr) {
        parts.hash = type.wire->keyHash(key, type.representation);
    }
    if (type.representation != Representation::xcdr1 && keyType != nullptr) {
        Bytes &payload = scratch().payload;
        if (!type.wire->encodeKey(key, type.representation, payload)) {
            return nullptr;
        }
        parts.payload = &payload;
        parts.plain = nullptr;
        parts.plainLength = 0;
    }
    return create(&type, SDK_KEY, parts);
}

// A message from a checked sample in plain form.
Serdata *fromPlain(const Sertype &type, const uint8_t *plain, size_t length)
{
    Scratch &buffers = scratch();
    Parts parts{nullptr, plain, length, nullptr, 0, KeyHash{}, type.wire->keyType()};
    if (parts.keyType != nullptr) {
        if (!type.wire->keyOf(plain, length, buffers.key)) {
            return nullptr;
        }
        parts.key = buffers.key.data();
        parts.keyLength = buffers.key.size();
        parts.hash = type.wire->keyHash(buffers.key, type.representation);
    }
    if (type.representation != Representation::xcdr1) {
        if (!type.wire->encode(plain, length, type.representation, buffers.payload)) {
            return nullptr;
        }
        parts.payload = &buffers.payload;
        parts.plain = nullptr;
        parts.plainLength = 0;
    }
    return create(&type, SDK_DATA, parts);
}

// Everything that comes in from outside passes here. Null, counted and with its reason kept, when
// it is not a sample of the type; the engine says so once more, without the reason.
Serdata *receive(const Sertype &type, ddsi_serdata_kind kind, const uint8_t *payload, size_t size)
{
    if (type.arrivals->isClosed()) {
        dropNextEngineLine();
        return nullptr;
    }
    Scratch &buffers = scratch();
    DDS_ErrorText error{};
    Serdata *message = nullptr;
    if (kind == SDK_DATA) {
        if (type.wire->decode(payload, size, buffers.plain, &error)) {
            message = fromPlain(type, buffers.plain.data(), buffers.plain.size());
        }
    } else if (type.wire->keyType() == nullptr) {
        buffers.key.clear();
        message = fromKey(type, buffers.key);
    } else if (type.wire->decodeKey(payload, size, buffers.key, &error)) {
        message = fromKey(type, buffers.key);
    }
    if (message == nullptr) {
        dropNextEngineLine();
        type.arrivals->refuse(error.text[0] != '\0' ? error.text : "no memory for a message");
    } else if (message->keyType != nullptr && !type.wire->hashIsKey(type.representation)) {
        type.arrivals->remember(message->identity, buffers.key);
    }
    return message;
}

// The operations. None may throw into the engine.

bool equalKeys(const ddsi_serdata *left, const ddsi_serdata *right)
{
    const Serdata &a = own(left);
    const Serdata &b = own(right);
    return a.keyType == b.keyType && a.identity == b.identity && a.keySize == b.keySize &&
           std::memcmp(a.key(), b.key(), a.keySize) == 0;
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
    if (fragments->nextfrag == nullptr && fragments->min == 0 && fragments->maxp1 >= total) {
        return receive(own(type), kind, start(fragments), total);
    }
    Bytes &whole = scratch().whole;
    whole.resize(total);
    size_t filled = 0;
    for (const nn_rdata *f = fragments; f != nullptr; f = f->nextfrag) {
        const size_t end = f->maxp1 < total ? f->maxp1 : total;
        if (end <= filled) {
            continue; // fragments may overlap
        }
        if (f->min > filled) {
            break;
        }
        std::memcpy(whole.data() + filled, start(f) + (filled - f->min), end - filled);
        filled = end;
    }
    if (filled != total) {
        own(type).arrivals->refuse("a message with a fragment missing");
        return nullptr;
    }
    return receive(own(type), kind, whole.data(), total);
} catch (...) {
    return nullptr;
}

ddsi_serdata *fromVector(const ddsi_sertype *type, ddsi_serdata_kind kind, ddsrt_msg_iovlen_t count,
                         const ddsrt_iovec_t *parts, size_t total)
try {
    if (count == 1 && parts[0].iov_len >= total) {
        return receive(own(type), kind, static_cast<const uint8_t *>(parts[0].iov_base), total);
    }
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

// A disposal that names its instance by hash alone. One of an instance that this process never saw
// tells nobody anything; one of an instance that was forgotten is a loss.
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
            sertype.arrivals->refuse("a key hash that is no key of the type");
            return nullptr;
        }
    } else if (!sertype.arrivals->recall(hash, key)) {
        if (sertype.arrivals->hasForgotten()) {
            sertype.arrivals->refuse("a disposal by the hash of a key that is no longer known");
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
    const Serdata &from = own(message);
    const Parts parts{nullptr,      from.key(),    from.keySize, from.key(),
                      from.keySize, from.identity, from.keyType};
    Serdata *key = create(message->type, SDK_KEY, parts);
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
    const int printed = std::snprintf(text, room, "(%u bytes)", own(message).payloadSize);
    return printed > 0 ? static_cast<size_t>(printed) : 0;
}

// An MD5 where there is none yet is asked for by security plug-ins alone, which nobody loads here.
void keyHash(const ddsi_serdata *message, ddsi_keyhash *hash, bool)
{
    std::memcpy(hash->value, own(message).identity.data(), own(message).identity.size());
}

// Shared memory is off in every domain's configuration.
uint32_t sharedSize(const ddsi_serdata *)
{
    return 0;
}

ddsi_serdata *fromShared(const ddsi_sertype *, ddsi_serdata_kind, void *, void *)
{
    return nullptr;
}

ddsi_serdata *stamped(Serdata *message, const Stamp &stamp)
{
    if (message != nullptr) {
        message->timestamp.v = stamp.sourceTime;
        message->statusinfo = (stamp.dispose ? NN_STATUSINFO_DISPOSE : 0U) |
                              (stamp.unregister ? NN_STATUSINFO_UNREGISTER : 0U);
    }
    return message;
}

} // namespace

const ddsi_serdata_ops SERDATA_OPERATIONS = {
    equalKeys, size,  fromFragments, fromVector, fromKeyHash, fromSample,
    copyOut,   lend,  takeBack,      toSample,   toUntyped,   untypedToSample,
    destroy,   print, keyHash,       sharedSize, fromShared};

ddsi_serdata *makeSample(const ddsi_sertype *type, const uint8_t *plain, size_t length,
                         const Stamp &stamp)
{
    return stamped(fromPlain(own(type), plain, length), stamp);
}

ddsi_serdata *makeKeySample(const ddsi_sertype *type, const uint8_t *plain, size_t length,
                            const Stamp &stamp)
{
    Bytes &key = scratch().key;
    if (!own(type).wire->keyOf(plain, length, key)) {
        return nullptr;
    }
    return stamped(fromKey(own(type), key), stamp);
}

Message look(const ddsi_serdata *message)
{
    const Serdata &from = own(message);
    return {from.payload() + ENCAPSULATION_SIZE,
            from.plainSize,
            from.key(),
            from.keySize,
            from.keyType != nullptr ? &from.identity : nullptr,
            from.kind != SDK_DATA};
}

void retain(const ddsi_serdata *message)
{
    (void)ddsi_serdata_ref(message);
}

void release(ddsi_serdata *message)
{
    ddsi_serdata_unref(message);
}

} // namespace qddsdomain
