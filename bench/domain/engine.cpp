// The DDS engine by itself: a publisher, a subscriber and a forwarder as its users write them, with
// code that idlc made from bench.idl.
#include "dds/dds.h"
#include "dds/ddsi/ddsi_serdata.h"

#include "bench.h"
#include "measure.h"

namespace {

using bench::Options;

/// The loopback interface; writes stay in a packet until it is full or flushed.
const char *const settings =
    "file://" LOOPBACK_XML
    ",<Internal><WriteBatch>true</WriteBatch><SocketReceiveBufferSize max='4MB'/>"
    "<SocketSendBufferSize min='default' max='4MB'/>"
    "<Watermarks><WhcLow>500kB</WhcLow><WhcHigh>1MB</WhcHigh><WhcHighInit>1MB</WhcHighInit>"
    "</Watermarks></Internal>";

dds_entity_t checked(const char *what, dds_return_t entity)
{
    if (entity < 0) {
        std::fprintf(stderr, "%s: %s\n", what, dds_strretcode(entity));
        std::exit(1);
    }
    return entity;
}

struct Domain {
    explicit Domain(std::uint32_t id)
        : entity(checked("domain", dds_create_domain(id, settings))),
          participant(checked("participant", dds_create_participant(id, nullptr, nullptr)))
    {
    }
    ~Domain()
    {
        dds_delete(entity);
    }
    Domain(const Domain &) = delete;
    Domain &operator=(const Domain &) = delete;

    dds_entity_t topic(const dds_topic_descriptor_t &type) const
    {
        return checked("topic", dds_create_topic(participant, &type, "bench", nullptr, nullptr));
    }

    dds_entity_t entity;
    dds_entity_t participant;
};

/// Reliable, everything kept: the same at both ends and in ferry.
dds_qos_t *endpointQos(int room)
{
    dds_qos_t *qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(15));
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    dds_qset_resource_limits(qos, room, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
    return qos;
}

dds_entity_t makeWriter(const Domain &domain, const dds_topic_descriptor_t &type)
{
    dds_qos_t *qos = endpointQos(DDS_LENGTH_UNLIMITED);
    const dds_entity_t writer =
        dds_create_writer(domain.participant, domain.topic(type), qos, nullptr);
    dds_delete_qos(qos);
    return checked("writer", writer);
}

/// A reader and what to wait for it with.
struct Reader {
    Reader(const Domain &domain, const dds_topic_descriptor_t &type)
    {
        dds_qos_t *qos = endpointQos(bench::readerRoom);
        entity = checked("reader",
                         dds_create_reader(domain.participant, domain.topic(type), qos, nullptr));
        dds_delete_qos(qos);
        waitset = checked("waitset", dds_create_waitset(domain.participant));
        checked("mask", dds_set_status_mask(entity, DDS_DATA_AVAILABLE_STATUS));
        checked("attach", dds_waitset_attach(waitset, entity, 0));
    }

    /// False when nothing has come for as long as a receiver waits.
    bool wait() const
    {
        return dds_waitset_wait(waitset, nullptr, 0, bench::silence) > 0;
    }

    dds_entity_t entity = 0;
    dds_entity_t waitset = 0;
};

template<typename Ready> void waitUntil(Ready ready)
{
    const std::int64_t end = bench::now() + 60'000'000'000;
    while (!ready()) {
        if (bench::now() > end) {
            std::fputs("no peer within 60 s\n", stderr);
            std::exit(1);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

bool hasReader(dds_entity_t writer)
{
    dds_publication_matched_status_t status{};
    return dds_get_publication_matched_status(writer, &status) == 0 && status.current_count > 0;
}

bool hasWriter(dds_entity_t reader)
{
    dds_subscription_matched_status_t status{};
    return dds_get_subscription_matched_status(reader, &status) == 0 && status.current_count > 0;
}

template<typename Sample> void setKey(Sample &, const Options &, std::int64_t) {}
void setKey(bench_Key4 &sample, const Options &options, std::int64_t index)
{
    sample.key = static_cast<std::int32_t>(bench::keyOf(options, index));
}
void setKey(bench_Key8 &sample, const Options &options, std::int64_t index)
{
    sample.key = bench::keyOf(options, index);
}
void setKey(bench_Key16 &sample, const Options &options, std::int64_t index)
{
    sample.key = bench::keyOf(options, index);
}
void setKey(bench_Composite &sample, const Options &options, std::int64_t index)
{
    sample.place.key = bench::keyOf(options, index);
}
void setKey(bench_Text &sample, const Options &options, std::int64_t index)
{
    std::snprintf(sample.key, sizeof sample.key, "station-%lld",
                  static_cast<long long>(bench::keyOf(options, index)));
}

template<typename Sample> int publish(const Options &options, const dds_topic_descriptor_t &type)
{
    const Domain domain(options.domain);
    const dds_entity_t writer = makeWriter(domain, type);
    waitUntil([writer] { return hasReader(writer); });
    bench::announceAndWait();

    const std::int64_t begin = bench::now();
    Sample sample{};
    for (std::int64_t i = 0; i < options.count; i++) {
        if (options.rate > 0) {
            bench::pace(options, begin, i);
        }
        setKey(sample, options, i);
        sample.number = i;
        sample.sent = bench::now();
        checked("write", dds_write(writer, &sample));
        if (options.rate > 0 || (i + 1) % bench::batchSize == 0) {
            dds_write_flush(writer);
        }
    }
    dds_write_flush(writer);
    checked("acknowledgements", dds_wait_for_acks(writer, DDS_SECS(60)));
    bench::reportMemory();
    return 0;
}

template<typename Sample> int subscribe(const Options &options, const dds_topic_descriptor_t &type)
{
    const Domain domain(options.domain);
    const Reader reader(domain, type);
    waitUntil([&reader] { return hasWriter(reader.entity); });
    std::puts("matched");
    std::fflush(stdout);

    bench::Arrivals arrivals(options);
    static void *samples[bench::batchSize];
    static dds_sample_info_t infos[bench::batchSize];
    while (!arrivals.complete() && reader.wait()) {
        dds_return_t count = 0;
        while ((count = dds_take(reader.entity, samples, infos, bench::batchSize,
                                 bench::batchSize)) > 0) {
            for (dds_return_t i = 0; i < count; i++) {
                if (infos[i].valid_data) {
                    const auto *sample = static_cast<const Sample *>(samples[i]);
                    arrivals.add(sample->number, sample->sent);
                }
            }
            dds_return_loan(reader.entity, samples, count);
        }
    }
    return arrivals.report() ? 0 : 1;
}

/// Takes what there is and writes it on, decoded or as the bytes that came.
dds_return_t forwardBatch(const Options &options, dds_entity_t reader, dds_entity_t writer)
{
    static void *samples[bench::batchSize];
    static ddsi_serdata *encoded[bench::batchSize];
    static dds_sample_info_t infos[bench::batchSize];
    const dds_return_t count =
        options.cdr ? dds_takecdr(reader, encoded, bench::batchSize, infos, DDS_ANY_STATE)
                    : dds_take(reader, samples, infos, bench::batchSize, bench::batchSize);
    for (dds_return_t i = 0; i < count; i++) {
        if (options.cdr && infos[i].valid_data) {
            checked("forward", dds_forwardcdr(writer, encoded[i]));
        } else if (options.cdr) {
            ddsi_serdata_unref(encoded[i]);
        } else if (infos[i].valid_data) {
            checked("write", dds_write_ts(writer, samples[i], infos[i].source_timestamp));
        }
    }
    if (!options.cdr && count > 0) {
        dds_return_loan(reader, samples, count);
    }
    dds_write_flush(writer);
    return checked("take", count);
}

/// One reader, one writer in another domain, until the script's SIGTERM.
int forward(const Options &options, const dds_topic_descriptor_t &type)
{
    const Domain in(options.domain);
    const Domain out(options.outDomain);
    const dds_entity_t writer = makeWriter(out, type);
    // What it reads before its writer has a reader would be lost.
    waitUntil([writer] { return hasReader(writer); });
    const Reader reader(in, type);
    for (;;) {
        dds_waitset_wait(reader.waitset, nullptr, 0, DDS_INFINITY);
        while (forwardBatch(options, reader.entity, writer) > 0) {
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Publisher, subscriber and forwarder of the domain benchmark");
    Options options;
    auto *publisher = bench::addOptions(app, options);
    auto *forwarder = app.add_subcommand("forward")->fallthrough();
    app.add_flag("--cdr", options.cdr);
    CLI11_PARSE(app, argc, argv);

    if (forwarder->parsed()) {
        return forward(options, options.size == 64 ? bench_Small_desc : bench_Large_desc);
    }
    struct Ends {
        const char *type;
        int (*publish)(const Options &, const dds_topic_descriptor_t &);
        int (*subscribe)(const Options &, const dds_topic_descriptor_t &);
        const dds_topic_descriptor_t &described;
    };
    const Ends all[] = {
        {"Small", publish<bench_Small>, subscribe<bench_Small>, bench_Small_desc},
        {"Large", publish<bench_Large>, subscribe<bench_Large>, bench_Large_desc},
        {"Key4", publish<bench_Key4>, subscribe<bench_Key4>, bench_Key4_desc},
        {"Key8", publish<bench_Key8>, subscribe<bench_Key8>, bench_Key8_desc},
        {"Key16", publish<bench_Key16>, subscribe<bench_Key16>, bench_Key16_desc},
        {"Composite", publish<bench_Composite>, subscribe<bench_Composite>, bench_Composite_desc},
        {"Text", publish<bench_Text>, subscribe<bench_Text>, bench_Text_desc}};
    const std::string wanted = !options.type.empty() ? options.type
                               : options.size == 64  ? "Small"
                                                     : "Large";
    for (const Ends &ends : all) {
        if (wanted == ends.type) {
            return (publisher->parsed() ? ends.publish : ends.subscribe)(options, ends.described);
        }
    }
    std::fprintf(stderr, "bench.idl has no type %s\n", wanted.c_str());
    return 1;
}
