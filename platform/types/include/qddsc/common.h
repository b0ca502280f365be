/* Return codes, and the error text of calls that explain themselves. */
#ifndef QDDSC_COMMON_H
#define QDDSC_COMMON_H

#include <stdint.h>

#include "qddsc/error_text.h"
#include "qddsc/export.h"

QDDSC_BEGIN

/** Result of an operation; the numbers are those of the DDS standard (OMG DDS 1.4, 2.2.1.1). */
typedef enum DDS_ReturnCode_t {
    DDS_RETCODE_OK = 0,
    DDS_RETCODE_ERROR = 1,
    DDS_RETCODE_UNSUPPORTED = 2,
    DDS_RETCODE_BAD_PARAMETER = 3,
    DDS_RETCODE_PRECONDITION_NOT_MET = 4,
    DDS_RETCODE_OUT_OF_RESOURCES = 5,
    DDS_RETCODE_NO_DATA = 11
} DDS_ReturnCode_t;

QDDSC_END

#endif
