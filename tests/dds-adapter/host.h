// The adapter as a host sees it: its table, and nothing else of it.
#ifndef TESTS_DDS_ADAPTER_HOST_H
#define TESTS_DDS_ADAPTER_HOST_H

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "../platform/fixture.h"
#include "adapter.h"
#include "qddsc/sample_info.h"

using List = std::vector<std::pair<std::string, std::string>>;

inline const DDS_TypeCode *readingType()
{
    static const DDS_TypeCode *const type =
        typeFromIdl("struct Reading { @key string id; long n; };", "Reading");
    return type;
}

// A property list for one call.
struct Properties {
    explicit Properties(List list) : texts(std::move(list))
    {
        for (auto &[name, value] : texts) {
            pairs.push_back({name.data(), value.data()});
        }
        raw = {pairs.data(), static_cast<int32_t>(pairs.size())};
    }
    List texts;
    std::vector<QEL_FerrionNameValue> pairs;
    QEL_FerrionProperties raw{};
};

// One connection with one session, and the error of the last call.
struct Host {
    explicit Host(const char *domain, List list = {})
    {
        list.emplace_back("domain", domain);
        const Properties properties(std::move(list));
        plugin = FerryAdapter_dds_create(nullptr, fresh());
        connection = table().create_connection(plugin, nullptr, nullptr, &listener, &listener,
                                               nullptr, nullptr, &properties.raw, fresh());
        session = table().create_session(connection, nullptr, &environment);
    }
    ~Host()
    {
        table().delete_session(connection, session, fresh());
        table().delete_connection(plugin, connection, fresh());
        EXPECT_EQ(table().delete_adapter(plugin, fresh()), 1);
    }
    const QEL_FerrionAdapterOperations &table() const
    {
        return plugin->operations;
    }
    QEL_FerrionEnvironment *fresh()
    {
        environment = {};
        return &environment;
    }
    std::string error() const
    {
        return environment.errorFlag != 0 ? environment.message : "";
    }
    QEL_FerrionStreamReader *reader(const char *topic, List list = {})
    {
        const Properties properties(std::move(list));
        stream.streamName = const_cast<char *>(topic);
        return table().create_stream_reader(connection, session, &stream, &properties.raw,
                                            &listener, fresh());
    }
    QEL_FerrionStreamWriter *writer(const char *topic, List list = {})
    {
        const Properties properties(std::move(list));
        stream.streamName = const_cast<char *>(topic);
        return table().create_stream_writer(connection, session, &stream, &properties.raw, fresh());
    }
    void remove(QEL_FerrionStreamReader *reader)
    {
        table().delete_stream_reader(connection, reader, fresh());
    }
    void remove(QEL_FerrionStreamWriter *writer)
    {
        table().delete_stream_writer(connection, writer, fresh());
    }
    // Hands every element of one read to `use`, and returns how many there were.
    template<class Element, class Use> int read(QEL_FerrionStreamReader *reader, Use &&use)
    {
        void **samples = nullptr;
        DDS_SampleInfo **infos = nullptr;
        int32_t count = 0;
        table().read(reader, &samples, &infos, &count, fresh());
        for (int32_t i = 0; i < count; ++i) {
            use(*static_cast<Element *>(samples[i]), *infos[i]);
        }
        QEL_FerrionEnvironment other{};
        table().return_loan(reader, samples, infos, count, &other);
        return count;
    }

    std::atomic<QEL_FerrionStreamReader *> signalled{nullptr};
    QEL_FerrionEnvironment environment{};
    QEL_FerrionStreamInfo stream{0, nullptr, nullptr, 0, const_cast<DDS_TypeCode *>(readingType()),
                                 {}};
    QEL_FerrionAdapterPlugin *plugin = nullptr;
    QEL_FerrionConnection *connection = nullptr;
    QEL_FerrionSession *session = nullptr;
    QEL_FerrionStreamReaderListener listener{this, [](QEL_FerrionStreamReader *reader, void *self) {
                                                 static_cast<Host *>(self)->signalled = reader;
                                             }};
};

#endif
