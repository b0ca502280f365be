// Starting, adopting and destroying the Java VM. Runs on the host's thread, before and after all
// adapters; no environment exists yet, so failures are only logged.
#include "JNIGlobal.h"

#include "Heap.h"
#include "JNICommon.h"
#include "LogStatement.h"

using ferryjni::logFailure;
using ferryjni::logText;

namespace {

constexpr const char *newContext = "FERRYJNIGlobal_new";

/// Start-up arguments for as long as the VM is being made. The option strings belong to the host's
/// sequence and, the first, to this.
class VmArguments {
public:
    VmArguments() = default;
    ~VmArguments()
    {
        // The VM has copied what it needs by now, so nothing has to outlive its start.
        ferryjni::freeArray(options_);
        DDS_String_free(classPathOption_);
    }
    VmArguments(const VmArguments &) = delete;
    VmArguments &operator=(const VmArguments &) = delete;

    /// False when the option array cannot be had.
    bool fill(const DDS_StringSeq *classPath, const DDS_StringSeq *vmOptions) noexcept
    {
        classPathOption_ = FERRYJNICommon_generateClassPathProperty(classPath);
        const int32_t given = DDS_StringSeq_get_length(vmOptions);
        const int32_t total = given + (classPathOption_ != nullptr ? 1 : 0);
        options_ = ferryjni::newArray<JavaVMOption>(total, "JavaVMOption");
        if (options_ == nullptr) {
            return false;
        }
        int32_t at = 0;
        if (classPathOption_ != nullptr) {
            options_[at++].optionString = classPathOption_;
        }
        for (int32_t i = 0; i < given; ++i) {
            options_[at++].optionString = *DDS_StringSeq_get_reference(vmOptions, i);
        }
        arguments_.version = JNI_VERSION_1_2;
        arguments_.options = options_;
        arguments_.nOptions = total;
        arguments_.ignoreUnrecognized = JNI_FALSE;
        return true;
    }

    void list() const noexcept
    {
        if (arguments_.nOptions == 0) {
            return;
        }
        if (ferryjni::logs(FERRYLOG_BIT_DEBUG)) {
            QELLog_debug("JavaVM options:\n");
        }
        for (jint i = 0; i < arguments_.nOptions; ++i) {
            if (ferryjni::logs(FERRYLOG_BIT_DEBUG)) {
                QELLog_debug("   %s\n", options_[i].optionString);
            }
        }
    }

    JavaVMInitArgs *get() noexcept
    {
        return &arguments_;
    }

private:
    char *classPathOption_ = nullptr;
    JavaVMOption *options_ = nullptr;
    JavaVMInitArgs arguments_ = {};
};

/// The VM that the process already has, or null.
JavaVM *existingVm() noexcept
{
    JavaVM *vm = nullptr;
    jsize count = 0;
    if (JNI_GetCreatedJavaVMs(&vm, 1, &count) != JNI_OK || count < 1) {
        return nullptr;
    }
    return vm;
}

JNIEnv *adoptVm(FERRYJNIGlobal *global, JavaVM *vm, int32_t destroyPolicy) noexcept
{
    logText(FERRYLOG_BIT_WARNING, newContext, QEL_LOG_ANY_s,
            "A Java VM was already created in this process - it will be reused");
    global->javaVM = vm;
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    if (env == nullptr) {
        logFailure(newContext, "error getting environment");
        return nullptr;
    }
    global->destroyJavaVM = destroyPolicy == FERRYJNI_DESTROY_ALWAYS ? 1 : 0;
    return env;
}

JNIEnv *createVm(FERRYJNIGlobal *global, const DDS_StringSeq *classPath,
                 const DDS_StringSeq *vmOptions, int32_t destroyPolicy) noexcept
{
    VmArguments arguments;
    if (!arguments.fill(classPath, vmOptions)) {
        logFailure(newContext, "error creating jvm option array");
        return nullptr;
    }
    logText(FERRYLOG_BIT_DEBUG, newContext, QEL_LOG_ANY_s, "Creating JavaVM");
    arguments.list();
    void *env = nullptr;
    const jint code = JNI_CreateJavaVM(&global->javaVM, &env, arguments.get());
    if (code < 0 || env == nullptr) {
        if (ferryjni::logs(FERRYLOG_BIT_ERROR)) {
            QELLog_debug("%s: Error creating JavaVM (%d)\n", newContext, static_cast<int>(code));
        }
        return nullptr;
    }
    global->destroyJavaVM = destroyPolicy == FERRYJNI_DESTROY_NEVER ? 0 : 1;
    return static_cast<JNIEnv *>(env);
}

} // namespace

FERRYJNIGlobal *FERRYJNIGlobal_new(const DDS_StringSeq *classPath, const DDS_StringSeq *vmOptions,
                                   uint32_t instrumentationMask, int32_t destroyPolicy) noexcept
{
    FERRYLog_setBitmaps(0xfffff, instrumentationMask);
    auto *global = ferryjni::newStructure<FERRYJNIGlobal>("struct FERRYJNIGlobal");
    if (global == nullptr) {
        logFailure(newContext, "error creating global");
        return nullptr;
    }
    JavaVM *vm = existingVm();
    JNIEnv *env = vm != nullptr ? adoptVm(global, vm, destroyPolicy)
                                : createVm(global, classPath, vmOptions, destroyPolicy);
    if (env == nullptr || !ferryjni::resolveMembers(global, env)) {
        // Ends the VM if the policy says so, an adopted one under "always" too. compatibility 5:
        // without a VM the record stays behind
        FERRYJNIGlobal_destroy(global);
        return nullptr;
    }
    return global;
}

void FERRYJNIGlobal_destroy(FERRYJNIGlobal *global) noexcept
{
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    if (env == nullptr) {
        return;
    }
    ferryjni::releaseMembers(global, env);
    if (global->destroyJavaVM != 0) {
        logText(FERRYLOG_BIT_DEBUG, "FERRYJNIGlobal_destroy", QEL_LOG_ANY_s, "Destroying Java VM");
        global->javaVM->DestroyJavaVM();
        logText(FERRYLOG_BIT_DEBUG, "FERRYJNIGlobal_destroy", QEL_LOG_ANY_s, "Java VM destroyed");
    }
    ferryjni::freeStructure(global);
}
