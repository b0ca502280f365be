// The per-call error environment: how failures of a plug-in reach the host. Runs on the host's
// calling thread; owns nothing.
#include "ferryjni/environment.h"

#include <cstddef>
#include <cstdio>
#include <type_traits>

namespace {

constexpr size_t messageSize = QEL_FERRION_ENVIRONMENT_MESSAGE_SIZE;

// compatibility 3
static_assert(std::is_standard_layout_v<QEL_FerrionEnvironment>);
static_assert(offsetof(QEL_FerrionEnvironment, errorFlag) == 0);
static_assert(offsetof(QEL_FerrionEnvironment, errorCode) == 4);
static_assert(offsetof(QEL_FerrionEnvironment, message) == 8);
static_assert(offsetof(QEL_FerrionEnvironment, hostData) == 1032);
static_assert(offsetof(QEL_FerrionEnvironment, jniGlobal) == 1040);
static_assert(offsetof(QEL_FerrionEnvironment, className) == 1048);
static_assert(sizeof(QEL_FerrionEnvironment) == 1056);

} // namespace

void QEL_FerrionEnvironment_setErrorImpl(QEL_FerrionEnvironment *environment, int32_t overwrite,
                                         int32_t errorFlag, int32_t errorCode, const char *format,
                                         va_list arguments) noexcept
{
    if (overwrite == 0 && environment->errorFlag != 0) {
        return;
    }
    environment->errorFlag = errorFlag;
    environment->errorCode = errorCode;
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers below have started it
    const int written = std::vsnprintf(environment->message, messageSize, format, arguments);
    if (written == static_cast<int>(messageSize)) {
        // compatibility 18
        environment->message[messageSize - 1] = '\0';
    }
}

void QEL_FerrionEnvironment_set_errorI(QEL_FerrionEnvironment *environment, const char *format,
                                       ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    QEL_FerrionEnvironment_setErrorImpl(environment, 0, 1, 0, format, arguments);
    va_end(arguments);
}

void QEL_FerrionEnvironment_set_error_w_paramsI(QEL_FerrionEnvironment *environment,
                                                int32_t overwrite, int32_t errorFlag,
                                                int32_t errorCode, const char *format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    QEL_FerrionEnvironment_setErrorImpl(environment, overwrite, errorFlag, errorCode, format,
                                        arguments);
    va_end(arguments);
}
