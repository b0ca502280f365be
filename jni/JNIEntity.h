// What connections, sessions, readers and writers have in common: Java's Entity.
#ifndef FERRYJNI_JNIENTITY_H
#define FERRYJNI_JNIENTITY_H

#include "JNIAdapter.h"

/// Forwards new properties (may be null) to Entity.update of a connection, session, reader or
/// writer. 1, or 0 after reporting: the message of what Java threw, where it has one. `adapter` is
/// null when a link of an incomplete record is missing.
int32_t FERRYJNIEntity_update(jobject javaEntity, const FERRYJNIAdapter *adapter,
                              const QEL_FerrionProperties *properties,
                              QEL_FerrionEnvironment *environment) noexcept;

#endif
