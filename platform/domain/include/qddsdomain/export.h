/* Visibility and linkage of the domain library's symbols. */
#ifndef QDDSDOMAIN_EXPORT_H
#define QDDSDOMAIN_EXPORT_H

#include "qddsc/export.h"

#define QDDSDOMAIN_API QDDSC_API
#define QDDSDOMAIN_NOEXCEPT QDDSC_NOEXCEPT
#define QDDSDOMAIN_BEGIN QDDSC_BEGIN
#define QDDSDOMAIN_END QDDSC_END

#endif
