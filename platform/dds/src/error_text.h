// Filling of the error texts that calls hand back. Allocates nothing.
#ifndef QDDSC_SRC_ERROR_TEXT_H
#define QDDSC_SRC_ERROR_TEXT_H

#include "qddsc/common.h"

namespace qddsc {

// Formats into `error`, cut where it is too long; a null `error` is nobody who wants to know.
void setError(DDS_ErrorText *error, const char *format, ...) __attribute__((format(printf, 2, 3)));

} // namespace qddsc

#endif
