// The engine's public interface, with the few names taken away again that it and this platform both
// define. Has to come before every header of the platform.
#ifndef QDDSDOMAIN_SRC_ENGINE_H
#define QDDSDOMAIN_SRC_ENGINE_H

#if defined(QDDSC_COMMON_H) || defined(QDDSC_SAMPLE_INFO_H)
#error "engine.h has to be the first header: it would take away names of the platform"
#endif

#include "dds/dds.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace qddsdomain::engine {

constexpr dds_return_t badParameter = DDS_RETCODE_BAD_PARAMETER;
constexpr dds_return_t preconditionNotMet = DDS_RETCODE_PRECONDITION_NOT_MET;
constexpr dds_return_t outOfResources = DDS_RETCODE_OUT_OF_RESOURCES;
constexpr dds_return_t timedOut = DDS_RETCODE_TIMEOUT;
constexpr uint32_t anyState = DDS_ANY_STATE;

/// All that the engine lists: `ask` fills an array and returns how many there are, be it more.
template<class Element, class Ask> std::vector<Element> allOf(const Ask &ask)
{
    std::vector<Element> all(16);
    for (;;) {
        const auto there = static_cast<size_t>(std::max<int64_t>(ask(all.data(), all.size()), 0));
        const bool complete = there <= all.size();
        all.resize(there);
        if (complete) {
            return all;
        }
    }
}

/// All zeros, which is nobody's, for an entity that has gone.
inline dds_guid_t guidOf(dds_entity_t entity)
{
    dds_guid_t guid{};
    (void)dds_get_guid(entity, &guid);
    return guid;
}

/// Of the participants that any code of this process has in a domain.
inline std::vector<dds_guid_t> ownParticipants(dds_domainid_t domain)
{
    std::vector<dds_guid_t> guids;
    for (const dds_entity_t one : allOf<dds_entity_t>(
             [&](auto *to, size_t room) { return dds_lookup_participant(domain, to, room); })) {
        guids.push_back(guidOf(one));
    }
    return guids;
}

/// Owns an entity; deleting it deletes what it contains.
class Entity {
public:
    Entity() = default;
    explicit Entity(dds_entity_t made) : handle(made) {}
    Entity(Entity &&other) noexcept : handle(other.handle)
    {
        other.handle = 0;
    }
    Entity &operator=(Entity &&other) noexcept
    {
        std::swap(handle, other.handle);
        return *this;
    }
    ~Entity()
    {
        reset();
    }
    void reset()
    {
        if (handle > 0) {
            (void)dds_delete(handle);
        }
        handle = 0;
    }
    /// Negative: the engine's code for why there is none.
    dds_entity_t get() const
    {
        return handle;
    }

private:
    dds_entity_t handle = 0;
};

} // namespace qddsdomain::engine

#undef DDS_RETCODE_OK
#undef DDS_RETCODE_ERROR
#undef DDS_RETCODE_UNSUPPORTED
#undef DDS_RETCODE_BAD_PARAMETER
#undef DDS_RETCODE_PRECONDITION_NOT_MET
#undef DDS_RETCODE_OUT_OF_RESOURCES
#undef DDS_RETCODE_NO_DATA
#undef DDS_READ_SAMPLE_STATE
#undef DDS_NOT_READ_SAMPLE_STATE
#undef DDS_NEW_VIEW_STATE
#undef DDS_NOT_NEW_VIEW_STATE
#undef DDS_ALIVE_INSTANCE_STATE
#undef DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE
#undef DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE

#endif
