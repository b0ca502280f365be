// What the data path of data readers and of discovery readers have in common: two Java lists that
// Java fills and that are emptied when the loan comes back.
#ifndef FERRYJNI_READERLISTS_H
#define FERRYJNI_READERLISTS_H

#include "JNIStreamReader.h"
#include "Operation.h"

namespace ferryjni {

/// The one text of everything that goes wrong on the data path.
inline constexpr const char *exceptionText = "exception";

/// Calls read(samples, infos) on the Java reader; false when it threw (reported).
bool readLists(const Operation &operation, FERRYJNIStreamReader *reader,
               const FERRYJNIGlobal *global, JNIEnv *env) noexcept;

/// The list's size in `*size`; false, and 0, when Java threw (reported).
bool listSize(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env, jobject list,
              int32_t *size) noexcept;

/// Element `index`, or null; an exception is reported and gives null.
jobject listElement(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env,
                    jobject list, int32_t index) noexcept;

/// Copies element `index` of the info list into the pool and lends it, or lends null.
void lendInfo(const Operation &operation, FERRYJNIStreamReader *reader,
              const FERRYJNIGlobal *global, JNIEnv *env, int32_t index) noexcept;

/// Calls returnLoan(samples, infos) on the Java reader and empties both lists, whatever Java
/// throws.
void returnLists(const Operation &operation, FERRYJNIStreamReader *reader,
                 const FERRYJNIGlobal *global, JNIEnv *env) noexcept;

} // namespace ferryjni

#endif
