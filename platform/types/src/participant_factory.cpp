// The one participant factory of the process; nothing to make, nothing to free.
#include "qddsc/participant_factory.h"

#include "qddscore/thread.h"

struct DDS_DomainParticipantFactory {
    char unused;
};

DDS_DomainParticipantFactory *DDS_DomainParticipantFactory_get_instance(void) noexcept
{
    static DDS_DomainParticipantFactory instance{};
    return &instance;
}

QELOsapiThreadTssFactory *
DDS_DomainParticipantFactory_get_tss_factoryI(DDS_DomainParticipantFactory *self) noexcept
{
    return self != nullptr ? QELOsapiThread_getTssFactory() : nullptr;
}
