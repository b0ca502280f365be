// What tests of every platform library use: threads, the heap's counters, log lines.
#ifndef TESTS_PLATFORM_CORE_FIXTURE_H
#define TESTS_PLATFORM_CORE_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
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
