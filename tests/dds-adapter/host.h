// The adapter as a host sees it: its table, and nothing else of it.
#ifndef TESTS_DDS_ADAPTER_HOST_H
#define TESTS_DDS_ADAPTER_HOST_H

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "../platform/fixture.h"
#include "adapter.h"
#include "qddsc/sample_info.h"

// Reader and writer may be of one process.
constexpr const char *NEAR = "ignore_local=none";

inline const DDS_TypeCode *readingType()
{
    static const DDS_TypeCode *const type =
        typeFromIdl("struct Reading { @key string id; long n; };", "Reading");
    return type;
}

// The pairs of "a=1; b=two"; "~a" is what was announced as a.
inline std::vector<std::pair<std::string, std::string>> pairsOf(const std::string &text)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t at = 0, end = 0; at < text.size(); at = end + 2) {
        end = std::min(text.find("; ", at), text.size());
        const size_t equals = text.find('=', at);
        std::string name = text.substr(at, equals - at);
        if (name[0] == '~') {
            name.replace(0, 1, "qel.ferrion.announced.");
        }
        pairs.emplace_back(name, text.substr(equals + 1, end - equals - 1));
    }
    return pairs;
}

// A property list for one call.
struct Properties {
    explicit Properties(const std::string &text) : texts(pairsOf(text))
    {
        for (auto &[name, value] : texts) {
            pairs.push_back({name.data(), value.data()});
        }
        raw = {pairs.data(), static_cast<int32_t>(pairs.size())};
    }
    std::vector<std::pair<std::string, std::string>> texts;
    std::vector<QEL_FerrionNameValue> pairs;
    QEL_FerrionProperties raw{};
};

// One connection with one session, and the error of the last call.
struct Host {
    explicit Host(int domain, const std::string &forSession = "",
                  const std::string &forConnection = "")
    {
        const std::string id = "domain=" + std::to_string(domain);
        const Properties own(forConnection.empty() ? id : id + "; " + forConnection);
        const Properties common(forSession);
        plugin = FerryAdapter_dds_create(nullptr, fresh());
        connection = table().create_connection(plugin, nullptr, nullptr, &listener, &listener,
                                               nullptr, nullptr, &own.raw, fresh());
        session = table().create_session(connection, &common.raw, &environment);
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
    // Whether the last call failed with a text that says this; with "" it must not have failed.
    void expectError(const std::string &part) const
    {
        EXPECT_NE(error().find(part), std::string::npos) << part << " is wanted of: " << error();
        EXPECT_EQ(error().empty(), part.empty()) << error();
    }
    QEL_FerrionStreamReader *reader(const char *topic, const std::string &settings = "")
    {
        const Properties properties(settings);
        stream.streamName = const_cast<char *>(topic);
        return table().create_stream_reader(connection, session, &stream, &properties.raw,
                                            &listener, fresh());
    }
    QEL_FerrionStreamWriter *writer(const char *topic, const std::string &settings = "")
    {
        const Properties properties(settings);
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
