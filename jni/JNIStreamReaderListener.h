// The link by which a Java reader signals data to the host.
#ifndef FERRYJNI_JNISTREAMREADERLISTENER_H
#define FERRYJNI_JNISTREAMREADERLISTENER_H

#include <jni.h>

#include "JNIGlobal.h"
#include "ferryjni/plugin.h"

struct FERRYJNIStreamReader;

/// One per native reader. The Java object keeps this record's address until the listener is
/// retired, so the record may go only after that.
struct FERRYJNIStreamReaderListener {
    /// Global reference to the StreamReaderListenerImpl; null when it could not be made.
    jobject javaListener;
    /// The host's listener, copied.
    void *listenerData;
    QEL_FerrionOnDataAvailableFn onDataAvailable;
    /// Not owned; may still be incomplete when the first signal comes. Null when it could not be
    /// retired.
    FERRYJNIStreamReader *streamReader;
    /// Not owned.
    FERRYJNIGlobal *global;
};

/// Creates the record and its Java object. Null when there is no memory or no JNI environment; when
/// the Java object cannot be made the record comes back without one, and only the environment
/// tells. `hostListener` may be null: then nobody is signalled.
FERRYJNIStreamReaderListener *FERRYJNIStreamReaderListener_new(
    FERRYJNIGlobal *global, const QEL_FerrionStreamReaderListener *hostListener,
    FERRYJNIStreamReader *streamReader, QEL_FerrionEnvironment *environment) noexcept;

/// Takes the record's address from the Java object, which an adapter may keep and signal for ever.
/// Comes back when no signal is under way any more. To be called before what signals look at goes.
/// Where Java rejects, the record is cut off from its reader and never freed.
void FERRYJNIStreamReaderListener_retire(FERRYJNIStreamReaderListener *listener,
                                         JNIEnv *env) noexcept;

/// Releases the Java object and frees the record; on a thread without a JNI environment nothing is
/// released.
void FERRYJNIStreamReaderListener_delete(FERRYJNIStreamReaderListener *listener,
                                         QEL_FerrionEnvironment *environment) noexcept;

/// The native method of StreamReaderListenerImpl. Runs on the Java thread that signals, with the
/// environment that Java passes in; the host's callback runs inside it.
extern "C" FERRYJNI_API void JNICALL
Java_com_qel_ferrion_adapter_internal_StreamReaderListenerImpl_QEL_1FerrionStreamReaderListener_1on_1data_1available(
    JNIEnv *env, jobject self, jobject javaReader, jlong listenerAddress) noexcept;

#endif
