// What tests of every platform library use: threads, the heap's counters, log lines.
#ifndef TESTS_PLATFORM_CORE_FIXTURE_H
#define TESTS_PLATFORM_CORE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "qddscore/heap.h"
#include "qddscore/log.h"

// Runs `work` with the numbers from 0 on as many threads and waits for them.
template<typename Work> void onThreads(int count, const Work &work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Waits until `condition` holds, and says whether it did in time.
template<typename Condition> bool within(std::chrono::nanoseconds time, Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

inline QELOsapiHeapUsage heapUsage()
{
    QELOsapiHeapUsage usage{};
    QELOsapiHeap_getUsage(&usage);
    return usage;
}

// Bytes, as RLIMIT_DATA counts them.
inline rlim_t dataSize()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    rlim_t kibibytes = 0;
    while (status >> word && word != "VmData:") {
    }
    status >> kibibytes;
    return kibibytes << 10U;
}

// A limit of this process while it lives.
class Limited {
public:
    Limited(__rlimit_resource_t limited, rlim_t value) : resource(limited)
    {
        EXPECT_EQ(0, getrlimit(resource, &before));
        const rlimit now{value, before.rlim_max};
        EXPECT_EQ(0, setrlimit(resource, &now));
    }
    Limited(const Limited &) = delete;
    Limited &operator=(const Limited &) = delete;
    ~Limited()
    {
        EXPECT_EQ(0, setrlimit(resource, &before));
    }

private:
    __rlimit_resource_t resource;
    rlimit before{};
};

// The log's lines while the object lives.
struct Lines {
    Lines()
    {
        const QELLogSink add = [](void *self, const char *line, size_t length) {
            EXPECT_EQ(std::string(line).size(), length);
            static_cast<Lines *>(self)->all.emplace_back(line, length);
        };
        QELLog_setSink(add, this);
    }
    ~Lines()
    {
        QELLog_setSink(nullptr, nullptr);
    }

    std::vector<std::string> all;
};

#endif
