// Connections: created and deleted through the Java adapter, on the host's calling thread. A
// connection owns its two discovery readers and their listeners.
#include "JNIConnection.h"

#include <cstddef>
#include <initializer_list>
#include <type_traits>

#include "Guards.h"
#include "Heap.h"
#include "JNICommon.h"
#include "JNIEntity.h"
#include "JNIProperties.h"
#include "JNISession.h"
#include "JNIStreamReader.h"
#include "JNIStreamReaderDiscovery.h"
#include "JNIStreamReaderListener.h"
#include "JNIStreamWriter.h"
#include "Operation.h"
#include "qddsc/string.h"

using ferryjni::LocalFrame;
using ferryjni::Operation;
using ferryjni::Step;

static_assert(std::is_standard_layout_v<FERRYJNIConnection>);
static_assert(offsetof(FERRYJNIConnection, javaConnection) == 0);
static_assert(offsetof(FERRYJNIConnection, adapter) == 8);
static_assert(offsetof(FERRYJNIConnection, toStringText) == 16);
static_assert(offsetof(FERRYJNIConnection, pubDiscoveryListener) == 24);
static_assert(offsetof(FERRYJNIConnection, subDiscoveryListener) == 32);
static_assert(offsetof(FERRYJNIConnection, pubDiscoveryReader) == 40);
static_assert(offsetof(FERRYJNIConnection, subDiscoveryReader) == 48);
static_assert(sizeof(FERRYJNIConnection) == 56);

namespace {

/// The two discovery readers, each with its listener. compatibility 1 (the text of both readers)
/// and 10 (which failure leaves a record)
Step createDiscovery(const Operation &operation, FERRYJNIConnection *connection,
                     const QEL_FerrionStreamReaderListener *subscriptionListener,
                     const QEL_FerrionStreamReaderListener *publicationListener) noexcept
{
    constexpr const char *text = "error creating JNI stream reader listener";
    QEL_FerrionEnvironment *environment = operation.environment();
    FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    connection->pubDiscoveryReader = FERRYJNIStreamReaderDiscovery_new(connection, environment);
    if (connection->pubDiscoveryReader == nullptr) {
        operation.report(text);
        return Step::returnRecord;
    }
    connection->pubDiscoveryListener = FERRYJNIStreamReaderListener_new(
        global, publicationListener, connection->pubDiscoveryReader, environment);
    if (connection->pubDiscoveryListener == nullptr) {
        operation.report(text);
        return Step::returnNull;
    }
    connection->subDiscoveryReader = FERRYJNIStreamReaderDiscovery_new(connection, environment);
    if (connection->subDiscoveryReader == nullptr) {
        operation.report(text);
        return Step::returnRecord;
    }
    connection->subDiscoveryListener = FERRYJNIStreamReaderListener_new(
        global, subscriptionListener, connection->subDiscoveryReader, environment);
    if (connection->subDiscoveryListener == nullptr) {
        operation.report(text);
        return Step::returnRecord;
    }
    return Step::done;
}

/// Keeps a copy of the Java connection's toString() for the host.
void keepText(const Operation &operation, FERRYJNIConnection *connection, JNIEnv *env) noexcept
{
    const FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    auto *text = static_cast<jstring>(
        env->CallObjectMethod(connection->javaConnection, global->connectionToString));
    // One that throws has returned null and is reported as that; its trace is printed all the same.
    if (env->ExceptionCheck() != JNI_FALSE) {
        env->ExceptionDescribe();
    }
    if (text == nullptr) {
        operation.report("toString returned null");
        return;
    }
    const ferryjni::UtfChars chars(env, text);
    if (chars.get() == nullptr) {
        ferryjni::clearPending(env);
        operation.report("error obtaining native string");
        return;
    }
    connection->toStringText = DDS_String_dup(chars.get());
    if (connection->toStringText == nullptr) {
        operation.report("error allocating string");
    }
}

/// Creates the Java connection and completes the record.
Step createJavaConnection(const Operation &operation, FERRYJNIConnection *connection, JNIEnv *env,
                          const char *firstName, const char *secondName,
                          const QEL_FerrionProperties *properties) noexcept
{
    const FERRYJNIAdapter *adapter = connection->adapter;
    const FERRYJNIGlobal *global = adapter->jniGlobal;
    jstring first = firstName != nullptr ? env->NewStringUTF(firstName) : nullptr;
    // Nothing may be called while the exception of the first is pending.
    jstring second = secondName != nullptr && env->ExceptionCheck() == JNI_FALSE
                         ? env->NewStringUTF(secondName)
                         : nullptr;
    // A name that could not be made counts as the creation's own failure.
    if (operation.threw(env, "exception creating connection")) {
        return Step::returnRecord;
    }
    jobject javaProperties = nullptr;
    if (!ferryjni::toJavaProperties(global, env, properties, operation.environment(),
                                    &javaProperties)) {
        operation.report("null connection object");
        return Step::returnNull;
    }
    // The subscription side's listener stands before the publication side's.
    jobject javaConnection =
        env->CallObjectMethod(adapter->javaAdapter, global->adapterCreateConnection, first, second,
                              connection->subDiscoveryListener->javaListener,
                              connection->pubDiscoveryListener->javaListener, javaProperties);
    if (operation.threw(env, "exception creating connection")) {
        return Step::returnRecord;
    }
    if (javaConnection == nullptr) {
        operation.report("null connection object");
        return Step::returnRecord;
    }
    connection->javaConnection =
        operation.globalRef(env, javaConnection, "global reference to connection instance");
    if (connection->javaConnection == nullptr) {
        return Step::returnRecord;
    }
    keepText(operation, connection, env);
    return Step::done;
}

/// Releases what the record owns but for its Java connection, and the record.
void releaseConnection(FERRYJNIConnection *connection, JNIEnv *env,
                       QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamReaderListener *const listeners[] = {connection->pubDiscoveryListener,
                                                       connection->subDiscoveryListener};
    for (auto *listener : listeners) {
        if (listener != nullptr) {
            FERRYJNIStreamReaderListener_retire(listener, env);
        }
    }
    for (auto *reader : {connection->pubDiscoveryReader, connection->subDiscoveryReader}) {
        if (reader != nullptr) {
            FERRYJNIStreamReaderDiscovery_delete(reader, environment);
        }
    }
    DDS_String_free(connection->toStringText);
    for (auto *listener : listeners) {
        if (listener != nullptr) {
            FERRYJNIStreamReaderListener_delete(listener, environment);
        }
    }
    FERRYJNICommon_deleteGlobalRef(env, &connection->javaConnection);
    ferryjni::freeStructure(connection);
}

} // namespace

FERRYJNIConnection *
FERRYJNIConnection_new(FERRYJNIAdapter *adapter, const char *firstName, const char *secondName,
                       const QEL_FerrionStreamReaderListener *subscriptionListener,
                       const QEL_FerrionStreamReaderListener *publicationListener,
                       const QEL_FerrionProperties *properties,
                       QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIConnection_new", environment);
    JNIEnv *env = operation.javaEnv(adapter->jniGlobal);
    if (env == nullptr) {
        return nullptr;
    }
    auto *connection = ferryjni::newStructure<FERRYJNIConnection>("struct FERRYJNIConnection");
    if (connection == nullptr) {
        operation.report("error creating JNI connection");
        return nullptr;
    }
    connection->adapter = adapter;
    const LocalFrame frame(env);
    Step step = createDiscovery(operation, connection, subscriptionListener, publicationListener);
    if (step == Step::done) {
        step = createJavaConnection(operation, connection, env, firstName, secondName, properties);
    }
    if (step == Step::returnNull) {
        // Java has not seen any of it yet.
        releaseConnection(connection, env, environment);
        return nullptr;
    }
    return connection;
}

void FERRYJNIConnection_delete(QEL_FerrionConnection *connection,
                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIConnection_delete", environment);
    auto *self = static_cast<FERRYJNIConnection *>(connection);
    const FERRYJNIGlobal *global = ferryjni::globalOf(self);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    if (self->javaConnection != nullptr) {
        env->CallVoidMethod(self->adapter->javaAdapter, global->adapterDeleteConnection,
                            self->javaConnection);
        operation.threw(env, "exception");
        // compatibility 8: forgotten, not released
        self->javaConnection = nullptr;
    }
    releaseConnection(self, env, environment);
}

const char *FERRYJNIConnection_to_string(QEL_FerrionConnection *connection) noexcept
{
    return static_cast<const FERRYJNIConnection *>(connection)->toStringText;
}

void FERRYJNIConnection_update(QEL_FerrionConnection *connection,
                               const QEL_FerrionProperties *properties,
                               QEL_FerrionEnvironment *environment) noexcept
{
    const auto *self = static_cast<const FERRYJNIConnection *>(connection);
    if (FERRYJNIEntity_update(self->javaConnection, self->adapter, properties, environment) == 0) {
        const Operation operation("FERRYJNIConnection_update", environment);
        operation.report("error calling Connection.update()");
    }
}

QEL_FerrionSession *FERRYJNIConnection_create_session(QEL_FerrionConnection *connection,
                                                      const QEL_FerrionProperties *properties,
                                                      QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNISession *session =
        FERRYJNISession_new(static_cast<FERRYJNIConnection *>(connection), properties, environment);
    if (session == nullptr) {
        const Operation operation("FERRYJNIConnection_create_session", environment);
        operation.report("error creating JNI session");
    }
    return session;
}

void FERRYJNIConnection_delete_session(QEL_FerrionConnection *, QEL_FerrionSession *session,
                                       QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNISession_delete(static_cast<FERRYJNISession *>(session), environment);
}

QEL_FerrionStreamReader *FERRYJNIConnection_create_stream_reader(
    QEL_FerrionConnection *, QEL_FerrionSession *session, const QEL_FerrionStreamInfo *streamInfo,
    const QEL_FerrionProperties *properties, const QEL_FerrionStreamReaderListener *listener,
    QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamReader *reader = FERRYJNIStreamReader_new(
        static_cast<FERRYJNISession *>(session), streamInfo, properties, listener, environment);
    if (reader == nullptr) {
        const Operation operation("FERRYJNIConnection_create_stream_reader", environment);
        operation.report("error creating JNI stream reader");
    }
    return reader;
}

void FERRYJNIConnection_delete_stream_reader(QEL_FerrionConnection *,
                                             QEL_FerrionStreamReader *reader,
                                             QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamReader_delete(static_cast<FERRYJNIStreamReader *>(reader), environment);
}

QEL_FerrionStreamWriter *FERRYJNIConnection_create_stream_writer(
    QEL_FerrionConnection *, QEL_FerrionSession *session, const QEL_FerrionStreamInfo *streamInfo,
    const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamWriter *writer = FERRYJNIStreamWriter_new(static_cast<FERRYJNISession *>(session),
                                                            streamInfo, properties, environment);
    if (writer == nullptr) {
        const Operation operation("FERRYJNIConnection_create_stream_writer", environment);
        operation.report("error creating JNI stream writer");
    }
    return writer;
}

void FERRYJNIConnection_delete_stream_writer(QEL_FerrionConnection *,
                                             QEL_FerrionStreamWriter *writer,
                                             QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamWriter_delete(static_cast<FERRYJNIStreamWriter *>(writer), environment);
}
