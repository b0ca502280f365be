// Keeps repeated lines from flooding the log, whoever logs them. One thread at a time.
#ifndef FERRY_PROCESS_FLOOD_GATE_H
#define FERRY_PROCESS_FLOOD_GATE_H

#include <cstdint>
#include <string>
#include <unordered_map>

#include "engine/clock.h"

namespace ferry {

class FloodGate {
public:
    /// Admits a line a few times, and as often again after a while. `heldBack` is set to how many
    /// came since the last admitted one.
    bool admit(const std::string &line, Clock::time_point now, std::uint64_t &heldBack)
    {
        forget(now);
        Entry &entry = entries_[line];
        if (entry.count == 0 || now >= entry.until) {
            heldBack = entry.count > burst ? entry.count - burst : 0;
            entry = {1, now + window};
            return true;
        }
        heldBack = 0;
        return ++entry.count <= burst;
    }

private:
    struct Entry {
        std::uint64_t count = 0;
        Clock::time_point until;
    };

    static constexpr std::uint64_t burst = 5;
    static constexpr std::chrono::seconds window{10};
    /// Bounds the memory that lines cost which are all different.
    static constexpr std::size_t most = 512;

    void forget(Clock::time_point now)
    {
        if (entries_.size() < most) {
            return;
        }
        for (auto entry = entries_.begin(); entry != entries_.end();) {
            entry = now >= entry->second.until ? entries_.erase(entry) : std::next(entry);
        }
        if (entries_.size() >= most) {
            entries_.clear();
        }
    }

    std::unordered_map<std::string, Entry> entries_;
};

} // namespace ferry

#endif
