/* What the engine knows of a reader or writer and its public interface does not tell. In C, as the
 * engine's headers of these records are no C++; see the check of its version in
 * sertype_internal.h. */
#ifndef QDDSDOMAIN_SRC_ENGINE_ENTITIES_H
#define QDDSDOMAIN_SRC_ENGINE_ENTITIES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ddsi_sertype;

/* Samples that a writer still keeps because a matched reliable reader has not acknowledged them.
 * `writer` is the engine's handle, `type` that of its topic. Any thread; takes the writer's lock in
 * the engine. */
uint64_t qddsdomain_count_unacknowledged(int32_t writer, const struct ddsi_sertype *type);

#ifdef __cplusplus
}
#endif

#endif
