#include "world.h"

#include <cstdio>

namespace simulate {
namespace {

World *g_world = nullptr;
constexpr Time beginning{std::chrono::seconds(1000)};

Trouble anyTrouble(World &world)
{
    return static_cast<Trouble>(world.chance.between(1, 5));
}

} // namespace

std::uint64_t Chance::next()
{
    std::uint64_t mixed = state_ += 0x9E3779B97F4A7C15U;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBU;
    return mixed ^ mixed >> 31;
}

World::World(std::uint64_t seed, bool verbose, Tally &counts)
    : chance(seed), tally(counts), now(beginning), verbose_(verbose)
{
    g_world = this;
}

World::~World()
{
    g_world = nullptr;
}

void World::sleepUntil(Time time)
{
    idled += time - now;
    now = time;
}

bool World::crashes()
{
    return crashIn >= 0 && crashIn-- == 0;
}

void World::mayCrash()
{
    if (crashes()) {
        throw Crash();
    }
}

std::string World::stamp() const
{
    return fmt::format("{:.3f} s: ", std::chrono::duration<double>(now - beginning).count());
}

void World::print(const std::string &text) const
{
    std::printf("%s%s\n", stamp().c_str(), text.c_str());
}

Troubles::Troubles(World &world, Clock::duration within) : flaky_(world.chance.pick({0, 0, 5, 50}))
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

Trouble Troubles::next(World &world) const
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

} // namespace simulate

namespace ferry {

// In place of those of the engine.
Clock::time_point Clock::now()
{
    return simulate::g_world->now;
}

std::uint64_t chanceSeed()
{
    return simulate::g_world->chance.next();
}

} // namespace ferry
