// Samples between two hosts, one of which may be another process, and what was logged meanwhile.
#ifndef TESTS_DDS_ADAPTER_CROSSING_H
#define TESTS_DDS_ADAPTER_CROSSING_H

#include <cstdio>
#include <mutex>
#include <set>

#include "host.h"

template<typename Condition> bool eventually(Condition condition)
{
    return within(std::chrono::seconds(10), condition);
}

// Whether the text was logged; each time that it was is reported once.
inline std::mutex g_logMutex;
inline std::string g_log;
inline std::atomic<uint32_t> g_level{0}; // of the last line
inline bool logged(const std::string &text)
{
    const std::lock_guard<std::mutex> lock(g_logMutex);
    const size_t at = g_log.find(text);
    if (at == std::string::npos) {
        return false;
    }
    g_log.erase(at, text.size());
    return true;
}

// A sample with its information, as text: "a=1 @100", or "a disposed @102".
inline std::string textOf(const DDS_DynamicData &sample, const DDS_SampleInfo &info)
{
    const char *id = "?";
    int32_t n = -1;
    DDS_DynamicData_get_string(&sample, "id", &id, nullptr);
    DDS_DynamicData_get_long(&sample, "n", &n);
    EXPECT_EQ(info.source_timestamp.nanosec, 123456789U);
    EXPECT_TRUE(info.publication_handle.isValid == 1 && info.instance_handle.isValid == 1);
    EXPECT_TRUE(info.valid_data != 0 || n == 0);
    const char *end =
        info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE ? " disposed" : " left";
    return id + (info.valid_data != 0 ? "=" + std::to_string(n) : end) + " @" +
           std::to_string(info.source_timestamp.sec);
}

constexpr int32_t ALIVE = DDS_ALIVE_INSTANCE_STATE;

struct Sent {
    const char *id;
    int32_t n;
    int32_t state;
    int32_t seconds;
};

inline int write(Host &host, QEL_FerrionStreamWriter *writer, const std::vector<Sent> &all)
{
    std::vector<Sample> owners;
    std::vector<void *> samples;
    std::vector<DDS_SampleInfo> values(all.size());
    std::vector<DDS_SampleInfo *> infos;
    for (size_t i = 0; i < all.size(); ++i) {
        owners.push_back(
            makeSample(static_cast<const DDS_TypeCode *>(host.stream.typeRepresentation)));
        setString(owners.back(), "id", all[i].id);
        DDS_DynamicData_set_long(owners.back().get(), "n", all[i].n);
        samples.push_back(owners.back().get());
        values[i].instance_state = all[i].state;
        values[i].valid_data = all[i].state == ALIVE ? 1 : 0;
        values[i].source_timestamp = {all[i].seconds, 123456789};
        infos.push_back(&values[i]);
    }
    return host.table().write(writer, samples.data(), infos.data(),
                              static_cast<int32_t>(all.size()), host.fresh());
}

// The ends are written when the samples have been read: an end that overtakes them is reported with
// them, at their time.
inline const std::vector<Sent> births = {
    {"a", 1, ALIVE, 100}, {"b", 2, ALIVE, 101}, {"c", 3, ALIVE, 102}};
inline const std::vector<Sent> ends = {{"a", 9, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, 103},
                                       {"b", 9, DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE, 104}};

// Reads `count` samples, at most two at a time.
inline std::set<std::string> readSet(Host &host, QEL_FerrionStreamReader *reader, size_t count)
{
    std::set<std::string> seen;
    eventually([&] {
        const int read = host.read<DDS_DynamicData>(
            reader, [&](auto &sample, auto &info) { seen.insert(textOf(sample, info)); });
        EXPECT_LE(read, 2);
        host.expectError("");
        return seen.size() >= count;
    });
    return seen;
}

// A read without the return of what was lent is rejected.
inline void expectOneLoan(Host &host, QEL_FerrionStreamReader *reader)
{
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    int32_t count = 0;
    EXPECT_TRUE(eventually([&] {
        host.table().read(reader, &samples, &infos, &count, host.fresh());
        return count == 1;
    }));
    host.table().read(reader, &samples, &infos, &count, host.fresh());
    EXPECT_EQ(count, 0);
    host.expectError("the last loan has not been returned");
    host.environment.message[0] = '\0';
    host.table().read(reader, &samples, &infos, &count, &host.environment);
    host.expectError(""); // the first error of a call is the one
    host.table().return_loan(reader, samples, infos, count, host.fresh());
}

// This program as another process, which does what its standard input says until that ends.
class Peer {
public:
    explicit Peer(const char *domain, bool dies = false)
        : pipe_(popen(("exec timeout 60 /proc/$PPID/exe --peer " + std::string(domain)).c_str(),
                      "w")),
          dies_(dies)
    {
    }
    ~Peer()
    {
        EXPECT_EQ(pclose(pipe_) == 0, !dies_);
    }
    void send(const std::string &command) const
    {
        std::fprintf(pipe_, "%s\n", command.c_str());
        std::fflush(pipe_);
    }

private:
    FILE *pipe_;
    bool dies_;
};

#endif
