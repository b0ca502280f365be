// What a simulated run has in common: its time, its chance, its crashes. All of it comes from one
// seed, so that a run can be repeated.
#ifndef TESTS_SIMULATE_WORLD_H
#define TESTS_SIMULATE_WORLD_H

#include <cstdio>
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

constexpr Time beginning{std::chrono::seconds(1000)};

/// The same numbers on every machine, which the distributions of the standard library are not.
class Chance {
public:
    explicit Chance(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next()
    {
        std::uint64_t mixed = state_ += 0x9E3779B97F4A7C15U;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBU;
        return mixed ^ mixed >> 31;
    }
    /// From 0 to `limit` - 1.
    template<class Number> Number below(Number limit)
    {
        return static_cast<Number>(next() % static_cast<std::uint64_t>(limit));
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
        return values.begin()[below(values.size())];
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

class World;
/// The one that there is.
inline World *g_world = nullptr;

class World : public ferry::PluginHost {
public:
    World(std::uint64_t seed, bool verbose, Tally &counts)
        : chance(seed), tally(counts), now(beginning), verbose_(verbose)
    {
        g_world = this;
    }
    ~World() override
    {
        g_world = nullptr;
    }

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

    void sleepUntil(Time time)
    {
        idled += time - now;
        now = time;
    }
    /// Whether the process ends in the present call; asked wherever that may happen.
    bool crashes()
    {
        return crashIn >= 0 && crashIn-- == 0;
    }
    void mayCrash()
    {
        if (crashes()) {
            throw Crash();
        }
    }

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
    void print(const std::string &text) const
    {
        std::printf("%s%s\n", stamp().c_str(), text.c_str());
    }
    std::string stamp() const
    {
        return fmt::format("{:.3f} s: ", std::chrono::duration<double>(now - beginning).count());
    }

    const bool verbose_;
};

enum class Trouble { none, throws, shortCount, lies, partial, hangs };

inline Trouble anyTrouble(World &world)
{
    return static_cast<Trouble>(world.chance.between(1, 5));
}

/// When calls of one plug-in fail, and how.
class Troubles {
public:
    /// None.
    Troubles() = default;
    Troubles(World &world, Clock::duration within) : flaky_(world.chance.pick({0, 0, 5, 50}))
    {
        Chance &chance = world.chance;
        const int most = static_cast<int>(std::chrono::duration_cast<milliseconds>(within).count());
        for (int i = chance.below(4); i > 0; --i) {
            const Time from = world.now + chance.time(0, most);
            const Time to = from + chance.time(1, chance.pick({300, 3000, 60000}));
            outages_.push_back(
                {from, to, anyTrouble(world), chance.time(0, chance.pick({0, 1, 1500}))});
        }
    }
    /// What comes of the present call, which has taken its time afterwards.
    Trouble next(World &world) const
    {
        if (world.quiet) {
            return Trouble::none;
        }
        for (const Outage &outage : outages_) {
            if (world.now >= outage.from && world.now < outage.to) {
                world.now += outage.takes;
                return outage.trouble;
            }
        }
        return flaky_ > 0 && world.chance.oneIn(flaky_) ? anyTrouble(world) : Trouble::none;
    }

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
