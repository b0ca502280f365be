// Messages of opaque types, and what a reader sees of a message. The same threads as in
// message.cpp.
#include "sertype_internal.h"

#include <cstring>

#include "engine_log.h"
#include "packets.h"

namespace qddsdomain {

namespace {

/// What the engine would have taken for damage comes with a header of another kind; see packets.h.
void restoreHeader(uint8_t *payload)
{
    constexpr unsigned mostPadding = 3;
    const unsigned id = payload[0] * 256U + payload[1];
    const unsigned options = payload[2] * 256U + payload[3];
    if (id == QDOMAIN_MARKED && options > mostPadding) {
        std::memmove(payload, payload + 2, 2);
        payload[2] = 0;
        payload[3] = 0;
    }
}

} // namespace

Serdata *allocateOpaque(const Sertype &type, ddsi_serdata_kind kind, size_t size)
{
    Serdata *const message = isOpen(type) ? allocate(&type, SDK_DATA, size, 0) : nullptr;
    if (message != nullptr) {
        message->isEnd = kind == SDK_KEY;
    }
    return message;
}

Serdata *receiveOpaque(const Sertype &type, Serdata *message, size_t size)
{
    if (message == nullptr) {
        return nullptr;
    }
    if (size < encapsulationSize) {
        ddsi_serdata_unref(message);
        dropNextEngineLine();
        type.arrivals->reject("a payload without an encapsulation header");
        return nullptr;
    }
    restoreHeader(message->payload());
    close(*message, size);
    message->plainSize = message->payloadSize;
    return message;
}

Serdata *fromOpaque(const Sertype &type, ddsi_serdata_kind kind, const uint8_t *sample,
                    size_t length)
{
    uint32_t size = 0;
    if (length < sizeof size) {
        return nullptr;
    }
    std::memcpy(&size, sample, sizeof size);
    if (size < encapsulationSize || size > length - sizeof size) {
        return nullptr;
    }
    Serdata *const message = allocate(&type, kind, size, 0);
    if (message != nullptr) {
        std::memcpy(message->payload(), sample + sizeof size, size);
        close(*message, size);
    }
    return message;
}

Message look(const ddsi_serdata *message)
{
    const Serdata &from = own(message);
    return {from.payload() + encapsulationSize,
            from.plainSize,
            from.key(),
            from.keySize,
            from.keyType != nullptr ? &from.identity : nullptr,
            from.payload(),
            from.payloadSize,
            from.isEnd,
            (from.statusinfo & NN_STATUSINFO_DISPOSE) != 0};
}

} // namespace qddsdomain
