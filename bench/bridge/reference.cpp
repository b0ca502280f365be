#include "reference.h"

#include <cstdlib>

namespace bench {
namespace {

constexpr jint frameCapacity = 32;
constexpr int32_t elementsInFrame = frameCapacity / 2;

JNIEnv *envOf(const FERRYJNIGlobal *global)
{
    void *env = nullptr;
    if (global->javaVM->GetEnv(&env, JNI_VERSION_1_2) != JNI_OK) {
        abort();
    }
    return static_cast<JNIEnv *>(env);
}

void check(JNIEnv *env)
{
    if (env->ExceptionCheck() != JNI_FALSE) {
        env->ExceptionDescribe();
        abort();
    }
}

void nextFrame(JNIEnv *env, int32_t index)
{
    if (index != 0 && index % elementsInFrame == 0) {
        env->PopLocalFrame(nullptr);
        env->PushLocalFrame(frameCapacity);
    }
}

jint sizeOf(JNIEnv *env, const FERRYJNIGlobal *global, jobject list)
{
    const jint size = env->CallIntMethodA(list, global->listSize, nullptr);
    check(env);
    return size;
}

void clear(JNIEnv *env, const FERRYJNIGlobal *global, jobject list)
{
    env->CallVoidMethodA(list, global->listClear, nullptr);
    check(env);
}

/// One call of a helper that copies a sample or its information between Java and native memory.
void copy(JNIEnv *env, jclass helper, jmethodID method, jobject java, const void *native)
{
    jvalue arguments[2];
    arguments[0].l = java;
    arguments[1].j = static_cast<jlong>(reinterpret_cast<intptr_t>(native));
    env->CallStaticVoidMethodA(helper, method, arguments);
    check(env);
}

jobject element(JNIEnv *env, const FERRYJNIGlobal *global, jobject list, jint index)
{
    jvalue argument;
    argument.i = index;
    jobject found = env->CallObjectMethodA(list, global->listGet, &argument);
    check(env);
    return found;
}

void add(JNIEnv *env, const FERRYJNIGlobal *global, jobject list, jobject element)
{
    jvalue argument;
    argument.l = element;
    const jboolean added = env->CallBooleanMethodA(list, global->listAdd, &argument);
    check(env);
    if (added == JNI_FALSE) {
        abort();
    }
}

} // namespace

int32_t readAndReturn(const FERRYJNIGlobal *global, FERRYJNIStreamReader *reader)
{
    JNIEnv *env = envOf(global);
    env->PushLocalFrame(frameCapacity);
    jvalue lists[2];
    lists[0].l = reader->javaSampleList;
    lists[1].l = reader->javaInfoList;
    env->CallVoidMethodA(reader->javaReader, global->streamReaderRead, lists);
    check(env);
    const jint count = sizeOf(env, global, reader->javaSampleList);
    const jint infoCount = sizeOf(env, global, reader->javaInfoList);
    if (count > reader->capacity || infoCount != count) {
        abort();
    }
    for (jint i = 0; i < count; ++i) {
        nextFrame(env, i);
        jobject sample = element(env, global, reader->javaSampleList, i);
        copy(env, global->dynamicDataHelperClass, global->dynamicDataHelperPushToNativeI, sample,
             reader->dynamicDataPool[i]);
        reader->sampleArray[i] = reader->dynamicDataPool[i];
        jobject info = element(env, global, reader->javaInfoList, i);
        copy(env, global->sampleInfoHelperClass, global->sampleInfoHelperPushToNativeI, info,
             reader->sampleInfoPool[i]);
        reader->infoArray[i] = reader->sampleInfoPool[i];
    }
    env->PopLocalFrame(nullptr);

    // The host gives the loan back in a call of its own.
    env = envOf(global);
    env->PushLocalFrame(frameCapacity);
    env->CallVoidMethodA(reader->javaReader, global->streamReaderReturnLoan, lists);
    check(env);
    clear(env, global, reader->javaSampleList);
    clear(env, global, reader->javaInfoList);
    env->PopLocalFrame(nullptr);
    return count;
}

int32_t write(const FERRYJNIGlobal *global, FERRYJNIStreamWriter *writer, void *const *samples,
              DDS_SampleInfo *const *infos, int32_t count)
{
    JNIEnv *env = envOf(global);
    if (count > writer->maxSamplesPerWrite) {
        abort();
    }
    env->PushLocalFrame(frameCapacity);
    for (int32_t i = 0; i < count; ++i) {
        nextFrame(env, i);
        copy(env, global->dynamicDataHelperClass, global->dynamicDataHelperPullFromNativeI,
             writer->javaSamples[i], samples[i]);
        add(env, global, writer->javaSampleList, writer->javaSamples[i]);
        copy(env, global->sampleInfoHelperClass, global->sampleInfoHelperPullFromNativeI,
             writer->javaInfos[i], infos[i]);
        add(env, global, writer->javaInfoList, writer->javaInfos[i]);
    }
    jvalue lists[2];
    lists[0].l = writer->javaSampleList;
    lists[1].l = writer->javaInfoList;
    const jint written = env->CallIntMethodA(writer->javaWriter, global->streamWriterWrite, lists);
    check(env);
    clear(env, global, writer->javaSampleList);
    clear(env, global, writer->javaInfoList);
    env->PopLocalFrame(nullptr);
    return written;
}

} // namespace bench
