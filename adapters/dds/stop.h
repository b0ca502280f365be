// The end of all waiting: once the host has been asked to stop, calls return by a deadline.
#ifndef FERRYADAPTER_DDS_STOP_H
#define FERRYADAPTER_DDS_STOP_H

#include <cstdint>
#include <limits>
#include <mutex>
#include <vector>

#include "qddsdomain/writer.h"

namespace ferrydds {

/// One for each adapter; outlives its connections. Any thread.
class Stop {
public:
    /// Nanoseconds of CLOCK_MONOTONIC; the earliest of several holds. Returns at once.
    void by(std::int64_t deadline);
    bool begun() const;

    /// From here on the writer's calls return in time.
    void enlist(DDS_DataWriter &writer);
    /// Before the writer is deleted.
    void delist(const DDS_DataWriter &writer);

private:
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

    mutable std::mutex mutex_;
    std::int64_t deadline_ = never;
    std::vector<DDS_DataWriter *> writers_;
};

} // namespace ferrydds

#endif
