// Readers and writers of two domains of this process that are one outside.
#ifndef TESTS_DOMAIN_ENGINE_FIXTURE_H
#define TESTS_DOMAIN_ENGINE_FIXTURE_H

#include <unistd.h>

#include <cstring>
#include <sstream>

#include "../platform/fixture.h"
#include "qddsdomain/reader.h"
#include "qddsdomain/writer.h"

using Participant = std::unique_ptr<DDS_DomainParticipant, Deleter<DDS_DomainParticipant_delete>>;
using Reader = std::unique_ptr<DDS_DataReader, Deleter<DDS_DataReader_delete>>;
using Writer = std::unique_ptr<DDS_DataWriter, Deleter<DDS_DataWriter_delete>>;

constexpr int64_t SECOND = 1000000000;
// Other processes that run these tests have another tag, and see nothing of it.
inline const std::string OUTSIDE = "<Discovery><ExternalDomainId>85</ExternalDomainId><Tag>" +
                                   std::to_string(getpid()) + "</Tag></Discovery>";

inline const DDS_TypeCode *typeNamed(const std::string &name)
{
    const DDS_OpaqueType keyed{1, nullptr, 0, nullptr, 0};
    if (name == "Opaque") {
        return DDS_TypeCode_create_opaque("Type", &keyed, nullptr);
    }
    std::stringstream text;
    text << std::ifstream(DESCRIBED_IDL).rdbuf()
         << "struct Text { string s; }; struct Numbers { long n; long m; };"
            "@final struct Wide { @key long long a; long long b; };"
            "@final struct Pair { @key long b; @key long long a; };"
            "@final struct Stamp { @key long long b, a; };"
            "@final struct Named { @key string s; };"
            "@final struct Long { @key long long b, a, c; };";
    return typeFromIdl(text.str().c_str(), name.c_str());
}

inline DDS_ParticipantSettings settingsOf(int32_t domain, const char *interfaces, int32_t multicast,
                                          const char *peers, const char *xml)
{
    return {domain, interfaces, multicast, peers, xml, "engine test", 0, 0, nullptr};
}

inline Participant join(int32_t domain, const char *xml = OUTSIDE.c_str(),
                        std::string *why = nullptr, const char *interfaces = nullptr)
{
    DDS_ErrorText error{};
    const DDS_ParticipantSettings settings = settingsOf(domain, interfaces, 0, nullptr, xml);
    Participant made(DDS_DomainParticipant_new(&settings, &error));
    EXPECT_TRUE(made != nullptr || why != nullptr) << error.text;
    if (why != nullptr) {
        *why = error.text;
    }
    return made;
}

template<typename Condition> bool eventually(Condition condition)
{
    return within(std::chrono::seconds(30), condition);
}

// Waits until the engine says something with `part` of an endpoint, and returns all of it.
template<class Ask, class Endpoint>
std::string said(Ask ask, const Endpoint &endpoint, const std::string &part)
{
    DDS_ErrorText text{};
    EXPECT_TRUE(eventually([&] {
        return ask(endpoint.get(), &text) == 1 && std::strstr(text.text, part.c_str()) != nullptr;
    })) << part
        << " was wanted, the last is: " << text.text;
    return text.text;
}

inline DDS_EndpointQos reliable()
{
    DDS_EndpointQos qos{};
    qos.reliable = 1;
    qos.writeTimeout = 5 * SECOND;
    return qos;
}

inline int64_t monotonic()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// A list of partitions.
struct Strings {
    Strings(std::initializer_list<const char *> names)
    {
        DDS_StringSeq_initialize(&list);
        for (const char *name : names) {
            DDS_StringSeq_append(&list, name);
        }
    }
    Strings(const Strings &) = delete;
    Strings &operator=(const Strings &) = delete;
    ~Strings()
    {
        DDS_StringSeq_finalize(&list);
    }

    DDS_StringSeq list{};
};

struct Taken {
    Sample sample;
    DDS_SampleInfo info;
};

class Engine : public testing::Test {
protected:
    Participant near = join(85), far = join(86);
    Reader reader;
    Writer writer;
    std::string topic;

    // A reader near and a writer far, on a topic of their own: another's
    // endpoints may still be leaving.
    void connect(const char *readerType, DDS_EndpointQos asked, const char *writerType,
                 DDS_EndpointQos offered, bool matching = true,
                 DDS_DomainParticipant *from = nullptr)
    {
        static int count = 0;
        topic = "topic_" + std::to_string(++count);
        DDS_ErrorText error{};
        reader.reset(DDS_DataReader_new(near.get(), topic.c_str(), "Type", typeNamed(readerType),
                                        &asked, nullptr, nullptr, &error));
        ASSERT_NE(nullptr, reader) << error.text;
        writer.reset(DDS_DataWriter_new(from != nullptr ? from : far.get(), topic.c_str(), "Type",
                                        typeNamed(writerType), &offered, &error));
        ASSERT_NE(nullptr, writer) << error.text;
        if (matching) {
            ASSERT_EQ(1, DDS_DataWriter_wait_for_readers(writer.get(), 1, 5 * SECOND));
        }
    }

    void expectRejected(uint64_t count, const std::string &notice)
    {
        DDS_ReaderStatistics statistics;
        DDS_DataReader_get_statistics(reader.get(), &statistics);
        EXPECT_EQ(count, statistics.malformed);
        said(DDS_DataReader_take_notice, reader, notice);
        DDS_ErrorText left{};
        EXPECT_EQ(0, DDS_DataReader_take_notice(reader.get(), &left)) << left.text;
    }

    void write(const Sample &sample, const DDS_SampleInfo *info = nullptr,
               DDS_ReturnCode_t expected = DDS_RETCODE_OK)
    {
        DDS_ErrorText error{};
        EXPECT_EQ(expected, DDS_DataWriter_write(writer.get(), sample.get(), info, &error))
            << error.text;
        EXPECT_EQ(expected != DDS_RETCODE_OK, error.text[0] != '\0');
        DDS_DataWriter_flush(writer.get());
    }

    void writeNumber(const Sample &sample, int32_t number)
    {
        DDS_DynamicData_set_long(sample.get(), "n", number);
        write(sample);
    }

    // One by one, so that every block of the engine is cut somewhere.
    std::vector<Taken> take(const char *type, size_t wanted, int64_t limit = 5 * SECOND)
    {
        const DDS_TypeCode *code = typeNamed(type);
        std::vector<Taken> all;
        within(std::chrono::nanoseconds(limit), [&] {
            for (;;) {
                Taken taken{makeSample(code), {}};
                DDS_DynamicData *sample = taken.sample.get();
                DDS_SampleInfo *info = &taken.info;
                DDS_ErrorText error{};
                if (DDS_DataReader_take(reader.get(), &sample, &info, 1, nullptr, &error) != 1) {
                    EXPECT_STREQ("", error.text);
                    return all.size() >= wanted;
                }
                all.push_back(std::move(taken));
            }
        });
        EXPECT_EQ(wanted, all.size());
        return all;
    }
};

inline int32_t number(const Taken &taken, const char *path = "n")
{
    int32_t value = -1;
    DDS_DynamicData_get_long(taken.sample.get(), path, &value);
    return value;
}

#endif
