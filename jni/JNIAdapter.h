// The plug-in record of one Java adapter, and the Java object behind it.
#ifndef FERRYJNI_JNIADAPTER_H
#define FERRYJNI_JNIADAPTER_H

#include <jni.h>

#include "JNIGlobal.h"
#include "ferryjni/plugin.h"

/// Owned by the host from the entry point until slot 0.
struct FERRYJNIAdapter {
    /// First, so that the host's pointer and this record's are one.
    QEL_FerrionAdapterPlugin plugin;
    /// Not owned.
    FERRYJNIGlobal *jniGlobal;
    /// Global reference. compatibility 9: it outlives the adapter
    jclass adapterClass;
    /// Looked up only when there is no constructor that takes properties.
    jmethodID defaultConstructor;
    jmethodID propertiesConstructor;
    jmethodID finalizeMethod;
    /// Global reference; the only one to the Java adapter from this side.
    jobject javaAdapter;
};

namespace ferryjni {

inline FERRYJNIAdapter *asAdapter(QEL_FerrionAdapterPlugin *plugin) noexcept
{
    return reinterpret_cast<FERRYJNIAdapter *>(plugin);
}

} // namespace ferryjni

/// Builds the record: the Java adapter of the environment's class, then the operation table. Null
/// on failure.
FERRYJNIAdapter *FERRYJNIAdapter_new(const QEL_FerrionProperties *properties,
                                     QEL_FerrionEnvironment *environment) noexcept;

/// Fills the operation table; returns 1.
int32_t FERRYJNIAdapter_initialize(FERRYJNIAdapter *adapter) noexcept;

// Slots 0 to 2.
int32_t FERRYJNIAdapter_delete(QEL_FerrionAdapterPlugin *adapter,
                               QEL_FerrionEnvironment *environment) noexcept;
QEL_FerrionConnection *FERRYJNIAdapter_create_connection(
    QEL_FerrionAdapterPlugin *adapter, const char *firstName, const char *secondName,
    const QEL_FerrionStreamReaderListener *subscriptionListener,
    const QEL_FerrionStreamReaderListener *publicationListener, void *reserved1, void *reserved2,
    const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIAdapter_delete_connection(QEL_FerrionAdapterPlugin *adapter,
                                       QEL_FerrionConnection *connection,
                                       QEL_FerrionEnvironment *environment) noexcept;

/// Constructs the Java adapter and reads its version. 1, or 0 after reporting: what was made before
/// the failure is not released, because the caller frees the record.
int32_t FERRYJNIAdapter_allocateJava(FERRYJNIAdapter *adapter, const char *className,
                                     const QEL_FerrionProperties *properties,
                                     QEL_FerrionEnvironment *environment) noexcept;

/// Calls the Java adapter's finalize() and lets it go. On a thread without a JNI environment
/// nothing is released.
void FERRYJNIAdapter_finalizeJava(FERRYJNIAdapter *adapter,
                                  QEL_FerrionEnvironment *environment) noexcept;

#endif
