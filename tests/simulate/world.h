// What a simulated run has in common: its time, its chance, its crashes. All of it comes from one
// seed, so that a run can be repeated.
#ifndef TESTS_SIMULATE_WORLD_H
#define TESTS_SIMULATE_WORLD_H

#include <fmt/format.h>
#include <initializer_list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "engine/plugin_host.h"

namespace simulate {

using ferry::Clock;
using Time = Clock::time_point;
using std::chrono::milliseconds;

/// The same numbers on every machine, which the distributions of the standard library are not.
class Chance {
public:
    explicit Chance(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next();
    /// From 0 to `limit` - 1.
    int below(int limit)
    {
        return static_cast<int>(next() % static_cast<std::uint64_t>(limit));
    }
    int between(int least, int most)
    {
        return least + below(most - least + 1);
    }
    bool oneIn(int count)
    {
        return below(count) == 0;
    }
    milliseconds time(int least, int most)
    {
        return milliseconds(between(least, most));
    }
    template<class Value> Value pick(std::initializer_list<Value> values)
    {
        return values.begin()[below(static_cast<int>(values.size()))];
    }

private:
    std::uint64_t state_;
};

/// The process ends here. What is in memory is gone.
struct Crash {};
/// A property does not hold.
struct Violation {
    std::string text;
};
/// What came about in runs, so that one sees that something did.
using Tally = std::map<std::string, std::int64_t>;

class World : public ferry::PluginHost {
public:
    World(std::uint64_t seed, bool verbose, Tally &counts);
    ~World() override;

    Chance chance;
    Tally &tally;
    /// Nothing fails any more but bad data.
    bool quiet = false;
    /// What the host knows of the last failure.
    ferry::FailureDetails details;
    Time now;
    /// How much of the time nobody did anything.
    Clock::duration idled{0};
    /// Calls until the process crashes; none if negative.
    int crashIn = -1;

    void sleepUntil(Time time);
    /// Whether the process ends in the present call; asked wherever that may happen.
    bool crashes();
    void mayCrash();

    template<class... Arguments>
    void trace(fmt::format_string<Arguments...> text, Arguments &&...arguments) const
    {
        if (verbose_) {
            print(fmt::format(text, std::forward<Arguments>(arguments)...));
        }
    }
    template<class... Arguments>
    void require(bool holds, fmt::format_string<Arguments...> text, Arguments &&...arguments) const
    {
        if (!holds) {
            throw Violation{stamp() + fmt::format(text, std::forward<Arguments>(arguments)...)};
        }
    }

    bool start() override
    {
        return true;
    }
    QEL_FerrionAdapterPlugin *open(const ferry::AdapterSettings &, const QEL_FerrionProperties *,
                                   ferry::CallEnvironment &) override
    {
        return nullptr;
    }
    bool attachThread() override
    {
        return true;
    }
    void detachThread() override {}
    void stop() override {}
    ferry::FailureDetails takeFailure(const std::string &) override
    {
        return std::exchange(details, {});
    }

private:
    void print(const std::string &text) const;
    std::string stamp() const;

    const bool verbose_;
};

enum class Trouble { none, throws, shortCount, lies, partial, hangs };

/// When calls of one plug-in fail, and how.
class Troubles {
public:
    /// None.
    Troubles() = default;
    Troubles(World &world, Clock::duration within);
    /// What comes of the present call, which has taken its time afterwards.
    Trouble next(World &world) const;

private:
    struct Outage {
        Time from;
        Time to;
        Trouble trouble;
        Clock::duration takes;
    };
    std::vector<Outage> outages_;
    /// One call in so many fails by itself; 0 for none.
    int flaky_ = 0;
};

} // namespace simulate

#endif
