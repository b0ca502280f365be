// The engine's inner headers, what is taken for granted about them, and the two records of the type
// plug-in. For sertype.cpp, serdata.cpp and message.cpp alone; engine_entities.c has inner
// headers of its own.
#ifndef QDDSDOMAIN_SRC_SERTYPE_INTERNAL_H
#define QDDSDOMAIN_SRC_SERTYPE_INTERNAL_H

#include <cstddef>

#include "dds/ddsi/ddsi_cdrstream.h"
#include "dds/ddsi/ddsi_serdata.h"
#include "dds/ddsi/ddsi_sertype.h"
#include "dds/ddsi/ddsi_typelib.h"
#include "dds/ddsi/ddsi_xt_impl.h"
#include "dds/ddsi/q_protocol.h"
#include "dds/ddsi/q_radmin.h"
#include "dds/features.h"
#include "dds/version.h"

#include "sertype.h"

static_assert(DDS_VERSION_MAJOR == 0 && DDS_VERSION_MINOR == 10,
              "The type plug-in was written against inner headers of the engine's version 0.10, "
              "which change without notice. Compare ddsi_sertype.h, ddsi_serdata.h, q_radmin.h and "
              "ddsi_xt_impl.h with what sertype.cpp and serdata.cpp do, and ddsi_endpoint.h with "
              "what engine_entities.c does, then widen this check.");
#if !defined(DDS_HAS_SHM) || !defined(DDS_HAS_TYPE_DISCOVERY)
#error "dds/features.h does not describe the library: its records would have another layout"
#endif
static_assert(offsetof(ddsi_serdata, iox_subscriber) + sizeof(void *) == sizeof(ddsi_serdata));
static_assert(offsetof(ddsi_sertype, iox_size) + sizeof(void *) == sizeof(ddsi_sertype));
static_assert(offsetof(ddsi_serdata_ops, from_iox_buffer) + sizeof(void *) ==
              sizeof(ddsi_serdata_ops));
static_assert(offsetof(ddsi_sertype_ops, serialize_into) + sizeof(void *) ==
              sizeof(ddsi_sertype_ops));

namespace qddsdomain {

/// The type of one reader or writer. Counted by the engine, which frees it by its operations.
struct Sertype : ddsi_sertype {
    const WireType *wire;
    Representation representation;
    AnnouncedType announced;
    std::shared_ptr<Arrivals> arrivals;
};

/// One message: this record, then the payload with its encapsulation header, padded to 4 bytes,
/// then the key in plain form. Immutable once made; counted by the engine.
struct Serdata : ddsi_serdata {
    uint32_t payloadSize; // padding included
    uint32_t plainSize;   // 0 where the payload is not in plain form
    uint32_t keySize;
    /// Of an opaque type: the message reports the end of an instance, which the engine is not to
    /// know.
    bool isEnd;
    /// Key hash of the instance, that of the type's representation. Readers' types are XCDR1, so to
    /// a reader an instance is the same whatever its writers use.
    KeyHash identity;
    /// Identifies what the key bytes are; null for a type without key. The engine shares keys among
    /// topics, so it must not be found through the type, which may be gone.
    const DDS_TypeCode *keyType;

    uint8_t *payload()
    {
        return reinterpret_cast<uint8_t *>(this + 1);
    }
    const uint8_t *payload() const
    {
        return reinterpret_cast<const uint8_t *>(this + 1);
    }
    const uint8_t *key() const
    {
        return payload() + payloadSize;
    }
};

extern const ddsi_serdata_ops serdataOperations;

/// Buffers that keep their size, so that a steady flow of messages allocates the message alone.
struct Scratch {
    Bytes whole, plain, key, payload;
};
Scratch &scratch(); // of this thread

/// A message without its bytes; null when memory is short, or a message cannot be so large.
Serdata *allocate(const ddsi_sertype *type, ddsi_serdata_kind kind, size_t payloadSize,
                  size_t keySize);
/// Pads the payload, of which `used` bytes are there. The length of the padding goes into the
/// header, where receivers look for it (XTypes 1.3, 7.6.3.1.2).
void close(Serdata &message, size_t used);
/// A message from a checked key; null when memory is short.
Serdata *fromKey(const Sertype &type, const Bytes &key);
/// A message's key as a message of its own.
Serdata *keyAlone(const Serdata &from);
/// Everything that comes in from outside passes here. Null, counted and with its reason kept, when
/// it is not a sample of the type; the engine says so once more, without the reason.
Serdata *receive(const Sertype &type, ddsi_serdata_kind kind, const uint8_t *payload, size_t size);
/// Whether messages are still let in; what is not is counted.
bool isOpen(const Sertype &type);
/// The same of an opaque type, in two steps: a message whose payload the caller fills, and whether
/// that is one. All messages are of one instance to the engine and have data, also those that
/// report the end of an instance: so they stay in their order, and whole.
Serdata *allocateOpaque(const Sertype &type, ddsi_serdata_kind kind, size_t size);
Serdata *receiveOpaque(const Sertype &type, Serdata *message, size_t size);
/// A message for a writer from a sample of an opaque type. Null when memory is short or the sample
/// holds no message.
Serdata *fromOpaque(const Sertype &type, ddsi_serdata_kind kind, const uint8_t *sample,
                    size_t length);

inline const Sertype &own(const ddsi_sertype *type)
{
    return *static_cast<const Sertype *>(type);
}

inline const Serdata &own(const ddsi_serdata *message)
{
    return *static_cast<const Serdata *>(message);
}

} // namespace qddsdomain

#endif
