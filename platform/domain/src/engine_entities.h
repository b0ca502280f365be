/* What the engine knows of a reader or writer and does not show in its public interface. In C, as
 * the engine's headers of these records are no C++; see the check of its version in
 * sertype_internal.h. */
#ifndef QDDSDOMAIN_SRC_ENGINE_ENTITIES_H
#define QDDSDOMAIN_SRC_ENGINE_ENTITIES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ddsi_sertype;

/* Samples that a writer still keeps because a matched reliable reader has not acknowledged them.
 * `writer` is the engine's handle, `type` that of its topic. Any thread; takes the writer's lock in
 * the engine. */
uint64_t qddsdomain_count_unacknowledged(int32_t writer, const struct ddsi_sertype *type);

/* Has a writer ask its readers at once what they have received. By itself the engine asks a moment
 * after a write, up to 100 ms. Any thread; takes the writer's lock
 * in the engine. */
void qddsdomain_ask_for_acknowledgments(int32_t writer, const struct ddsi_sertype *type);

/* Identity of a writer of another process, as the engine keeps it. */
struct QDomainWriterId {
    uint32_t words[4];
};

/* Writers of other processes that a reader is matched with: fills at most `room` records and
 * returns how many writers there are. Takes the reader's lock in the engine. */
size_t qddsdomain_remote_writers(int32_t reader, const struct ddsi_sertype *type,
                                 struct QDomainWriterId *ids, size_t room);

/* With `held` 1 whatever comes from that writer is passed over, as if its packets were lost, and
 * nothing is acknowledged: so the writer sends it again once `held` is 0, and has to wait until
 * then. That goes for all readers of the domain in this process. Returns whether that is new. Takes
 * the writer's lock in the engine, which a thread that delivers its samples holds. */
int qddsdomain_hold(const struct ddsi_sertype *type, const struct QDomainWriterId *id, int held);

#ifdef __cplusplus
}
#endif

#endif
