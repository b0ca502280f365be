// The way of samples from the host to Java: write, on the host thread that calls it. Nothing is
// allocated on either side once every batch position has been used.
#include "Guards.h"
#include "JNISample.h"
#include "JNIStreamWriter.h"
#include "Operation.h"

using ferryjni::LocalFrame;
using ferryjni::Operation;

namespace {

/// What the passes of one write share.
struct WriteCall {
    const Operation &operation;
    FERRYJNIStreamWriter *writer;
    const FERRYJNIGlobal *global;
    JNIEnv *env;
};

/// Adds an element (possibly null) to a list of the batch.
void addElement(const WriteCall &call, jobject list, jobject element, const char *text) noexcept
{
    jvalue argument;
    argument.l = element;
    const jboolean added = call.env->CallBooleanMethodA(list, call.global->listAdd, &argument);
    if (!call.operation.threw(call.env, text) && added == JNI_FALSE) {
        call.operation.report(text);
    }
}

/// Copies one sample and its information into batch position `j`. What cannot be copied goes as
/// null, so that the two lists stay aligned.
void addSample(const WriteCall &call, int32_t j, const DDS_DynamicData *sample) noexcept
{
    jobject element = nullptr;
    if (sample != nullptr) {
        if (FERRYJNIStreamInfo_dynamicDataNativeToJava(call.global, call.env, sample,
                                                       call.writer->javaSamples[j],
                                                       call.operation.environment())) {
            element = call.writer->javaSamples[j];
        } else {
            call.operation.report("dynamicDataNativeToJava");
        }
    }
    addElement(call, call.writer->javaSampleList, element, "add sample to list");
}

void addInfo(const WriteCall &call, int32_t j, const DDS_SampleInfo *info) noexcept
{
    jobject element = nullptr;
    if (info != nullptr) {
        if (FERRYJNIStreamInfo_sampleInfoNativeToJava(call.global, call.env, info,
                                                      call.writer->javaInfos[j],
                                                      call.operation.environment())) {
            element = call.writer->javaInfos[j];
        } else {
            call.operation.report("sampleInfoNativeToJava");
        }
    }
    addElement(call, call.writer->javaInfoList, element, "add sample info to list");
}

void clearList(const WriteCall &call, jobject list, const char *text) noexcept
{
    call.env->CallVoidMethodA(list, call.global->listClear, nullptr);
    call.operation.threw(call.env, text);
}

void clearLists(const WriteCall &call) noexcept
{
    clearList(call, call.writer->javaSampleList, "sample list clear");
    clearList(call, call.writer->javaInfoList, "sample info list clear");
}

/// Hands the batch to the Java writer and empties the lists; returns what Java says that it wrote.
int32_t sendBatch(const WriteCall &call) noexcept
{
    jvalue lists[2];
    lists[0].l = call.writer->javaSampleList;
    lists[1].l = call.writer->javaInfoList;
    jint written =
        call.env->CallIntMethodA(call.writer->javaWriter, call.global->streamWriterWrite, lists);
    if (call.operation.threw(call.env, "write")) {
        written = 0;
    }
    clearLists(call);
    return written;
}

} // namespace

int32_t FERRYJNIStreamWriter_write(QEL_FerrionStreamWriter *writer, void *const *samples,
                                   DDS_SampleInfo *const *infos, int32_t count,
                                   QEL_FerrionEnvironment *environment) noexcept
{
    auto *self = static_cast<FERRYJNIStreamWriter *>(writer);
    const Operation operation("FERRYJNIStreamWriter_write", environment);
    // A writer without its Java object is one whose creation failed: a missing link like the
    // others.
    const FERRYJNIGlobal *global = self->javaWriter != nullptr
                                       ? ferryjni::globalOf(ferryjni::connectionOf(self->session))
                                       : nullptr;
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return 0;
    }
    LocalFrame frame(env);
    const WriteCall call = {operation, self, global, env};
    const bool carriesData =
        self->typeRepresentationKind == QEL_FERRION_TYPE_REPRESENTATION_TYPECODE;
    // Unsigned, because the sum of whatever Java returns may not fit.
    uint32_t total = 0;
    // compatibility 7: without data no batch is filled, and the loop does not end
    for (int32_t index = 0; index < count;) {
        const int32_t batch = carriesData ? self->maxSamplesPerWrite : 0;
        for (int32_t j = 0; j < batch && index < count; ++j, ++index) {
            frame.element(j);
            if (FERRYJNIStreamWriter_prepareJavaSample(
                    self, &self->javaSamples[j], &self->javaInfos[j], env, environment) == 0) {
                operation.report("Allocate java sample");
                // What the batch holds so far has failed with it: the next write begins anew.
                clearLists(call);
                return 0;
            }
            addSample(call, j, static_cast<const DDS_DynamicData *>(samples[index]));
            if (infos != nullptr) {
                addInfo(call, j, infos[index]);
            }
        }
        total += static_cast<uint32_t>(sendBatch(call));
    }
    return static_cast<int32_t>(total);
}
