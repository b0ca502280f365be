/* Participants: this process's membership in a DDS domain. Everything of this library may be called
 * from any thread; one object is used by one thread at a time. Strings and arrays passed are
 * copied.
 */
#ifndef QDDSDOMAIN_PARTICIPANT_H
#define QDDSDOMAIN_PARTICIPANT_H

#include <stdint.h>

#include "qddsc/common.h"
#include "qddsdomain/export.h"
#include "qddsdomain/security.h"

QDDSDOMAIN_BEGIN

typedef struct DDS_DomainParticipant DDS_DomainParticipant;

/** How a process takes part in a domain. All zero is domain 0 on the loopback interface. */
struct DDS_ParticipantSettings {
    /** 0 to 230. */
    int32_t domainId;
    /** Names or addresses of network interfaces, separated by commas. Null or "" is the loopback
     * interface: nothing leaves the machine. "auto" leaves the choice to the engine. */
    const char *interfaces;
    /** 0: nothing is sent or expected by multicast, so that other hosts are found only through
     * `peers`. 1: only discovery goes by multicast. 2: data, too. */
    int32_t multicast;
    /** Host names or addresses, separated by commas, that are asked for participants one by one;
     * null or "" for none. On the loopback interface 127.0.0.1 is always among them. */
    const char *peers;
    /** Raw configuration of the engine that is merged behind what the other fields say: one or more
     * `<Domain>` elements, or the elements that go into one. Null for none. */
    const char *xml;
    /** Name under which others see the participant; null for none. */
    const char *name;
    /** 0: UDP. 1: TCP, by which participants find each other through `peers` only ("host:port"). */
    int32_t transport;
    /** With TCP, where connections are accepted; 0 accepts none, so that only own ones are made. */
    int32_t port;
    /** Null for a participant that talks to plain ones, and to no secured ones. */
    const struct DDS_SecuritySettings *security;
};

/**
 * Joins a domain. The first participant of a domain in this process fixes the domain's network
 * settings; a later one has to ask for the same.
 *
 * @return owned by the caller (DDS_DomainParticipant_delete); null, with `error` (may be null)
 *         filled, when a setting is not valid, other than those of the domain as this process
 *         already has it, or the engine rejects.
 */
QDDSDOMAIN_API DDS_DomainParticipant *
DDS_DomainParticipant_new(const struct DDS_ParticipantSettings *settings,
                          struct DDS_ErrorText *error) QDDSDOMAIN_NOEXCEPT;

/** Leaves the domain. Readers, writers and discoveries of the participant must have been deleted.
 * Null does nothing. */
QDDSDOMAIN_API void DDS_DomainParticipant_delete(DDS_DomainParticipant *self) QDDSDOMAIN_NOEXCEPT;

/** The participant's globally unique identifier, 16 bytes. */
QDDSDOMAIN_API void DDS_DomainParticipant_get_guid(const DDS_DomainParticipant *self,
                                                   uint8_t guid[16]) QDDSDOMAIN_NOEXCEPT;

/** The domain. */
QDDSDOMAIN_API int32_t DDS_DomainParticipant_get_domain_id(const DDS_DomainParticipant *self)
    QDDSDOMAIN_NOEXCEPT;

QDDSDOMAIN_END

#endif
