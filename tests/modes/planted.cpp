// One fault for each tool that a mode of the tests relies on: a tool that stays silent here would
// stay silent everywhere. And which Java VM the mode runs on. The functions' names are what the
// report has to show.
#include <jni.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

volatile int sink = 0;

void plantedOverflow()
{
    char *volatile block = static_cast<char *>(std::malloc(8));
    volatile std::size_t past = 8;
    sink = block[past];
    std::free(block);
}

void plantedSigned()
{
    volatile int most = INT_MAX;
    sink = most + 1;
}

void plantedUninitialised()
{
    char *volatile block = static_cast<char *>(std::malloc(8));
    if (block[sink] == 'x') {
        std::puts("x");
    }
    std::free(block);
}

void plantedRace()
{
    int counter = 0;
    std::thread other([&counter] { ++counter; });
    ++counter;
    other.join();
    sink = counter;
}

JNIEnv *vm()
{
    JavaVM *machine = nullptr;
    void *env = nullptr;
    JavaVMInitArgs arguments = {JNI_VERSION_1_2, 0, nullptr, JNI_FALSE};
    if (JNI_CreateJavaVM(&machine, &env, &arguments) != JNI_OK) {
        std::exit(3);
    }
    return static_cast<JNIEnv *>(env);
}

jlong JNICALL plantedLeak(JNIEnv *, jobject)
{
    std::memset(std::malloc(40), 1, 40);
    return 0;
}

/// Below a Java method, where a leak is the easiest to mistake for one of the VM's own.
void leak()
{
    JNIEnv *env = vm();
    jclass runtime = env->FindClass("java/lang/Runtime");
    char name[] = "totalMemory";
    char signature[] = "()J";
    const JNINativeMethod method = {name, signature, reinterpret_cast<void *>(plantedLeak)};
    env->RegisterNatives(runtime, &method, 1);
    jobject instance = env->CallStaticObjectMethod(
        runtime, env->GetStaticMethodID(runtime, "getRuntime", "()Ljava/lang/Runtime;"));
    env->CallLongMethod(instance, env->GetMethodID(runtime, name, signature));
}

void plantedMisuse()
{
    JNIEnv *env = vm();
    env->ThrowNew(env->FindClass("java/lang/Error"), "planted");
    env->FindClass("java/lang/Error");
    env->ExceptionClear();
}

void version()
{
    JNIEnv *env = vm();
    jclass system = env->FindClass("java/lang/System");
    jmethodID get =
        env->GetStaticMethodID(system, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
    const auto value = static_cast<jstring>(
        env->CallStaticObjectMethod(system, get, env->NewStringUTF("java.home")));
    std::puts(env->GetStringUTFChars(value, nullptr));
}

constexpr struct {
    const char *name;
    void (*plant)();
} faults[] = {{"plantedOverflow", plantedOverflow},
              {"plantedSigned", plantedSigned},
              {"plantedUninitialised", plantedUninitialised},
              {"plantedRace", plantedRace},
              {"plantedLeak", leak},
              {"plantedMisuse", plantedMisuse},
              {"version", version}};

} // namespace

int main(int, char **argv)
{
    for (const auto &fault : faults) {
        if (fault.name == std::string(argv[1])) {
            fault.plant();
        }
    }
    return 0;
}
