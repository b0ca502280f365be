// The life of a stream writer, on the host's calling thread.
#include "JNIStreamWriter.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "Guards.h"
#include "Heap.h"
#include "JNICommon.h"
#include "JNIEntity.h"
#include "JNIProperties.h"
#include "JNISample.h"
#include "JNIStreamInfo.h"
#include "Operation.h"

using ferryjni::LocalFrame;
using ferryjni::Operation;
using ferryjni::Step;

static_assert(std::is_standard_layout_v<FERRYJNIStreamWriter>);
static_assert(offsetof(FERRYJNIStreamWriter, javaWriter) == 0);
static_assert(offsetof(FERRYJNIStreamWriter, session) == 8);
static_assert(offsetof(FERRYJNIStreamWriter, javaTypeCode) == 16);
static_assert(offsetof(FERRYJNIStreamWriter, javaSampleList) == 24);
static_assert(offsetof(FERRYJNIStreamWriter, javaInfoList) == 32);
static_assert(offsetof(FERRYJNIStreamWriter, typeRepresentationKind) == 40);
static_assert(offsetof(FERRYJNIStreamWriter, maxSamplesPerWrite) == 44);
static_assert(offsetof(FERRYJNIStreamWriter, javaSamples) == 48);
static_assert(offsetof(FERRYJNIStreamWriter, javaInfos) == 56);
static_assert(sizeof(FERRYJNIStreamWriter) == 64);

namespace {

constexpr int32_t defaultBatch = 1024;
/// Most batch positions that are prepared at creation when the host does not say.
constexpr int32_t defaultInitial = 32;

Step prepareBatch(const Operation &operation, FERRYJNIStreamWriter *writer, JNIEnv *env,
                  const QEL_FerrionProperties *properties) noexcept
{
    writer->maxSamplesPerWrite = FERRYJNICommon_lookup_int_property(
        properties, FERRYJNI_PROPERTY_MAX_SAMPLES_PER_WRITE, defaultBatch);
    if (writer->maxSamplesPerWrite < 1) {
        operation.report("Incorrect value for property qel.ferrion.jni.max_samples_per_write; "
                         "expecting integer > 0");
        return Step::returnRecord;
    }
    const int32_t initial =
        FERRYJNICommon_lookup_int_property(properties, FERRYJNI_PROPERTY_INITIAL_SAMPLES,
                                           std::min(writer->maxSamplesPerWrite, defaultInitial));
    if (initial <= 0 || initial > writer->maxSamplesPerWrite) {
        operation.report("Incorrect value for property qel.ferrion.jni.initial_samples; expecting "
                         "integer > 0 and <= qel.ferrion.jni.max_samples_per_write");
        return Step::returnRecord;
    }
    writer->javaSamples = ferryjni::newArray<jobject>(writer->maxSamplesPerWrite, "jobject");
    writer->javaInfos = ferryjni::newArray<jobject>(writer->maxSamplesPerWrite, "jobject");
    if (writer->javaSamples == nullptr || writer->javaInfos == nullptr) {
        operation.report("Memory allocation error");
        return Step::returnRecord;
    }
    for (int32_t i = 0; i < initial; ++i) {
        if (FERRYJNIStreamWriter_prepareJavaSample(writer, &writer->javaSamples[i],
                                                   &writer->javaInfos[i], env,
                                                   operation.environment()) == 0) {
            return Step::returnNull;
        }
    }
    return Step::done;
}

/// The type code in Java and the batch objects. A stream of another representation gets neither:
/// its writer is made all the same and never takes data.
Step prepareData(const Operation &operation, FERRYJNIStreamWriter *writer,
                 const FERRYJNIGlobal *global, JNIEnv *env, const QEL_FerrionStreamInfo *streamInfo,
                 const QEL_FerrionProperties *properties) noexcept
{
    if (writer->typeRepresentationKind != QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        operation.report("data format not supported");
        return Step::done;
    }
    jobject javaTypeCode = FERRYJNIStreamInfo_createJavaTypeCode(
        global, env, static_cast<const DDS_TypeCode *>(streamInfo->typeRepresentation),
        operation.environment());
    if (javaTypeCode == nullptr) {
        operation.report("error creating java type code");
        return Step::returnNull;
    }
    writer->javaTypeCode =
        operation.globalRef(env, javaTypeCode, "global reference to java type code");
    if (writer->javaTypeCode == nullptr) {
        return Step::returnRecord;
    }
    return prepareBatch(operation, writer, env, properties);
}

Step createJavaWriter(const Operation &operation, FERRYJNIStreamWriter *writer,
                      const FERRYJNIGlobal *global, JNIEnv *env,
                      const QEL_FerrionStreamInfo *streamInfo,
                      const QEL_FerrionProperties *properties) noexcept
{
    jobject javaStreamInfo = FERRYJNIStreamInfo_createJavaStreamInfo(
        global, env, streamInfo, writer->javaTypeCode, operation.environment());
    if (javaStreamInfo == nullptr) {
        // compatibility 1
        operation.report("error creating JNI stream reader listener");
        return Step::returnNull;
    }
    jobject javaProperties = nullptr;
    if (!ferryjni::toJavaProperties(global, env, properties, operation.environment(),
                                    &javaProperties)) {
        operation.report("null connection object");
        return Step::returnNull;
    }
    const FERRYJNISession *session = writer->session;
    jobject javaWriter = env->CallObjectMethod(
        session->connection->javaConnection, global->connectionCreateStreamWriter,
        session->javaSession, javaStreamInfo, javaProperties);
    if (operation.threw(env, "exception")) {
        return Step::returnRecord;
    }
    if (javaWriter == nullptr) {
        operation.report("null connection object");
        return Step::returnRecord;
    }
    writer->javaWriter =
        operation.globalRef(env, javaWriter, "global reference to connection instance");
    return writer->javaWriter != nullptr ? Step::done : Step::returnRecord;
}

Step createWriter(const Operation &operation, FERRYJNIStreamWriter *writer,
                  const FERRYJNIGlobal *global, JNIEnv *env,
                  const QEL_FerrionStreamInfo *streamInfo,
                  const QEL_FerrionProperties *properties) noexcept
{
    writer->javaSampleList =
        operation.newList(env, global, "global reference to sample array list");
    if (writer->javaSampleList == nullptr) {
        return Step::returnRecord;
    }
    writer->javaInfoList = operation.newList(env, global, "global reference to info array list");
    if (writer->javaInfoList == nullptr) {
        return Step::returnRecord;
    }
    const Step prepared = prepareData(operation, writer, global, env, streamInfo, properties);
    if (prepared != Step::done) {
        return prepared;
    }
    return createJavaWriter(operation, writer, global, env, streamInfo, properties);
}

/// Releases everything that the writer owns, and its record.
void releaseWriter(FERRYJNIStreamWriter *writer, JNIEnv *env) noexcept
{
    FERRYJNICommon_deleteGlobalRef(env, &writer->javaWriter);
    FERRYJNICommon_deleteGlobalRef(env, &writer->javaSampleList);
    FERRYJNICommon_deleteGlobalRef(env, &writer->javaInfoList);
    FERRYJNICommon_deleteGlobalRef(env, &writer->javaTypeCode);
    const auto releaseSlots = [writer, env](jobject *slots) {
        if (slots == nullptr) {
            return;
        }
        for (int32_t i = 0; i < writer->maxSamplesPerWrite; ++i) {
            FERRYJNICommon_deleteGlobalRef(env, &slots[i]);
        }
        ferryjni::freeArray(slots);
    };
    releaseSlots(writer->javaSamples);
    releaseSlots(writer->javaInfos);
    ferryjni::freeStructure(writer);
}

} // namespace

FERRYJNIStreamWriter *FERRYJNIStreamWriter_new(FERRYJNISession *session,
                                               const QEL_FerrionStreamInfo *streamInfo,
                                               const QEL_FerrionProperties *properties,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamWriter_new", environment);
    auto *writer = ferryjni::newStructure<FERRYJNIStreamWriter>("struct FERRYJNIStreamWriter");
    if (writer == nullptr) {
        operation.report("error creating JNI stream writer");
        return nullptr;
    }
    writer->session = session;
    writer->typeRepresentationKind = streamInfo->typeRepresentationKind;
    const FERRYJNIGlobal *global = ferryjni::globalOf(ferryjni::connectionOf(session));
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        // compatibility 4: the record stays behind
        return nullptr;
    }
    const LocalFrame frame(env);
    if (createWriter(operation, writer, global, env, streamInfo, properties) == Step::returnNull) {
        releaseWriter(writer, env);
        return nullptr;
    }
    return writer;
}

int32_t FERRYJNIStreamWriter_prepareJavaSample(FERRYJNIStreamWriter *writer, jobject *sampleSlot,
                                               jobject *infoSlot, JNIEnv *env,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    // Made last.
    if (*infoSlot != nullptr) {
        return 1;
    }
    const Operation operation("FERRYJNIStreamWriter_prepareJavaSample", environment);
    const FERRYJNIGlobal *global = ferryjni::globalOf(writer->session->connection);
    if (*sampleSlot == nullptr) {
        jobject sample = FERRYJNIStreamInfo_createJavaDynamicData(global, env, writer->javaTypeCode,
                                                                  environment);
        if (sample == nullptr) {
            operation.report("null dynamic data");
            return 0;
        }
        *sampleSlot = operation.globalRef(env, sample, "global reference to dynamic data sample");
        if (*sampleSlot == nullptr) {
            return 0;
        }
    }
    jobject info = env->NewObject(global->sampleInfoClass, global->sampleInfoInit);
    // compatibility 1
    operation.threw(env, "create java type code");
    if (info == nullptr) {
        operation.report("null sample info");
        return 0;
    }
    *infoSlot = operation.globalRef(env, info, "global reference to sample info struct");
    return *infoSlot != nullptr ? 1 : 0;
}

int32_t FERRYJNIStreamWriter_update(QEL_FerrionStreamWriter *writer,
                                    const QEL_FerrionProperties *properties,
                                    QEL_FerrionEnvironment *environment) noexcept
{
    const auto *self = static_cast<const FERRYJNIStreamWriter *>(writer);
    const FERRYJNIConnection *connection = ferryjni::connectionOf(self->session);
    const FERRYJNIAdapter *adapter = connection != nullptr ? connection->adapter : nullptr;
    const int32_t status =
        FERRYJNIEntity_update(self->javaWriter, adapter, properties, environment);
    if (status == 0) {
        const Operation operation("FERRYJNIStreamWriter_update", environment);
        operation.report("error calling StreamWriter.update()");
    }
    return status;
}

void FERRYJNIStreamWriter_delete(FERRYJNIStreamWriter *writer,
                                 QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamWriter_delete", environment);
    const FERRYJNIConnection *connection = ferryjni::connectionOf(writer->session);
    const FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    env->CallVoidMethod(connection->javaConnection, global->connectionDeleteStreamWriter,
                        writer->javaWriter);
    operation.threw(env, "exception");
    releaseWriter(writer, env);
}
