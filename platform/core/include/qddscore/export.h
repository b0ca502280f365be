/* Visibility of the core library's symbols. Every library of this tree is built with hidden
 * visibility; what these macros mark is all that a caller can link against. */
#ifndef QDDSCORE_EXPORT_H
#define QDDSCORE_EXPORT_H

#define QDDSCORE_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define QDDSCORE_NOEXCEPT noexcept
#define QDDSCORE_BEGIN extern "C" {
#define QDDSCORE_END }
#else
#define QDDSCORE_NOEXCEPT
#define QDDSCORE_BEGIN
#define QDDSCORE_END
#endif

#endif
