/* Prints the observations of the quickstart's topic as they arrive, without any of FerryJNI: an
 * ordinary program of the DDS engine, with a type made from the same IDL file. Ends with Ctrl-C.
 * usage: watch [DOMAIN]   (5, as in the quickstart)
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "dds/dds.h"
#include "weather.h"

enum { BATCH = 64 };

/* The loopback interface, unless CYCLONEDDS_URI says otherwise. */
static const char *const loopback = "file://loopback.xml";

static dds_entity_t checked(const char *what, dds_entity_t entity)
{
    if (entity < 0) {
        fprintf(stderr, "watch: %s: %s\n", what, dds_strretcode(entity));
        exit(1);
    }
    return entity;
}

static void show(const weather_Observation *o, const dds_sample_info_t *info)
{
    if (info->valid_data) {
        printf("%-8s %" PRId64 " %6.1f degrees  %s\n", o->station, o->observed_at, o->temperature,
               o->name);
    } else {
        printf("%-8s has no writer any more\n", o->station);
    }
}

int main(int argc, char **argv)
{
    const dds_domainid_t domain = argc > 1 ? (dds_domainid_t)atoi(argv[1]) : 5;
    if (getenv("CYCLONEDDS_URI") == NULL) {
        checked("domain", dds_create_domain(domain, loopback));
    }
    const dds_entity_t self = checked("participant", dds_create_participant(domain, NULL, NULL));
    const dds_entity_t topic =
        checked("topic", dds_create_topic(self, &weather_Observation_desc, "weather/observations",
                                          NULL, NULL));
    dds_qos_t *qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, 0);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    const dds_entity_t reader = checked("reader", dds_create_reader(self, topic, qos, NULL));
    const dds_entity_t waitset = checked("waitset", dds_create_waitset(self));
    dds_set_status_mask(reader, DDS_DATA_AVAILABLE_STATUS);
    dds_waitset_attach(waitset, reader, 0);

    while (dds_waitset_wait(waitset, NULL, 0, DDS_INFINITY) >= 0) {
        void *samples[BATCH] = {NULL};
        dds_sample_info_t infos[BATCH];
        for (int count; (count = dds_take(reader, samples, infos, BATCH, BATCH)) > 0;) {
            for (int i = 0; i < count; i++) {
                show(samples[i], &infos[i]);
            }
            dds_return_loan(reader, samples, count);
        }
        fflush(stdout);
    }
    return 1;
}
