// Files of the file adapter, CSV and JSON lines, through its scanner, decoders and encoders (see
// RowsTarget). The fuzzer cannot see into Java: what it is shown instead is which outcomes rows
// had.
#include "../bridge/harness.h"
#include "target.h"

namespace {

JNIEnv *env = nullptr;
jclass rows = nullptr;
jmethodID run = nullptr;

// Where libFuzzer looks for counters beside those of instrumented code.
__attribute__((section("__libfuzzer_extra_counters"))) uint8_t outcomes[1 << 12];

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    const bridge::StringList classPath = {BRIDGE_BINDING_JAR, FILE_JAR, FUZZ_JAR};
    bridge::StringList options = {"-ea", "-Xmx256m"};
    bridge::addVmOptions(&options);
    env = FERRYJNIGlobal_getEnv(FERRYJNIGlobal_new(&classPath, &options, 0x1, 1));
    rows = env->FindClass("com/qel/ferrion/adapters/file/RowsTarget");
    REQUIRE(rows != nullptr);
    run = env->GetStaticMethodID(rows, "run", "([B)[I");
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    REQUIRE(env->PushLocalFrame(8) == JNI_OK);
    jbyteArray input = env->NewByteArray(static_cast<jsize>(size));
    env->SetByteArrayRegion(input, 0, static_cast<jsize>(size),
                            reinterpret_cast<const jbyte *>(data));
    auto *kinds = static_cast<jintArray>(env->CallStaticObjectMethod(rows, run, input));
    if (env->ExceptionCheck() == JNI_TRUE) {
        env->ExceptionDescribe();
    }
    REQUIRE(kinds != nullptr);
    for (jsize i = 0; i < env->GetArrayLength(kinds); ++i) {
        jint kind = 0;
        env->GetIntArrayRegion(kinds, i, 1, &kind);
        outcomes[static_cast<uint32_t>(kind) % sizeof outcomes] = 1;
    }
    env->PopLocalFrame(nullptr);
    return 0;
}
