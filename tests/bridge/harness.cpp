// The doubles, the transcript and the VM of the tests.
#include "harness.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

#include "qddscore/heap.h"
#include "qddscore/log.h"

namespace bridge {

Fault fault;
JniDouble jni;
std::set<std::string> allocations;

namespace {

std::mutex transcriptMutex;
std::string transcriptText;

JavaVM *vm = nullptr;
JNINativeInterface_ original;
JNINativeInterface_ doubled;
const JNIInvokeInterface_ *originalVm = nullptr;
JNIInvokeInterface_ doubledVm;

/// What Java throws when a fault is to come, by kind of VM: made early, as memory is short then.
jthrowable thrown[2];

/// Local references made outside of all frames and in each open one; whether a frame could not be
/// had, whose references then stay where they are.
std::vector<int> locals = {0};
bool frameFailed = false;
int charsHeld = 0;
/// The Java method or constructor behind each identifier.
std::map<const void *, std::string> members;

/// What a frame is meant for, with room for those of a failure.
constexpr int localsAllowed = 64;

/// Whether a call comes from the code under test: the VM's own natives use the same table. A call
/// that ends a function of the bridge returns to its caller, so the test's own address counts too.
bool isOurs(const void *caller)
{
    const auto baseOf = [](const void *address) {
        Dl_info info = {};
        return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
    };
    static const void *const bridge = baseOf(reinterpret_cast<void *>(&FERRYJNIGlobal_new));
    static const void *const test = baseOf(&doubled);
    thread_local std::map<const void *, bool> known; // asking takes long
    const auto [place, isNew] = known.try_emplace(caller);
    if (isNew) {
        const void *from = baseOf(caller);
        place->second = from == bridge || from == test;
    }
    return place->second;
}

const std::set<std::string> lookups = {"FindClass",        "GetMethodID",
                                       "GetFieldID",       "GetStaticMethodID",
                                       "GetStaticFieldID", "GetStaticObjectField"};

/// Whether a call is one of those allowed while an exception is pending; and the message of an
/// exception is asked for before it is cleared, by contract.
bool mayBePending(const std::string &function, const std::string &call)
{
    static const std::set<std::string> harmless = {"DeleteGlobalRef",       "DeleteLocalRef",
                                                   "ReleaseStringUTFChars", "PushLocalFrame",
                                                   "PopLocalFrame",         "ExceptionOccurred"};
    static std::string before;
    const std::string message = "CallObjectMethod Throwable.getMessage";
    const bool isMessage = call == message || (call == "GetStringUTFChars" && before == message);
    before = call;
    return isMessage || harmless.count(function) != 0;
}

/// Leaves behind what a call that fails does.
void leaveFailure(JNIEnv *env, const std::string &function)
{
    const bool otherVm = fault.failure == Fault::otherVm;
    const bool silent =
        function == "NewGlobalRef" || function == "GetStaticObjectField" ||
        (!otherVm && (function == "GetStringUTFChars" || function == "PushLocalFrame"));
    frameFailed = frameFailed || function == "PushLocalFrame";
    if (!silent && fault.failure != Fault::returns) {
        original.Throw(env, thrown[otherVm ? 1 : 0]);
    }
}

/// Keeps a lookup, with the class that it is about.
void look(const std::string &function, const std::string &text)
{
    static std::string currentClass;
    if (function == "FindClass") {
        currentClass = text.substr(1);
        jni.lookups.push_back(currentClass);
    } else if (lookups.count(function) != 0) {
        jni.lookups.push_back(currentClass + text);
    }
}

/// "com/x/Adapter getVersion ()I" as "Adapter.getVersion".
std::string memberOf(const std::string &lookup)
{
    std::istringstream words(lookup.substr(lookup.rfind('/', lookup.find(' ')) + 1));
    std::string type;
    std::string name;
    words >> type >> name;
    return type + "." + name;
}

/// What a call is named where it is reported: by the method, the class or what is looked up.
std::string labelOf(const std::string &function, const std::string &text)
{
    if (function == "NewObject") {
        return "new" + text.substr(0, text.find('.'));
    } else if (function.rfind("Call", 0) == 0) {
        return text.substr(1);
    }
    return function + (lookups.count(function) != 0 ? text : "");
}

/// Keeps the books of a call that the bridge made, with its first pointer and its result.
void count(const std::string &function, const void *object, const void *result)
{
    if (lookups.count(function) != 0) {
        jni.found.push_back(result);
        members[result] = memberOf(jni.lookups.back());
    } else if (function == "NewGlobalRef") {
        jni.globals.push_back(result);
        jni.found.back() = result;
        --locals.back();
    } else if (function == "DeleteGlobalRef") {
        const auto found = std::find(jni.globals.begin(), jni.globals.end(), object);
        if (found == jni.globals.end()) {
            note("DELETED A GLOBAL REFERENCE THAT IS NOT THE BRIDGE'S");
            return;
        }
        jni.globals.erase(found);
        jni.deleted.push_back(object);
    } else if (function == "DeleteLocalRef") {
        --locals.back();
    } else if (function == "GetStringUTFChars") {
        ++charsHeld;
    } else if (function == "ReleaseStringUTFChars") {
        --charsHeld;
    } else if (function == "PushLocalFrame") {
        locals.push_back(0);
    } else if (function == "PopLocalFrame") {
        if (locals.back() > localsAllowed) {
            note("TOO MANY LOCAL REFERENCES IN ONE FRAME");
        }
        locals.pop_back();
    }
}

template<class T> const void *pointerIn(const T &argument)
{
    if constexpr (std::is_pointer_v<T>) {
        return argument;
    }
    return nullptr;
}

template<class T> std::string textIn(const T &argument)
{
    if constexpr (std::is_same_v<T, const char *>) {
        return std::string(" ") + argument;
    } else if constexpr (std::is_same_v<T, jmethodID>) {
        return " " + members[argument];
    }
    return "";
}

template<auto function> struct Double;
template<class R, class... A, R (JNICALL *JNINativeInterface_::*function)(JNIEnv *, A...)>
struct Double<function> {
    static inline std::string name;
    static inline bool canFail = true;

    static void install(const std::string &function_, bool canFail_)
    {
        // The kinds of argument list are one to whoever reads of them.
        const bool isCall = function_.rfind("Call", 0) == 0 || function_ == "NewObjectV";
        name = function_.substr(0, function_.size() - (isCall ? 1 : 0));
        canFail = canFail_;
        doubled.*function = call;
    }
    static R JNICALL call(JNIEnv *env, A... arguments)
    {
        if (!isOurs(__builtin_return_address(0))) {
            return (original.*function)(env, arguments...);
        }
        const std::string text = (std::string() + ... + textIn(arguments));
        look(name, text);
        if (!mayBePending(name, name + text) && original.ExceptionCheck(env) != JNI_FALSE) {
            note("CALLED WITH AN EXCEPTION PENDING: " + name + text);
        }
        if (canFail && fault.arrives("jni", name, labelOf(name, text))) {
            leaveFailure(env, name);
            if constexpr (std::is_same_v<R, jint>) {
                return name == "PushLocalFrame" ? JNI_ENOMEM : 0;
            }
            return R();
        }
        const void *object = nullptr;
        ((object = object != nullptr ? object : pointerIn(arguments)), ...);
        if constexpr (std::is_void_v<R>) {
            count(name, object, nullptr);
            (original.*function)(env, arguments...);
        } else {
            const R result = (original.*function)(env, arguments...);
            locals.back() += std::is_convertible_v<R, jobject> && pointerIn(result) != nullptr;
            count(name, object, pointerIn(result));
            return result;
        }
    }
};

void JNICALL exceptionDescribe(JNIEnv *env)
{
    if (!isOurs(__builtin_return_address(0)) || original.ExceptionCheck(env) == JNI_FALSE) {
        original.ExceptionDescribe(env);
        return;
    }
    note("(described)");
    jthrowable pending = original.ExceptionOccurred(env);
    const bool isFault = original.IsSameObject(env, pending, thrown[0]) != JNI_FALSE ||
                         original.IsSameObject(env, pending, thrown[1]) != JNI_FALSE;
    original.DeleteLocalRef(env, pending);
    // Thousands of traces would say nothing.
    isFault ? original.ExceptionClear(env) : original.ExceptionDescribe(env);
}

jint JNICALL getEnv(JavaVM *self, void **env, jint version)
{
    if (isOurs(__builtin_return_address(0)) && fault.arrives("env", "GetEnv")) {
        *env = nullptr;
        return JNI_EDETACHED;
    }
    return originalVm->GetEnv(self, env, version);
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

void listen()
{
    QELLog_setSink([](void *, const char *line, size_t) { note(line); }, nullptr);
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
    // Presets add to them, for example -Xcheck:jni.
    const char *more = getenv("FERRY_TEST_VM_OPTIONS");
    std::istringstream words(std::string("-Dqdds.library.path=" BRIDGE_LIBRARY_DIR
                                         " -Xrs -XX:+UseSerialGC -XX:TieredStopAtLevel=1 ") +
                             (more != nullptr ? more : ""));
    for (std::string word; words >> word;) {
        DDS_StringSeq_append(options, word.c_str());
    }
}

FERRYJNIGlobal *startVm()
{
    listen();
    const StringList classPath = {BRIDGE_ADAPTER_JAR, BRIDGE_BINDING_JAR, BRIDGE_TEST_JAR};
    StringList options = {};
    addVmOptions(&options);
    const auto start = [&] { return FERRYJNIGlobal_new(&classPath, &options, 0x1, 1); };
    const FERRYJNIGlobal *first = start();
    if (first == nullptr) {
        return nullptr;
    }
    openStage(FERRYJNIGlobal_getEnv(first));
    jni.hook(theEnv);
    FERRYJNIGlobal *global = start();
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
    original.GetJavaVM(env, &vm);
    originalVm = vm->functions;
    const char *classes[] = {"java/lang/OutOfMemoryError", "java/io/IOException"};
    for (int i = 0; i < 2; ++i) {
        jclass type = env->FindClass(classes[i]);
        jmethodID constructor = env->GetMethodID(type, "<init>", "(Ljava/lang/String;)V");
        thrown[i] = static_cast<jthrowable>(
            env->NewGlobalRef(env->NewObject(type, constructor, env->NewStringUTF("fault"))));
    }
#define DOUBLE(function) Double<&JNINativeInterface_::function>::install(#function, true)
    DOUBLE(FindClass), DOUBLE(GetMethodID), DOUBLE(GetStaticMethodID), DOUBLE(GetFieldID),
        DOUBLE(GetStaticFieldID), DOUBLE(GetStaticObjectField), DOUBLE(NewStringUTF),
        DOUBLE(GetStringUTFChars), DOUBLE(NewObjectV), DOUBLE(CallObjectMethodV),
        DOUBLE(CallBooleanMethodV), DOUBLE(CallIntMethodV), DOUBLE(CallLongMethodV),
        DOUBLE(CallVoidMethodV), DOUBLE(CallStaticObjectMethodV), DOUBLE(CallObjectMethodA),
        DOUBLE(CallBooleanMethodA), DOUBLE(CallIntMethodA), DOUBLE(CallVoidMethodA),
        DOUBLE(CallStaticVoidMethodA), DOUBLE(CallNonvirtualVoidMethodA), DOUBLE(NewGlobalRef),
        DOUBLE(PushLocalFrame);
#undef DOUBLE
#define WATCH(function) Double<&JNINativeInterface_::function>::install(#function, false)
    WATCH(ReleaseStringUTFChars), WATCH(DeleteGlobalRef), WATCH(DeleteLocalRef),
        WATCH(PopLocalFrame), WATCH(ExceptionOccurred), WATCH(IsSameObject), WATCH(IsInstanceOf);
#undef WATCH
    doubled.ExceptionDescribe = exceptionDescribe;
    env->functions = &doubled;
    doubledVm = *originalVm;
    doubledVm.GetEnv = getEnv;
    vm->functions = &doubledVm;
}

void JniDouble::inspect()
{
    void *env = nullptr;
    if (vm != nullptr && originalVm->GetEnv(vm, &env, JNI_VERSION_1_2) == JNI_OK &&
        original.ExceptionCheck(static_cast<JNIEnv *>(env)) != JNI_FALSE) {
        original.ExceptionClear(static_cast<JNIEnv *>(env));
        note("EXCEPTION PENDING");
    }
    if (locals.size() != 1) {
        note("FRAMES OPEN");
    } else if (locals[0] != 0 && !frameFailed) {
        note("LOCAL REFERENCES LEFT");
    }
    if (charsHeld != 0) {
        note("CHARACTERS HELD");
    }
    locals = {0};
    frameFailed = false;
    charsHeld = 0;
}

bool Fault::arrives(const char *callKind, const std::string &callName, const std::string &label)
{
    const std::lock_guard<std::mutex> guard(transcriptMutex);
    if (paused || kind != callKind || (!name.empty() && name != callName && name != label)) {
        return false;
    }
    calls.push_back(label.empty() ? callName : label);
    return nth != 0 && (forGood ? calls.size() >= nth : calls.size() == nth);
}

bool Fault::isPending() const
{
    return calls.size() < nth;
}

int64_t heapBlocks()
{
    QELOsapiHeapUsage usage = {};
    QELOsapiHeap_getUsage(&usage);
    return usage.blocks;
}

void act(const std::string &line)
{
    jmethodID id = original.GetStaticMethodID(theEnv, stage, "act", "(Ljava/lang/String;)V");
    jstring text = original.NewStringUTF(theEnv, line.c_str());
    original.CallStaticVoidMethod(theEnv, stage, id, text);
    // For -Xcheck:jni, which wants to see every call looked after.
    original.ExceptionCheck(theEnv);
    original.DeleteLocalRef(theEnv, text);
}

const DDS_TypeCode *sampleType()
{
    const DDS_StructMember fields[] = {{"id", DDS_TypeCode_get_primitive(DDS_TK_LONG), 0},
                                       {"text", DDS_TypeCode_create_string(0, nullptr), 0}};
    return DDS_TypeCode_create_struct("S", nullptr, DDS_EXTENSIBILITY_FINAL, fields, 2, nullptr);
}

} // namespace bridge

// Stands in front of the middleware's own for every library of the process.
void *QELOsapiHeap_reallocateMemoryInternal(void *block, size_t size, size_t alignment,
                                            const char *role, uint32_t tag,
                                            const char *typeName) noexcept
{
    static const auto next = reinterpret_cast<decltype(&QELOsapiHeap_reallocateMemoryInternal)>(
        dlsym(RTLD_NEXT, "QELOsapiHeap_reallocateMemoryInternal"));
    const char code[] = {static_cast<char>(tag >> 24), static_cast<char>(tag >> 16),
                         static_cast<char>(tag >> 8), static_cast<char>(tag), '\0'};
    {
        const std::lock_guard<std::mutex> guard(bridge::transcriptMutex);
        bridge::allocations.insert(std::string(role) + " " + code);
    }
    return bridge::fault.arrives("heap", typeName)
               ? nullptr
               : next(block, size, alignment, role, tag, typeName);
}
