/* Visibility and linkage of the bridge's exported symbols. */
#ifndef FERRYJNI_EXPORT_H
#define FERRYJNI_EXPORT_H

#define FERRYJNI_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define FERRYJNI_NOEXCEPT noexcept
#define FERRYJNI_BEGIN extern "C" {
#define FERRYJNI_END }
#else
#define FERRYJNI_NOEXCEPT
#define FERRYJNI_BEGIN
#define FERRYJNI_END
#endif

#endif
