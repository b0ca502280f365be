// The way of samples from Java to the host. Each operation runs on the host thread that calls it;
// one reader is used by one thread at a time, but for signals, which touch only its Java reference.
#include "JNIStreamReader.h"

#include <cstddef>
#include <type_traits>

#include "Guards.h"
#include "Heap.h"
#include "JNICommon.h"
#include "JNIEntity.h"
#include "JNIProperties.h"
#include "JNISample.h"
#include "JNIStreamInfo.h"
#include "JNIStreamReaderListener.h"
#include "Operation.h"

using ferryjni::asReader;
using ferryjni::LocalFrame;
using ferryjni::Operation;
using ferryjni::Step;

static_assert(std::is_standard_layout_v<FERRYJNIStreamReader>);
static_assert(offsetof(FERRYJNIStreamReader, javaReader) == 0);
static_assert(offsetof(FERRYJNIStreamReader, connection) == 8);
static_assert(offsetof(FERRYJNIStreamReader, listener) == 16);
static_assert(offsetof(FERRYJNIStreamReader, javaSampleList) == 24);
static_assert(offsetof(FERRYJNIStreamReader, javaInfoList) == 32);
static_assert(offsetof(FERRYJNIStreamReader, capacity) == 40);
static_assert(offsetof(FERRYJNIStreamReader, sampleArray) == 48);
static_assert(offsetof(FERRYJNIStreamReader, infoArray) == 56);
static_assert(offsetof(FERRYJNIStreamReader, dynamicDataPool) == 64);
static_assert(offsetof(FERRYJNIStreamReader, sampleInfoPool) == 72);
static_assert(offsetof(FERRYJNIStreamReader, streamInfoPool) == 80);
static_assert(offsetof(FERRYJNIStreamReader, typeCode) == 88);
static_assert(offsetof(FERRYJNIStreamReader, typeRepresentationKind) == 96);
static_assert(offsetof(FERRYJNIStreamReader, isDiscovery) == 100);
static_assert(offsetof(FERRYJNIStreamReader, signalsComparing) == 104);
static_assert(offsetof(FERRYJNIStreamReader, earlierReaders) == 112);
static_assert(sizeof(FERRYJNIStreamReader) == 120);

namespace {

constexpr int32_t defaultCapacity = 128;

const FERRYJNIGlobal *globalOf(const FERRYJNIStreamReader *reader) noexcept
{
    return ferryjni::globalOf(reader->connection);
}

/// The type code in Java (`*javaTypeCode`) and the arrays. A stream of another representation gets
/// neither: its reader is made all the same and never has data.
Step prepareData(const Operation &operation, FERRYJNIStreamReader *reader,
                 const FERRYJNIGlobal *global, JNIEnv *env, const QEL_FerrionStreamInfo *streamInfo,
                 const QEL_FerrionProperties *properties, jobject *javaTypeCode) noexcept
{
    if (reader->typeRepresentationKind != QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        operation.report("data format not supported");
        return Step::done;
    }
    const auto *typeCode = static_cast<const DDS_TypeCode *>(streamInfo->typeRepresentation);
    *javaTypeCode =
        FERRYJNIStreamInfo_createJavaTypeCode(global, env, typeCode, operation.environment());
    if (*javaTypeCode == nullptr) {
        operation.report("error creating java type code");
        return Step::returnNull;
    }
    reader->isDiscovery = 0;
    reader->typeCode = typeCode;
    const int32_t capacity = FERRYJNICommon_lookup_int_property(
        properties, FERRYJNI_PROPERTY_INITIAL_SAMPLES, defaultCapacity);
    if (capacity <= 0) {
        operation.report("Incorrect value for property qel.ferrion.jni.initial_samples; expecting "
                         "integer > 0");
        return Step::returnRecord;
    }
    if (FERRYJNIStreamReader_resizeArrays(reader, capacity) == 0) {
        operation.report("Error allocating arrays");
        return Step::returnNull;
    }
    return Step::done;
}

/// Creates the Java reader and completes the record.
Step createJavaReader(const Operation &operation, FERRYJNIStreamReader *reader,
                      FERRYJNISession *session, JNIEnv *env, jobject javaStreamInfo,
                      FERRYJNIStreamReaderListener *listener,
                      const QEL_FerrionProperties *properties) noexcept
{
    FERRYJNIConnection *connection = session->connection;
    const FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    jobject javaProperties = nullptr;
    if (!ferryjni::toJavaProperties(global, env, properties, operation.environment(),
                                    &javaProperties)) {
        operation.report("null connection object");
        FERRYJNIStreamReaderListener_delete(listener, operation.environment());
        return Step::returnNull;
    }
    jobject javaReader = env->CallObjectMethod(
        connection->javaConnection, global->connectionCreateStreamReader, session->javaSession,
        javaStreamInfo, javaProperties, listener->javaListener);
    // The listener stays behind on the failures below: Java has its address and may signal.
    if (operation.threw(env, "exception")) {
        return Step::returnRecord;
    }
    if (javaReader == nullptr) {
        operation.report("null connection object");
        return Step::returnRecord;
    }
    jobject reference =
        operation.globalRef(env, javaReader, "global reference to connection instance");
    if (reference == nullptr) {
        return Step::returnRecord;
    }
    reader->listener = listener;
    ferryjni::bindReader(reader, reference);
    reader->connection = connection;
    return Step::done;
}

Step createReader(const Operation &operation, FERRYJNIStreamReader *reader,
                  FERRYJNISession *session, JNIEnv *env, const QEL_FerrionStreamInfo *streamInfo,
                  const QEL_FerrionProperties *properties,
                  const QEL_FerrionStreamReaderListener *hostListener) noexcept
{
    FERRYJNIGlobal *global = ferryjni::globalOf(session->connection);
    // compatibility 1
    constexpr const char *listText = "global reference to sample array list";
    reader->javaSampleList = operation.newList(env, global, listText);
    if (reader->javaSampleList == nullptr) {
        return Step::returnRecord;
    }
    reader->javaInfoList = operation.newList(env, global, listText);
    if (reader->javaInfoList == nullptr) {
        return Step::returnRecord;
    }
    jobject javaTypeCode = nullptr;
    const Step prepared =
        prepareData(operation, reader, global, env, streamInfo, properties, &javaTypeCode);
    if (prepared != Step::done) {
        return prepared;
    }
    jobject javaStreamInfo = FERRYJNIStreamInfo_createJavaStreamInfo(
        global, env, streamInfo, javaTypeCode, operation.environment());
    if (javaStreamInfo == nullptr) {
        operation.report("error creating JNI stream reader listener");
        return Step::returnNull;
    }
    FERRYJNIStreamReaderListener *listener =
        FERRYJNIStreamReaderListener_new(global, hostListener, reader, operation.environment());
    if (listener == nullptr) {
        operation.report("error creating JNI stream reader listener");
        return Step::returnNull;
    }
    return createJavaReader(operation, reader, session, env, javaStreamInfo, listener, properties);
}

} // namespace

FERRYJNIStreamReader *FERRYJNIStreamReader_new(FERRYJNISession *session,
                                               const QEL_FerrionStreamInfo *streamInfo,
                                               const QEL_FerrionProperties *properties,
                                               const QEL_FerrionStreamReaderListener *hostListener,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReader_new", environment);
    auto *reader = ferryjni::newStructure<FERRYJNIStreamReader>("struct FERRYJNIStreamReader");
    if (reader == nullptr) {
        operation.report("error creating JNI stream reader");
        return nullptr;
    }
    reader->typeRepresentationKind = streamInfo->typeRepresentationKind;
    JNIEnv *env = operation.javaEnv(ferryjni::globalOf(ferryjni::connectionOf(session)));
    if (env == nullptr) {
        // compatibility 4: the record stays behind
        return nullptr;
    }
    const LocalFrame frame(env);
    if (createReader(operation, reader, session, env, streamInfo, properties, hostListener) ==
        Step::returnNull) {
        ferryjni::releaseReader(reader, env, environment);
        return nullptr;
    }
    return reader;
}

namespace ferryjni {

void releaseEarlierReaders(FERRYJNIStreamReader *reader, JNIEnv *env) noexcept
{
    while (reader->earlierReaders != nullptr) {
        FERRYJNIEarlierReader *earlier = reader->earlierReaders;
        reader->earlierReaders = earlier->next;
        FERRYJNICommon_deleteGlobalRef(env, &earlier->javaReader);
        freeStructure(earlier);
    }
}

void releaseReader(FERRYJNIStreamReader *reader, JNIEnv *env,
                   QEL_FerrionEnvironment *environment) noexcept
{
    if (reader->listener != nullptr) {
        FERRYJNIStreamReaderListener_retire(reader->listener, env);
    }
    FERRYJNICommon_deleteGlobalRef(env, &reader->javaReader);
    releaseEarlierReaders(reader, env);
    if (reader->listener != nullptr) {
        FERRYJNIStreamReaderListener_delete(reader->listener, environment);
    }
    FERRYJNICommon_deleteGlobalRef(env, &reader->javaSampleList);
    FERRYJNICommon_deleteGlobalRef(env, &reader->javaInfoList);
    freeArray(reader->sampleArray);
    freeArray(reader->infoArray);
    // Up to `capacity` the pools of the reader's kind are complete.
    for (int32_t i = 0; i < reader->capacity; ++i) {
        freeStructure(reader->sampleInfoPool[i]);
        if (reader->isDiscovery == 0) {
            DDS_DynamicData_delete(reader->dynamicDataPool[i]);
        } else {
            FERRYJNIStreamInfo_nativeStreamInfoReturn(nullptr, reader->streamInfoPool[i],
                                                      environment);
            freeStructure(reader->streamInfoPool[i]);
        }
    }
    freeArray(reader->dynamicDataPool);
    freeArray(reader->sampleInfoPool);
    freeArray(reader->streamInfoPool);
    freeStructure(reader);
}

} // namespace ferryjni

void FERRYJNIStreamReader_delete(FERRYJNIStreamReader *reader,
                                 QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReader_delete", environment);
    const FERRYJNIGlobal *global = globalOf(reader);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    // First, and the listener after: once this has returned Java signals no more.
    env->CallVoidMethod(reader->connection->javaConnection, global->connectionDeleteStreamReader,
                        reader->javaReader);
    operation.threw(env, "exception");
    ferryjni::releaseReader(reader, env, environment);
}

int32_t FERRYJNIStreamReader_resizeArrays(FERRYJNIStreamReader *reader,
                                          int32_t newCapacity) noexcept
{
    void **samples = ferryjni::resizedArray(reader->sampleArray, newCapacity, "void*");
    if (samples == nullptr) {
        return 0;
    }
    reader->sampleArray = samples;
    DDS_SampleInfo **infos = ferryjni::resizedArray(reader->infoArray, newCapacity, "void*");
    if (infos == nullptr) {
        return 0;
    }
    reader->infoArray = infos;
    // What follows overwrites the pool only when it grew: on failure the old one stands.
    DDS_SampleInfo **infoPool =
        FERRYJNICommon_resizeSampleInfoArray(reader->sampleInfoPool, reader->capacity, newCapacity);
    if (infoPool == nullptr) {
        return 0;
    }
    reader->sampleInfoPool = infoPool;
    // Elements beyond `capacity` belong to nobody.
    const auto giveBack = [reader, infoPool, newCapacity] {
        for (int32_t i = reader->capacity; i < newCapacity; ++i) {
            ferryjni::freeStructure(infoPool[i]);
        }
        return 0;
    };
    if (reader->isDiscovery == 0) {
        DDS_DynamicData **dataPool = FERRYJNICommon_resizeDynamicDataArray(
            reader->dynamicDataPool, reader->capacity, newCapacity, reader->typeCode);
        if (dataPool == nullptr) {
            return giveBack();
        }
        reader->dynamicDataPool = dataPool;
    } else {
        QEL_FerrionStreamInfo **streamPool = FERRYJNICommon_resizeStreamInfoArray(
            reader->streamInfoPool, reader->capacity, newCapacity);
        if (streamPool == nullptr) {
            return giveBack();
        }
        reader->streamInfoPool = streamPool;
    }
    reader->capacity = newCapacity;
    return 1;
}

int32_t FERRYJNIStreamReader_update(QEL_FerrionStreamReader *reader,
                                    const QEL_FerrionProperties *properties,
                                    QEL_FerrionEnvironment *environment) noexcept
{
    const FERRYJNIStreamReader *self = asReader(reader);
    const FERRYJNIAdapter *adapter =
        self->connection != nullptr ? self->connection->adapter : nullptr;
    const int32_t status =
        FERRYJNIEntity_update(self->javaReader, adapter, properties, environment);
    if (status == 0) {
        const Operation operation("FERRYJNIStreamReader_update", environment);
        operation.report("error calling StreamReader.update()");
    }
    return status;
}
