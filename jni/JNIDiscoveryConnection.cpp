// Getters of the discovery readers, on the host's calling thread. Every call binds again, because a
// Java connection may hand out another reader.
#include "JNIDiscoveryConnection.h"

#include "Guards.h"
#include "JNIStreamReaderDiscovery.h"
#include "Operation.h"

using ferryjni::Operation;

namespace {

QEL_FerrionStreamReader *discoveryReader(const char *context, QEL_FerrionConnection *connection,
                                         FERRYJNIStreamReader *FERRYJNIConnection::*readerSlot,
                                         jmethodID FERRYJNIGlobal::*getter,
                                         QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation(context, environment);
    const auto *self = static_cast<const FERRYJNIConnection *>(connection);
    const FERRYJNIGlobal *global = ferryjni::globalOf(self);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return nullptr;
    }
    const ferryjni::LocalFrame frame(env);
    FERRYJNIStreamReader *reader = self->*readerSlot;
    // Null counts as an instance of every class, and the class itself may be missing from the cache
    // (the one global reference that is not checked): both would take the process down further on.
    if (self->javaConnection == nullptr || reader == nullptr ||
        global->discoveryConnectionClass == nullptr ||
        env->IsInstanceOf(self->javaConnection, global->discoveryConnectionClass) == JNI_FALSE) {
        return nullptr;
    }
    FERRYJNIStreamReaderDiscovery_enable(reader, global->*getter, environment);
    return reader;
}

} // namespace

QEL_FerrionStreamReader *
FERRYJNIDiscoveryConnection_get_pub_discovery_reader(QEL_FerrionConnection *connection,
                                                     QEL_FerrionEnvironment *environment) noexcept
{
    return discoveryReader("FERRYJNIDiscoveryConnection_get_pub_discovery_reader", connection,
                           &FERRYJNIConnection::pubDiscoveryReader,
                           &FERRYJNIGlobal::discoveryConnectionGetInputStreamDiscoveryReader,
                           environment);
}

QEL_FerrionStreamReader *
FERRYJNIDiscoveryConnection_get_sub_discovery_reader(QEL_FerrionConnection *connection,
                                                     QEL_FerrionEnvironment *environment) noexcept
{
    return discoveryReader("FERRYJNIDiscoveryConnection_get_sub_discovery_reader", connection,
                           &FERRYJNIConnection::subDiscoveryReader,
                           &FERRYJNIGlobal::discoveryConnectionGetOutputStreamDiscoveryReader,
                           environment);
}
