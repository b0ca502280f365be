/* The participant factory: the process's one entry into the middleware. */
#ifndef QDDSC_PARTICIPANT_FACTORY_H
#define QDDSC_PARTICIPANT_FACTORY_H

#include "qddsc/export.h"

QDDSC_BEGIN

typedef struct DDS_DomainParticipantFactory DDS_DomainParticipantFactory;
struct QELOsapiThreadTssFactory;

/** The process's factory; never null, lives until the process ends. Any thread may call. */
QDDSC_API DDS_DomainParticipantFactory *
DDS_DomainParticipantFactory_get_instance(void) QDDSC_NOEXCEPT;

/** The factory of thread-specific-storage keys that all modules of the process share. Null for
 * null, else never null. */
QDDSC_API struct QELOsapiThreadTssFactory *
DDS_DomainParticipantFactory_get_tss_factoryI(DDS_DomainParticipantFactory *self) QDDSC_NOEXCEPT;

QDDSC_END

#endif
