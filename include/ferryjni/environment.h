/* The per-call error environment: how a plug-in reports to its host that a call failed. */
#ifndef FERRYJNI_ENVIRONMENT_H
#define FERRYJNI_ENVIRONMENT_H

#include <stdarg.h>
#include <stdint.h>

#include "ferryjni/export.h"

FERRYJNI_BEGIN

struct FERRYJNIGlobal;

/** Bytes of an environment's message, its NUL included. */
#define QEL_FERRION_ENVIRONMENT_MESSAGE_SIZE 1024

/**
 * One call's errors. The host owns it, clears it (all zero) before a call and looks at it after:
 * a set flag means that the call failed, whatever the call returned. Used by one thread at a time.
 */
typedef struct QEL_FerrionEnvironment {
    /** Nonzero when an error is held. */
    int32_t errorFlag;
    /** Detail code of the reporter; 0 for errors of this library. */
    int32_t errorCode;
    /** The error's text, NUL-terminated; longer texts are cut. */
    char message[QEL_FERRION_ENVIRONMENT_MESSAGE_SIZE];
    /** The host's own; neither read nor written here. */
    void *hostData;
    /** Read by FERRYJNIAdapter_create only: the process's Java VM. Not owned. */
    struct FERRYJNIGlobal *jniGlobal;
    /** Read by FERRYJNIAdapter_create only: the Java adapter class, slash-separated
     * ("org/example/MyAdapter"). Not owned. */
    const char *className;
} QEL_FerrionEnvironment;

/**
 * Records an error; the worker behind the two functions below.
 *
 * @param environment not null.
 * @param overwrite   0 keeps an error that is already held and drops this one.
 * @param errorFlag   stored as it is; 0 leaves an environment that still counts as clear.
 * @param errorCode   stored as it is.
 * @param format      printf format of the message, whose arguments are `arguments`.
 */
FERRYJNI_API void QEL_FerrionEnvironment_setErrorImpl(QEL_FerrionEnvironment *environment,
                                                      int32_t overwrite, int32_t errorFlag,
                                                      int32_t errorCode, const char *format,
                                                      va_list arguments) FERRYJNI_NOEXCEPT
    __attribute__((format(printf, 5, 0)));

/** Records an error with flag 1 and code 0, unless one is already held: the first error of a call
 * is the one that the host sees. */
FERRYJNI_API void QEL_FerrionEnvironment_set_errorI(QEL_FerrionEnvironment *environment,
                                                    const char *format, ...) FERRYJNI_NOEXCEPT
    __attribute__((format(printf, 2, 3)));

/** Records an error with the given flag and code; a nonzero `overwrite` replaces an earlier one. */
FERRYJNI_API void QEL_FerrionEnvironment_set_error_w_paramsI(QEL_FerrionEnvironment *environment,
                                                             int32_t overwrite, int32_t errorFlag,
                                                             int32_t errorCode, const char *format,
                                                             ...) FERRYJNI_NOEXCEPT
    __attribute__((format(printf, 5, 6)));

FERRYJNI_END

#endif
