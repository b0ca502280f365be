// A connection's watch over its domain, started when somebody first wants to know. The engine's
// thread only says that there is something; events are taken on the host's threads, which may be
// several.
#ifndef FERRYADAPTER_DDS_DISCOVERY_WATCH_H
#define FERRYADAPTER_DDS_DISCOVERY_WATCH_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "dds_objects.h"
#include "stream_table.h"

namespace ferrydds {

class DiscoveryWatch {
public:
    /// Which streams have opaque types; the words of the setting are in this order.
    enum class Opaque { never, unknown, always };

    /// `onChange` runs on the engine's thread from start() until the destructor has returned. It
    /// must not block.
    DiscoveryWatch(Participant participant, Opaque opaque, std::chrono::nanoseconds typeTimeout,
                   std::function<void()> onChange);
    ~DiscoveryWatch();
    DiscoveryWatch(const DiscoveryWatch &) = delete;
    DiscoveryWatch &operator=(const DiscoveryWatch &) = delete;

    /// Begins to watch; does nothing when it has begun. Throws Failure.
    void start();

    /// What has changed since the last call for that direction. While the watch is young a call
    /// that finds new streams takes a moment longer: what is there together is reported together.
    std::vector<StreamChange> takeChanges(Direction direction);

    /// What all of the topic's remote writers offer; nothing when there are none. Starts the watch;
    /// one that has not run for the type timeout yet gets the rest of it to find a first writer,
    /// and a moment more for others.
    std::optional<DDS_DiscoveredQos> writersOffer(const std::string &topic);

private:
    static void onEvent(void *self);
    void pump();
    std::optional<DDS_DiscoveredQos> offerNow(const std::string &topic,
                                              std::chrono::steady_clock::time_point &settled);
    bool anyNewWhileYoung(Direction direction);
    StreamTable &tableOf(Direction direction)
    {
        return direction == Direction::input ? inputs_ : outputs_;
    }
    std::uint64_t eventCount();

    const Participant participant_;
    const Opaque opaque_;
    const std::chrono::nanoseconds typeTimeout_;
    const std::function<void()> onChange_;

    std::mutex mutex_;
    /// Guarded by mutex_, like the tables and the time.
    Owned<DDS_Discovery> discovery_;
    StreamTable inputs_{Direction::input};
    StreamTable outputs_{Direction::output};
    std::chrono::steady_clock::time_point settled_;

    /// The engine's thread takes this one alone, and nobody calls the engine while holding it.
    std::mutex eventMutex_;
    std::condition_variable event_;
    std::uint64_t events_ = 0;
};

} // namespace ferrydds

#endif
