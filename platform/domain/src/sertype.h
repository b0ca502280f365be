// The type plug-in: how the engine sees samples, as messages of CDR bytes. Only sertype.cpp,
// serdata.cpp, message.cpp and engine_entities.c know the engine's inner headers.
#ifndef QDDSDOMAIN_SRC_SERTYPE_H
#define QDDSDOMAIN_SRC_SERTYPE_H

#include "engine.h"

#include <memory>

#include "arrivals.h"
#include "type_object.h"
#include "wire.h"

namespace qddsdomain {

/// A topic entity and what goes with it.
struct Topic {
    engine::Entity entity;
    /// The engine's; lives as long as the entity.
    const ddsi_sertype *type = nullptr;
    std::shared_ptr<Arrivals> arrivals;
};

/// The type that an endpoint announces, serialized; nothing is announced where there are no bytes.
struct AnnouncedType {
    const uint8_t *information = nullptr;
    size_t informationSize = 0;
    const uint8_t *mapping = nullptr;
    size_t mappingSize = 0;
};

struct TopicRequest {
    const char *name;
    const char *typeName;
    const WireType *wire;
    /// In which messages are made of samples.
    Representation representation;
    /// Lives as long as the process.
    AnnouncedType announced;
};

/// Makes a topic entity. Negative entity: the engine's code of rejection.
Topic makeTopic(dds_entity_t participant, const TopicRequest &request);

/// What a message is beside its bytes.
struct Stamp {
    int64_t sourceTime; // nanoseconds since 1970
    bool dispose;
    bool unregister;
};

/// A message for a writer of the topic; owned by the caller, or by dds_forwardcdr, which takes it
/// over. Null when memory is short or the sample is malformed.
ddsi_serdata *makeSample(const ddsi_sertype *type, const uint8_t *plain, size_t length,
                         const Stamp &stamp);
/// Reports an instance's state; of the sample only the key members count.
ddsi_serdata *makeKeySample(const ddsi_sertype *type, const uint8_t *plain, size_t length,
                            const Stamp &stamp);

/// What a reader took: a sample in plain form, or only its key.
struct Message {
    const uint8_t *plain;
    size_t length;
    const uint8_t *key;
    size_t keyLength;
    const KeyHash *hash;    // null for a type without key, and for an opaque one
    const uint8_t *payload; // the header included
    size_t payloadSize;
    /// Of an opaque type: it reports the end of an instance, of which the payload holds the key.
    bool isEnd;
    /// What it says of its instance.
    bool disposes;
};
Message look(const ddsi_serdata *message);
/// Messages are counted: one more and one less who holds it.
void retain(const ddsi_serdata *message);
void release(ddsi_serdata *message);

/// The identity of the type that an endpoint announces; false when it announces none.
bool typeOf(dds_builtintopic_endpoint_t &endpoint, EquivalenceHash &hash);

/// All of the type that an endpoint announces; nothing when it announces none, or does not name
/// every type object that is needed.
TypePassage passageOf(dds_builtintopic_endpoint_t &endpoint);

/// Asks the domain's participants for a type object and waits at most `timeout` nanoseconds (at
/// least one; a request once sent goes on). True with its serialized form.
bool fetchTypeObject(dds_entity_t participant, const TypeObjectId &id, int64_t timeout,
                     Bytes &serialized);

} // namespace qddsdomain

#endif
