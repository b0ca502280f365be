/* See engine_entities.h. */
#include "engine_entities.h"

#include <pthread.h>
#include <string.h>

#include "packets.h"

#include "dds/dds.h"
#include "dds/ddsi/ddsi_domaingv.h"
#include "dds/ddsi/ddsi_entity.h"
#include "dds/ddsi/ddsi_entity_index.h"
#include "dds/ddsi/ddsi_sertype.h"
#include "dds/ddsi/q_bswap.h"
#include "dds/ddsi/q_hbcontrol.h"
#include "dds/ddsi/q_thread.h"
#include "dds/ddsi/q_whc.h"
#include "dds/ddsi/q_xevent.h"
/* These do not include what they need of the headers above. */
#include "dds/ddsi/ddsi_endpoint.h"
#include "dds/ddsi/ddsi_entity_match.h"
#include "dds/ddsi/ddsi_proxy_endpoint.h"

/* All zeros, which is nobody's, for a handle that is none. */
static ddsi_guid_t guid_of(dds_entity_t entity)
{
    dds_guid_t bytes = {{0}};
    ddsi_guid_t guid;
    (void)dds_get_guid(entity, &bytes);
    memcpy(&guid, bytes.v, sizeof guid);
    return nn_ntoh_guid(guid);
}

static struct ddsi_domaingv *domain_of(const struct ddsi_sertype *type)
{
    return ddsrt_atomic_ldvoidp(&type->gv);
}

/* What `use` makes of a writer with its lock held; 0 when it is not there. */
static uint64_t with_writer(dds_entity_t writer, const struct ddsi_sertype *type,
                            uint64_t (*use)(struct ddsi_writer *))
{
    const struct ddsi_domaingv *domain = domain_of(type);
    struct thread_state *self = lookup_thread_state();
    const ddsi_guid_t guid = guid_of(writer);
    uint64_t result = 0;
    /* While this thread is awake the engine frees no entity that it has looked up. */
    thread_state_awake(self, domain);
    struct ddsi_writer *found = entidx_lookup_writer_guid(domain->entity_index, &guid);
    if (found != NULL) {
        ddsrt_mutex_lock(&found->e.lock);
        result = use(found);
        ddsrt_mutex_unlock(&found->e.lock);
    }
    thread_state_asleep(self);
    return result;
}

/* The iteration lends one sample at a time, which the writer's lock keeps from others. */
static uint64_t count_in(struct ddsi_writer *writer)
{
    struct whc_sample_iter iterator;
    struct whc_borrowed_sample sample;
    uint64_t count = 0;
    whc_sample_iter_init(writer->whc, &iterator);
    while (whc_sample_iter_borrow_next(&iterator, &sample)) {
        count += sample.unacked ? 1 : 0;
    }
    return count;
}

uint64_t qddsdomain_count_unacknowledged(int32_t writer, const struct ddsi_sertype *type)
{
    return with_writer(writer, type, count_in);
}

/* The engine sends a heartbeat when the last one is long enough ago. It wants an answer to it only
   when the last write is long enough ago: without that, every wait takes a tenth of a second. */
static uint64_t ask_now(struct ddsi_writer *writer)
{
    if (writer->heartbeat_xevent != NULL) {
        writer->hbcontrol.t_of_last_hb.v = 0;
        writer->hbcontrol.t_of_last_write.v = 0;
        (void)resched_xevent_if_earlier(writer->heartbeat_xevent, ddsrt_time_monotonic());
    }
    return 0;
}

void qddsdomain_ask_for_acknowledgments(int32_t writer, const struct ddsi_sertype *type)
{
    (void)with_writer(writer, type, ask_now);
}

static size_t writers_of(struct ddsi_reader *reader, struct QDomainWriterId *ids, size_t room)
{
    ddsrt_avl_iter_t iterator;
    size_t count = 0;
    ddsrt_mutex_lock(&reader->e.lock);
    for (const struct ddsi_rd_pwr_match *match =
             ddsrt_avl_iter_first(&ddsi_rd_writers_treedef, &reader->writers, &iterator);
         match != NULL; match = ddsrt_avl_iter_next(&iterator)) {
        if (count < room) {
            memcpy(&ids[count], &match->pwr_guid, sizeof ids[count]);
        }
        ++count;
    }
    ddsrt_mutex_unlock(&reader->e.lock);
    return count;
}

size_t qddsdomain_remote_writers(int32_t reader, const struct ddsi_sertype *type,
                                 struct QDomainWriterId *ids, size_t room)
{
    const struct ddsi_domaingv *domain = domain_of(type);
    struct thread_state *self = lookup_thread_state();
    const ddsi_guid_t guid = guid_of(reader);
    size_t count = 0;
    thread_state_awake(self, domain);
    struct ddsi_reader *found = entidx_lookup_reader_guid(domain->entity_index, &guid);
    if (found != NULL) {
        count = writers_of(found, ids, room);
    }
    thread_state_asleep(self);
    return count;
}

/* The bit says that the engine has not matched the writer with all readers yet, and makes it take
 * nothing from the writer meanwhile. */
static int set_held(struct ddsi_proxy_writer *writer, unsigned held)
{
    ddsrt_mutex_lock(&writer->e.lock);
    const int changed = writer->local_matching_inprogress != held;
    writer->local_matching_inprogress = held & 1U;
    ddsrt_mutex_unlock(&writer->e.lock);
    return changed;
}

int qddsdomain_hold(const struct ddsi_sertype *type, const struct QDomainWriterId *id, int held)
{
    const struct ddsi_domaingv *domain = domain_of(type);
    struct thread_state *self = lookup_thread_state();
    int changed = 0;
    ddsi_guid_t guid;
    memcpy(&guid, id, sizeof guid);
    thread_state_awake(self, domain);
    struct ddsi_proxy_writer *found = entidx_lookup_proxy_writer_guid(domain->entity_index, &guid);
    if (found != NULL) {
        changed = set_held(found, held != 0);
    }
    thread_state_asleep(self);
    return changed;
}

/* What reads from a socket in every domain; set once, and then read by the threads that receive. */
static ddsi_tran_read_fn_t read_udp;

static ssize_t read_packet(ddsi_tran_conn_t connection, unsigned char *buffer, size_t room,
                           bool spurious, ddsi_locator_t *source)
{
    const ddsi_tran_read_fn_t receive = __atomic_load_n(&read_udp, __ATOMIC_ACQUIRE);
    const ssize_t size = receive(connection, buffer, room, spurious, source);
    if (size > 0) {
        qddsdomain_mark_unknown_encapsulations(buffer, (size_t)size);
    }
    return size;
}

void qddsdomain_watch_packets(const struct ddsi_sertype *type)
{
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    const struct ddsi_domaingv *domain = domain_of(type);
    struct ddsi_tran_conn *const connections[] = {domain->data_conn_uc, domain->data_conn_mc};
    pthread_mutex_lock(&mutex);
    for (size_t i = 0; i < sizeof connections / sizeof connections[0]; ++i) {
        struct ddsi_tran_conn *connection = connections[i];
        if (connection == NULL || connection->m_stream || connection->m_read_fn == read_packet) {
            continue;
        }
        if (read_udp == NULL) {
            __atomic_store_n(&read_udp, connection->m_read_fn, __ATOMIC_RELEASE);
        }
        if (read_udp == connection->m_read_fn) {
            __atomic_store_n(&connection->m_read_fn, read_packet, __ATOMIC_RELEASE);
        }
    }
    pthread_mutex_unlock(&mutex);
}
