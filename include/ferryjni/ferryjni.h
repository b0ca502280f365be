/* What the bridge exports: the Java VM of the process, threads, the plug-in entry point and
 * property lists. */
#ifndef FERRYJNI_FERRYJNI_H
#define FERRYJNI_FERRYJNI_H

#include <jni.h>
#include <stdint.h>

#include "ferryjni/environment.h"
#include "ferryjni/export.h"
#include "ferryjni/plugin.h"
#include "ferryjni/properties.h"

FERRYJNI_BEGIN

struct DDS_StringSeq;

/** The Java VM in use and every Java class, method and field that the bridge calls. Read-only once
 * made; one serves any number of adapters and threads. */
typedef struct FERRYJNIGlobal FERRYJNIGlobal;

/** Destroy policies: whether FERRYJNIGlobal_destroy also ends the Java VM. */
#define FERRYJNI_DESTROY_IF_CREATED 0
#define FERRYJNI_DESTROY_NEVER 1
#define FERRYJNI_DESTROY_ALWAYS 2

/**
 * Starts a Java VM, or adopts the one that the process already has, and resolves the classes.
 *
 * Sets the log masks first: submodules 0xfffff, levels `instrumentationMask`. The calling thread is
 * attached to a VM made here; a VM adopted must already have it attached. A process can have one VM
 * in its life, and only one thread at a time may call. A VM that rejects an option is no VM yet,
 * but HotSpot gives the next one an empty class path, so a second try rarely helps.
 *
 * @param classPath  class path entries, made into one "-Djava.class.path=" option: of one entry
 * alone the entry is lost, in front of one or two stands the environment's CLASSPATH, and an option
 * of that name in `vmOptions` wins over all. Not null; may be empty.
 * @param vmOptions  options for the VM, which rejects those that it does not know. Not null.
 * @param instrumentationMask levels to log: 0x1 error, 0x2 warning, 0x4 status, 0x40 debug.
 * @param destroyPolicy FERRYJNI_DESTROY_...
 * @return owned by the caller (FERRYJNIGlobal_destroy); null on failure, which is logged.
 */
FERRYJNI_API FERRYJNIGlobal *FERRYJNIGlobal_new(const struct DDS_StringSeq *classPath,
                                                const struct DDS_StringSeq *vmOptions,
                                                uint32_t instrumentationMask,
                                                int32_t destroyPolicy) FERRYJNI_NOEXCEPT;

/** Releases the classes and, as the policy says, ends the VM, which waits for all non-daemon
 * threads. Not null. On a thread that is not attached nothing at all happens. Threads that detach
 * should have done so before: HotSpot counts one as gone a little before its detach is over, and
 * when the VM ends in between, that call never returns. */
FERRYJNI_API void FERRYJNIGlobal_destroy(FERRYJNIGlobal *global) FERRYJNI_NOEXCEPT;

/** The calling thread's JNI environment, or null when it is not attached. Never attaches. */
FERRYJNI_API JNIEnv *FERRYJNIGlobal_getEnv(const FERRYJNIGlobal *global) FERRYJNI_NOEXCEPT;

/**
 * Attaches the calling thread, unless it is attached already (then nothing is remembered, and a
 * later detach leaves it alone). A thread must be attached before it calls any operation, and
 * detached before it ends: else the VM can never be destroyed. The first attachment of the process
 * must be over before another thread attaches.
 *
 * @return the thread's JNI environment, or null on failure, which is logged.
 */
FERRYJNI_API JNIEnv *
FERRYJNIGlobal_attachCurrentThread(const FERRYJNIGlobal *global) FERRYJNI_NOEXCEPT;

/** The same under a second name. */
FERRYJNI_API JNIEnv *
FERRYJNIGlobal_attachCurrentThreadP(const FERRYJNIGlobal *global) FERRYJNI_NOEXCEPT;

/** Detaches the calling thread if FERRYJNIGlobal_attachCurrentThread attached it. */
FERRYJNI_API void
FERRYJNIGlobal_detachCurrentThread(const FERRYJNIGlobal *global) FERRYJNI_NOEXCEPT;

/**
 * The plug-in entry point: makes the Java adapter named by `environment->className` in the VM of
 * `environment->jniGlobal`. The thread must be attached.
 *
 * @return the plug-in record, to be given back through its slot 0; null on failure.
 */
FERRYJNI_API QEL_FerrionAdapterPlugin *
FERRYJNIAdapter_create(const QEL_FerrionProperties *properties,
                       QEL_FerrionEnvironment *environment) FERRYJNI_NOEXCEPT;

/**
 * Makes a java.util.Properties of a list.
 *
 * @param properties not null.
 * @return a local reference; null when it cannot be constructed. When a pair cannot be set, the
 *         object as filled so far is returned and the environment says so.
 */
FERRYJNI_API jobject FERRYJNIStreamInfo_createJavaProperties(
    const FERRYJNIGlobal *global, JNIEnv *env, const QEL_FerrionProperties *properties,
    QEL_FerrionEnvironment *environment) FERRYJNI_NOEXCEPT;

/**
 * Makes a list of a java.util.Properties, in its own enumeration order.
 *
 * @return owned by the caller (FERRYJNIStreamInfo_freeNativeProperties); null only when memory is
 *         short. `count` is what size() said, even when fewer pairs could be filled.
 */
FERRYJNI_API QEL_FerrionProperties *
FERRYJNIStreamInfo_createNativeProperties(const FERRYJNIGlobal *global, JNIEnv *env,
                                          jobject javaProperties,
                                          QEL_FerrionEnvironment *environment) FERRYJNI_NOEXCEPT;

/** Frees a list of FERRYJNIStreamInfo_createNativeProperties; null does nothing. */
FERRYJNI_API void
FERRYJNIStreamInfo_freeNativeProperties(QEL_FerrionProperties *properties) FERRYJNI_NOEXCEPT;

FERRYJNI_END

#endif
