// Topics and their types as the engine sees them, and type objects of other participants.
#include "sertype_internal.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>

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

ddsi_sertype_cdr_data blob(const uint8_t *bytes, size_t size)
{
    return {static_cast<uint32_t>(size), const_cast<uint8_t *>(bytes)};
}

ddsi_typeinfo_t *typeInformation(const ddsi_sertype *type)
{
    const AnnouncedType &announced = own(type).announced;
    const ddsi_sertype_cdr_data bytes = blob(announced.information, announced.informationSize);
    return bytes.sz == 0 ? nullptr : ddsi_typeinfo_deser(&bytes);
}

ddsi_typemap_t *typeMapping(const ddsi_sertype *type)
{
    const AnnouncedType &announced = own(type).announced;
    const ddsi_sertype_cdr_data bytes = blob(announced.mapping, announced.mappingSize);
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

Topic makeTopic(dds_entity_t participant, const TopicRequest &request)
{
    auto *type = new Sertype;
    const uint32_t flags = request.wire->isKeyed() ? 0U : DDSI_SERTYPE_FLAG_TOPICKIND_NO_KEY;
    ddsi_sertype_init_flags(type, request.typeName, &sertypeOperations, &serdataOperations, flags);
    type->allowed_data_representation = DDS_DATA_REPRESENTATION_RESTRICT_DEFAULT;
    type->wire = request.wire;
    type->representation = request.representation;
    type->announced = request.announced;
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

namespace {

const ddsi_typeinfo_t *typeInformationOf(dds_builtintopic_endpoint_t &endpoint)
{
    const dds_typeinfo_t *information = nullptr;
    (void)dds_builtintopic_get_endpoint_type_info(&endpoint, &information);
    return information;
}

EquivalenceHash hashOf(const DDS_XTypes_EquivalenceHash &bytes)
{
    EquivalenceHash hash;
    static_assert(sizeof bytes == std::tuple_size<EquivalenceHash>::value);
    std::memcpy(hash.data(), bytes, sizeof bytes);
    return hash;
}

/// What the engine has as a record, in little-endian XCDR2; empty when memory is short.
Bytes serialize(const void *record, const dds_topic_descriptor_t &descriptor)
{
    Bytes bytes;
    dds_ostreamLE_t stream;
    dds_ostreamLE_init(&stream, 0, CDR_ENC_VERSION_2);
    if (dds_stream_writeLE(&stream, static_cast<const char *>(record), descriptor.m_ops) !=
        nullptr) {
        bytes.assign(stream.x.m_buffer, stream.x.m_buffer + stream.x.m_index);
    }
    dds_ostreamLE_fini(&stream);
    return bytes;
}

/// Adds what a type needs in one form; false when not all of it is named.
bool addObjects(const DDS_XTypes_TypeIdentifierWithDependencies &type,
                std::vector<TypeObjectId> &tops, std::vector<TypeObjectId> &objects)
{
    const auto idOf = [](const DDS_XTypes_TypeIdentifierWithSize &each) {
        return TypeObjectId(each.type_id._d, hashOf(each.type_id._u.equivalence_hash));
    };
    const auto isHash = [](const DDS_XTypes_TypeIdentifierWithSize &each) {
        return each.type_id._d == DDS_XTypes_EK_MINIMAL ||
               each.type_id._d == DDS_XTypes_EK_COMPLETE;
    };
    const auto &others = type.dependent_typeids;
    const DDS_XTypes_TypeIdentifierWithSize *const begin = others._buffer;
    const DDS_XTypes_TypeIdentifierWithSize *const end = begin + others._length;
    if (!isHash(type.typeid_with_size) ||
        type.dependent_typeid_count != static_cast<int64_t>(others._length) ||
        !std::all_of(begin, end, isHash)) {
        return false;
    }
    tops.push_back(idOf(type.typeid_with_size));
    objects.push_back(tops.back());
    std::transform(begin, end, std::back_inserter(objects), idOf);
    return true;
}

} // namespace

bool typeOf(dds_builtintopic_endpoint_t &endpoint, EquivalenceHash &hash)
{
    const ddsi_typeinfo_t *const information = typeInformationOf(endpoint);
    if (information == nullptr) {
        return false;
    }
    const ddsi_typeid_t *identifier = ddsi_typeinfo_complete_typeid(information);
    if (!ddsi_typeid_is_hash(identifier)) {
        return false;
    }
    hash = hashOf(identifier->x._u.equivalence_hash);
    return true;
}

TypePassage passageOf(dds_builtintopic_endpoint_t &endpoint)
{
    const ddsi_typeinfo_t *const information = typeInformationOf(endpoint);
    std::vector<TypeObjectId> tops;
    std::vector<TypeObjectId> objects;
    if (information == nullptr || !addObjects(information->x.minimal, tops, objects) ||
        !addObjects(information->x.complete, tops, objects)) {
        return {};
    }
    return {serialize(&information->x, DDS_XTypes_TypeInformation_desc), tops, objects};
}

bool fetchTypeObject(dds_entity_t participant, const TypeObjectId &id, int64_t timeout,
                     Bytes &serialized)
{
    ddsi_typeid identifier{};
    identifier.x._d = id.first;
    std::memcpy(identifier.x._u.equivalence_hash, id.second.data(), id.second.size());
    dds_typeobj_t *object = nullptr;
    (void)dds_get_typeobj(participant, &identifier, std::max<int64_t>(timeout, 1), &object);
    if (object == nullptr) {
        return false;
    }
    serialized = serialize(&object->x, DDS_XTypes_TypeObject_desc);
    (void)dds_free_typeobj(object);
    return !serialized.empty();
}

} // namespace qddsdomain
