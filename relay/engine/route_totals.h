// What a route has done, in numbers.
#ifndef FERRY_ENGINE_ROUTE_TOTALS_H
#define FERRY_ENGINE_ROUTE_TOTALS_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace ferry {

/// A number that one thread changes and others look at.
class Counter {
public:
    void add(std::uint64_t amount)
    {
        value_.store(get() + amount, std::memory_order_relaxed);
    }
    std::uint64_t get() const
    {
        return value_.load(std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint64_t> value_{0};
};

/// What a route has done so far. Samples are those that carry data.
struct RouteTotals {
    struct Output {
        std::string label;
        std::uint64_t written = 0;
        std::uint64_t lost = 0;
        std::uint64_t retries = 0;
        std::uint64_t dead = 0;
        std::uint64_t held = 0;
    };

    std::string name;
    std::uint64_t read = 0;
    /// Samples that every output has.
    std::uint64_t written = 0;
    /// Null samples of loans: the adapter or the conversion failed for that one.
    std::uint64_t unreadable = 0;
    /// What the adapter says that its reads had to pass over.
    std::uint64_t bad = 0;
    /// Ends of instances, which carry no data.
    std::uint64_t ends = 0;
    /// Failed calls.
    std::uint64_t errors = 0;
    /// By all outputs together.
    std::uint64_t lost = 0;
    /// Failed writes that were repeated, or are going to be. They are no errors.
    std::uint64_t retries = 0;
    /// Bad data that was set aside.
    std::uint64_t dead = 0;
    /// Samples of loans that were not acknowledged: those of them that an output has not taken.
    std::uint64_t held = 0;
    /// Samples that wait in the buffer which the route reads.
    std::uint64_t stored = 0;
    std::vector<Output> outputs;
    /// Nanoseconds of Clock; 0 before the first samples.
    std::int64_t firstActivity = 0;
    std::int64_t lastActivity = 0;
    bool failed = false;
    /// By an operator.
    bool paused = false;
    /// The route has been deleted.
    bool gone = false;
};

} // namespace ferry

#endif
