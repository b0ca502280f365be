// The Java lists of a reader, on the host thread that reads.
#include "ReaderLists.h"

#include "JNISample.h"

namespace ferryjni {
namespace {

/// Calls a method of the Java reader that takes both lists.
bool callWithLists(const Operation &operation, FERRYJNIStreamReader *reader, JNIEnv *env,
                   jmethodID method) noexcept
{
    jvalue lists[2];
    lists[0].l = reader->javaSampleList;
    lists[1].l = reader->javaInfoList;
    env->CallVoidMethodA(reader->javaReader, method, lists);
    return !operation.threw(env, exceptionText);
}

} // namespace

bool readLists(const Operation &operation, FERRYJNIStreamReader *reader,
               const FERRYJNIGlobal *global, JNIEnv *env) noexcept
{
    return callWithLists(operation, reader, env, global->streamReaderRead);
}

bool listSize(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env, jobject list,
              int32_t *size) noexcept
{
    *size = env->CallIntMethodA(list, global->listSize, nullptr);
    if (operation.threw(env, exceptionText)) {
        *size = 0;
        return false;
    }
    return true;
}

jobject listElement(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env,
                    jobject list, int32_t index) noexcept
{
    jvalue argument;
    argument.i = index;
    jobject element = env->CallObjectMethodA(list, global->listGet, &argument);
    return operation.threw(env, exceptionText) ? nullptr : element;
}

void lendInfo(const Operation &operation, FERRYJNIStreamReader *reader,
              const FERRYJNIGlobal *global, JNIEnv *env, int32_t index) noexcept
{
    reader->infoArray[index] = nullptr;
    jobject info = listElement(operation, global, env, reader->javaInfoList, index);
    if (info == nullptr) {
        return;
    }
    if (FERRYJNIStreamInfo_sampleInfoJavaToNative(global, env, info, reader->sampleInfoPool[index],
                                                  operation.environment())) {
        reader->infoArray[index] = reader->sampleInfoPool[index];
    } else {
        operation.report(exceptionText);
    }
}

void returnLists(const Operation &operation, FERRYJNIStreamReader *reader,
                 const FERRYJNIGlobal *global, JNIEnv *env) noexcept
{
    callWithLists(operation, reader, env, global->streamReaderReturnLoan);
    // Emptied whatever Java did: the next read has to start from empty lists.
    env->CallVoidMethodA(reader->javaSampleList, global->listClear, nullptr);
    operation.threw(env, exceptionText);
    env->CallVoidMethodA(reader->javaInfoList, global->listClear, nullptr);
    operation.threw(env, exceptionText);
}

} // namespace ferryjni
