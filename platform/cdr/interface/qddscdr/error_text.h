// Filling of the error texts that calls hand back. Allocates nothing.
#ifndef QDDSCDR_ERROR_TEXT_H
#define QDDSCDR_ERROR_TEXT_H

#include "qddsc/error_text.h"

namespace qddscdr {

/// Formats into `error`, cut where it is too long; a null `error` is nobody who wants to know.
void setError(DDS_ErrorText *error, const char *format, ...) __attribute__((format(printf, 2, 3)));

} // namespace qddscdr

#endif
