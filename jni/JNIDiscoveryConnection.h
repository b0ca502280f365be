// The two discovery readers of a connection, as the host gets them.
#ifndef FERRYJNI_JNIDISCOVERYCONNECTION_H
#define FERRYJNI_JNIDISCOVERYCONNECTION_H

#include "JNIConnection.h"

// Slots 9 (input streams) and 10 (output streams). Null without a report when the Java connection
// is no DiscoveryConnection; otherwise the reader, even when binding it failed, which the
// environment says so.
QEL_FerrionStreamReader *
FERRYJNIDiscoveryConnection_get_pub_discovery_reader(QEL_FerrionConnection *connection,
                                                     QEL_FerrionEnvironment *environment) noexcept;
QEL_FerrionStreamReader *
FERRYJNIDiscoveryConnection_get_sub_discovery_reader(QEL_FerrionConnection *connection,
                                                     QEL_FerrionEnvironment *environment) noexcept;

#endif
