#include "process/java_output.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <unistd.h>
#include <utility>

#include "engine/log.h"

namespace ferry::javaoutput {
namespace {

std::shared_mutex g_mutex;
Console *g_console = nullptr;

void logText(const std::string &text)
{
    const std::shared_lock<std::shared_mutex> lock(g_mutex);
    if (g_console != nullptr) {
        g_console->logText(text);
    } else {
        static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
    }
}

void logLine(std::uint32_t level, const std::string &text)
{
    const std::shared_lock<std::shared_mutex> lock(g_mutex);
    if (g_console != nullptr) {
        g_console->log(level, text);
    }
}

/// Text as it comes, of one thread, put into the log by whole lines.
class Lines {
public:
    Lines() = default;
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;
    ~Lines()
    {
        flush();
    }

    void add(const std::string &text)
    {
        rest_ += text;
        const std::size_t end = rest_.rfind('\n');
        if (end != std::string::npos) {
            logText(rest_.substr(0, end + 1));
            rest_.erase(0, end + 1);
        } else if (rest_.size() > longest) {
            flush();
        }
    }
    /// What has come of a line that is not complete.
    std::string take()
    {
        return std::exchange(rest_, "");
    }
    void flush()
    {
        if (!rest_.empty()) {
            logText(take() + "\n");
        }
    }

private:
    static constexpr std::size_t longest = 1U << 20;
    std::string rest_;
};

thread_local Lines t_printed;
thread_local FailureDetails t_failure;
/// The VM is describing an exception that a call of ours has thrown: it has written the line's
/// beginning, "Exception in thread ...", and has the exception print itself next.
thread_local bool t_describing = false;

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) {
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

/// In place of vfprintf in the VM. It may hold the VM's own locks: nothing here calls Java.
[[gnu::format(printf, 2, 0)]] jint JNICALL onVmOutput(FILE *file, const char *format,
                                                      va_list arguments)
{
    if (file != stderr) { // results, and the VM's own log files
        return std::vfprintf(file, format, arguments);
    }
    const std::string text = formatted(format, arguments);
    if (text == "Exception ") {
        t_describing = true;
    } else if (!t_describing || text.rfind("in thread \"", 0) != 0) {
        t_printed.add(text);
    }
    return static_cast<jint>(text.size());
}

std::string bytesOf(JNIEnv *env, jbyteArray bytes, jint from, jint count)
{
    std::string text(static_cast<std::size_t>(count), '\0');
    env->GetByteArrayRegion(bytes, from, count, reinterpret_cast<jbyte *>(text.data()));
    return text;
}

std::string bytesOf(JNIEnv *env, jbyteArray bytes)
{
    return bytes == nullptr ? "" : bytesOf(env, bytes, 0, env->GetArrayLength(bytes));
}

void JNICALL print(JNIEnv *env, jclass, jbyteArray bytes, jint from, jint count)
{
    t_printed.add(bytesOf(env, bytes, from, count));
}

void JNICALL flush(JNIEnv *, jclass)
{
    t_printed.flush();
}

void JNICALL line(JNIEnv *env, jclass, jint level, jbyteArray bytes)
{
    logLine(static_cast<std::uint32_t>(level), bytesOf(env, bytes));
}

/// Raw bytes, reason and position of each record in turn, into the details of the failed call.
void takeRecords(JNIEnv *env, jobjectArray records)
{
    const jsize count = records == nullptr ? 0 : env->GetArrayLength(records);
    for (jsize i = 0; i + 2 < count; i += 3) {
        std::string fields[3];
        for (jsize j = 0; j < 3; ++j) {
            auto *const field = static_cast<jbyteArray>(env->GetObjectArrayElement(records, i + j));
            fields[j] = bytesOf(env, field);
            env->DeleteLocalRef(field);
        }
        t_failure.records.push_back(
            {std::move(fields[0]), std::move(fields[1]), std::move(fields[2])});
    }
}

void JNICALL failed(JNIEnv *env, jclass, jbyteArray sentence, jbyteArray cause, jlong rejected,
                    jint taken, jobjectArray records, jbyteArray trace)
{
    const std::string begun = t_printed.take();
    const bool described = std::exchange(t_describing, false);
    const std::string text = sentence == nullptr
                                 ? "the Java heap is full (java.lang.OutOfMemoryError)"
                                 : bytesOf(env, sentence);
    if (described && t_failure.text.empty()) {
        t_failure.text = text;
        t_failure.cause = bytesOf(env, cause);
    }
    if (described) {
        t_failure.rejected += static_cast<std::uint64_t>(rejected);
        t_failure.taken = taken;
        takeRecords(env, records);
    }
    if (trace != nullptr) {
        logText(begun + bytesOf(env, trace));
    } else if (!described) {
        logLine(FERRYLOG_BIT_ERROR, begun + text);
    }
}

JNINativeMethod native(const char *name, const char *signature, void *function)
{
    return {const_cast<char *>(name), const_cast<char *>(signature), function};
}

} // namespace

void setConsole(Console *console)
{
    const std::unique_lock<std::shared_mutex> lock(g_mutex);
    g_console = console;
}

JavaVMOption vmOption()
{
    static char name[] = "vfprintf";
    return {name, reinterpret_cast<void *>(onVmOutput)};
}

bool install(JNIEnv *env)
{
    const JNINativeMethod methods[] = {
        native("print", "([BII)V", reinterpret_cast<void *>(print)),
        native("flush", "()V", reinterpret_cast<void *>(flush)),
        native("line", "(I[B)V", reinterpret_cast<void *>(line)),
        native("failed", "([B[BJI[[B[B)V", reinterpret_cast<void *>(failed)),
    };
    jclass const log = env->FindClass("com/qel/ferrion/relay/HostLog");
    jmethodID const start = log == nullptr ? nullptr : env->GetStaticMethodID(log, "start", "()V");
    const bool bound =
        start != nullptr && env->RegisterNatives(log, methods, std::size(methods)) == JNI_OK;
    if (bound) {
        env->CallStaticVoidMethod(log, start);
    }
    const bool failed = env->ExceptionCheck() != JNI_FALSE;
    if (failed) {
        env->ExceptionDescribe();
        takeFailure();
    }
    env->DeleteLocalRef(log);
    return bound && !failed;
}

FailureDetails takeFailure()
{
    // Of one that prints itself in its own way nothing is known.
    t_describing = false;
    return std::exchange(t_failure, {});
}

} // namespace ferry::javaoutput
