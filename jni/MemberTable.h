// The member cache as one table: a row per class, method, field and object, in the order in which
// they are resolved, with the message of its failure. A member row belongs to the class row closest
// above it. The record stores them in another order (see JNIGlobal.h).
#ifndef FERRYJNI_MEMBERTABLE_H
#define FERRYJNI_MEMBERTABLE_H

#include <cstddef>
#include <string_view>

#include "JNIGlobal.h"

namespace ferryjni {

using G = FERRYJNIGlobal;

enum class MemberKind { classRef, method, staticMethod, field, staticField, staticObject };

/// What sets a row apart from the others of its kind.
enum class Quirk {
    none,
    /// The exception that explains the failure is printed before the message.
    printsException,
    /// compatibility 16: a failed global reference is not noticed, and the entry stays null
    globalRefUnchecked,
};

/// One of the four slot fields is set, as the kind says; a pointer to a member of another type does
/// not compile.
struct MemberRow {
    MemberKind kind;
    Quirk quirk;
    /// Slash-separated on class rows; null on object rows, whose field is the row above.
    const char *name;
    /// Null on class and object rows.
    const char *signature;
    /// Logged when it is not there (for an object: when the field holds null).
    const char *missing;
    /// Logged when its global reference cannot be made; null where none is made.
    const char *noGlobalRef;
    jclass G::*classSlot = nullptr;
    jmethodID G::*methodSlot = nullptr;
    jfieldID G::*fieldSlot = nullptr;
    jobject G::*objectSlot = nullptr;
};

constexpr MemberRow classOf(jclass G::*slot, const char *name, const char *missing,
                            const char *noGlobalRef, Quirk quirk = Quirk::none)
{
    return {MemberKind::classRef, quirk, name, nullptr, missing, noGlobalRef, slot};
}

constexpr MemberRow method(jmethodID G::*slot, const char *name, const char *signature,
                           const char *missing, Quirk quirk = Quirk::none)
{
    return {MemberKind::method, quirk, name, signature, missing, nullptr, nullptr, slot};
}

constexpr MemberRow staticMethod(jmethodID G::*slot, const char *name, const char *signature,
                                 const char *missing)
{
    return {
        MemberKind::staticMethod, Quirk::none, name, signature, missing, nullptr, nullptr, slot};
}

constexpr MemberRow field(jfieldID G::*slot, const char *name, const char *signature,
                          const char *missing)
{
    return {MemberKind::field, Quirk::none, name,    signature, missing,
            nullptr,           nullptr,     nullptr, slot};
}

constexpr MemberRow staticField(jfieldID G::*slot, const char *name, const char *signature,
                                const char *missing)
{
    return {MemberKind::staticField,
            Quirk::none,
            name,
            signature,
            missing,
            nullptr,
            nullptr,
            nullptr,
            slot};
}

/// The value of the static field of the row above.
constexpr MemberRow staticObject(jobject G::*slot, const char *missing, const char *noGlobalRef)
{
    return {MemberKind::staticObject,
            Quirk::none,
            nullptr,
            nullptr,
            missing,
            noGlobalRef,
            nullptr,
            nullptr,
            nullptr,
            slot};
}

constexpr Quirk printsException = Quirk::printsException;
constexpr Quirk globalRefUnchecked = Quirk::globalRefUnchecked;

// compatibility 1: the messages
// clang-format off
inline constexpr MemberRow memberTable[] = {
    classOf(&G::adapterClass, "com/qel/ferrion/adapter/Adapter", "error finding Adapter class", "error getting adapter class", printsException),
    method(&G::adapterCreateConnection, "createConnection", "(Ljava/lang/String;Ljava/lang/String;Lcom/qel/ferrion/adapter/StreamReaderListener;Lcom/qel/ferrion/adapter/StreamReaderListener;Ljava/util/Properties;)Lcom/qel/ferrion/adapter/Connection;", "error getting adapter create connection method"),
    method(&G::adapterDeleteConnection, "deleteConnection", "(Lcom/qel/ferrion/adapter/Connection;)V", "error getting adapter delete connection method"),
    method(&G::adapterGetVersion, "getVersion", "()Lcom/qel/ferrion/adapter/infrastructure/Version;", "error getting Adapter.getVersion method", printsException),

    classOf(&G::versionClass, "com/qel/ferrion/adapter/infrastructure/Version", "error finding Version class", "error getting Version class", printsException),
    method(&G::versionGetMajorNumber, "getMajorNumber", "()I", "error getting Version.getMajorNumber method"),
    method(&G::versionGetMinorNumber, "getMinorNumber", "()I", "error getting Version.getMinorNumber method"),
    method(&G::versionGetReleaseNumber, "getReleaseNumber", "()I", "error getting Version.getReleaseNumber method"),
    method(&G::versionGetRevisionNumber, "getRevisionNumber", "()I", "error getting Version.getRevisionNumber method"),

    classOf(&G::entityClass, "com/qel/ferrion/adapter/Entity", "error finding Entity class", "error getting Entity class", printsException),
    method(&G::entityUpdate, "update", "(Ljava/util/Properties;)V", "error getting Entity.update() method"),

    classOf(&G::connectionClass, "com/qel/ferrion/adapter/Connection", "error finding Connection class", "error getting connection class"),
    method(&G::connectionCreateSession, "createSession", "(Ljava/util/Properties;)Lcom/qel/ferrion/adapter/Session;", "error getting Connection.createSession method"),
    method(&G::connectionDeleteSession, "deleteSession", "(Lcom/qel/ferrion/adapter/Session;)V", "error getting Connection.deleteSession method"),
    method(&G::connectionCreateStreamReader, "createStreamReader", "(Lcom/qel/ferrion/adapter/Session;Lcom/qel/ferrion/adapter/infrastructure/StreamInfo;Ljava/util/Properties;Lcom/qel/ferrion/adapter/StreamReaderListener;)Lcom/qel/ferrion/adapter/StreamReader;", "error getting Connection.createStreamReader method"),
    method(&G::connectionDeleteStreamReader, "deleteStreamReader", "(Lcom/qel/ferrion/adapter/StreamReader;)V", "error getting Connection.deleteStreamReader method"),
    method(&G::connectionCreateStreamWriter, "createStreamWriter", "(Lcom/qel/ferrion/adapter/Session;Lcom/qel/ferrion/adapter/infrastructure/StreamInfo;Ljava/util/Properties;)Lcom/qel/ferrion/adapter/StreamWriter;", "error getting Connection.createStreamWriter method"),
    method(&G::connectionDeleteStreamWriter, "deleteStreamWriter", "(Lcom/qel/ferrion/adapter/StreamWriter;)V", "error getting Connection.deleteStreamWriter method"),
    method(&G::connectionGetAttributes, "getAttributes", "()Ljava/util/Properties;", "error getting Connection.getAttributes method"),
    method(&G::connectionToString, "toString", "()Ljava/lang/String;", "error getting Connection.toString method"),

    classOf(&G::streamReaderClass, "com/qel/ferrion/adapter/StreamReader", "error finding StreamReader class", "error getting StreamReader class"),
    method(&G::streamReaderRead, "read", "(Ljava/util/List;Ljava/util/List;)V", "error getting StreamReader.read method"),
    method(&G::streamReaderReturnLoan, "returnLoan", "(Ljava/util/List;Ljava/util/List;)V", "error getting StreamReader.returnLoan method"),

    classOf(&G::streamWriterClass, "com/qel/ferrion/adapter/StreamWriter", "error finding stream writer class", "error getting stream writer class"),
    method(&G::streamWriterWrite, "write", "(Ljava/util/List;Ljava/util/List;)I", "error getting stream writer write method"),

    classOf(&G::streamReaderListenerImplClass, "com/qel/ferrion/adapter/internal/StreamReaderListenerImpl", "error finding stream reader listener class", "error getting stream reader listener class"),
    method(&G::streamReaderListenerImplInit, "<init>", "(J)V", "error getting reader listener constructor"),

    classOf(&G::streamInfoClass, "com/qel/ferrion/adapter/infrastructure/StreamInfo", "error finding stream reader listener class", "error getting stream info class"),
    method(&G::streamInfoInit, "<init>", "(Ljava/lang/String;Lcom/qel/ferrion/adapter/infrastructure/TypeInfo;Z)V", "error getting reader info constructor"),
    method(&G::streamInfoGetStreamName, "getStreamName", "()Ljava/lang/String;", "error getting reader info constructor"),
    method(&G::streamInfoGetTypeInfo, "getTypeInfo", "()Lcom/qel/ferrion/adapter/infrastructure/TypeInfo;", "error getting reader info constructor"),
    method(&G::streamInfoIsDisposed, "isDisposed", "()Z", "error getting StreamInfo.isDiscovered method"),

    classOf(&G::typeInfoClass, "com/qel/ferrion/adapter/infrastructure/TypeInfo", "error finding type info class", "error getting type info class"),
    method(&G::typeInfoInit, "<init>", "(Ljava/lang/String;Ljava/lang/Object;)V", "error getting type info constructor"),
    method(&G::typeInfoGetTypeName, "getTypeName", "()Ljava/lang/String;", "error getting type info method"),
    method(&G::typeInfoGetTypeRepresentation, "getTypeRepresentation", "()Ljava/lang/Object;", "error getting type info method"),

    classOf(&G::propertiesClass, "java/util/Properties", "error finding properties class", "error getting properties class"),
    method(&G::propertiesInit, "<init>", "()V", "error getting type info constructor"),
    method(&G::propertiesClear, "clear", "()V", "error getting properties clear method"),
    method(&G::propertiesSetProperty, "setProperty", "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/Object;", "error getting properties set method"),
    method(&G::propertiesGetProperty, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;", "error getting properties get method"),
    method(&G::propertiesPropertyNames, "propertyNames", "()Ljava/util/Enumeration;", "error getting properties property names method"),
    method(&G::propertiesSize, "size", "()I", "error getting properties get size method"),

    classOf(&G::enumerationClass, "java/util/Enumeration", "error finding properties class", "error getting properties class"),
    method(&G::enumerationHasMoreElements, "hasMoreElements", "()Z", "error getting enum has more elements  method"),
    method(&G::enumerationNextElement, "nextElement", "()Ljava/lang/Object;", "error getting enum next eleemnt method"),

    classOf(&G::discoveryConnectionClass, "com/qel/ferrion/adapter/DiscoveryConnection", "error finding DiscoveryConnection class", "error getting connection class", globalRefUnchecked),
    method(&G::discoveryConnectionGetInputStreamDiscoveryReader, "getInputStreamDiscoveryReader", "()Lcom/qel/ferrion/adapter/StreamReader;", "error getting connection create session method"),
    method(&G::discoveryConnectionGetOutputStreamDiscoveryReader, "getOutputStreamDiscoveryReader", "()Lcom/qel/ferrion/adapter/StreamReader;", "error getting connection create session method"),

    classOf(&G::dynamicDataTypeSupportClass, "com/qel/dds/dynamicdata/DynamicDataTypeSupport", "error finding dynamic data type support class", "error getting dynamic data type support class", printsException),
    staticField(&G::dynamicDataTypeSupportTypePropertyDefaultField, "TYPE_PROPERTY_DEFAULT", "Lcom/qel/dds/dynamicdata/DynamicDataTypeProperty_t;", "error getting type property default field"),
    staticObject(&G::dynamicDataTypeSupportTypePropertyDefault, "error getting type property default object", "error getting adapter class"),

    classOf(&G::dynamicDataClass, "com/qel/dds/dynamicdata/DynamicData", "error finding dynamic data class", "error getting dynamic data class"),
    method(&G::dynamicDataInit, "<init>", "(Lcom/qel/dds/typecode/TypeCode;Lcom/qel/dds/dynamicdata/DynamicDataProperty_t;)V", "error getting dynamic data"),
    staticField(&G::dynamicDataPropertyDefaultField, "PROPERTY_DEFAULT", "Lcom/qel/dds/dynamicdata/DynamicDataProperty_t;", "error getting property default field"),
    staticObject(&G::dynamicDataPropertyDefault, "error getting property default object", "error getting adapter class"),

    classOf(&G::sampleInfoHelperClass, "com/qel/dds/subscription/SampleInfoHelper", "error finding sample info helper class", "error getting sample info helper class global"),
    staticMethod(&G::sampleInfoHelperPushToNativeI, "push_to_nativeI", "(Lcom/qel/dds/subscription/SampleInfo;J)V", "error sample info push to native"),
    staticMethod(&G::sampleInfoHelperPullFromNativeI, "pull_from_nativeI", "(Lcom/qel/dds/subscription/SampleInfo;J)V", "error sample info push to native"),

    classOf(&G::dynamicDataHelperClass, "com/qel/dds/dynamicdata/DynamicDataHelper", "error finding dynamic data helper class", "error getting dynamic data helper class global"),
    staticMethod(&G::dynamicDataHelperPushToNativeI, "push_to_nativeI", "(Lcom/qel/dds/dynamicdata/DynamicData;J)V", "error dynamic data push to native"),
    staticMethod(&G::dynamicDataHelperPullFromNativeI, "pull_from_nativeI", "(Lcom/qel/dds/dynamicdata/DynamicData;J)V", "error dynamicData push to native"),

    classOf(&G::typeCodeClass, "com/qel/dds/typecode/TypeCode", "error finding type code helper class", "error getting type code helper class global"),
    method(&G::typeCodeGetNativeTypecode, "get_native_typecode", "()J", "error get native type code method"),
    staticMethod(&G::typeCodeCreateFromNative, "create_from_native", "(J)Lcom/qel/dds/typecode/TypeCode;", "error create from native method"),

    classOf(&G::arrayListClass, "java/util/ArrayList", "error finding array list", "error getting array list global"),
    method(&G::arrayListInit, "<init>", "(I)V", "error array list constructor"),

    classOf(&G::listClass, "java/util/List", "error finding list", "error getting list global"),
    method(&G::listClear, "clear", "()V", "error array list clear"),
    method(&G::listAdd, "add", "(Ljava/lang/Object;)Z", "error array list add"),
    method(&G::listSize, "size", "()I", "error array list size"),
    method(&G::listGet, "get", "(I)Ljava/lang/Object;", "error array list get"),

    classOf(&G::sampleInfoClass, "com/qel/dds/subscription/SampleInfo", "error finding sample info", "error getting sampleinfo global"),
    method(&G::sampleInfoInit, "<init>", "()V", "error sampleinfo constructor"),
    field(&G::sampleInfoInstanceStateField, "instance_state", "I", "error getting sample info instance state field"),
    field(&G::sampleInfoValidDataField, "valid_data", "Z", "error getting sample info valid data field"),

    classOf(&G::throwableClass, "java/lang/Throwable", "error finding java.lang.Throwable class", "error getting java.lang.Throwable class", printsException),
    method(&G::throwableGetMessage, "getMessage", "()Ljava/lang/String;", "get Throwable.getMessage() method"),
};
// clang-format on

/// A global reference of the cache, in the order in which they are released.
struct ReferenceSlot {
    jclass G::*classSlot;
    jobject G::*objectSlot;
};

constexpr ReferenceSlot release(jclass G::*slot)
{
    return {slot, nullptr};
}

constexpr ReferenceSlot release(jobject G::*slot)
{
    return {nullptr, slot};
}

inline constexpr ReferenceSlot releaseTable[] = {
    release(&G::adapterClass),
    release(&G::versionClass),
    release(&G::entityClass),
    release(&G::connectionClass),
    release(&G::streamReaderClass),
    release(&G::streamWriterClass),
    release(&G::streamReaderListenerImplClass),
    release(&G::streamInfoClass),
    release(&G::typeInfoClass),
    release(&G::propertiesClass),
    release(&G::enumerationClass),
    release(&G::discoveryConnectionClass),
    release(&G::dynamicDataClass),
    release(&G::dynamicDataTypeSupportClass),
    release(&G::sampleInfoHelperClass),
    release(&G::dynamicDataHelperClass),
    release(&G::typeCodeClass),
    release(&G::dynamicDataPropertyDefault),
    release(&G::dynamicDataTypeSupportTypePropertyDefault),
    release(&G::arrayListClass),
    release(&G::listClass),
    release(&G::sampleInfoClass),
    release(&G::throwableClass),
};

} // namespace ferryjni

#endif
