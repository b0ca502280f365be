// The relay's core over simulated plug-ins, a simulated clock and a schedule of failures that comes
// from a seed: simulate [--seeds N] [--from SEED] | --seed SEED | --replay FILE
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <malloc.h>

#include "engine/log.h"
#include "qddscore/log.h"
#include "simulation.h"

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

namespace {

simulate::Tally g_tally;

void run(std::uint64_t seed, bool verbose)
{
    try {
        ++g_tally["seeds"];
        simulate::Simulation(seed, verbose, g_tally).run();
    } catch (const simulate::Violation &violation) {
        ++g_tally["failed"];
        std::printf("seed %llu: at %s\n", static_cast<unsigned long long>(seed),
                    violation.text.c_str());
    }
}

/// Lines of a seed and the reason why it is kept.
void replay(const std::string &file)
{
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        std::uint64_t seed = 0;
        if (std::istringstream(line) >> seed) {
            run(seed, false);
        }
    }
}

void search(std::uint64_t from, std::uint64_t seeds)
{
    constexpr int enough = 10;
    for (std::uint64_t seed = from; seed < from + seeds && g_tally["failed"] < enough; ++seed) {
        run(seed, false);
    }
}

int finish()
{
    for (const auto &[what, count] : g_tally) {
        std::printf("%s %lld  ", what.c_str(), static_cast<long long>(count));
    }
    std::printf("\n");
    return g_tally["seeds"] > 0 && g_tally["failed"] == 0 ? 0 : 1;
}

} // namespace

int main(int count, char **arguments)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // Each life takes and gives back the same memory.
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    QELLog_setSink([](void *, const char *line, std::size_t) { std::printf("%s\n", line); },
                   nullptr);
    ferry::g_logMask.store(0);
    std::map<std::string, std::string> options;
    for (int i = 1; i + 1 < count; i += 2) {
        options[arguments[i]] = arguments[i + 1];
    }
    const auto number = [&](const char *name, std::uint64_t otherwise) {
        return options.count(name) == 0 ? otherwise : std::stoull(options[name]);
    };
    if (options.count("--seed") > 0) {
        ferry::g_logMask.store(FERRYLOG_BIT_ERROR | FERRYLOG_BIT_WARNING);
        run(number("--seed", 0), true);
    } else if (options.count("--replay") > 0) {
        replay(options["--replay"]);
    } else {
        search(number("--from", 1), number("--seeds", 1000));
    }
    return finish();
}
