// The way of samples from Java to the host: read and return_loan of a data reader, on the host
// thread that calls them. Nothing is allocated here once the pools hold the largest batch.
#include "Guards.h"
#include "JNISample.h"
#include "JNIStreamReader.h"
#include "JNIStreamReaderDiscovery.h"
#include "Operation.h"
#include "ReaderLists.h"

using ferryjni::asReader;
using ferryjni::exceptionText;
using ferryjni::LocalFrame;
using ferryjni::Operation;

namespace {

/// A growth beyond this is worth a debug line: somebody hands over very large batches.
constexpr int32_t quietCapacity = 499;

/// Makes room for a batch larger than any before: exactly as large, because the pools never shrink
/// and the largest batch is the steady state.
bool growTo(const Operation &operation, FERRYJNIStreamReader *reader, int32_t sampleCount) noexcept
{
    if (sampleCount <= reader->capacity) {
        return true;
    }
    if (FERRYJNIStreamReader_resizeArrays(reader, sampleCount) == 0) {
        operation.report("Error reallocating arrays");
        return false;
    }
    if (reader->capacity > quietCapacity && ferryjni::logs(FERRYLOG_BIT_DEBUG)) {
        QELLog_debug("%s:Array size reached %d\n", "FERRYJNIStreamReader_read",
                     static_cast<int>(reader->capacity));
    }
    return true;
}

/// Copies element `index` of the sample list into the pool and lends it, or lends null: a sample
/// that fails costs no other.
void lendSample(const Operation &operation, FERRYJNIStreamReader *reader,
                const FERRYJNIGlobal *global, JNIEnv *env, int32_t index) noexcept
{
    reader->sampleArray[index] = nullptr;
    jobject sample = ferryjni::listElement(operation, global, env, reader->javaSampleList, index);
    if (sample == nullptr) {
        return;
    }
    if (FERRYJNIStreamInfo_dynamicDataJavaToNative(
            global, env, sample, reader->dynamicDataPool[index], operation.environment())) {
        reader->sampleArray[index] = reader->dynamicDataPool[index];
    } else {
        operation.report(exceptionText);
    }
}

} // namespace

void FERRYJNIStreamReader_read(QEL_FerrionStreamReader *reader, void ***samples,
                               DDS_SampleInfo ***infos, int32_t *count,
                               QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamReader *self = asReader(reader);
    if (self->isDiscovery != 0) {
        FERRYJNIStreamReaderDiscovery_read(self, samples, infos, count, environment);
        return;
    }
    const Operation operation("FERRYJNIStreamReader_read", environment);
    const FERRYJNIGlobal *global = ferryjni::globalOf(self->connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    LocalFrame frame(env);
    // A reader that throws may have filled the lists before it did: nothing of that is lost.
    ferryjni::readLists(operation, self, global, env);
    if (self->typeRepresentationKind != QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        *samples = nullptr;
        *infos = nullptr;
        *count = 0;
        return;
    }
    int32_t sampleCount = 0;
    int32_t infoCount = 0;
    ferryjni::listSize(operation, global, env, self->javaSampleList, &sampleCount);
    ferryjni::listSize(operation, global, env, self->javaInfoList, &infoCount);
    if (!growTo(operation, self, sampleCount)) {
        return;
    }
    int32_t i = 0;
    for (; i < sampleCount; ++i) {
        frame.element(i);
        lendSample(operation, self, global, env, i);
        if (infoCount > 0) {
            ferryjni::lendInfo(operation, self, global, env, i);
        }
    }
    *samples = sampleCount != 0 ? self->sampleArray : nullptr;
    *infos = infoCount != 0 ? self->infoArray : nullptr;
    *count = i;
}

void FERRYJNIStreamReader_return_loan(QEL_FerrionStreamReader *reader, void **samples,
                                      DDS_SampleInfo **infos, int32_t count,
                                      QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIStreamReader *self = asReader(reader);
    if (self->isDiscovery != 0) {
        FERRYJNIStreamReaderDiscovery_return_loan(self, samples, infos, count, environment);
        return;
    }
    const Operation operation("FERRYJNIStreamReader_return_loan", environment);
    const FERRYJNIGlobal *global = ferryjni::globalOf(self->connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    // What the host passes is not looked at: the loan is what the two lists hold.
    ferryjni::returnLists(operation, self, global, env);
}
