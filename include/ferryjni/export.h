/* Visibility and linkage of the bridge's exported symbols. */
#ifndef FERRYJNI_EXPORT_H
#define FERRYJNI_EXPORT_H

/* The library for native plug-ins defines it as nothing: its functions stay inside each plug-in. */
#ifndef FERRYJNI_API
#define FERRYJNI_API __attribute__((visibility("default")))
#endif

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
