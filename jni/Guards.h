// Small guards over JNI resources. They live on the stack only, never inside a record, and each
// gives back exactly what it took.
#ifndef FERRYJNI_GUARDS_H
#define FERRYJNI_GUARDS_H

#include <jni.h>

#include <cstdint>

namespace ferryjni {

/// A frame of local references. Host threads stay attached for months and never return to Java, so
/// nothing else would ever release what an operation makes.
///
/// When the frame cannot be had (memory is short) the operation goes on without one: its references
/// then live until the thread detaches, which is better than failing.
class LocalFrame {
public:
    /// References that the VM sets aside; more may be made.
    static constexpr jint capacity = 32;
    /// Elements of a loop that makes up to two references each that fit into one frame.
    static constexpr int32_t elements = 16;

    explicit LocalFrame(JNIEnv *env) noexcept : env_(env)
    {
        open();
    }
    ~LocalFrame()
    {
        close();
    }
    LocalFrame(const LocalFrame &) = delete;
    LocalFrame &operator=(const LocalFrame &) = delete;

    /// Called for each element of a loop: starts a fresh frame when this one is full.
    void element(int32_t index) noexcept
    {
        if (index != 0 && index % elements == 0) {
            close();
            open();
        }
    }

private:
    void open() noexcept
    {
        pushed_ = env_->PushLocalFrame(capacity) == JNI_OK;
        if (!pushed_) {
            env_->ExceptionClear();
        }
    }
    void close() noexcept
    {
        // A failed push must not pop: that would take the caller's frame.
        if (pushed_) {
            env_->PopLocalFrame(nullptr);
        }
    }

    JNIEnv *env_;
    bool pushed_ = false;
};

/// The modified UTF-8 characters of a Java string, given back at the end of the scope.
class UtfChars {
public:
    /// `string` must not be null.
    UtfChars(JNIEnv *env, jstring string) noexcept
        : env_(env), string_(string), chars_(env->GetStringUTFChars(string, nullptr))
    {
    }
    ~UtfChars()
    {
        if (chars_ != nullptr) {
            env_->ReleaseStringUTFChars(string_, chars_);
        }
    }
    UtfChars(const UtfChars &) = delete;
    UtfChars &operator=(const UtfChars &) = delete;

    /// Null when the VM could not provide them.
    const char *get() const noexcept
    {
        return chars_;
    }

private:
    JNIEnv *env_;
    jstring string_;
    const char *chars_;
};

} // namespace ferryjni

#endif
