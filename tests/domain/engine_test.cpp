// The domain library on a real network: two engine domains of this process that are one outside, so
// that everything between "near" and "far" goes through sockets.
#include <dlfcn.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <future>
#include <regex>

#include "../platform/records.h"
#include "engine_fixture.h"
#include "qddsdomain/discovery.h"

// A text that is sent in an encapsulation that nobody knows.
constexpr char UNKNOWN_ENCAPSULATION[] = "0x4b1d:";

// Ends of instances then name them by the hash of their keys alone, as those of some makes do.
std::atomic<bool> byHashAlone{false};

// Says of each submessage of data with a key in one part of a packet that it has no payload.
static void dropKeys(uint8_t *bytes, size_t size)
{
    constexpr uint8_t DATA = 0x15;
    constexpr uint8_t KEY = 0x08;
    size_t at = size >= 4 && std::memcmp(bytes, "RTPS", 4) == 0 ? 20 : 0;
    for (; at + 4 <= size; at += 4U + bytes[at + 2] + 256U * bytes[at + 3]) {
        bytes[at + 1] &= bytes[at] == DATA ? static_cast<uint8_t>(~KEY) : uint8_t{0xFF};
    }
}

// The engine's, which gathers a packet from the messages' own bytes.
extern "C" __attribute__((visibility("default"))) ssize_t sendmsg(int socket, const msghdr *message,
                                                                  int flags)
{
    static const auto send = reinterpret_cast<decltype(&sendmsg)>(dlsym(RTLD_NEXT, "sendmsg"));
    constexpr size_t AT = 8; // behind the encapsulation and a string's length
    for (size_t i = 0; i < message->msg_iovlen; ++i) {
        const iovec &part = message->msg_iov[i];
        auto *bytes = static_cast<uint8_t *>(part.iov_base);
        if (byHashAlone) {
            dropKeys(bytes, part.iov_len);
        }
        if (part.iov_len >= AT + sizeof UNKNOWN_ENCAPSULATION &&
            std::memcmp(bytes + AT, UNKNOWN_ENCAPSULATION, sizeof UNKNOWN_ENCAPSULATION - 1) == 0) {
            bytes[0] = 0x4b;
            bytes[1] = 0x1d;
        }
    }
    return send(socket, message, flags);
}

namespace {

// An end must reach a reader who comes late to it as well as one that took the data before.
TEST_F(Engine, EndsOfInstancesAreReportedWithTheirKeys)
{
    const char *type = "described::Ident";
    const Sample sample = makeSample(typeNamed(type));
    for (const bool takenBefore : {false, true}) {
        DDS_EndpointQos offered = reliable();
        offered.representation = takenBefore ? DDS_XCDR2_REPRESENTATION : DDS_XCDR1_REPRESENTATION;
        ASSERT_NO_FATAL_FAILURE(connect(type, reliable(), type, offered));
        std::vector<Taken> taken;
        setString(sample, "note", "there");
        for (const int32_t state :
             {0, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE}) {
            for (const int32_t zone : {2, 4}) {
                DDS_SampleInfo info{};
                info.source_timestamp.sec = -1;
                info.valid_data = state == 0 ? 1 : 0;
                info.instance_state = state;
                DDS_DynamicData_set_long(sample.get(), "zone", zone);
                if (state == 0 || state == zone) {
                    write(sample, &info);
                }
            }
            if (state == 0 && takenBefore) {
                taken = take(type, 2);
            }
        }
        ASSERT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (Taken &more : take(type, takenBefore ? 2 : 4)) {
            taken.push_back(std::move(more));
        }
        std::string seen;
        for (const Taken &one : taken) {
            const int32_t zone = number(one, "zone");
            EXPECT_EQ(zone, one.info.instance_handle.keyHash[3]);
            seen += std::to_string(zone) + ":" + getString(one.sample, "note") +
                    (one.info.valid_data != 0 ? "" : std::to_string(one.info.instance_state)) + " ";
        }
        EXPECT_EQ(takenBefore ? "2:there 4:there 2:2 4:4 " : "2:there 2:2 4:there 4:4 ", seen);
    }
}

// A short key is its hash; of a long one only the hash of an instance that was there says anything.
TEST_F(Engine, EndsOfInstancesMayNameThemByHash)
{
    for (const char *type : {"described::Ident", "Long"}) {
        ASSERT_NO_FATAL_FAILURE(connect(type, reliable(), type, reliable()));
        const Sample sample = makeSample(typeNamed(type));
        const auto set = [&](int32_t value) {
            DDS_DynamicData_set_long(sample.get(), "zone", value);
            DDS_DynamicData_set_longlong(sample.get(), "a", value);
        };
        set(7);
        write(sample);
        const std::vector<Taken> alive = take(type, 1);
        byHashAlone = true;
        DDS_SampleInfo end{};
        end.instance_state = DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
        end.source_timestamp.sec = -1;
        set(8);
        write(sample, &end);
        set(7);
        write(sample, &end);
        EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
        byHashAlone = false;
        const std::vector<Taken> ended = take(type, std::string(type) == "Long" ? 1 : 2);
        EXPECT_EQ(0, ended.back().info.valid_data);
        EXPECT_EQ(0, std::memcmp(alive[0].info.instance_handle.keyHash,
                                 ended.back().info.instance_handle.keyHash, 16))
            << type;
    }
}

// More of what may not match is brought in by applications of other makes: see foreign_test.cpp.
TEST_F(Engine, WhatDoesNotMatchIsNamedOnBothSides)
{
    const Strings names{"north", "south-1"};
    const Strings pattern{"s?uth*", "west"};
    const Strings others{"west", "east*"};
    DDS_EndpointQos asked = reliable();
    DDS_EndpointQos offered = reliable();
    asked.partitions = &pattern.list;
    offered.partitions = &names.list;
    ASSERT_NO_FATAL_FAILURE(connect("Numbers", asked, "Numbers", offered));
    DDS_ErrorText notice{};
    EXPECT_EQ(0, DDS_DataWriter_get_mismatches(writer.get(), &notice)) << notice.text;
    ASSERT_NO_FATAL_FAILURE(connect("Numbers", asked, "Text", offered, false));
    const std::string type = "type consistency (its type differs)";
    EXPECT_EQ("1 writer does not match: " + type,
              said(DDS_DataReader_get_mismatches, reader, type));
    EXPECT_EQ("1 reader does not match: " + type,
              said(DDS_DataWriter_get_mismatches, writer, type));
    said(DDS_DataReader_take_notice, reader, "1 times a writer did not match: type consistency");
    said(DDS_DataWriter_take_notice, writer, "1 times a reader did not match: type consistency");
    asked.partitions = &others.list;
    ASSERT_NO_FATAL_FAILURE(connect("Numbers", asked, "Numbers", offered, false));
    EXPECT_EQ(R"(1 writer does not match: partition "north" or "south-1")",
              said(DDS_DataReader_get_mismatches, reader, "partition"));
    EXPECT_EQ(R"(1 reader does not match: partition "east*" or "west")",
              said(DDS_DataWriter_get_mismatches, writer, "partition"));
}

// What varies stands at the end of a key hash; a table of the engine that sees nothing of it there
// doubles with every few instances, until the limit ends this process.
TEST_F(Engine, InstancesOfEveryKindOfKeyTakeLittleMemory)
{
    for (const char *type : {"Wide", "Pair", "Stamp", "Long"}) {
        ASSERT_NO_FATAL_FAILURE(connect(type, reliable(), type, reliable()));
        const Limited limited(RLIMIT_DATA, dataSize() + (256U << 20U));
        const Sample sample = makeSample(typeNamed(type));
        for (int64_t i = 0; i < 500; ++i) {
            DDS_DynamicData_set_longlong(sample.get(), "a", i);
            write(sample);
        }
        take(type, 500);
    }
}

// Each wait has minutes, and comes back when it is called off.
TEST_F(Engine, WaitsOfAWriterCanBeCalledOff)
{
    const auto callOff = [this](auto wait) {
        auto waiting = std::async(std::launch::async, wait);
        DDS_DataWriter_stop_by(writer.get(), INT64_MAX);
        EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::milliseconds(50)));
        DDS_DataWriter_stop_by(writer.get(), monotonic() + SECOND / 100);
        EXPECT_EQ(std::future_status::ready, waiting.wait_for(std::chrono::seconds(30)));
        DDS_DataWriter_stop_by(writer.get(), monotonic() + 600 * SECOND); // changes nothing
        return waiting.get();
    };
    DDS_EndpointQos qos = reliable();
    qos.writeTimeout = 600 * SECOND;
    qos.ignoreLocal = DDS_IGNORE_LOCAL_PROCESS;
    ASSERT_NO_FATAL_FAILURE(connect("Text", qos, "Text", qos));
    const auto waitForReaders = [this] {
        return DDS_DataWriter_wait_for_readers(writer.get(), 2, 600 * SECOND);
    };
    EXPECT_EQ(0, callOff(waitForReaders));
    EXPECT_EQ(0, waitForReaders());

    qos.maxSamples = 1;
    const Sample sample = makeSample(typeNamed("Text"));
    setString(sample, "s", std::string(100000, 'x'));
    const auto fill = [&] {
        DDS_ErrorText error{};
        DDS_ReturnCode_t code = DDS_RETCODE_OK;
        while (code == DDS_RETCODE_OK) {
            code = DDS_DataWriter_write(writer.get(), sample.get(), nullptr, &error);
        }
        EXPECT_STREQ("slow readers held the write up until the writer had to stop", error.text);
        return code;
    };
    ASSERT_NO_FATAL_FAILURE(connect("Text", qos, "Text", qos));
    EXPECT_EQ(0U, DDS_DataWriter_get_unacknowledged(writer.get()));
    EXPECT_EQ(DDS_RETCODE_OUT_OF_RESOURCES, callOff(fill));
    EXPECT_LT(0U, DDS_DataWriter_get_unacknowledged(writer.get()));
    EXPECT_EQ(0, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 600 * SECOND));
    reader.reset();
    EXPECT_TRUE(eventually([&] { return DDS_DataWriter_get_unacknowledged(writer.get()) == 0; }));
}

TEST_F(Engine, MalformedMessagesAreCountedAndGoodOnesStillCome)
{
    DDS_EndpointQos qos = reliable();
    qos.matchByNameOnly = 1;
    ASSERT_NO_FATAL_FAILURE(connect("Text", qos, "Numbers", qos));
    const Sample sample = makeSample(typeNamed("Numbers"));
    DDS_DynamicData_set_long(sample.get(), "m", 0x00636261); // "abc", of the length in front
    for (const int32_t length : {4, 1000, -1, 4}) {
        writeNumber(sample, length);
    }
    EXPECT_EQ("abc", getString(take("Text", 2).at(1).sample, "s"));
    expectRejected(2, "2 messages were no samples of type Text");

    // Of a key.
    ASSERT_NO_FATAL_FAILURE(connect("Named", qos, "described::Ident", qos));
    const Sample keyed = makeSample(typeNamed("described::Ident"));
    DDS_DynamicData_set_long(keyed.get(), "zone", 1000);
    DDS_SampleInfo end{};
    end.source_timestamp.sec = -1;
    write(keyed, &end);
    EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
    expectRejected(1, "1 messages were no samples of type Named");

    // In one packet, and in fragments.
    ASSERT_NO_FATAL_FAILURE(connect("Text", qos, "Text", qos));
    const Sample text = makeSample(typeNamed("Text"));
    for (const size_t more : {size_t{1}, size_t{100000}}) {
        for (const std::string &start : {std::string(UNKNOWN_ENCAPSULATION), std::string("good")}) {
            setString(text, "s", start + std::string(more, '.'));
            write(text);
        }
    }
    EXPECT_EQ("good.", getString(take("Text", 2).at(0).sample, "s"));
    expectRejected(2, "2 messages were no samples of type Text; the last one: Text: encapsulation "
                      "0x4b1d (of unknown kind) is not supported");
}

// What no message can be, or names nothing that anybody knows, is told to whom it belongs.
TEST_F(Engine, MessagesThatNobodyLooksIntoStayAsTheyAre)
{
    const auto first = [](const Taken &taken) {
        uint8_t bytes[2] = {};
        DDS_DynamicData_get_octet(taken.sample.get(), "serialized[0]", &bytes[0]);
        DDS_DynamicData_get_octet(taken.sample.get(), "serialized[1]", &bytes[1]);
        return bytes[0] * 256 + bytes[1];
    };
    ASSERT_NO_FATAL_FAILURE(connect("Opaque", reliable(), "Named", reliable()));
    const Sample text = makeSample(typeNamed("Named"));
    for (const char *start : {UNKNOWN_ENCAPSULATION, "good"}) {
        setString(text, "s", start);
        write(text);
    }
    const std::vector<Taken> taken = take("Opaque", 2);
    EXPECT_EQ(0x4b1d, first(taken.at(0)));
    EXPECT_EQ(1, first(taken.at(1)));

    ASSERT_NO_FATAL_FAILURE(connect("Opaque", reliable(), "described::Ident", reliable()));
    const Sample ident = makeSample(typeNamed("described::Ident"));
    write(ident);
    take("Opaque", 1);
    byHashAlone = true;
    DDS_SampleInfo end{};
    end.source_timestamp.sec = -1;
    write(ident, &end);
    EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
    byHashAlone = false;
    expectRejected(1, "the end of an instance of an unknown type, by the hash of its key");

    ASSERT_NO_FATAL_FAILURE(connect("Named", reliable(), "Opaque", reliable()));
    const Sample message = makeSample(typeNamed("Opaque"));
    DDS_DynamicData_set_length(message.get(), "serialized", 3);
    write(message, nullptr, DDS_RETCODE_ERROR);
    DDS_DynamicData_copy(message.get(), taken[1].sample.get());
    write(message);
    EXPECT_EQ("good", getString(take("Named", 1).at(0).sample, "s"));
}

// The engine's one receiving thread waits for room in the full reader. What that has given up is
// far less than what is written, so that in the end only its own writer waits.
TEST_F(Engine, FullReaderKeepsNobodyButItsWriterWaiting)
{
    DDS_EndpointQos qos = reliable();
    qos.ignoreLocal = DDS_IGNORE_LOCAL_PROCESS;
    qos.writeTimeout = 600 * SECOND;
    DDS_EndpointQos limited = qos;
    limited.maxSamples = 8;
    ASSERT_NO_FATAL_FAILURE(connect("Text", limited, "Text", qos));
    Reader full = std::move(reader);
    const Writer filling = std::move(writer);
    std::atomic<size_t> written{0};
    auto filled = std::async(std::launch::async, [&filling, &written] {
        const Sample sample = makeSample(typeNamed("Text"));
        do {
            setString(sample, "s", std::to_string(written) + std::string(50000, 'x'));
        } while (DDS_DataWriter_write(filling.get(), sample.get(), nullptr, nullptr) ==
                     DDS_RETCODE_OK &&
                 ++written > 0);
    });
    const auto stands = [&written] {
        const size_t before = written;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return before > 0 && before == written;
    };
    EXPECT_TRUE(eventually(stands));

    // Both ways, so that a receiving thread that stood still would be seen on either side.
    for (int way = 0; way < 2; ++way) {
        ASSERT_NO_FATAL_FAILURE(connect("Numbers", qos, "Numbers", qos));
        const Sample sample = makeSample(typeNamed("Numbers"));
        for (int32_t i = 0; i < 20000; ++i) {
            ASSERT_EQ(DDS_RETCODE_OK,
                      DDS_DataWriter_write(writer.get(), sample.get(), nullptr, nullptr));
        }
        EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 60 * SECOND));
        std::swap(near, far);
    }
    DDS_DataWriter_stop_by(filling.get(), monotonic());
    filled.get();
    EXPECT_GT(1500U, written); // 32 MiB, and what threads of the engine had in hand
    reader = std::move(full);
    size_t number = 0;
    for (const Taken &taken : take("Text", written, 60 * SECOND)) {
        EXPECT_EQ(number++, std::stoul(getString(taken.sample, "s")));
    }
    for (int32_t i = 0; i < 100; ++i) {
        (void)DDS_DataWriter_write(filling.get(), makeSample(typeNamed("Text")).get(), nullptr,
                                   nullptr);
    }
    DDS_DataWriter_flush(filling.get());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    reader.reset(); // while it is full again
}

// By the source time of what was let through, for each instance by itself.
TEST_F(Engine, ATimeBasedFilterPassesOverWhatComesTooSoon)
{
    DDS_EndpointQos asked = reliable();
    asked.timeBasedFilter = 10 * SECOND;
    ASSERT_NO_FATAL_FAILURE(connect("Wide", asked, "Wide", reliable()));
    const Sample sample = makeSample(typeNamed("Wide"));
    struct Sent {
        int64_t instance;
        int32_t seconds;
        int32_t end;
    };
    const auto seen = [&](const std::vector<Sent> &all, size_t count) {
        for (const Sent &sent : all) {
            DDS_SampleInfo info{};
            info.valid_data = sent.end == 0 ? 1 : 0;
            info.instance_state = sent.end;
            info.source_timestamp = {sent.seconds, 0};
            DDS_DynamicData_set_longlong(sample.get(), "a", sent.instance);
            write(sample, &info);
        }
        EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
        std::string text;
        for (const Taken &taken : take("Wide", count)) {
            text += std::to_string(taken.info.instance_handle.keyHash[7]);
            text += taken.info.valid_data == 0
                        ? " ended "
                        : "@" + std::to_string(taken.info.source_timestamp.sec) + " ";
        }
        return text;
    };
    EXPECT_EQ("1@100 1@110 2@101 ", seen({{1, 100, 0}, {1, 109, 0}, {2, 101, 0}, {1, 110, 0}}, 3));
    // The clock went back; what ends begins anew.
    const int32_t disposed = DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
    EXPECT_EQ("1@90 1 ended ", seen({{1, 90, 0}, {1, 98, 0}, {1, 99, disposed}}, 2));
    EXPECT_EQ("1@99 ", seen({{1, 99, 0}}, 1));
    EXPECT_EQ("2@112 2 ended ", seen({{2, 112, 0}, {2, 113, disposed}}, 2));
}

TEST_F(Engine, WhatGetsLostOrIsLateIsReported)
{
    const Sample sample = makeSample(typeNamed("Wide"));
    DDS_EndpointQos qos{};
    qos.maxSamples = 2;
    qos.deadline = SECOND / 5;
    ASSERT_NO_FATAL_FAILURE(connect("Wide", qos, "Wide", qos));
    DDS_ReaderStatistics statistics;
    ASSERT_TRUE(eventually([&] { // best effort waits for nobody
        DDS_DataReader_get_statistics(reader.get(), &statistics);
        return statistics.matched == 1;
    }));
    for (int64_t i = 0; i < 5; ++i) {
        DDS_DynamicData_set_longlong(sample.get(), "a", i);
        write(sample);
    }
    EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 0)); // by nobody
    said(DDS_DataReader_take_notice, reader, "samples found no room and were dropped");
    said(DDS_DataReader_take_notice, reader, "times the deadline was missed");
    said(DDS_DataWriter_take_notice, writer, "deadline missed ");

    // Records of another type, or with no room for the sample, which is lost then.
    DDS_ErrorText error{};
    const Sample other = makeSample(typeNamed("Text"));
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER,
              DDS_DataWriter_write(writer.get(), other.get(), nullptr, &error));
    EXPECT_EQ(DDS_RETCODE_BAD_PARAMETER,
              DDS_DataWriter_write(writer.get(), nullptr, nullptr, &error));
    DDS_DynamicData *record = other.get();
    DDS_SampleInfo info{};
    DDS_SampleInfo *infos = &info;
    EXPECT_EQ(-1, DDS_DataReader_take(reader.get(), &record, &infos, 1, nullptr, &error));
    EXPECT_STREQ("sample 0 is not of the reader's type Wide", error.text);
    ASSERT_NO_FATAL_FAILURE(connect("Text", reliable(), "Text", reliable()));
    DDS_SampleInfo end{};
    write(other, &end, DDS_RETCODE_BAD_PARAMETER); // there are no instances
    for (const size_t size : {size_t{10}, size_t{1000}, size_t{20}}) {
        setString(other, "s", std::string(size, 'x'));
        write(other);
    }
    EXPECT_EQ(1, DDS_DataWriter_wait_for_acknowledgments(writer.get(), 5 * SECOND));
    const DDS_DynamicDataProperty_t property{0, 100};
    const Sample first(DDS_DynamicData_new(typeNamed("Text"), &property));
    const Sample second(DDS_DynamicData_new(typeNamed("Text"), &property));
    DDS_DynamicData *both[] = {first.get(), second.get()};
    DDS_SampleInfo *bothInfos[] = {&info, &end};
    std::string counts;
    EXPECT_TRUE(eventually([&] {
        const int32_t count =
            DDS_DataReader_take(reader.get(), both, bothInfos, 2, nullptr, &error);
        counts += count != 0 ? std::to_string(count) + " " : "";
        return getString(first, "s").size() == 20;
    }));
    EXPECT_EQ("1 -1 1 ", counts);
    DDS_DataReader_get_statistics(reader.get(), &statistics);
    EXPECT_EQ(1U, statistics.lost);
}

TEST_F(Engine, SettingsThatCannotBeAreRejectedByName)
{
    const auto given = [](const std::string &text) {
        return text.empty() ? nullptr : text.c_str();
    };
    for (const Record &test : recordsOf("domain/data/rejected_settings.txt")) {
        const DDS_ParticipantSettings settings =
            settingsOf(std::stoi(test.at(0)), given(test.at(1)), std::stoi(test.at(2)),
                       given(test.at(3)), given(test.at(4)));
        DDS_ErrorText error{};
        EXPECT_EQ(nullptr, DDS_DomainParticipant_new(&settings, &error)) << test.at(5);
        EXPECT_NE(nullptr, std::strstr(error.text, test.at(5).c_str())) << error.text;
    }
    DDS_ErrorText error{};
    for (const auto &[transport, port, why] : {std::tuple(2, 0, "transport 2 is not"),
                                               {-1, 0, "transport -1"},
                                               {0, 7411, "port 7411"},
                                               {1, -1, "port -1"},
                                               {1, 65536, "port 65536: a number from 1"}}) {
        DDS_ParticipantSettings settings = settingsOf(91, nullptr, 0, nullptr, nullptr);
        settings.transport = transport;
        settings.port = port;
        EXPECT_EQ(nullptr, DDS_DomainParticipant_new(&settings, &error));
        EXPECT_EQ(0U, std::string(error.text).rfind(why, 0)) << error.text;
    }
    EXPECT_EQ(nullptr, DDS_DomainParticipant_new(nullptr, &error));
    EXPECT_STREQ("no settings", error.text);
    EXPECT_NE(nullptr, join(230, "", nullptr, " 127.0.0.1 "));
    EXPECT_NE(nullptr, join(91, "<!-- <SharedMemory/> --><General/>")); // nothing is left of these
}

TEST_F(Engine, EndpointsThatCannotBeAreRejectedByName)
{
    const std::string longName(300, 'x');
    const std::string idl =
        "struct A" + longName + " { long m; }; struct M { long " + longName + "; };";
    struct Asked {
        DDS_DomainParticipant *participant;
        const char *topic;
        const DDS_TypeCode *type;
        DDS_EndpointQos qos;
        const DDS_EndpointQos *given = &qos;
    };
    const std::string missing =
        "a participant, a topic name, a type and its quality of service are needed";
    const std::pair<std::function<void(Asked &)>, std::string> cases[] = {
        {[](Asked &a) { a.participant = nullptr; }, missing},
        {[](Asked &a) { a.topic = nullptr; }, missing},
        {[](Asked &a) { a.topic = ""; }, missing},
        {[](Asked &a) { a.type = nullptr; }, missing},
        {[](Asked &a) { a.given = nullptr; }, missing},
        {[](Asked &a) { a.topic = "a b"; }, "the engine does not take the topic name \"a b\""},
        {[](Asked &a) { a.type = typeNamed("described::Sky"); },
         "topic \"t\": its type is no struct"},
        {[&](Asked &a) { a.type = typeFromIdl(idl.c_str(), ("A" + longName).c_str()); }, longName},
        {[&](Asked &a) { a.type = typeFromIdl(idl.c_str(), "M"); }, longName},
        {[](Asked &a) { a.qos.deadline = -1; }, "deadline is negative"},
        {[](Asked &a) { a.qos.ownershipStrength = -1; }, "ownership strength is negative"},
        {[](Asked &a) { a.qos.historyDepth = 1 + (a.qos.maxSamples = 8); },
         "history depth 9 is above the most samples kept, 8"},
        {[](Asked &a) { a.qos.ignoreLocal = static_cast<DDS_IgnoreLocalKind>(3); },
         "unknown kind 3 of ignoring"},
        {[](Asked &a) { a.qos.liveliness = static_cast<DDS_LivelinessKind>(3); },
         "unknown kind of liveliness"},
        {[](Asked &a) { a.qos.presentation = static_cast<DDS_PresentationScope>(3); },
         "or presentation"},
        {[](Asked &a) { a.qos.representation = static_cast<DDS_DataRepresentation>(1); },
         "unknown data representation 1"}};
    for (const auto &[change, reason] : cases) {
        Asked asked{near.get(), "t", typeNamed("Numbers"), reliable()};
        change(asked);
        DDS_ErrorText error{};
        EXPECT_EQ(nullptr, DDS_DataReader_new(asked.participant, asked.topic, "", asked.type,
                                              asked.given, nullptr, nullptr, &error));
        EXPECT_NE(nullptr, std::strstr(error.text, reason.c_str())) << error.text;
        error = {};
        EXPECT_EQ(nullptr, DDS_DataWriter_new(asked.participant, asked.topic, "", asked.type,
                                              asked.given, &error));
        EXPECT_NE(nullptr, std::strstr(error.text, reason.c_str())) << error.text;
    }
    DDS_DataWriter_delete(nullptr);
    DDS_ErrorText error{};
    EXPECT_EQ(nullptr, DDS_Discovery_new(nullptr, DDS_RESOLVE_TYPES, 0, nullptr, nullptr, &error));
    EXPECT_STREQ("no participant", error.text);
}

// As the engine writes it into its trace: each setting that comes from the library.
TEST(Domain, SettingsReachTheEngine)
{
    const std::string trace = testing::TempDir() + "engine_trace_" + std::to_string(getpid());
    const std::string xml =
        "<Tracing><Verbosity>config</Verbosity><OutputFile>" + trace + "</OutputFile></Tracing>";
    for (const Record &test : recordsOf("domain/data/engine_settings.txt")) {
        const DDS_ParticipantSettings settings = settingsOf(
            91, test.at(0).c_str(), std::stoi(test.at(2)), test.at(1).c_str(), xml.c_str());
        const Participant made(DDS_DomainParticipant_new(&settings, nullptr));
        std::ifstream file(trace);
        Record logged(test.begin(), test.begin() + 3);
        for (std::string line; std::getline(file, line);) {
            std::smatch found;
            if (std::regex_search(line, found,
                                  std::regex("config: .*?([^/]*?)(/#text)?(: .*) \\{0\\}$"))) {
                logged.push_back(found.str(1) + found.str(3));
            }
        }
        EXPECT_EQ(test, logged);
        std::remove(trace.c_str());
    }
}

// The engine itself crashes then.
TEST(Domain, WithoutDescriptorsOrThreadsThereIsAClearError)
{
    std::string why;
    const int next = dup(0);
    ASSERT_LE(0, next);
    close(next);
    for (const rlim_t more : {3U, 7U, 15U}) {
        const Limited limited(RLIMIT_NOFILE, static_cast<rlim_t>(next) + more);
        EXPECT_EQ(nullptr, join(91, nullptr, &why));
        EXPECT_NE(std::string::npos, why.find("ulimit -n")) << why;
    }
    constexpr uid_t NOBODY = 65534;
    const uid_t before = getuid();
    ASSERT_TRUE(before != 0 || setresuid(NOBODY, NOBODY, 0) == 0); // root has no limit
    {
        const Limited limited(RLIMIT_NPROC, 1);
        EXPECT_EQ(nullptr, join(91, nullptr, &why));
        EXPECT_NE(std::string::npos, why.find("ulimit -u")) << why;
    }
    ASSERT_TRUE(before != 0 || setresuid(0, 0, 0) == 0);
    EXPECT_NE(nullptr, join(91, nullptr));
}

} // namespace
