// Listeners: made and deleted on host threads, signalled on any Java thread. A signal reads only
// fields that are fixed at creation, and the reader's Java reference, which is written once; one
// that comes after the deletion touches neither.
#include "JNIStreamReaderListener.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
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

namespace {

/// What is known of an address that a listener has or had. Adapters may keep the Java object and
/// signal after the reader has gone, when the record behind its address may only be looked at from
/// outside. Places are never freed: as many are made as there are different addresses.
struct Place {
    explicit Place(const FERRYJNIStreamReaderListener *at) noexcept : listener(at) {}
    const FERRYJNIStreamReaderListener *const listener;
    std::atomic<bool> gone{false};
    /// Signals under way.
    std::atomic<int> signals{0};
    /// Signals that came too late.
    std::atomic<uint64_t> late{0};
    Place *next = nullptr;
};

std::array<std::atomic<Place *>, 256> g_places;

std::atomic<Place *> &rowOf(const FERRYJNIStreamReaderListener *listener) noexcept
{
    return g_places[(reinterpret_cast<uintptr_t>(listener) >> 4) % g_places.size()];
}

/// Null for an address that has had no listener.
Place *placeOf(const FERRYJNIStreamReaderListener *listener) noexcept
{
    Place *place = rowOf(listener).load();
    while (place != nullptr && place->listener != listener) {
        place = place->next;
    }
    return place;
}

void enlist(const FERRYJNIStreamReaderListener *listener) noexcept
{
    Place *place = placeOf(listener);
    if (place != nullptr) {
        place->late.store(0);
        place->gone.store(false);
        return;
    }
    // Without memory late signals of this one listener are as dangerous as the adapter makes them.
    place = new (std::nothrow) Place(listener);
    if (place != nullptr) {
        place->next = rowOf(listener).load();
        while (!rowOf(listener).compare_exchange_weak(place->next, place)) {
        }
    }
}

/// How long a signal that an adapter still has under way is waited for: host callbacks are short.
constexpr int signalWaits = 1000;
constexpr useconds_t signalWaitMicroseconds = 1000;

} // namespace

bool FERRYJNIStreamReaderListener_retire(const FERRYJNIStreamReaderListener *listener) noexcept
{
    Place *place = placeOf(listener);
    if (place == nullptr) {
        return true;
    }
    place->gone.store(true);
    for (int i = 0; place->signals.load() != 0; ++i) {
        if (i == signalWaits) {
            ferryjni::logFailure("FERRYJNIStreamReaderListener_delete",
                                 "a signal does not come back; its reader is left behind");
            return false;
        }
        usleep(signalWaitMicroseconds);
    }
    return true;
}

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
    enlist(listener);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        // The record stays behind: hosts that count heap blocks know this path.
        return nullptr;
    }
    const auto address = static_cast<jlong>(reinterpret_cast<intptr_t>(listener));
    jobject object = env->NewObject(global->streamReaderListenerImplClass,
                                    global->streamReaderListenerImplInit, address);
    // From here on the record is returned whatever happens: its callers go on with a reader that
    // cannot signal, and the host reads of it in the environment.
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

void FERRYJNIStreamReaderListener_delete(FERRYJNIStreamReaderListener *listener,
                                         QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamReaderListener_delete", environment);
    JNIEnv *env = operation.javaEnv(listener->global);
    if (env == nullptr) {
        return;
    }
    if (!FERRYJNIStreamReaderListener_retire(listener)) {
        return;
    }
    FERRYJNICommon_deleteGlobalRef(env, &listener->javaListener);
    ferryjni::freeStructure(listener);
}

namespace {

void signalHost(JNIEnv *env, const FERRYJNIStreamReaderListener *listener,
                jobject javaReader) noexcept
{
    // Null while the Java reader is still being made: it may signal before the host has it.
    jobject bound = ferryjni::boundReader(listener->streamReader);
    if (bound != nullptr && env->IsSameObject(bound, javaReader) == JNI_FALSE) {
        ferryjni::logFailure("FERRYJNIStreamReaderListener_on_data_available",
                             "error in stream reader");
        return;
    }
    if (listener->onDataAvailable != nullptr) {
        listener->onDataAvailable(listener->streamReader, listener->listenerData);
    }
}

/// An adapter that never stops signalling is told of at its 1st, 2nd, 4th, 8th, ... late signal.
void tellLateSignal(Place *place) noexcept
{
    const uint64_t count = ++place->late;
    if ((count & (count - 1)) == 0) {
        ferryjni::logFailure("FERRYJNIStreamReaderListener_on_data_available",
                             "signal of a reader that has been deleted");
    }
}

} // namespace

void JNICALL
Java_com_qel_ferrion_adapter_internal_StreamReaderListenerImpl_QEL_1FerrionStreamReaderListener_1on_1data_1available(
    JNIEnv *env, jobject, jobject javaReader, jlong listenerAddress) noexcept
{
    const auto *listener = reinterpret_cast<const FERRYJNIStreamReaderListener *>(
        static_cast<intptr_t>(listenerAddress));
    Place *place = placeOf(listener);
    if (place == nullptr) {
        signalHost(env, listener, javaReader);
        return;
    }
    // In this order: whoever retires the listener sees this signal, or this signal sees him.
    ++place->signals;
    if (place->gone.load()) {
        tellLateSignal(place);
    } else {
        signalHost(env, listener, javaReader);
    }
    --place->signals;
}
