// Discovery: types on their way here, and endpoints that wait for theirs. On the discovery's
// thread.
#include "discovery.h"

#include "sertype.h"
#include "type_object_codes.h"

using namespace qddsdomain;

namespace {

/// How often a type is asked for that has not come yet: the engine sends one request and says when
/// asked whether there is an answer.
constexpr dds_duration_t pollInterval = DDS_MSECS(10);
constexpr dds_duration_t slowPollInterval = DDS_MSECS(500);

/// Why there is no type; null is that of an endpoint that announces none.
std::string problemOf(const ArrivingType *type)
{
    if (type == nullptr) {
        return "the peer announces no type";
    }
    return type->state == TypeAssembler::State::rejected ? type->assembler.problem()
                                                         : "the peer has not sent its type in time";
}

} // namespace

/// Adds what type objects have come; true when that finished the type.
bool DDS_Discovery::advance(ArrivingType &type)
{
    Bytes serialized;
    for (bool progress = true; progress;) {
        progress = false;
        type.state = type.assembler.assemble();
        if (type.state != TypeAssembler::State::incomplete) {
            return true;
        }
        const std::vector<EquivalenceHash> missing = type.assembler.missing();
        for (const EquivalenceHash &hash : missing) {
            const TypeObjectId id(xtypes::EK_COMPLETE, hash);
            if (fetchTypeObject(participant->entity.get(), id, 1, serialized)) {
                type.assembler.add(hash, serialized.data(), serialized.size());
                progress = true;
            }
        }
    }
    return false;
}

/// Whether all has come of the type that is of use to somebody.
bool DDS_Discovery::isThere(ArrivingType &type)
{
    if (!passesTypes && type.state == TypeAssembler::State::incomplete && !advance(type)) {
        return false;
    }
    if (type.state == TypeAssembler::State::made) {
        type.passage = {}; // of use to nobody any more
        return true;
    }
    if (Clock::now() >= type.patience) {
        return true;
    }
    Bytes serialized;
    for (const TypeObjectId &id : type.passage.missing()) {
        if (fetchTypeObject(participant->entity.get(), id, 1, serialized)) {
            type.passage.add(id, serialized);
        }
    }
    return type.passage.missing().empty();
}

void DDS_Discovery::makeOpaque(RemoteEndpoint &endpoint)
{
    const TypeDescription description =
        endpoint.arriving == nullptr ? TypeDescription() : endpoint.arriving->passage.description();
    const DDS_OpaqueType opaque{endpoint.keyed ? 1 : 0, description.typeInformation.data(),
                                description.typeInformation.size(), description.typeMapping.data(),
                                description.typeMapping.size()};
    endpoint.opaque = DDS_TypeCode_create_opaque(endpoint.typeName.c_str(), &opaque, nullptr);
}

/// Announces what can be announced. Returns when to look again.
dds_duration_t DDS_Discovery::resolveTypes()
{
    const Clock::time_point now = Clock::now();
    std::set<const ArrivingType *> late;
    for (auto &[hash, there] : types) {
        const std::shared_ptr<ArrivingType> type = there.lock();
        if (type != nullptr && !isThere(*type)) {
            late.insert(type.get());
        }
    }
    bool waiting = false;
    for (auto &[handle, endpoint] : endpoints) {
        const ArrivingType *type = endpoint.arriving.get();
        const bool made = type != nullptr && type->state == TypeAssembler::State::made;
        if (made && endpoint.type == nullptr) {
            endpoint.type = type->assembler.type();
            endpoint.opaque = nullptr;
            endpoint.typeProblem.clear();
            if (endpoint.announced) {
                report(DDS_ENDPOINT_CHANGED, endpoint);
            }
        }
        if (endpoint.announced) {
            continue;
        }
        if (late.count(type) != 0 && now < endpoint.patience) {
            waiting = true;
            continue;
        }
        if (!made) {
            endpoint.typeProblem = passesTypes ? "types are not looked into" : problemOf(type);
            makeOpaque(endpoint);
        }
        endpoint.announced = true;
        report(DDS_ENDPOINT_APPEARED, endpoint);
    }
    if (late.empty()) {
        return DDS_INFINITY;
    }
    return waiting ? pollInterval : slowPollInterval;
}
