// What a participant is made of.
#ifndef QDDSDOMAIN_SRC_PARTICIPANT_H
#define QDDSDOMAIN_SRC_PARTICIPANT_H

#include "domain.h"

/// Members go in reverse: the entity before the domain.
struct DDS_DomainParticipant {
    qddsdomain::DomainLease domain;
    qddsdomain::engine::Entity entity;
    dds_guid_t guid;
};

#endif
