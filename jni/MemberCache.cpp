// Fills and empties the member cache by one loop each over its tables, on the thread that creates
// or destroys the global record.
#include <iterator>

#include "JNICommon.h"
#include "LogStatement.h"
#include "MemberTable.h"
#include "MemberTableCheck.h"
#include "Operation.h"

namespace ferryjni {
namespace {

constexpr const char *context = "FERRYJNIGlobal_new";

/// The class and field that member and object rows refer to.
struct Cursor {
    jclass currentClass;
    jfieldID currentField;
};

/// Exchanges the local reference for a global one in `*slot`; false when that fails and matters.
template<class Reference>
bool keep(JNIEnv *env, const MemberRow &row, jobject local, Reference *slot) noexcept
{
    jobject global = FERRYJNICommon_newGlobalRefReplacingLocalRef(env, &local);
    *slot = static_cast<Reference>(global);
    if (global == nullptr && row.quirk != Quirk::globalRefUnchecked) {
        logFailure(context, row.noGlobalRef);
        return false;
    }
    return true;
}

void missing(JNIEnv *env, const MemberRow &row) noexcept
{
    if (row.quirk == Quirk::printsException) {
        env->ExceptionDescribe();
    }
    logFailure(context, row.missing);
}

bool resolveClass(FERRYJNIGlobal *global, JNIEnv *env, const MemberRow &row,
                  Cursor *cursor) noexcept
{
    jclass local = env->FindClass(row.name);
    if (local == nullptr) {
        missing(env, row);
        return false;
    }
    if (!keep(env, row, local, &(global->*row.classSlot))) {
        return false;
    }
    // Where a failed global reference goes unnoticed the local one is still there.
    jclass kept = global->*row.classSlot;
    cursor->currentClass = kept != nullptr ? kept : local;
    return true;
}

bool resolveRow(FERRYJNIGlobal *global, JNIEnv *env, const MemberRow &row, Cursor *cursor) noexcept
{
    bool found = false;
    switch (row.kind) {
    case MemberKind::classRef:
        return resolveClass(global, env, row, cursor);
    case MemberKind::staticObject: {
        jobject local = env->GetStaticObjectField(cursor->currentClass, cursor->currentField);
        if (local != nullptr) {
            return keep(env, row, local, &(global->*row.objectSlot));
        }
        break;
    }
    case MemberKind::method:
        global->*row.methodSlot = env->GetMethodID(cursor->currentClass, row.name, row.signature);
        found = global->*row.methodSlot != nullptr;
        break;
    case MemberKind::staticMethod:
        global->*row.methodSlot =
            env->GetStaticMethodID(cursor->currentClass, row.name, row.signature);
        found = global->*row.methodSlot != nullptr;
        break;
    case MemberKind::field:
        global->*row.fieldSlot = env->GetFieldID(cursor->currentClass, row.name, row.signature);
        found = global->*row.fieldSlot != nullptr;
        break;
    case MemberKind::staticField:
        cursor->currentField = env->GetStaticFieldID(cursor->currentClass, row.name, row.signature);
        global->*row.fieldSlot = cursor->currentField;
        found = cursor->currentField != nullptr;
        break;
    }
    if (!found) {
        missing(env, row);
    }
    return found;
}

template<class Reference> void releaseSlot(JNIEnv *env, Reference *slot) noexcept
{
    jobject reference = *slot;
    FERRYJNICommon_deleteGlobalRef(env, &reference);
    *slot = nullptr;
}

} // namespace

bool resolveMembers(FERRYJNIGlobal *global, JNIEnv *env) noexcept
{
    Cursor cursor = {nullptr, nullptr};
    for (const MemberRow &row : memberTable) {
        if (!resolveRow(global, env, row, &cursor)) {
            // Most rows do not print what the VM threw; it must not stay pending on the host's
            // thread, and the VM may be about to be destroyed.
            clearPending(env);
            return false;
        }
    }
    return true;
}

void releaseMembers(FERRYJNIGlobal *global, JNIEnv *env) noexcept
{
    for (const ReferenceSlot &slot : releaseTable) {
        if (slot.classSlot != nullptr) {
            releaseSlot(env, &(global->*slot.classSlot));
        } else {
            releaseSlot(env, &(global->*slot.objectSlot));
        }
    }
}

} // namespace ferryjni
