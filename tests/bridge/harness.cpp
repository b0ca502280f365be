// The doubles, the transcript and the VM of the tests.
#include "harness.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

#include "ferryjni/log.h"
#include "qddscore/heap.h"
#include "qddscore/log.h"

namespace bridge {

JniDouble jni;
HeapDouble heap;

namespace {

std::mutex transcriptMutex;
std::string transcriptText;

JNINativeInterface_ original;
JNINativeInterface_ doubled;

struct Fault {
    size_t slot = 0;
    int calls = 0;
    int nth = 0;
    JniDouble::Failure failure = JniDouble::returns;
} fault;

std::string currentClass;
/// Local references made in the frame opened last.
int referencesMade = 0;
/// What a frame is meant for, with room for those of a failure.
constexpr int referencesAllowed = 64;
/// Slots of the functions that can be told to fail by name.
std::map<std::string, size_t> slots;

/// Whether a call comes from the code under test: the VM's own natives use the same table. A call
/// that ends a function of the bridge returns to its caller, so the test's own address counts too.
bool isOurs(const void *caller)
{
    const auto baseOf = [](const void *address) {
        Dl_info info = {};
        return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
    };
    static const void *const bridge = baseOf(reinterpret_cast<void *>(&FERRYJNIGlobal_new));
    static const void *const test = baseOf(&fault);
    const void *from = baseOf(caller);
    return from == bridge || from == test;
}

bool isLookup(size_t slot)
{
    using Table = JNINativeInterface_;
    return slot == slotOf(&Table::FindClass) || slot == slotOf(&Table::GetMethodID) ||
           slot == slotOf(&Table::GetStaticMethodID) || slot == slotOf(&Table::GetFieldID) ||
           slot == slotOf(&Table::GetStaticFieldID) || slot == slotOf(&Table::GetStaticObjectField);
}

/// Counts a call of the bridge; true when it is the one to fail.
bool fails(size_t slot)
{
    if (slot != fault.slot && !(fault.slot == anyLookup && isLookup(slot))) {
        return false;
    }
    if (++fault.calls != fault.nth) {
        return false;
    }
    jni.hasFailed = true;
    return true;
}

std::string textOf(const char *text)
{
    return std::string(" ") + text;
}
template<class T> std::string textOf(const T &)
{
    return "";
}

template<auto function> struct Double;
template<class R, class... A, R (JNICALL *JNINativeInterface_::*function)(JNIEnv *, A...)>
struct Double<function> {
    static R JNICALL call(JNIEnv *env, A... arguments)
    {
        const size_t slot = slotOf(function);
        const bool ours = isOurs(__builtin_return_address(0));
        if (ours && isLookup(slot)) {
            const std::string text = (std::string() + ... + textOf(arguments));
            if (slot == slotOf(&JNINativeInterface_::FindClass)) {
                currentClass = text.substr(1);
            }
            jni.lookups.push_back(currentClass +
                                  (slot == slotOf(&JNINativeInterface_::FindClass) ? "" : text));
        }
        if constexpr (std::is_convertible_v<R, jobject>) {
            referencesMade += ours ? 1 : 0;
        }
        if (!ours || !fails(slot)) {
            jni.charsHeld +=
                ours && slot == slotOf(&JNINativeInterface_::GetStringUTFChars) ? 1 : 0;
            return (original.*function)(env, arguments...);
        }
        if (fault.failure == JniDouble::throws) {
            original.ThrowNew(env, original.FindClass(env, "java/lang/OutOfMemoryError"), "fault");
        }
        return R();
    }
    static void install()
    {
        doubled.*function = call;
    }
};

jobject JNICALL newGlobalRef(JNIEnv *env, jobject object)
{
    const bool ours = isOurs(__builtin_return_address(0));
    if (ours && fails(slotOf(&JNINativeInterface_::NewGlobalRef))) {
        return nullptr;
    }
    jobject made = original.NewGlobalRef(env, object);
    if (ours) {
        jni.globals.push_back(made);
    }
    return made;
}

void JNICALL deleteGlobalRef(JNIEnv *env, jobject object)
{
    if (isOurs(__builtin_return_address(0))) {
        const auto found = std::find(jni.globals.begin(), jni.globals.end(), object);
        if (found == jni.globals.end()) {
            note("deleted a global reference that is not the bridge's");
            return;
        }
        jni.globals.erase(found);
        jni.deleted.push_back(object);
    }
    original.DeleteGlobalRef(env, object);
}

void JNICALL deleteLocalRef(JNIEnv *env, jobject object)
{
    if (isOurs(__builtin_return_address(0))) {
        --referencesMade;
        ++jni.localsDeleted;
    }
    original.DeleteLocalRef(env, object);
}

jint JNICALL pushLocalFrame(JNIEnv *env, jint capacity)
{
    const bool ours = isOurs(__builtin_return_address(0));
    if (ours && fails(slotOf(&JNINativeInterface_::PushLocalFrame))) {
        return JNI_ENOMEM;
    }
    jni.frames += ours ? 1 : 0;
    referencesMade = 0;
    return original.PushLocalFrame(env, capacity);
}

jobject JNICALL popLocalFrame(JNIEnv *env, jobject result)
{
    if (isOurs(__builtin_return_address(0))) {
        --jni.frames;
        if (std::exchange(referencesMade, 0) > referencesAllowed) {
            note("TOO MANY LOCAL REFERENCES IN ONE FRAME");
        }
    }
    return original.PopLocalFrame(env, result);
}

void JNICALL releaseStringUTFChars(JNIEnv *env, jstring string, const char *chars)
{
    jni.charsHeld -= isOurs(__builtin_return_address(0)) ? 1 : 0;
    original.ReleaseStringUTFChars(env, string, chars);
}

void JNICALL exceptionDescribe(JNIEnv *env)
{
    if (original.ExceptionCheck(env) != JNI_FALSE && isOurs(__builtin_return_address(0))) {
        note("(described)");
    }
    original.ExceptionDescribe(env);
}

JNIEnv *theEnv = nullptr;
jclass stage = nullptr;

void JNICALL record(JNIEnv *env, jclass, jstring line)
{
    const char *chars = original.GetStringUTFChars(env, line, nullptr);
    note(chars);
    original.ReleaseStringUTFChars(env, line, chars);
}

/// Finds the scripted side.
void openStage(JNIEnv *env)
{
    theEnv = env;
    stage = static_cast<jclass>(env->NewGlobalRef(env->FindClass("com/qel/ferrion/test/Stage")));
    char name[] = "record";
    char signature[] = "(Ljava/lang/String;)V";
    const JNINativeMethod method = {name, signature, reinterpret_cast<void *>(record)};
    env->RegisterNatives(stage, &method, 1);
}

} // namespace

void note(const std::string &line)
{
    const std::lock_guard<std::mutex> guard(transcriptMutex);
    transcriptText += "\n" + line;
}

std::string transcript()
{
    const std::lock_guard<std::mutex> guard(transcriptMutex);
    return std::exchange(transcriptText, "");
}

StringList::StringList(std::initializer_list<std::string> strings) : DDS_StringSeq{}
{
    for (const std::string &string : strings) {
        DDS_StringSeq_append(this, string.c_str());
    }
}

StringList::~StringList()
{
    DDS_StringSeq_finalize(this);
}

void addVmOptions(StringList *options)
{
    for (const char *option : {"-Dqdds.library.path=" BRIDGE_LIBRARY_DIR, "-Xrs",
                               "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1"}) {
        DDS_StringSeq_append(options, option);
    }
    // Presets add to them, for example -Xcheck:jni.
    const char *more = getenv("FERRY_TEST_VM_OPTIONS");
    std::istringstream words(more != nullptr ? more : "");
    for (std::string word; words >> word;) {
        DDS_StringSeq_append(options, word.c_str());
    }
}

FERRYJNIGlobal *startVm()
{
    QELLog_setSink([](void *, const char *line, size_t) { note(line); }, nullptr);
    const StringList classPath = {BRIDGE_ADAPTER_JAR, BRIDGE_BINDING_JAR, BRIDGE_TEST_JAR};
    StringList options = {};
    addVmOptions(&options);
    const FERRYJNIGlobal *first =
        FERRYJNIGlobal_new(&classPath, &options, 0x1, FERRYJNI_DESTROY_NEVER);
    if (first == nullptr) {
        return nullptr;
    }
    openStage(FERRYJNIGlobal_getEnv(first));
    jni.hook(theEnv);
    FERRYJNIGlobal *global = FERRYJNIGlobal_new(&classPath, &options, 0x1, FERRYJNI_DESTROY_NEVER);
    FERRYLog_setBitmaps(0xFFFFF, 0x47);
    return global;
}

void JniDouble::hook(JNIEnv *env)
{
    if (env->functions == &doubled) {
        // A whole executable run by hand starts the VM once a test.
        return;
    }
    original = *env->functions;
    doubled = original;
#define INSTALL(function)                                                                          \
    Double<&JNINativeInterface_::function>::install();                                             \
    slots[#function] = slotOf(&JNINativeInterface_::function)
    INSTALL(FindClass);
    INSTALL(GetMethodID);
    INSTALL(GetStaticMethodID);
    INSTALL(GetFieldID);
    INSTALL(GetStaticFieldID);
    INSTALL(GetStaticObjectField);
    INSTALL(NewStringUTF);
    INSTALL(GetStringUTFChars);
    INSTALL(NewObjectV);
    INSTALL(CallObjectMethodV);
    INSTALL(CallBooleanMethodV);
    INSTALL(CallIntMethodV);
    INSTALL(CallLongMethodV);
    INSTALL(CallVoidMethodV);
    INSTALL(CallStaticObjectMethodV);
    INSTALL(CallObjectMethodA);
    INSTALL(CallBooleanMethodA);
    INSTALL(CallIntMethodA);
    INSTALL(CallVoidMethodA);
    INSTALL(CallStaticVoidMethodA);
#undef INSTALL
    slots["NewGlobalRef"] = slotOf(&JNINativeInterface_::NewGlobalRef);
    slots["PushLocalFrame"] = slotOf(&JNINativeInterface_::PushLocalFrame);
    doubled.NewGlobalRef = newGlobalRef;
    doubled.DeleteGlobalRef = deleteGlobalRef;
    doubled.DeleteLocalRef = deleteLocalRef;
    doubled.PushLocalFrame = pushLocalFrame;
    doubled.PopLocalFrame = popLocalFrame;
    doubled.ReleaseStringUTFChars = releaseStringUTFChars;
    doubled.ExceptionDescribe = exceptionDescribe;
    env->functions = &doubled;
}

void JniDouble::fail(const std::string &function, int nth, const std::string &failure)
{
    fail(slots.at(function), nth, failure == "throws" ? throws : returns);
}

void JniDouble::fail(size_t slot, int nth, Failure failure)
{
    fault = {slot, 0, nth, failure};
    hasFailed = false;
}

void HeapDouble::fail(const std::string &type, int nth)
{
    failingType_ = type;
    left_ = nth;
    hasFailed = false;
}

bool HeapDouble::arrives(const char *role, uint32_t tag, const char *type)
{
    const char code[] = {static_cast<char>(tag >> 24), static_cast<char>(tag >> 16),
                         static_cast<char>(tag >> 8), static_cast<char>(tag), '\0'};
    const std::lock_guard<std::mutex> guard(transcriptMutex);
    allocations.insert(std::string(role) + " " + code + " " + type);
    if (left_ == 0 || failingType_ != type || --left_ != 0) {
        return false;
    }
    hasFailed = true;
    return true;
}

int64_t heapBlocks()
{
    QELOsapiHeapUsage usage = {};
    QELOsapiHeap_getUsage(&usage);
    return usage.blocks;
}

void callStage(const char *method, const char *signature, std::initializer_list<jvalue> arguments)
{
    jmethodID id = original.GetStaticMethodID(theEnv, stage, method, signature);
    original.CallStaticVoidMethodA(theEnv, stage, id, arguments.begin());
    // For -Xcheck:jni, which wants to see every call looked after.
    original.ExceptionCheck(theEnv);
}

void play(const std::string &method, const std::string &action)
{
    jvalue texts[2] = {};
    texts[0].l = original.NewStringUTF(theEnv, method.c_str());
    texts[1].l = original.NewStringUTF(theEnv, action.c_str());
    callStage("play", "(Ljava/lang/String;Ljava/lang/String;)V", {texts[0], texts[1]});
    original.DeleteLocalRef(theEnv, texts[0].l);
    original.DeleteLocalRef(theEnv, texts[1].l);
}

const DDS_TypeCode *sampleType()
{
    const DDS_StructMember members[] = {{"id", DDS_TypeCode_get_primitive(DDS_TK_LONG), 0},
                                        {"text", DDS_TypeCode_create_string(0, nullptr), 0}};
    return DDS_TypeCode_create_struct("S", nullptr, DDS_EXTENSIBILITY_FINAL, members, 2, nullptr);
}

} // namespace bridge

namespace {
using Reallocate = decltype(&QELOsapiHeap_reallocateMemoryInternal);
}

// Stands in front of the middleware's own for every library of the process.
void *QELOsapiHeap_reallocateMemoryInternal(void *block, size_t size, size_t alignment,
                                            const char *role, uint32_t tag,
                                            const char *typeName) noexcept
{
    static const auto next =
        reinterpret_cast<Reallocate>(dlsym(RTLD_NEXT, "QELOsapiHeap_reallocateMemoryInternal"));
    if (bridge::heap.arrives(role, tag, typeName)) {
        return nullptr;
    }
    return next(block, size, alignment, role, tag, typeName);
}
