#include "engine/retry.h"

#include <algorithm>

namespace ferry {
namespace {

/// How often a sample has to fail alone before others are tried for comparison. Fewer are enough
/// where the output took its neighbour a moment ago.
constexpr int doubtful = 3;
constexpr int doubtfulBesideOthers = 2;
/// The most samples that are tried for comparison before the next pause.
constexpr int mostProbes = 16;
/// A call that takes longer says something of the output, not of the sample.
constexpr std::chrono::seconds slow{1};

} // namespace

std::int32_t Retry::taken(std::int32_t count)
{
    const std::int32_t bad = probe_;
    region_ = std::max(0, region_ - bad - count);
    probe_ = 0;
    alone_ = 0;
    compared_ = 0;
    alive_ = true;
    backoff_.reset();
    due_ = {};
    return bad;
}

void Retry::setAside()
{
    taken(1);
}

void Retry::failed(std::int32_t count, std::int32_t taken, std::int32_t left, Clock::duration time,
                   Clock::time_point now)
{
    const bool quick = time < slow;
    if (taken > 0) {
        this->taken(taken);
    }
    // What follows a prefix that was taken has not been alone yet.
    if (count == 1) {
        failedAlone(left, quick, now);
        return;
    }
    // Only a call that comes back at once can be asked several times without a pause.
    region_ = quick ? count - taken : std::max(region_, count - taken);
    if (!quick) {
        pause(now);
    }
}

void Retry::failedAlone(std::int32_t left, bool quick, Clock::time_point now)
{
    region_ = 1;
    const int needed = alive_ ? doubtfulBesideOthers : doubtful;
    if (probe_ == 0) {
        ++alone_;
        // One further each time, so that each has failed before when the one behind it is tried.
        probes_ = std::min({alone_ - needed + 1, compared_ + 1, mostProbes});
    }
    compared_ = std::max(compared_, probe_);
    if (!quick || probe_ >= std::min(probes_, left - 1)) {
        if (alive_ && quick && probe_ == 0 && alone_ < needed) {
            return; // once more, at once
        }
        pause(now);
        return;
    }
    ++probe_;
}

void Retry::postpone(Clock::time_point now)
{
    pause(now);
}

void Retry::pause(Clock::time_point now)
{
    probe_ = 0;
    alive_ = false;
    due_ = now + backoff_.next(now);
}

} // namespace ferry
