// Discovery readers: made and deleted with their connection, bound to a Java reader each time the
// host asks for them, read on the host's threads.
#include "JNIStreamReaderDiscovery.h"

#include "Guards.h"
#include "Heap.h"
#include "JNICommon.h"
#include "JNIStreamInfo.h"
#include "Operation.h"
#include "ReaderLists.h"

using ferryjni::exceptionText;
using ferryjni::LocalFrame;
using ferryjni::Operation;

namespace {

/// Stream infos per read, for the reader's life.
constexpr int32_t discoveryCapacity = 32;

// compatibility 2: of creation and of binding
constexpr const char *newContext = "FERRYJNIStreamReaderDiscovery_new";

/// Releases the reference of the binding before (null when there is none new) and those that had to
/// stay. While a signal is comparing, which may have read any of them, all stay: until the host
/// asks again, or with the record.
void releaseEarlier(FERRYJNIStreamReader *reader, JNIEnv *env, jobject earlier) noexcept
{
    if (__atomic_load_n(&reader->signalsComparing, __ATOMIC_SEQ_CST) == 0) {
        FERRYJNICommon_deleteGlobalRef(env, &earlier);
        ferryjni::releaseEarlierReaders(reader, env);
        return;
    }
    if (earlier == nullptr) {
        return;
    }
    auto *kept = ferryjni::newStructure<FERRYJNIEarlierReader>("struct FERRYJNIEarlierReader");
    // Where memory is short the reference stays for good, which is better than a signal's crash.
    if (kept != nullptr) {
        *kept = {earlier, reader->earlierReaders};
        reader->earlierReaders = kept;
    }
}

} // namespace

FERRYJNIStreamReader *
FERRYJNIStreamReaderDiscovery_new(FERRYJNIConnection *connection,
                                  QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation(newContext, environment);
    auto *reader = ferryjni::newStructure<FERRYJNIStreamReader>("struct FERRYJNIStreamReader");
    if (reader == nullptr) {
        operation.report("error creating JNI stream reader");
        return nullptr;
    }
    const FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        ferryjni::freeStructure(reader);
        return nullptr;
    }
    reader->connection = connection;
    // compatibility 1
    constexpr const char *listText = "global reference to sample array list";
    reader->javaSampleList = operation.newList(env, global, listText);
    if (reader->javaSampleList == nullptr) {
        return reader;
    }
    reader->javaInfoList = operation.newList(env, global, listText);
    if (reader->javaInfoList == nullptr) {
        return reader;
    }
    reader->typeRepresentationKind = QEL_FERRION_TYPE_REPRESENTATION_TYPECODE;
    reader->isDiscovery = 1;
    if (FERRYJNIStreamReader_resizeArrays(reader, discoveryCapacity) == 0) {
        operation.report("Error allocating arrays");
        ferryjni::releaseReader(reader, env, environment);
        return nullptr;
    }
    return reader;
}

bool FERRYJNIStreamReaderDiscovery_enable(FERRYJNIStreamReader *reader, jmethodID getter,
                                          QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation(newContext, environment);
    const FERRYJNIConnection *connection = reader->connection;
    JNIEnv *env = operation.javaEnv(ferryjni::globalOf(connection));
    if (env == nullptr) {
        return false;
    }
    jobject javaReader = env->CallObjectMethod(connection->javaConnection, getter);
    if (operation.threw(env, exceptionText)) {
        return false;
    }
    if (javaReader == nullptr) {
        operation.report("null connection object");
        return false;
    }
    jobject earlier = reader->javaReader;
    if (earlier != nullptr && env->IsSameObject(earlier, javaReader) != JNI_FALSE) {
        // Hosts ask again and again: one reference is enough.
        releaseEarlier(reader, env, nullptr);
        return true;
    }
    jobject reference =
        operation.globalRef(env, javaReader, "global reference to connection instance");
    if (reference == nullptr) {
        return false;
    }
    ferryjni::bindReader(reader, reference);
    releaseEarlier(reader, env, earlier);
    return true;
}

void FERRYJNIStreamReaderDiscovery_read(FERRYJNIStreamReader *reader, void ***streamInfos,
                                        DDS_SampleInfo ***sampleInfos, int32_t *count,
                                        QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReaderDiscovery_read", environment);
    const FERRYJNIGlobal *global = ferryjni::globalOf(reader->connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    int32_t streamCount = 0;
    int32_t infoCount = 0;
    if (!ferryjni::readLists(operation, reader, global, env) ||
        !ferryjni::listSize(operation, global, env, reader->javaSampleList, &streamCount) ||
        !ferryjni::listSize(operation, global, env, reader->javaInfoList, &infoCount)) {
        return;
    }
    int32_t i = 0;
    for (; i < reader->capacity && i < streamCount; ++i) {
        // One stream takes up to six references.
        const LocalFrame elementFrame(env);
        reader->sampleArray[i] = nullptr;
        jobject stream = ferryjni::listElement(operation, global, env, reader->javaSampleList, i);
        if (stream != nullptr) {
            if (FERRYJNIStreamInfo_streamInfoJavaToNative(global, env, stream,
                                                          reader->streamInfoPool[i], environment)) {
                reader->sampleArray[i] = reader->streamInfoPool[i];
            } else {
                operation.report(exceptionText);
            }
        }
        if (infoCount > 0) {
            ferryjni::lendInfo(operation, reader, global, env, i);
        }
    }
    *streamInfos = streamCount != 0 ? reader->sampleArray : nullptr;
    *sampleInfos = infoCount != 0 ? reader->infoArray : nullptr;
    *count = i;
}

void FERRYJNIStreamReaderDiscovery_return_loan(FERRYJNIStreamReader *reader, void **streamInfos,
                                               DDS_SampleInfo **, int32_t count,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReaderDiscovery_return_loan", environment);
    const FERRYJNIGlobal *global = ferryjni::globalOf(reader->connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    ferryjni::returnLists(operation, reader, global, env);
    if (streamInfos == nullptr) {
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        auto *streamInfo = static_cast<QEL_FerrionStreamInfo *>(streamInfos[i]);
        // An element that could not be read was lent as null.
        if (streamInfo != nullptr &&
            !FERRYJNIStreamInfo_nativeStreamInfoReturn(global, streamInfo, environment)) {
            operation.report(exceptionText);
        }
    }
}

void FERRYJNIStreamReaderDiscovery_delete(FERRYJNIStreamReader *reader,
                                          QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReaderDiscovery_delete", environment);
    JNIEnv *env = operation.javaEnv(ferryjni::globalOf(reader->connection));
    if (env == nullptr) {
        return;
    }
    ferryjni::releaseReader(reader, env, environment);
}
