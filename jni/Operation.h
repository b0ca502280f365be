// The one idiom for failures. Each function that serves a host call says at its top who it is and
// which environment it reports into; every failure then goes to the log and to the environment in
// one call, so that the two can never tell different stories. The `return` stays visible at the
// place of the failure, because null, the record and "go on" all occur.
#ifndef FERRYJNI_OPERATION_H
#define FERRYJNI_OPERATION_H

#include <jni.h>

#include "JNIGlobal.h"
#include "LogStatement.h"
#include "ferryjni/environment.h"

namespace ferryjni {

/// What is pending on this thread is forgotten without a word.
inline void clearPending(JNIEnv *env) noexcept
{
    if (env->ExceptionCheck() != JNI_FALSE) {
        env->ExceptionClear();
    }
}

/// How a step of a creation ended: the next may follow, or the host gets the incomplete record, or
/// nothing.
enum class Step { done, returnRecord, returnNull };

/// A host call in progress. Lives on the stack of the function that it names.
class Operation {
public:
    /// `name` is the log context; `environment` is the host's and is never null.
    Operation(const char *name, QEL_FerrionEnvironment *environment) noexcept
        : name_(name), environment_(environment)
    {
    }
    Operation(const Operation &) = delete;
    Operation &operator=(const Operation &) = delete;

    /// Logs the text and writes it into the environment, where the first text of a call stays.
    void report(const char *text) const noexcept
    {
        logFailure(name_, text);
        QEL_FerrionEnvironment_set_errorI(environment_, "%s", text);
    }

    /// True when a Java exception was pending: it has been printed and cleared, and `text`
    /// reported.
    bool threw(JNIEnv *env, const char *text) const noexcept
    {
        if (env->ExceptionCheck() == JNI_FALSE) {
            return false;
        }
        env->ExceptionDescribe();
        report(text);
        return true;
    }

    /// The calling thread's JNI environment, or null after reporting that there is none. `global`
    /// is null when a link of an incomplete record is missing.
    JNIEnv *javaEnv(const FERRYJNIGlobal *global) const noexcept
    {
        JNIEnv *env = global != nullptr ? FERRYJNIGlobal_getEnv(global) : nullptr;
        if (env == nullptr) {
            report("error getting java environment");
        }
        return env;
    }

    /// Makes `local` a global reference, or reports `text` and returns null.
    jobject globalRef(JNIEnv *env, jobject local, const char *text) const noexcept;

    /// An empty java.util.ArrayList as a global reference; null after reporting why not, with
    /// `globalRefText` for a failed reference.
    jobject newList(JNIEnv *env, const FERRYJNIGlobal *global,
                    const char *globalRefText) const noexcept;

    QEL_FerrionEnvironment *environment() const noexcept
    {
        return environment_;
    }

private:
    const char *name_;
    QEL_FerrionEnvironment *environment_;
};

} // namespace ferryjni

#endif
