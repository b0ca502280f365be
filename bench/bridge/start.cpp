// Starting a VM with the bridge, and by hand: one of them a process, because a process has one VM.
#include "start.h"

#include <jni.h>

#include <chrono>
#include <cstdio>

#include "MemberTable.h"
#include "host.h"

namespace bench {
namespace {

/// Every class, member and object that the bridge's table names, and the references to keep them.
void lookUpAll(JNIEnv *env)
{
    using ferryjni::MemberKind;
    jclass current = nullptr;
    jfieldID lastField = nullptr;
    for (const ferryjni::MemberRow &row : ferryjni::memberTable) {
        const void *found = nullptr;
        switch (row.kind) {
        case MemberKind::classRef: {
            jclass local = env->FindClass(row.name);
            current = static_cast<jclass>(env->NewGlobalRef(local));
            env->DeleteLocalRef(local);
            found = current;
            break;
        }
        case MemberKind::method:
            found = env->GetMethodID(current, row.name, row.signature);
            break;
        case MemberKind::staticMethod:
            found = env->GetStaticMethodID(current, row.name, row.signature);
            break;
        case MemberKind::field:
            found = env->GetFieldID(current, row.name, row.signature);
            break;
        case MemberKind::staticField:
            found = lastField = env->GetStaticFieldID(current, row.name, row.signature);
            break;
        case MemberKind::staticObject: {
            jobject local = env->GetStaticObjectField(current, lastField);
            found = env->NewGlobalRef(local);
            env->DeleteLocalRef(local);
            break;
        }
        }
        if (found == nullptr) {
            fail(std::string("no ") + (row.name != nullptr ? row.name : "object"));
        }
    }
}

void startByHand(const std::vector<std::string> &options)
{
    std::vector<std::string> texts = vmOptions(options);
    std::vector<JavaVMOption> list;
    for (std::string &text : texts) {
        list.push_back({text.data(), nullptr});
    }
    JavaVMInitArgs arguments = {};
    arguments.version = JNI_VERSION_1_2;
    arguments.nOptions = static_cast<jint>(list.size());
    arguments.options = list.data();
    JavaVM *vm = nullptr;
    void *env = nullptr;
    if (JNI_CreateJavaVM(&vm, &env, &arguments) != JNI_OK) {
        fail("the VM did not start");
    }
    lookUpAll(static_cast<JNIEnv *>(env));
}

} // namespace

void start(bool byHand, const std::vector<std::string> &options)
{
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    if (byHand) {
        startByHand(options);
    } else {
        startVm(options);
    }
    const std::chrono::duration<double, std::milli> time = Clock::now() - begin;
    printf("{\"name\": \"start\", \"ms\": %.2f}\n", time.count());
}

} // namespace bench
