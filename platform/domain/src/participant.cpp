// Participants; see qddsdomain/participant.h.
#include "participant.h"

#include <cstring>

#include "qddscdr/error_text.h"

using qddscdr::setError;
using qddsdomain::EngineComplaints;

namespace {

struct QosDelete {
    void operator()(dds_qos_t *qos) const
    {
        dds_delete_qos(qos);
    }
};

DDS_DomainParticipant *makeParticipant(const DDS_ParticipantSettings &settings,
                                       DDS_ErrorText *error)
{
    auto made = std::make_unique<DDS_DomainParticipant>();
    made->domain = qddsdomain::leaseDomain(settings, error);
    if (made->domain == nullptr) {
        return nullptr;
    }
    const std::unique_ptr<dds_qos_t, QosDelete> qos(dds_create_qos());
    if (settings.name != nullptr) {
        dds_qset_entity_name(qos.get(), settings.name);
    }
    const EngineComplaints complaints;
    made->entity = qddsdomain::engine::Entity(
        dds_create_participant(static_cast<dds_domainid_t>(settings.domainId), qos.get(), nullptr));
    const dds_entity_t entity = made->entity.get();
    if (entity < 0) {
        setError(error, "the engine makes no participant in domain %d: %s", settings.domainId,
                 complaints.text(entity).c_str());
        return nullptr;
    }
    made->guid = qddsdomain::engine::guidOf(entity);
    return made.release();
}

} // namespace

DDS_DomainParticipant *DDS_DomainParticipant_new(const DDS_ParticipantSettings *settings,
                                                 DDS_ErrorText *error) noexcept
try {
    if (settings == nullptr) {
        setError(error, "no settings");
        return nullptr;
    }
    return makeParticipant(*settings, error);
} catch (...) {
    setError(error, "no memory for a participant");
    return nullptr;
}

void DDS_DomainParticipant_delete(DDS_DomainParticipant *self) noexcept
{
    delete self;
}

void DDS_DomainParticipant_get_guid(const DDS_DomainParticipant *self, uint8_t guid[16]) noexcept
{
    std::memcpy(guid, self->guid.v, sizeof self->guid.v);
}

int32_t DDS_DomainParticipant_get_domain_id(const DDS_DomainParticipant *self) noexcept
{
    return *self->domain;
}
