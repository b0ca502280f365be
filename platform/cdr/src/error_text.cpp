// See error_text.h.
#include "qddscdr/error_text.h"

#include <cstdarg>
#include <cstdio>

namespace qddscdr {

void setError(DDS_ErrorText *error, const char *format, ...)
{
    if (error == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
    if (std::vsnprintf(error->text, sizeof error->text, format, arguments) < 0) {
        error->text[0] = '\0';
    }
    va_end(arguments);
}

} // namespace qddscdr
