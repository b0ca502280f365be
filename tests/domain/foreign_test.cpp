// What applications of the engine itself bring into a domain: policies and types that this
// library's own endpoints do not have, and lines in the engine's log.
#include "engine_fixture.h"

// Its macros hide the platform's names for the same.
#include <dds/dds.h>

#include <atomic>
#include <functional>

#include "described.h"
#include "qddsdomain/discovery.h"
#include "rejected.h"

namespace {

using Change = std::function<void(dds_qos_t *)>;

class Foreign : public Engine {
protected:
    const Participant domain = join(87);
    const dds_entity_t participant = dds_create_participant(87, nullptr, nullptr);

    ~Foreign() override
    {
        dds_delete(participant);
    }

    // A writer below a publisher, a reader below a subscriber.
    static dds_entity_t make(
        dds_entity_t group, const dds_topic_descriptor_t &type, const char *name,
        const Change &change = [](dds_qos_t *) {})
    {
        const dds_entity_t of =
            dds_create_topic(dds_get_participant(group), &type, name, nullptr, nullptr);
        EXPECT_LT(0, of) << dds_strretcode(of);
        dds_qos_t *qos = dds_create_qos();
        change(qos);
        const dds_entity_t publisher = dds_create_writer(group, of, qos, nullptr);
        const dds_entity_t made = publisher == DDS_RETCODE_ILLEGAL_OPERATION
                                      ? dds_create_reader(group, of, qos, nullptr)
                                      : publisher;
        dds_delete_qos(qos);
        EXPECT_LT(0, made) << dds_strretcode(made);
        return made;
    }
};

TEST_F(Foreign, PoliciesThatDoNotMatchAreNamed)
{
    const char *name = "foreign";
    DDS_EndpointQos qos = reliable();
    qos.ignoreLocal = DDS_IGNORE_LOCAL_PROCESS;
    DDS_ErrorText text{};
    const DDS_TypeCode *type = typeNamed("described::Ident");
    writer.reset(DDS_DataWriter_new(near.get(), name, nullptr, type, &qos, &text));
    qos.durability = DDS_TRANSIENT_LOCAL_DURABILITY; // would not match, but is ignored
    qos.ignoreLocal = DDS_IGNORE_LOCAL_PARTICIPANT;
    reader.reset(
        DDS_DataReader_new(near.get(), name, nullptr, type, &qos, nullptr, nullptr, &text));
    const dds_data_representation_id_t xcdr2 = DDS_DATA_REPRESENTATION_XCDR2;
    const Change asked[] = {
        [](dds_qos_t *) {}, // which does match
        [](dds_qos_t *of) { dds_qset_presentation(of, DDS_PRESENTATION_TOPIC, false, false); },
        [](dds_qos_t *of) { dds_qset_presentation(of, DDS_PRESENTATION_INSTANCE, true, false); },
        [](dds_qos_t *of) { dds_qset_presentation(of, DDS_PRESENTATION_INSTANCE, false, true); },
        [](dds_qos_t *of) {
            dds_qset_liveliness(of, DDS_LIVELINESS_MANUAL_BY_TOPIC, DDS_INFINITY);
        },
        [](dds_qos_t *of) { dds_qset_liveliness(of, DDS_LIVELINESS_AUTOMATIC, DDS_SECS(9)); },
        [](dds_qos_t *of) {
            dds_qset_destination_order(of, DDS_DESTINATIONORDER_BY_SOURCE_TIMESTAMP);
        },
        [](dds_qos_t *of) { dds_qset_deadline(of, DDS_SECS(1)); },
        [](dds_qos_t *of) {
            dds_qset_durability(of, DDS_DURABILITY_TRANSIENT_LOCAL);
            dds_qset_ownership(of, DDS_OWNERSHIP_EXCLUSIVE);
        },
        [&](dds_qos_t *of) { dds_qset_data_representation(of, 1, &xcdr2); }};
    for (const Change &change : asked) {
        dds_qos_t *group = dds_create_qos();
        change(group); // presentation is one of groups
        const dds_entity_t subscriber = dds_create_subscriber(participant, group, nullptr);
        dds_delete_qos(group);
        make(subscriber, described_Ident_desc, name, change);
    }
    const dds_entity_t other = dds_create_participant(87, nullptr, nullptr);
    make(dds_create_subscriber(other, nullptr, nullptr), described_Scalars_desc, name);
    make(dds_create_publisher(participant, nullptr, nullptr), described_Ident_desc, name,
         [](dds_qos_t *of) {
             dds_qset_reliability(of, DDS_RELIABILITY_BEST_EFFORT, 0);
             dds_qset_latency_budget(of, DDS_SECS(1));
         });
    const std::string atWriter = "10 readers do not match: data representation (1), deadline (1), "
                                 "destination order (1), durability and ownership (1), liveliness "
                                 "(2), presentation (3), type name described::Scalars (1)";
    EXPECT_EQ(atWriter, said(DDS_DataWriter_get_mismatches, writer, atWriter));
    const std::string atReader = "1 writer does not match: reliability and durability and "
                                 "latency budget";
    EXPECT_EQ(atReader, said(DDS_DataReader_get_mismatches, reader, atReader));
    dds_delete(other);
}

TEST(Domain, OneThatOtherCodeMadeIsLeftToIt)
{
    std::string why;
    const dds_entity_t others = dds_create_domain(91, "");
    EXPECT_EQ(nullptr, join(91, nullptr, &why));
    EXPECT_EQ("domain 91 is in use by other code of this process", why);
    dds_delete(others);
}

TEST_F(Foreign, DiscoveryReportsOthersAsTheyComeAndGo)
{
    std::atomic<int> calls{0};
    DDS_ErrorText error{};
    const std::unique_ptr<DDS_Discovery, Deleter<DDS_Discovery_delete>> discovery(DDS_Discovery_new(
        near.get(), DDS_RESOLVE_TYPES, 60 * SECOND,
        [](void *count) { ++*static_cast<std::atomic<int> *>(count); }, &calls, &error));
    ASSERT_NE(nullptr, discovery) << error.text;
    const auto expect = [&](const std::string &wanted) {
        std::string seen;
        within(std::chrono::nanoseconds(20 * SECOND), [&] {
            DDS_DiscoveryEventKind kind{};
            const DDS_DiscoveredEndpoint *there = DDS_Discovery_take(discovery.get(), &kind);
            if (there == nullptr) {
                return false;
            }
            seen =
                std::string(1, " +~-"[kind]) + there->topic +
                (there->isWriter != 0 ? " by " : " for ") +
                (there->type != nullptr ? DDS_TypeCode_get_name(there->type) : there->typeProblem) +
                (there->isKeyed != 0 ? " keyed" : "") +
                (there->qos.reliable != 0 ? " reliable" : "") + " " +
                std::to_string(there->qos.durability) + std::to_string(there->qos.durableDepth) +
                std::to_string(there->qos.lifespan);
            for (int32_t i = 0; i < there->partitions.length; ++i) {
                seen += std::string(" ") + there->partitions.buffer[i];
            }
            return true;
        });
        EXPECT_EQ(wanted, seen);
    };
    dds_qos_t *group = dds_create_qos();
    const char *names[] = {"b", "a"};
    dds_qset_partition(group, 2, names);
    const dds_entity_t publisher = dds_create_publisher(participant, group, nullptr);
    dds_delete_qos(group);
    const dds_entity_t made = make(publisher, described_Ident_desc, "news", [](dds_qos_t *qos) {
        dds_qset_durability(qos, DDS_DURABILITY_TRANSIENT_LOCAL);
        dds_qset_durability_service(qos, 0, DDS_HISTORY_KEEP_ALL, 0, -1, -1, -1);
        dds_qset_lifespan(qos, DDS_SECS(1));
    });
    expect("+news by described::Ident keyed reliable 101000000000 a b");
    dds_qos_t *changed = dds_create_qos(); // in what is not seen
    dds_qset_userdata(changed, "x", 1);
    EXPECT_EQ(0, dds_set_qos(made, changed));
    dds_delete_qos(changed);
    dds_delete(made);
    expect("-news by described::Ident keyed reliable 101000000000 a b");
    make(dds_create_subscriber(participant, nullptr, nullptr), rejected_WithUnion_desc, "odd");
    expect("+odd for union rejected::Either: unions are not supported 010 ");
    DDS_EndpointQos plain = reliable();
    plain.matchByNameOnly = 1;
    writer.reset(
        DDS_DataWriter_new(far.get(), "plain", nullptr, typeNamed("Numbers"), &plain, &error));
    expect("+plain by the peer announces no type reliable 010 ");
    writer.reset();
    expect("-plain by the peer announces no type reliable 010 ");
    EXPECT_LT(2, calls);
}

// An end of the one instance that there is means nothing to a reader.
TEST_F(Foreign, WithoutAKeyNothingEnds)
{
    DDS_EndpointQos qos = reliable();
    DDS_ErrorText error{};
    reader.reset(DDS_DataReader_new(near.get(), "keyless", nullptr, typeNamed("described::Scalars"),
                                    &qos, nullptr, nullptr, &error));
    ASSERT_NE(nullptr, reader) << error.text;
    const dds_entity_t other =
        make(dds_create_publisher(participant, nullptr, nullptr), described_Scalars_desc, "keyless",
             [](dds_qos_t *of) { dds_qset_history(of, DDS_HISTORY_KEEP_ALL, 0); });
    ASSERT_TRUE(eventually([&] {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(other, &status) == 0 && status.current_count == 1;
    }));
    described_Scalars sample{};
    sample.text = const_cast<char *>("");
    for (sample.l = 1; sample.l < 3; ++sample.l) {
        EXPECT_EQ(0, dds_write(other, &sample));
        EXPECT_EQ(0, dds_dispose(other, &sample));
        dds_write_flush(other);
    }
    std::string seen;
    for (const Taken &taken : take("described::Scalars", 2)) {
        seen += std::to_string(number(taken, "l")) + " ";
    }
    EXPECT_EQ("1 2 ", seen);
}

// A place in the engine's code that speaks again and again is heard once in a while.
TEST(Domain, LinesOfTheEngineComeOnceEach)
{
    static uint32_t level;
    const Participant domain = join(91); // which takes over the engine's log
    const Lines lines;
    QELLog_setLogLevel = [](uint32_t now) { level = now; };
    const auto log = [](uint32_t kind, uint32_t line, const char *text) {
        dds_log(kind, __FILE__, line, __func__, "%s\n", text);
        return level;
    };
    EXPECT_EQ(0U, log(DDS_LC_INFO, 1, "nobody asked"));
    EXPECT_EQ(2U, log(DDS_LC_WARNING, 1, "a"));
    EXPECT_EQ(1U, log(DDS_LC_ERROR, 2, "b\n"));
    EXPECT_EQ(1U, log(DDS_LC_WARNING, 2, "held back"));
    QELLog_setLogLevel = nullptr;
    EXPECT_EQ(1U, log(DDS_LC_WARNING, 3, "c"));
    EXPECT_EQ((std::vector<std::string>{"dds:a", "dds:b", "dds:c"}), lines.all);
}

} // namespace
