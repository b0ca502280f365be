// The doubles, the transcript and the VM of the tests.
#include "harness.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <utility>

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

struct {
    std::string function;
    int left = 0;
    JniDouble::Failure failure = JniDouble::returns;
} fault;

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
    static const void *const test = baseOf(&fault);
    const void *from = baseOf(caller);
    return from == bridge || from == test;
}

const std::set<std::string> lookups = {"FindClass",        "GetMethodID",
                                       "GetFieldID",       "GetStaticMethodID",
                                       "GetStaticFieldID", "GetStaticObjectField"};

/// Counts a call of the bridge; true when it is the one to fail.
bool fails(const std::string &function)
{
    const bool counts =
        fault.function == function || (fault.function == "lookup" && lookups.count(function) != 0);
    if (!counts || --fault.left != 0) {
        return false;
    }
    return jni.hasFailed = true;
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

/// Keeps the books of a call that the bridge made, with its first pointer and its result.
void count(const std::string &function, const void *object, const void *result)
{
    if (lookups.count(function) != 0) {
        jni.found.push_back(result);
    } else if (function == "NewGlobalRef") {
        jni.globals.push_back(result);
        jni.found.back() = result;
        --jni.localsMade;
    } else if (function == "DeleteGlobalRef") {
        const auto found = std::find(jni.globals.begin(), jni.globals.end(), object);
        if (found == jni.globals.end()) {
            note("DELETED A GLOBAL REFERENCE THAT IS NOT THE BRIDGE'S");
            return;
        }
        jni.globals.erase(found);
        jni.deleted.push_back(object);
    } else if (function == "DeleteLocalRef") {
        --jni.localsMade;
    } else if (function == "GetStringUTFChars") {
        ++jni.charsHeld;
    } else if (function == "ReleaseStringUTFChars") {
        --jni.charsHeld;
    } else if (function == "PushLocalFrame") {
        ++jni.frames;
        jni.localsMade = 0;
    } else if (function == "PopLocalFrame") {
        --jni.frames;
        if (std::exchange(jni.localsMade, 0) > localsAllowed) {
            note("TOO MANY LOCAL REFERENCES IN ONE FRAME");
        }
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
    }
    return "";
}

template<auto function> struct Double;
template<class R, class... A, R (JNICALL *JNINativeInterface_::*function)(JNIEnv *, A...)>
struct Double<function> {
    static inline const char *name = nullptr;

    static void install(const char *functionName)
    {
        name = functionName;
        doubled.*function = call;
    }
    static R JNICALL call(JNIEnv *env, A... arguments)
    {
        if (!isOurs(__builtin_return_address(0))) {
            return (original.*function)(env, arguments...);
        }
        look(name, (std::string() + ... + textIn(arguments)));
        if (fails(name)) {
            if (fault.failure == JniDouble::throws) {
                jclass error = original.FindClass(env, "java/lang/OutOfMemoryError");
                original.ThrowNew(env, error, "fault");
            }
            if constexpr (std::is_same_v<R, jint>) {
                return std::string(name) == "PushLocalFrame" ? JNI_ENOMEM : 0;
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
            jni.localsMade += std::is_convertible_v<R, jobject> ? 1 : 0;
            count(name, object, pointerIn(result));
            return result;
        }
    }
};

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
#define DOUBLE(function) Double<&JNINativeInterface_::function>::install(#function)
    DOUBLE(FindClass), DOUBLE(GetMethodID), DOUBLE(GetStaticMethodID), DOUBLE(GetFieldID),
        DOUBLE(GetStaticFieldID), DOUBLE(GetStaticObjectField), DOUBLE(NewStringUTF),
        DOUBLE(GetStringUTFChars), DOUBLE(ReleaseStringUTFChars), DOUBLE(NewObjectV),
        DOUBLE(CallObjectMethodV), DOUBLE(CallBooleanMethodV), DOUBLE(CallIntMethodV),
        DOUBLE(CallLongMethodV), DOUBLE(CallStaticObjectMethodV), DOUBLE(CallObjectMethodA),
        DOUBLE(CallBooleanMethodA), DOUBLE(CallIntMethodA), DOUBLE(CallVoidMethodA),
        DOUBLE(CallStaticVoidMethodA), DOUBLE(NewGlobalRef), DOUBLE(DeleteGlobalRef),
        DOUBLE(DeleteLocalRef), DOUBLE(PushLocalFrame), DOUBLE(PopLocalFrame);
#undef DOUBLE
    doubled.ExceptionDescribe = exceptionDescribe;
    env->functions = &doubled;
}

void JniDouble::fail(const std::string &function, int nth, Failure failure)
{
    fault = {function, nth, failure};
    hasFailed = false;
}

void HeapDouble::fail(const std::string &type, int nth)
{
    failingType = type;
    left = nth;
    hasFailed = false;
}

bool HeapDouble::arrives(const char *role, uint32_t tag, const char *type)
{
    const char code[] = {static_cast<char>(tag >> 24), static_cast<char>(tag >> 16),
                         static_cast<char>(tag >> 8), static_cast<char>(tag), '\0'};
    const std::lock_guard<std::mutex> guard(transcriptMutex);
    allocations.insert(std::string(role) + " " + code);
    if (left == 0 || failingType != type || --left != 0) {
        return false;
    }
    return hasFailed = true;
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
    const DDS_StructMember members[] = {{"id", DDS_TypeCode_get_primitive(DDS_TK_LONG), 0},
                                        {"text", DDS_TypeCode_create_string(0, nullptr), 0}};
    return DDS_TypeCode_create_struct("S", nullptr, DDS_EXTENSIBILITY_FINAL, members, 2, nullptr);
}

} // namespace bridge

// Stands in front of the middleware's own for every library of the process.
void *QELOsapiHeap_reallocateMemoryInternal(void *block, size_t size, size_t alignment,
                                            const char *role, uint32_t tag,
                                            const char *typeName) noexcept
{
    static const auto next = reinterpret_cast<decltype(&QELOsapiHeap_reallocateMemoryInternal)>(
        dlsym(RTLD_NEXT, "QELOsapiHeap_reallocateMemoryInternal"));
    return bridge::heap.arrives(role, tag, typeName)
               ? nullptr
               : next(block, size, alignment, role, tag, typeName);
}
