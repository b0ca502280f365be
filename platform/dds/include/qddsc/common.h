/* Return codes and the error text shared by the calls that can explain themselves. */
#ifndef QDDSC_COMMON_H
#define QDDSC_COMMON_H

#include <stdint.h>

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

/** What went wrong and where, for people. Filled on failure only; truncated, never unterminated. */
struct DDS_ErrorText {
    char text[1024];
};

QDDSC_END

#endif
