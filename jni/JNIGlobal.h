// The process-wide record: the Java VM in use and every class, method and field that the bridge
// calls. Made and destroyed by the host; read-only in between, on any thread.
#ifndef FERRYJNI_JNIGLOBAL_H
#define FERRYJNI_JNIGLOBAL_H

#include <jni.h>

#include <cstdint>

#include "ferryjni/ferryjni.h"

struct FERRYJNIGlobal {
    /// Null until a VM has been made or adopted.
    JavaVM *javaVM;
    /// 1 when FERRYJNIGlobal_destroy is to end the VM.
    int32_t destroyJavaVM;

    // The member cache: classes and objects are global references. All are set in a record that a
    // host has been given.

    // com/qel/ferrion/adapter/Adapter
    jclass adapterClass;
    jmethodID adapterCreateConnection;
    jmethodID adapterDeleteConnection;
    jmethodID adapterGetVersion;

    // com/qel/ferrion/adapter/infrastructure/Version
    jclass versionClass;
    jmethodID versionGetMajorNumber;
    jmethodID versionGetMinorNumber;
    jmethodID versionGetReleaseNumber;
    jmethodID versionGetRevisionNumber;

    // com/qel/ferrion/adapter/Entity
    jclass entityClass;
    jmethodID entityUpdate;

    // com/qel/ferrion/adapter/Connection
    jclass connectionClass;
    jmethodID connectionCreateSession;
    jmethodID connectionDeleteSession;
    jmethodID connectionCreateStreamReader;
    jmethodID connectionDeleteStreamReader;
    jmethodID connectionCreateStreamWriter;
    jmethodID connectionDeleteStreamWriter;
    jmethodID connectionGetAttributes;
    jmethodID connectionToString;

    // com/qel/ferrion/adapter/StreamReader
    jclass streamReaderClass;
    jmethodID streamReaderRead;
    jmethodID streamReaderReturnLoan;

    // com/qel/ferrion/adapter/StreamWriter
    jclass streamWriterClass;
    jmethodID streamWriterWrite;

    // com/qel/ferrion/adapter/internal/StreamReaderListenerImpl
    jclass streamReaderListenerImplClass;
    jmethodID streamReaderListenerImplInit;

    // com/qel/ferrion/adapter/infrastructure/StreamInfo
    jclass streamInfoClass;
    jmethodID streamInfoInit;
    jmethodID streamInfoGetStreamName;
    jmethodID streamInfoGetTypeInfo;
    jmethodID streamInfoIsDisposed;

    // com/qel/ferrion/adapter/infrastructure/TypeInfo
    jclass typeInfoClass;
    jmethodID typeInfoInit;
    jmethodID typeInfoGetTypeName;
    jmethodID typeInfoGetTypeRepresentation;

    // java/util/Properties
    jclass propertiesClass;
    jmethodID propertiesInit;
    jmethodID propertiesClear;
    jmethodID propertiesSetProperty;
    jmethodID propertiesPropertyNames;
    jmethodID propertiesGetProperty;
    jmethodID propertiesSize;

    // java/util/Enumeration
    jclass enumerationClass;
    jmethodID enumerationHasMoreElements;
    jmethodID enumerationNextElement;

    // com/qel/ferrion/adapter/DiscoveryConnection
    jclass discoveryConnectionClass;
    jmethodID discoveryConnectionGetInputStreamDiscoveryReader;
    jmethodID discoveryConnectionGetOutputStreamDiscoveryReader;

    // com/qel/dds/dynamicdata/DynamicData
    jclass dynamicDataClass;
    jmethodID dynamicDataInit;
    jfieldID dynamicDataPropertyDefaultField;
    jobject dynamicDataPropertyDefault;

    // com/qel/dds/dynamicdata/DynamicDataTypeSupport
    jclass dynamicDataTypeSupportClass;
    jfieldID dynamicDataTypeSupportTypePropertyDefaultField;
    jobject dynamicDataTypeSupportTypePropertyDefault;

    // com/qel/dds/subscription/SampleInfoHelper
    jclass sampleInfoHelperClass;
    jmethodID sampleInfoHelperPushToNativeI;
    jmethodID sampleInfoHelperPullFromNativeI;

    // com/qel/dds/dynamicdata/DynamicDataHelper
    jclass dynamicDataHelperClass;
    jmethodID dynamicDataHelperPushToNativeI;
    jmethodID dynamicDataHelperPullFromNativeI;

    // com/qel/dds/typecode/TypeCode
    jclass typeCodeClass;
    jmethodID typeCodeGetNativeTypecode;
    jmethodID typeCodeCreateFromNative;

    // java/util/ArrayList
    jclass arrayListClass;
    jmethodID arrayListInit;

    // java/util/List
    jclass listClass;
    jmethodID listClear;
    jmethodID listAdd;
    jmethodID listSize;
    jmethodID listGet;

    // com/qel/dds/subscription/SampleInfo
    jclass sampleInfoClass;
    jmethodID sampleInfoInit;
    jfieldID sampleInfoInstanceStateField;
    jfieldID sampleInfoValidDataField;

    // java/lang/Throwable
    jclass throwableClass;
    jmethodID throwableGetMessage;
};

namespace ferryjni {

/// Fills the cache. On failure false: the reason has been logged, what was resolved stays for
/// releaseMembers, and no exception is pending.
bool resolveMembers(FERRYJNIGlobal *global, JNIEnv *env) noexcept;

/// Releases the cache's global references, those that are set.
void releaseMembers(FERRYJNIGlobal *global, JNIEnv *env) noexcept;

} // namespace ferryjni

// Remembering which threads this library has attached. Each works on the calling thread.

/// Makes the process's key if there is none, and stores `env` under it. Nonzero on success.
int FERRYJNIGlobal_rememberAttachment(JNIEnv *env) noexcept;
/// Stores null. Nonzero on success.
int FERRYJNIGlobal_forgetAttachment() noexcept;
/// What was stored, or null.
void *FERRYJNIGlobal_getThreadForDetachment() noexcept;
/// Nonzero when the VM let the thread go.
int FERRYJNIGlobal_ReallyDetachThread(JavaVM *javaVM) noexcept;

#endif
