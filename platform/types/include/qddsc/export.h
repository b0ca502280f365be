/* Visibility and linkage of the DDS library's symbols. */
#ifndef QDDSC_EXPORT_H
#define QDDSC_EXPORT_H

#include "qddscore/export.h"

#define QDDSC_API QDDSCORE_API
#define QDDSC_NOEXCEPT QDDSCORE_NOEXCEPT
#define QDDSC_BEGIN QDDSCORE_BEGIN
#define QDDSC_END QDDSCORE_END

#endif
