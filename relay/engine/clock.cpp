#include "engine/clock.h"

#include <random>

namespace ferry {

Clock::time_point Clock::now()
{
    return std::chrono::steady_clock::now();
}

std::uint64_t chanceSeed()
{
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

} // namespace ferry
