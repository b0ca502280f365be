// Discovery: types on their way here, and endpoints that wait for theirs. On the discovery's
// thread.
#include "discovery.h"

#include "sertype.h"

using namespace qddsdomain;

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
            if (fetchTypeObject(participant->entity.get(), hash, 1, serialized)) {
                type.assembler.add(hash, serialized.data(), serialized.size());
                progress = true;
            }
        }
    }
    return false;
}

/// Announces what can be announced; true when somebody still waits for a type within its time.
bool DDS_Discovery::resolveTypes()
{
    const Clock::time_point now = Clock::now();
    for (auto &[hash, there] : types) {
        const std::shared_ptr<ArrivingType> type = there.lock();
        if (type != nullptr && type->state == TypeAssembler::State::incomplete) {
            (void)advance(*type);
        }
    }
    bool waiting = false;
    for (auto &[handle, endpoint] : endpoints) {
        const ArrivingType *type = endpoint.arriving.get();
        if (type == nullptr || type->state == TypeAssembler::State::rejected) {
            endpoint.typeProblem =
                type == nullptr ? "the peer announces no type" : type->assembler.problem();
        } else if (type->state == TypeAssembler::State::made) {
            if (endpoint.announced && endpoint.type == nullptr) {
                endpoint.type = type->assembler.type();
                endpoint.typeProblem.clear();
                report(DDS_ENDPOINT_CHANGED, endpoint);
            }
            endpoint.type = type->assembler.type();
        } else if (now < endpoint.patience) {
            waiting = true;
            continue;
        } else {
            endpoint.typeProblem = "the peer has not sent its type in time";
        }
        if (!endpoint.announced) {
            endpoint.announced = true;
            report(DDS_ENDPOINT_APPEARED, endpoint);
        }
    }
    return waiting;
}
