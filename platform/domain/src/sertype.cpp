// Topics and their types as the engine sees them, and type objects of other participants.
#include "sertype_internal.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "dds/ddsrt/heap.h"

#include "packets.h"

namespace qddsdomain {

namespace {

// The operations. None may throw into the engine.

void destroy(ddsi_sertype *type)
{
    ddsi_sertype_fini(type);
    delete static_cast<Sertype *>(type);
}

/// Samples of the typed interface, which nobody uses with these types.
void zeroSamples(const ddsi_sertype *, void *, size_t) {}

void reallocSamples(void **samples, const ddsi_sertype *, void *, size_t, size_t count)
{
    std::fill_n(samples, count, nullptr);
}

void freeSamples(const ddsi_sertype *, void **, size_t, dds_free_op_t) {}

/// The engine keeps one object of equal ones. Each reader has one of its own, as what is rejected
/// and whether anything is let in at all is the reader's own affair.
bool equal(const ddsi_sertype *left, const ddsi_sertype *right)
{
    return left == right;
}

uint32_t hash(const ddsi_sertype *type)
{
    return static_cast<uint32_t>(std::hash<const void *>()(type));
}

ddsi_sertype_cdr_data blob(const Bytes &bytes)
{
    return {static_cast<uint32_t>(bytes.size()), const_cast<uint8_t *>(bytes.data())};
}

ddsi_typeinfo_t *typeInformation(const ddsi_sertype *type)
{
    const ddsi_sertype_cdr_data bytes = blob(own(type).description.typeInformation);
    return bytes.sz == 0 ? nullptr : ddsi_typeinfo_deser(&bytes);
}

ddsi_typemap_t *typeMapping(const ddsi_sertype *type)
{
    const ddsi_sertype_cdr_data bytes = blob(own(type).description.typeMapping);
    return bytes.sz == 0 ? nullptr : ddsi_typemap_deser(&bytes);
}

ddsi_typeid_t *typeIdentifier(const ddsi_sertype *type, ddsi_typeid_kind_t kind)
{
    ddsi_typeinfo_t *information = typeInformation(type);
    if (information == nullptr) {
        return nullptr;
    }
    ddsi_typeid_t *identifier = ddsi_typeinfo_typeid(information, kind);
    ddsi_typeinfo_fini(information);
    ddsrt_free(information);
    return identifier;
}

/// A topic is made for one reader or writer, with the representation that it has anyway.
ddsi_sertype *derive(const ddsi_sertype *, dds_data_representation_id_t,
                     dds_type_consistency_enforcement_qospolicy_t)
{
    return nullptr;
}

/// Shared memory is off in every domain's configuration.
size_t serializedSize(const ddsi_sertype *, const void *)
{
    return SIZE_MAX;
}

bool serializeInto(const ddsi_sertype *, const void *, void *, size_t)
{
    return false;
}

const ddsi_sertype_ops sertypeOperations = {
    ddsi_sertype_v0, nullptr, destroy,        zeroSamples,    reallocSamples,
    freeSamples,     equal,   hash,           typeIdentifier, typeMapping,
    typeInformation, derive,  serializedSize, serializeInto};

} // namespace

Topic makeTopic(dds_entity_t participant, TopicRequest request)
{
    auto *type = new Sertype;
    const uint32_t flags =
        request.wire->keyType() == nullptr ? DDSI_SERTYPE_FLAG_TOPICKIND_NO_KEY : 0U;
    ddsi_sertype_init_flags(type, request.typeName, &sertypeOperations, &serdataOperations, flags);
    type->allowed_data_representation = DDS_DATA_REPRESENTATION_RESTRICT_DEFAULT;
    type->wire = request.wire;
    type->representation = request.representation;
    type->description = std::move(request.description);
    type->arrivals = std::make_shared<Arrivals>();

    // On success the engine has taken the reference over.
    ddsi_sertype *registered = type;
    Topic topic;
    topic.entity = engine::Entity(dds_create_topic_sertype(participant, request.name, &registered,
                                                           nullptr, nullptr, nullptr));
    if (topic.entity.get() < 0) {
        ddsi_sertype_unref(type);
        return topic;
    }
    qddsdomain_watch_packets(type);
    topic.type = type;
    topic.arrivals = type->arrivals;
    return topic;
}

bool typeOf(dds_builtintopic_endpoint_t &endpoint, EquivalenceHash &hash)
{
    const dds_typeinfo_t *information = nullptr;
    (void)dds_builtintopic_get_endpoint_type_info(&endpoint, &information);
    if (information == nullptr) {
        return false;
    }
    const ddsi_typeid_t *identifier = ddsi_typeinfo_complete_typeid(information);
    if (!ddsi_typeid_is_hash(identifier)) {
        return false;
    }
    DDS_XTypes_EquivalenceHash bytes;
    static_assert(sizeof bytes == std::tuple_size<EquivalenceHash>::value);
    ddsi_typeid_get_equivalence_hash(identifier, &bytes);
    std::memcpy(hash.data(), bytes, sizeof bytes);
    return true;
}

bool fetchTypeObject(dds_entity_t participant, const EquivalenceHash &hash, int64_t timeout,
                     Bytes &serialized)
{
    ddsi_typeid identifier{};
    identifier.x._d = DDS_XTypes_EK_COMPLETE;
    std::memcpy(identifier.x._u.equivalence_hash, hash.data(), hash.size());
    dds_typeobj_t *object = nullptr;
    (void)dds_get_typeobj(participant, &identifier, std::max<int64_t>(timeout, 1), &object);
    if (object == nullptr) {
        return false;
    }
    dds_ostreamLE_t stream;
    dds_ostreamLE_init(&stream, 0, CDR_ENC_VERSION_2);
    const bool written = dds_stream_writeLE(&stream, reinterpret_cast<const char *>(&object->x),
                                            DDS_XTypes_TypeObject_desc.m_ops) != nullptr;
    if (written) {
        serialized.assign(stream.x.m_buffer, stream.x.m_buffer + stream.x.m_index);
    }
    dds_ostreamLE_fini(&stream);
    (void)dds_free_typeobj(object);
    return written;
}

} // namespace qddsdomain
