/* See engine_entities.h. */
#include "engine_entities.h"

#include <string.h>

#include "dds/dds.h"
#include "dds/ddsi/ddsi_domaingv.h"
#include "dds/ddsi/ddsi_entity.h"
#include "dds/ddsi/ddsi_entity_index.h"
#include "dds/ddsi/ddsi_sertype.h"
#include "dds/ddsi/q_bswap.h"
#include "dds/ddsi/q_hbcontrol.h"
#include "dds/ddsi/q_thread.h"
#include "dds/ddsi/q_whc.h"

#include "dds/ddsi/ddsi_endpoint.h"

static int guid_of(dds_entity_t entity, ddsi_guid_t *guid)
{
    dds_guid_t bytes;
    if (dds_get_guid(entity, &bytes) != 0) {
        return 0;
    }
    memcpy(guid, bytes.v, sizeof *guid);
    *guid = nn_ntoh_guid(*guid);
    return 1;
}

/* The iteration lends one sample at a time, which the writer's lock keeps from others. */
static uint64_t count_in(struct ddsi_writer *writer)
{
    struct whc_sample_iter iterator;
    struct whc_borrowed_sample sample;
    uint64_t count = 0;
    ddsrt_mutex_lock(&writer->e.lock);
    whc_sample_iter_init(writer->whc, &iterator);
    while (whc_sample_iter_borrow_next(&iterator, &sample)) {
        count += sample.unacked ? 1 : 0;
    }
    ddsrt_mutex_unlock(&writer->e.lock);
    return count;
}

uint64_t qddsdomain_count_unacknowledged(int32_t writer, const struct ddsi_sertype *type)
{
    const struct ddsi_domaingv *domain = ddsrt_atomic_ldvoidp(&type->gv);
    struct thread_state *self = lookup_thread_state();
    uint64_t count = 0;
    ddsi_guid_t guid;
    if (!guid_of(writer, &guid)) {
        return 0;
    }
    /* While this thread is awake the engine frees no entity that it has looked up. */
    thread_state_awake(self, domain);
    struct ddsi_writer *found = entidx_lookup_writer_guid(domain->entity_index, &guid);
    if (found != NULL) {
        count = count_in(found);
    }
    thread_state_asleep(self);
    return count;
}
