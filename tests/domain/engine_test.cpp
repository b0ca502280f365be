// The domain library on a real network: two engine domains of this process that appear as one
// outside, so that everything between "near" and "far" goes through sockets.
#include "engine.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../platform/fixture.h"
#include "described.h"
#include "qddsdomain/discovery.h"
#include "qddsdomain/reader.h"
#include "qddsdomain/writer.h"

namespace {

using Participant = std::unique_ptr<DDS_DomainParticipant, Deleter<DDS_DomainParticipant_delete>>;
using Reader = std::unique_ptr<DDS_DataReader, Deleter<DDS_DataReader_delete>>;
using Writer = std::unique_ptr<DDS_DataWriter, Deleter<DDS_DataWriter_delete>>;
using Discovery = std::unique_ptr<DDS_Discovery, Deleter<DDS_Discovery_delete>>;

constexpr int64_t SECOND = 1000000000;
constexpr const char *OUTSIDE = "<Discovery><ExternalDomainId>85</ExternalDomainId></Discovery>";

const DDS_TypeCode *typeNamed(const char *name)
{
    static const Library *library = [] {
        std::stringstream text;
        text << std::ifstream(DESCRIBED_IDL).rdbuf();
        auto *made = new Library(DDS_TypeLibrary_new());
        DDS_ErrorText error{};
        const std::string more = "struct Text { string s; }; struct Numbers { long n; long m; };";
        EXPECT_EQ(1, DDS_TypeLibrary_add_idl_text(made->get(), (text.str() + more).c_str(), "idl",
                                                  &error))
            << error.text;
        return made;
    }();
    return DDS_TypeLibrary_find(library->get(), name);
}

Participant join(int32_t domain, const char *xml = OUTSIDE, std::string *why = nullptr,
                 const char *interfaces = nullptr)
{
    DDS_ErrorText error{};
    const DDS_ParticipantSettings settings{domain, interfaces, 0, nullptr, xml, "engine test"};
    Participant made(DDS_DomainParticipant_new(&settings, &error));
    if (why != nullptr) {
        *why = error.text;
    } else {
        EXPECT_NE(nullptr, made) << error.text;
    }
    return made;
}

DDS_EndpointQos reliable()
{
    DDS_EndpointQos qos{};
    qos.reliable = 1;
    qos.writeTimeout = 5 * SECOND;
    return qos;
}

Reader readerOf(const Participant &in, const char *topic, const char *type,
                const DDS_EndpointQos &qos, const char *typeName = nullptr)
{
    DDS_ErrorText error{};
    Reader made(DDS_DataReader_new(in.get(), topic, typeName, typeNamed(type), &qos, nullptr,
                                   nullptr, &error));
    EXPECT_NE(nullptr, made) << error.text;
    return made;
}

Writer writerOf(const Participant &in, const char *topic, const char *type,
                const DDS_EndpointQos &qos, const char *typeName = nullptr)
{
    DDS_ErrorText error{};
    Writer made(DDS_DataWriter_new(in.get(), topic, typeName, typeNamed(type), &qos, &error));
    EXPECT_NE(nullptr, made) << error.text;
    return made;
}

Sample sampleOf(const char *type)
{
    return Sample(DDS_DynamicData_new(typeNamed(type), nullptr));
}

std::vector<uint8_t> bytesOf(const Sample &sample)
{
    size_t length = 0;
    const uint8_t *bytes = DDS_DynamicData_get_cdr(sample.get(), &length);
    return {bytes, bytes + length};
}

template<typename Condition> bool within(int64_t nanoseconds, Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(nanoseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

struct Taken {
    Sample sample;
    DDS_SampleInfo info;
};

// Takes one by one, so that every block of the engine is cut somewhere.
std::vector<Taken> takeAll(const Reader &reader, const char *type, size_t wanted,
                           int64_t limit = 5 * SECOND)
{
    std::vector<Taken> all;
    within(limit, [&] {
        for (;;) {
            Taken taken{sampleOf(type), {}};
            DDS_DynamicData *sample = taken.sample.get();
            DDS_SampleInfo *info = &taken.info;
            DDS_ErrorText error{};
            const int32_t count = DDS_DataReader_take(reader.get(), &sample, &info, 1, &error);
            EXPECT_GE(count, 0) << error.text;
            if (count != 1) {
                return all.size() >= wanted;
            }
            all.push_back(std::move(taken));
        }
    });
    return all;
}

DDS_ReturnCode_t write(const Writer &writer, const Sample &sample,
                       const DDS_SampleInfo *info = nullptr)
{
    DDS_ErrorText error{};
    const DDS_ReturnCode_t code = DDS_DataWriter_write(writer.get(), sample.get(), info, &error);
    EXPECT_EQ(code != DDS_RETCODE_OK, error.text[0] != '\0');
    DDS_DataWriter_flush(writer.get());
    return code;
}

template<auto TakeNotice, typename Endpoint> std::string noticeOf(const Endpoint &endpoint)
{
    DDS_ErrorText text{};
    const auto told = [&] { return TakeNotice(endpoint.get(), &text) == 1; };
    return within(3 * SECOND, told) ? text.text : "";
}

TEST(Engine, SamplesArriveEqual)
{
    const Participant near = join(85);
    const Participant far = join(86);
    struct Case {
        const Participant &from;
        DDS_DataRepresentation representation;
        const char *type;
        const char *text;
    };
    for (const Case &c : {Case{far, DDS_XCDR1_REPRESENTATION, "described::Scalars", "text"},
                          Case{far, DDS_XCDR2_REPRESENTATION, "described::Scalars", "text"},
                          Case{far, DDS_XCDR1_REPRESENTATION, "described::Observation", "big"},
                          Case{far, DDS_XCDR2_REPRESENTATION, "described::Observation", "big"},
                          Case{near, DDS_XCDR1_REPRESENTATION, "described::Observation", "big"},
                          Case{near, DDS_XCDR2_REPRESENTATION, "described::Observation", "big"}}) {
        DDS_EndpointQos qos = reliable();
        qos.representation = c.representation;
        const Reader reader = readerOf(near, "equal", c.type, qos);
        const Writer writer = writerOf(c.from, "equal", c.type, qos);
        ASSERT_EQ(1, DDS_DataWriter_wait_for_readers(writer.get(), 1, 5 * SECOND));
        const Sample sample = sampleOf(c.type);
        ASSERT_EQ(DDS_RETCODE_OK,
                  DDS_DynamicData_set_string(sample.get(), c.text, "grün \U0001F300"));
        DDS_SampleInfo info{};
        info.valid_data = 1;
        info.source_timestamp = {1234567890, 987654321};
        ASSERT_EQ(DDS_RETCODE_OK, write(writer, sample, &info));
        const std::vector<Taken> taken = takeAll(reader, c.type, 1);
        ASSERT_EQ(1U, taken.size()) << c.type << " as " << c.representation;
        EXPECT_EQ(bytesOf(sample), bytesOf(taken[0].sample));
        EXPECT_EQ(1234567890, taken[0].info.source_timestamp.sec);
        EXPECT_EQ(987654321U, taken[0].info.source_timestamp.nanosec);
        uint8_t guid[16];
        DDS_DomainParticipant_get_guid(c.from.get(), guid);
        EXPECT_EQ(0, std::memcmp(guid, taken[0].info.publication_handle.keyHash, 12));
        EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), SECOND));
    }
}

// An end must reach a reader who comes late to it as well as one that took the data before.
TEST(Engine, EndsOfInstancesAreToldWithTheirKeys)
{
    const Participant near = join(85);
    const Participant far = join(86);
    for (const bool takenBefore : {false, true}) {
        const char *type = "described::Ident";
        const Reader reader = readerOf(near, "ends", type, reliable());
        const Writer writer = writerOf(far, "ends", type, reliable());
        ASSERT_EQ(1, DDS_DataWriter_wait_for_readers(writer.get(), 1, 5 * SECOND));
        const Sample sample = sampleOf(type);
        std::vector<Taken> taken;
        for (const int32_t zone : {1, 2}) {
            DDS_DynamicData_set_long(sample.get(), "zone", zone);
            DDS_DynamicData_set_string(sample.get(), "note", "there");
            ASSERT_EQ(DDS_RETCODE_OK, write(writer, sample));
        }
        if (takenBefore) {
            taken = takeAll(reader, type, 2);
        }
        for (const int32_t zone : {1, 2}) {
            DDS_SampleInfo end{};
            end.source_timestamp.sec = -1;
            end.instance_state = zone == 1 ? DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE
                                           : DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE;
            DDS_DynamicData_set_long(sample.get(), "zone", zone);
            ASSERT_EQ(DDS_RETCODE_OK, write(writer, sample, &end));
        }
        ASSERT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (Taken &more : takeAll(reader, type, takenBefore ? 2 : 4)) {
            taken.push_back(std::move(more));
        }
        ASSERT_EQ(4U, taken.size());
        std::string seen;
        for (const Taken &one : taken) {
            int32_t zone = 0;
            std::vector<char> note(256);
            DDS_DynamicData_get_long(one.sample.get(), "zone", &zone);
            seen += std::to_string(zone);
            seen += one.info.valid_data != 0
                        ? "data "
                        : "end" + std::to_string(one.info.instance_state) + " ";
            EXPECT_EQ(one.info.valid_data == 0 ? 13U : 18U, bytesOf(one.sample).size());
            EXPECT_EQ(zone, one.info.instance_handle.keyHash[3]);
        }
        EXPECT_EQ(takenBefore ? "1data 2data 1end2 2end4 " : "1data 1end2 2data 2end4 ", seen);
    }
}

TEST(Engine, LateJoinerGetsHistory)
{
    const Participant near = join(85);
    const Participant far = join(86);
    DDS_EndpointQos qos = reliable();
    qos.durability = DDS_TRANSIENT_LOCAL_DURABILITY;
    qos.historyDepth = 3;
    const Writer writer = writerOf(far, "history", "Numbers", qos);
    const Sample sample = sampleOf("Numbers");
    for (int32_t i = 0; i < 5; ++i) {
        DDS_DynamicData_set_long(sample.get(), "n", i);
        ASSERT_EQ(DDS_RETCODE_OK, write(writer, sample));
    }
    const Reader reader = readerOf(near, "history", "Numbers", qos);
    const std::vector<Taken> taken = takeAll(reader, "Numbers", 3);
    ASSERT_EQ(3U, taken.size());
    int32_t first = 0;
    DDS_DynamicData_get_long(taken[0].sample.get(), "n", &first);
    EXPECT_EQ(2, first);
}

TEST(Engine, WhatDoesNotMatchIsNamedOnBothSides)
{
    const Participant near = join(85);
    const Participant far = join(86);
    struct Case {
        const char *policy;
        void (*ask)(DDS_EndpointQos &);
        const char *writerType;
    };
    const Case cases[] = {
        {"reliability", [](DDS_EndpointQos &) {}, "Numbers"},
        {"durability", [](DDS_EndpointQos &q) { q.durability = DDS_TRANSIENT_LOCAL_DURABILITY; },
         "Numbers"},
        {"deadline", [](DDS_EndpointQos &q) { q.deadline = SECOND; }, "Numbers"},
        {"ownership", [](DDS_EndpointQos &q) { q.exclusiveOwnership = 1; }, "Numbers"},
        {"type", [](DDS_EndpointQos &) {}, "Text"}};
    for (const Case &c : cases) {
        DDS_EndpointQos asked = reliable();
        DDS_EndpointQos offered = reliable();
        offered.reliable = std::strcmp(c.policy, "reliability") == 0 ? 0 : 1;
        c.ask(asked);
        const Reader reader = readerOf(near, c.policy, "Numbers", asked, "Same");
        const Writer writer = writerOf(far, c.policy, c.writerType, offered, "Same");
        EXPECT_NE(std::string::npos, noticeOf<DDS_DataReader_take_notice>(reader).find(c.policy));
        EXPECT_NE(std::string::npos, noticeOf<DDS_DataWriter_take_notice>(writer).find(c.policy));
    }
}

TEST(Engine, MalformedMessagesAreCountedAndGoodOnesStillCome)
{
    const Participant near = join(85);
    const Participant far = join(86);
    DDS_EndpointQos qos = reliable();
    qos.matchByNameOnly = 1;
    const Reader reader = readerOf(near, "malformed", "Text", qos, "Same");
    const Writer writer = writerOf(far, "malformed", "Numbers", qos, "Same");
    ASSERT_EQ(1, DDS_DataWriter_wait_for_readers(writer.get(), 1, 5 * SECOND));
    const Sample sample = sampleOf("Numbers");
    DDS_DynamicData_set_long(sample.get(), "m", 0x00636261); // "abc"
    for (const int32_t length : {4, 1000, -1, 4}) {
        DDS_DynamicData_set_long(sample.get(), "n", length);
        ASSERT_EQ(DDS_RETCODE_OK, write(writer, sample));
    }
    const std::vector<Taken> taken = takeAll(reader, "Text", 2);
    ASSERT_EQ(2U, taken.size());
    DDS_ReaderStatistics statistics;
    DDS_DataReader_get_statistics(reader.get(), &statistics);
    EXPECT_EQ(2U, statistics.malformed);
    EXPECT_EQ(2U, statistics.taken);
    const std::string notice = noticeOf<DDS_DataReader_take_notice>(reader);
    EXPECT_EQ(0U, notice.find("2 messages were no samples of type Text")) << notice;
}

TEST(Engine, FullReliableReaderHoldsTheWriterUpAndLosesNothing)
{
    const Participant near = join(85);
    const Participant far = join(86);
    DDS_EndpointQos qos = reliable();
    qos.maxSamples = 4;
    qos.writeTimeout = SECOND / 5;
    const Reader reader = readerOf(near, "full", "Numbers", qos);
    const Writer writer = writerOf(far, "full", "Numbers", qos);
    ASSERT_EQ(1, DDS_DataWriter_wait_for_readers(writer.get(), 1, 5 * SECOND));
    const Sample sample = sampleOf("Numbers");
    int32_t written = 0;
    DDS_ErrorText error{};
    DDS_ReturnCode_t code = DDS_RETCODE_OK;
    while (code == DDS_RETCODE_OK && written < 1000000) {
        DDS_DynamicData_set_long(sample.get(), "n", written);
        code = DDS_DataWriter_write(writer.get(), sample.get(), nullptr, &error);
        written += code == DDS_RETCODE_OK ? 1 : 0;
    }
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, code);
    const std::vector<Taken> taken =
        takeAll(reader, "Numbers", static_cast<size_t>(written), 30 * SECOND);
    ASSERT_EQ(static_cast<size_t>(written), taken.size());
    int32_t last = 0;
    DDS_DynamicData_get_long(taken.back().sample.get(), "n", &last);
    EXPECT_EQ(written - 1, last);
    DDS_ReaderStatistics statistics;
    DDS_DataReader_get_statistics(reader.get(), &statistics);
    EXPECT_EQ(0U, statistics.lost);
}

TEST(Engine, LocalEndpointsAreIgnoredAsAsked)
{
    const Participant one = join(85);
    const Participant other = join(85);
    for (const auto &[kind, expected] :
         {std::pair{DDS_IGNORE_LOCAL_NONE, 2U}, std::pair{DDS_IGNORE_LOCAL_PARTICIPANT, 1U},
          std::pair{DDS_IGNORE_LOCAL_PROCESS, 0U}}) {
        DDS_EndpointQos qos = reliable();
        qos.ignoreLocal = kind;
        const Reader same = readerOf(one, "local", "Numbers", qos);
        const Reader next = readerOf(other, "local", "Numbers", qos);
        const Writer writer = writerOf(one, "local", "Numbers", qos);
        EXPECT_EQ(expected, DDS_DataWriter_get_matched(writer.get())) << kind;
    }
}

TEST(Engine, SettingsThatCannotBeAreRefusedByName)
{
    const Participant running = join(90, nullptr);
    std::string why;
    EXPECT_EQ(nullptr, join(90, OUTSIDE, &why));
    EXPECT_NE(std::string::npos, why.find("domain 90 already runs")) << why;
    EXPECT_EQ(nullptr, join(91, nullptr, &why, "nosuch0"));
    EXPECT_NE(std::string::npos, why.find("nosuch0")) << why;
    EXPECT_EQ(nullptr, join(91, "<General><Bogus>1</Bogus></General>", &why));
    EXPECT_NE(std::string::npos, why.find("Bogus")) << why;
    EXPECT_EQ(nullptr, join(231, nullptr, &why));
    EXPECT_NE(std::string::npos, why.find("231")) << why;
    EXPECT_NE(nullptr, join(91, nullptr));
}

// The other side is the engine itself, with a type of its own compiler.
TEST(Engine, DiscoveryTellsOfForeignEndpointsWithTypesFromTheWire)
{
    const Participant near = join(85);
    const Reader own = readerOf(near, "own", "Numbers", reliable());
    DDS_ErrorText error{};
    const Discovery discovery(DDS_Discovery_new(near.get(), 2 * SECOND, nullptr, nullptr, &error));
    ASSERT_NE(nullptr, discovery) << error.text;
    const Participant far = join(86);
    const dds_entity_t raw = dds_create_participant(86, nullptr, nullptr);
    const dds_entity_t topic =
        dds_create_topic(raw, &described_Observation_desc, "sky", nullptr, nullptr);
    dds_qos_t *qos = dds_create_qos();
    dds_qset_partition1(qos, "a");
    const dds_entity_t publisher = dds_create_publisher(raw, qos, nullptr);
    ASSERT_GT(dds_create_writer(publisher, topic, nullptr, nullptr), 0);

    DDS_DiscoveryEventKind kind{};
    const DDS_DiscoveredEndpoint *seen = nullptr;
    const auto next = [&] {
        return (seen = DDS_Discovery_take(discovery.get(), &kind)) != nullptr;
    };
    ASSERT_TRUE(within(5 * SECOND, next));
    EXPECT_EQ(DDS_ENDPOINT_APPEARED, kind);
    EXPECT_STREQ("sky", seen->topic);
    EXPECT_STREQ("described::Observation", seen->typeName);
    EXPECT_EQ(1, seen->isWriter + 0);
    EXPECT_EQ(1, seen->isKeyed);
    EXPECT_EQ(typeNamed("described::Observation"), seen->type)
        << (seen->typeProblem != nullptr ? seen->typeProblem : "");
    ASSERT_EQ(1, seen->partitions.length);
    EXPECT_STREQ("a", seen->partitions.buffer[0]);

    dds_qset_partition1(qos, "b");
    ASSERT_EQ(0, dds_set_qos(publisher, qos));
    dds_delete_qos(qos);
    ASSERT_TRUE(within(5 * SECOND, next));
    EXPECT_EQ(DDS_ENDPOINT_CHANGED, kind);
    EXPECT_STREQ("b", seen->partitions.buffer[0]);
    dds_delete(raw);
    ASSERT_TRUE(within(5 * SECOND, next));
    EXPECT_EQ(DDS_ENDPOINT_GONE, kind);
    EXPECT_STREQ("sky", seen->topic);
    EXPECT_FALSE(next());
}

} // namespace
