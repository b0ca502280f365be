// Listeners: made and deleted on host threads, signalled on any Java thread. A signal reads only
// fields that are fixed at creation, and the reader's Java reference, which is written once.
#include "JNIStreamReaderListener.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "Heap.h"
#include "JNICommon.h"
#include "JNIStreamReader.h"
#include "Operation.h"

using ferryjni::Operation;

static_assert(std::is_standard_layout_v<FERRYJNIStreamReaderListener>);
static_assert(offsetof(FERRYJNIStreamReaderListener, javaListener) == 0);
static_assert(offsetof(FERRYJNIStreamReaderListener, listenerData) == 8);
static_assert(offsetof(FERRYJNIStreamReaderListener, onDataAvailable) == 16);
static_assert(offsetof(FERRYJNIStreamReaderListener, streamReader) == 24);
static_assert(offsetof(FERRYJNIStreamReaderListener, global) == 32);
static_assert(sizeof(FERRYJNIStreamReaderListener) == 40);
static_assert(offsetof(QEL_FerrionStreamReaderListener, listenerData) == 0);
static_assert(offsetof(QEL_FerrionStreamReaderListener, onDataAvailable) == 8);
static_assert(sizeof(QEL_FerrionStreamReaderListener) == 16);

FERRYJNIStreamReaderListener *FERRYJNIStreamReaderListener_new(
    FERRYJNIGlobal *global, const QEL_FerrionStreamReaderListener *hostListener,
    FERRYJNIStreamReader *streamReader, QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReaderListener_new", environment);
    auto *listener =
        ferryjni::newStructure<FERRYJNIStreamReaderListener>("struct FERRYJNIStreamReaderListener");
    if (listener == nullptr) {
        operation.report("error creating JNI stream reader listener");
        return nullptr;
    }
    if (hostListener != nullptr) {
        listener->listenerData = hostListener->listenerData;
        listener->onDataAvailable = hostListener->onDataAvailable;
    }
    listener->streamReader = streamReader;
    listener->global = global;
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        // compatibility 4: the record stays behind
        return nullptr;
    }
    const auto address = static_cast<jlong>(reinterpret_cast<intptr_t>(listener));
    jobject object = env->NewObject(global->streamReaderListenerImplClass,
                                    global->streamReaderListenerImplInit, address);
    // compatibility 11: from here on the record is returned whatever happens
    if (operation.threw(env, "exception")) {
        return listener;
    }
    if (object == nullptr) {
        operation.report("null connection object");
        return listener;
    }
    listener->javaListener =
        operation.globalRef(env, object, "global reference to connection instance");
    return listener;
}

void FERRYJNIStreamReaderListener_retire(FERRYJNIStreamReaderListener *listener,
                                         JNIEnv *env) noexcept
{
    if (listener->javaListener == nullptr) {
        return;
    }
    // The constructor keeps the address that it is given, so it also takes one away; the object's
    // monitor, which signals hold, makes it wait for them.
    jvalue noAddress;
    noAddress.j = 0;
    env->CallNonvirtualVoidMethodA(listener->javaListener,
                                   listener->global->streamReaderListenerImplClass,
                                   listener->global->streamReaderListenerImplInit, &noAddress);
    if (env->ExceptionCheck() != JNI_FALSE) {
        env->ExceptionClear();
        // Java may signal for ever: the record stays behind for it, and leads nowhere.
        __atomic_store_n(&listener->streamReader, nullptr, __ATOMIC_RELEASE);
    }
}

void FERRYJNIStreamReaderListener_delete(FERRYJNIStreamReaderListener *listener,
                                         QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReaderListener_delete", environment);
    JNIEnv *env = operation.javaEnv(listener->global);
    if (env == nullptr) {
        return;
    }
    FERRYJNICommon_deleteGlobalRef(env, &listener->javaListener);
    if (listener->streamReader != nullptr) {
        ferryjni::freeStructure(listener);
    }
}

void JNICALL
Java_com_qel_ferrion_adapter_internal_StreamReaderListenerImpl_QEL_1FerrionStreamReaderListener_1on_1data_1available(
    JNIEnv *env, jobject, jobject javaReader, jlong listenerAddress) noexcept
{
    const auto *listener = reinterpret_cast<const FERRYJNIStreamReaderListener *>(
        static_cast<intptr_t>(listenerAddress));
    FERRYJNIStreamReader *reader =
        listener != nullptr ? __atomic_load_n(&listener->streamReader, __ATOMIC_ACQUIRE) : nullptr;
    if (reader == nullptr) {
        return;
    }
    // One that is still being made may signal before the host has it.
    if (!ferryjni::takesSignalsOf(reader, env, javaReader)) {
        ferryjni::logFailure("FERRYJNIStreamReaderListener_on_data_available",
                             "error in stream reader");
        return;
    }
    if (listener->onDataAvailable != nullptr) {
        listener->onDataAvailable(reader, listener->listenerData);
    }
}
