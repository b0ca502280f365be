// A connection of a Java adapter, with its two discovery readers.
#ifndef FERRYJNI_JNICONNECTION_H
#define FERRYJNI_JNICONNECTION_H

#include <jni.h>

#include "JNIAdapter.h"
#include "ferryjni/plugin.h"

struct FERRYJNIStreamReader;
struct FERRYJNIStreamReaderListener;

struct FERRYJNIConnection : QEL_FerrionConnection {
    /// Global reference; null until creation has succeeded.
    jobject javaConnection;
    /// Not owned.
    FERRYJNIAdapter *adapter;
    /// The Java connection's toString(), taken once; owned (DDS_String), may be null.
    char *toStringText;
    /// Owned, as are the three below.
    FERRYJNIStreamReaderListener *pubDiscoveryListener;
    FERRYJNIStreamReaderListener *subDiscoveryListener;
    FERRYJNIStreamReader *pubDiscoveryReader;
    FERRYJNIStreamReader *subDiscoveryReader;
};

namespace ferryjni {

/// The connection's global record, or null when a link is missing (an incomplete record upstream).
inline FERRYJNIGlobal *globalOf(const FERRYJNIConnection *connection) noexcept
{
    return connection != nullptr && connection->adapter != nullptr ? connection->adapter->jniGlobal
                                                                   : nullptr;
}

} // namespace ferryjni

/// Creates the connection. After a failure that follows the Java call the record comes back with
/// the error in the environment, to be deleted; null before that.
FERRYJNIConnection *
FERRYJNIConnection_new(FERRYJNIAdapter *adapter, const char *firstName, const char *secondName,
                       const QEL_FerrionStreamReaderListener *subscriptionListener,
                       const QEL_FerrionStreamReaderListener *publicationListener,
                       const QEL_FerrionProperties *properties,
                       QEL_FerrionEnvironment *environment) noexcept;

/// Deletes a connection, also an incomplete one. On a thread without a JNI environment nothing is
/// released.
void FERRYJNIConnection_delete(QEL_FerrionConnection *connection,
                               QEL_FerrionEnvironment *environment) noexcept;

// Slots. Those that create and delete look at the connection only as far as their object needs it:
// sessions, readers and writers find it by themselves.
const char *FERRYJNIConnection_to_string(QEL_FerrionConnection *connection) noexcept;
void FERRYJNIConnection_update(QEL_FerrionConnection *connection,
                               const QEL_FerrionProperties *properties,
                               QEL_FerrionEnvironment *environment) noexcept;
QEL_FerrionSession *FERRYJNIConnection_create_session(QEL_FerrionConnection *connection,
                                                      const QEL_FerrionProperties *properties,
                                                      QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIConnection_delete_session(QEL_FerrionConnection *connection,
                                       QEL_FerrionSession *session,
                                       QEL_FerrionEnvironment *environment) noexcept;
QEL_FerrionStreamReader *FERRYJNIConnection_create_stream_reader(
    QEL_FerrionConnection *connection, QEL_FerrionSession *session,
    const QEL_FerrionStreamInfo *streamInfo, const QEL_FerrionProperties *properties,
    const QEL_FerrionStreamReaderListener *listener, QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIConnection_delete_stream_reader(QEL_FerrionConnection *connection,
                                             QEL_FerrionStreamReader *reader,
                                             QEL_FerrionEnvironment *environment) noexcept;
QEL_FerrionStreamWriter *FERRYJNIConnection_create_stream_writer(
    QEL_FerrionConnection *connection, QEL_FerrionSession *session,
    const QEL_FerrionStreamInfo *streamInfo, const QEL_FerrionProperties *properties,
    QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIConnection_delete_stream_writer(QEL_FerrionConnection *connection,
                                             QEL_FerrionStreamWriter *writer,
                                             QEL_FerrionEnvironment *environment) noexcept;

#endif
