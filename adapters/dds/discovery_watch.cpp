#include "discovery_watch.h"

#include <thread>

#include <fmt/format.h>

#include "error.h"

namespace ferrydds {
namespace {

using Clock = std::chrono::steady_clock;

/// Endpoints of one topic that are there together are found within milliseconds of each other.
constexpr std::chrono::milliseconds moment{100};

} // namespace

DiscoveryWatch::DiscoveryWatch(Participant participant, Opaque opaque,
                               std::chrono::nanoseconds typeTimeout, std::function<void()> onChange)
    : participant_(std::move(participant)), opaque_(opaque), typeTimeout_(typeTimeout),
      onChange_(std::move(onChange))
{
}

/// Ends the engine's thread before anything that it uses goes.
DiscoveryWatch::~DiscoveryWatch()
{
    discovery_.reset();
}

void DiscoveryWatch::start()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (discovery_ != nullptr) {
        return;
    }
    DDS_ErrorText error{};
    discovery_.reset(DDS_Discovery_new(
        participant_.get(), opaque_ == Opaque::always ? DDS_PASS_TYPES : DDS_RESOLVE_TYPES,
        typeTimeout_.count(), onEvent, this, &error));
    if (discovery_ == nullptr) {
        throw Failure(fmt::format("discovery cannot be started: {}", error.text));
    }
    settled_ = Clock::now() + typeTimeout_;
}

void DiscoveryWatch::onEvent(void *self)
{
    auto *watch = static_cast<DiscoveryWatch *>(self);
    {
        const std::lock_guard<std::mutex> lock(watch->eventMutex_);
        ++watch->events_;
    }
    watch->event_.notify_all();
    watch->onChange_();
}

/// Takes what the engine has; under mutex_.
void DiscoveryWatch::pump()
{
    DDS_DiscoveryEventKind kind{};
    while (discovery_ != nullptr) {
        const DDS_DiscoveredEndpoint *taken = DDS_Discovery_take(discovery_.get(), &kind);
        if (taken == nullptr) {
            return;
        }
        DDS_DiscoveredEndpoint endpoint = *taken;
        if (endpoint.type == nullptr && opaque_ != Opaque::never) {
            endpoint.type = endpoint.opaque;
        }
        tableOf(endpoint.isWriter != 0 ? Direction::input : Direction::output)
            .apply(kind, endpoint);
    }
}

std::vector<StreamChange> DiscoveryWatch::takeChanges(Direction direction)
{
    if (anyNewWhileYoung(direction)) {
        std::this_thread::sleep_for(moment);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    pump();
    return tableOf(direction).takeChanges();
}

bool DiscoveryWatch::anyNewWhileYoung(Direction direction)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    pump();
    return Clock::now() < settled_ && tableOf(direction).anyNew();
}

std::optional<DDS_DiscoveredQos> DiscoveryWatch::offerNow(const std::string &topic,
                                                          Clock::time_point &settled)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    pump();
    settled = settled_;
    return inputs_.qosOf(topic);
}

std::uint64_t DiscoveryWatch::eventCount()
{
    const std::lock_guard<std::mutex> lock(eventMutex_);
    return events_;
}

std::optional<DDS_DiscoveredQos> DiscoveryWatch::writersOffer(const std::string &topic)
{
    start();
    Clock::time_point settled;
    for (;;) {
        // Counted before the look, so that what comes in between is not slept over.
        const std::uint64_t seen = eventCount();
        const std::optional<DDS_DiscoveredQos> offer = offerNow(topic, settled);
        if (Clock::now() >= settled) {
            return offer;
        }
        if (offer) {
            break;
        }
        std::unique_lock<std::mutex> lock(eventMutex_);
        event_.wait_until(lock, settled, [&] { return events_ != seen; });
    }
    std::this_thread::sleep_for(moment);
    return offerNow(topic, settled);
}

} // namespace ferrydds
