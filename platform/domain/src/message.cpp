// Messages made of samples and keys, checked ones or such as come from outside. The engine's
// receiving threads and writers' threads are in here; nothing is locked but what Arrivals locks.
#include "sertype_internal.h"

#include <cstring>
#include <limits>

#include "engine_log.h"
#include "keyed_hash.h"
#include "message_pool.h"

namespace qddsdomain {

namespace {
constexpr std::array<uint8_t, encapsulationSize> plainHeader = {0, 1, 0, 0};
/// Fast DDS 2.9 takes a key's payload for the hash of its instance, unless it is longer than a
/// hash; then it takes the hash.
constexpr size_t shortestKey = encapsulationSize + sizeof(KeyHash);
constexpr size_t largestMessage = std::numeric_limits<int32_t>::max();

/// What a new message is made of. With `plain` the payload is the plain header and those bytes.
struct Parts {
    const Bytes *payload;
    const uint8_t *plain;
    size_t plainLength;
    const uint8_t *key;
    size_t keyLength;
    KeyHash hash;
    const DDS_TypeCode *keyType;
};

/// Over the key and not over its MD5, as keys of one MD5 can be made. Where there is no key, there
/// is one instance.
uint32_t hashOf(const Parts &parts)
{
    return parts.keyType == nullptr ? 0
                                    : static_cast<uint32_t>(keyedHash(parts.key, parts.keyLength));
}

Serdata *create(const ddsi_sertype *type, ddsi_serdata_kind kind, const Parts &parts)
{
    const size_t used =
        parts.payload != nullptr ? parts.payload->size() : encapsulationSize + parts.plainLength;
    const bool isHashable = kind == SDK_KEY && parts.payload == nullptr && parts.keyType != nullptr;
    Serdata *message =
        allocate(type, kind, isHashable ? std::max(used, shortestKey) : used, parts.keyLength);
    if (message == nullptr) {
        return nullptr;
    }
    message->plainSize = static_cast<uint32_t>(parts.plainLength);
    message->identity = parts.hash;
    message->keyType = parts.keyType;
    message->hash = type->serdata_basehash ^ hashOf(parts);
    uint8_t *to = message->payload();
    if (parts.payload != nullptr) {
        std::memcpy(to, parts.payload->data(), used);
    } else {
        std::memcpy(to, plainHeader.data(), plainHeader.size());
        if (parts.plainLength > 0) {
            std::memcpy(to + encapsulationSize, parts.plain, parts.plainLength);
        }
    }
    close(*message, used);
    if (parts.keyLength > 0) {
        std::memcpy(to + message->payloadSize, parts.key, parts.keyLength);
    }
    return message;
}

/// A message from a checked sample in plain form.
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

Serdata *allocate(const ddsi_sertype *type, ddsi_serdata_kind kind, size_t payloadSize,
                  size_t keySize)
{
    const size_t padded = (payloadSize + 3) & ~size_t{3};
    if (padded > largestMessage || keySize > largestMessage) {
        return nullptr;
    }
    void *memory = allocateBlock(sizeof(Serdata) + padded + keySize);
    if (memory == nullptr) {
        return nullptr;
    }
    auto *message = new (memory) Serdata{};
    ddsi_serdata_init(message, type, kind);
    message->payloadSize = static_cast<uint32_t>(padded);
    message->keySize = static_cast<uint32_t>(keySize);
    message->hash = type->serdata_basehash;
    return message;
}

void close(Serdata &message, size_t used)
{
    uint8_t *const payload = message.payload();
    const size_t padding = message.payloadSize - used;
    std::memset(payload + used, 0, padding);
    payload[3] = static_cast<uint8_t>(payload[3] | (padding & 3));
}

Scratch &scratch()
{
    thread_local Scratch buffers;
    return buffers;
}

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

bool isOpen(const Sertype &type)
{
    if (type.arrivals->isClosed()) {
        type.arrivals->countLate();
        dropNextEngineLine();
        return false;
    }
    return true;
}

Serdata *receive(const Sertype &type, ddsi_serdata_kind kind, const uint8_t *payload, size_t size)
{
    if (!isOpen(type)) {
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
        type.arrivals->reject(error.text[0] != '\0' ? error.text : "no memory for a message");
    } else if (message->keyType != nullptr && !type.wire->hashIsKey(type.representation)) {
        type.arrivals->remember(message->identity, buffers.key);
    }
    return message;
}

Serdata *keyAlone(const Serdata &from)
{
    const Parts parts{nullptr,      from.key(),    from.keySize, from.key(),
                      from.keySize, from.identity, from.keyType};
    return create(from.type, SDK_KEY, parts);
}

ddsi_serdata *makeSample(const ddsi_sertype *type, const uint8_t *plain, size_t length,
                         const Stamp &stamp)
{
    const Sertype &sertype = own(type);
    return stamped(sertype.wire->opaque() != nullptr ? fromOpaque(sertype, SDK_DATA, plain, length)
                                                     : fromPlain(sertype, plain, length),
                   stamp);
}

ddsi_serdata *makeKeySample(const ddsi_sertype *type, const uint8_t *plain, size_t length,
                            const Stamp &stamp)
{
    const Sertype &sertype = own(type);
    if (sertype.wire->opaque() != nullptr) {
        return stamped(fromOpaque(sertype, SDK_KEY, plain, length), stamp);
    }
    Bytes &key = scratch().key;
    if (!sertype.wire->keyOf(plain, length, key)) {
        return nullptr;
    }
    return stamped(fromKey(sertype, key), stamp);
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
