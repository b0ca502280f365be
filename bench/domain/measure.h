// What every program of the domain benchmark measures, and how it reports: one line of JSON.
#ifndef BENCH_DOMAIN_MEASURE_H
#define BENCH_DOMAIN_MEASURE_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include <CLI/CLI.hpp>

namespace bench {

struct Options {
    std::uint32_t domain = 61;
    std::uint32_t outDomain = 62; ///< of a forwarder
    int size = 64;
    std::int64_t count = 1'000'000;
    std::int64_t warmup = 0;    ///< samples at the start that do not count
    int rate = 0;               ///< samples a second; 0 is as fast as it goes
    bool cdr = false;           ///< a forwarder's samples stay encoded
    std::string type;           ///< in bench.idl; by default that of the size
    std::int64_t instances = 0; ///< of a keyed type
    std::string order = "sequential";
    std::string keys; ///< a directory of `ferry new keys` with the node bench; empty: not secured
    int port = 0;     ///< of the subscriber, by TCP; 0: by UDP
};

/// The key of a sample's instance: how close keys lie together is what tables of them depend on.
inline std::int64_t keyOf(const Options &options, std::int64_t index)
{
    auto key = static_cast<std::uint64_t>(index % options.instances);
    if (options.order == "strided") {
        key *= 4096;
    } else if (options.order == "random") { // each step can be undone, also in the lower half
        key = (key ^ (key >> 16U)) * 0x45d9f3bU;
        key = (key ^ ((key & 0xffffffffU) >> 16U)) * 0x45d9f3bU;
    }
    return static_cast<std::int64_t>(key);
}

/// The most memory that this process has held, in MiB.
inline double peakMib()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

/// What a publisher ends with.
inline void reportMemory()
{
    std::printf("{\"mib\": %.1f}\n", peakMib());
}

/// The command line that all programs share: a role and what it shall do. Returns the publisher's.
inline CLI::App *addOptions(CLI::App &app, Options &options)
{
    app.require_subcommand(1);
    app.add_option("--domain", options.domain);
    app.add_option("--out-domain", options.outDomain);
    app.add_option("--size", options.size)->check(CLI::IsMember({64, 1024}));
    app.add_option("--count", options.count);
    app.add_option("--warmup", options.warmup);
    app.add_option("--rate", options.rate);
    app.add_option("--type", options.type);
    app.add_option("--instances", options.instances);
    app.add_option("--order", options.order)
        ->check(CLI::IsMember({"sequential", "strided", "random"}));
    app.add_option("--keys", options.keys);
    app.add_option("--port", options.port);
    app.add_subcommand("sub")->fallthrough();
    return app.add_subcommand("pub")->fallthrough();
}

/// Samples handed over before they are flushed: what ferry reads at once, too.
constexpr int batchSize = 1024;
/// A receiver's room for samples that were not taken; ferry's default.
constexpr int readerRoom = 8192;
/// How long a receiver waits for the next sample before it gives the rest up.
constexpr std::int64_t silence = 10'000'000'000;

/// CLOCK_MONOTONIC, nanoseconds: the clock of Java's System.nanoTime.
inline std::int64_t now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Waits for the script's line.
inline void await()
{
    std::fflush(stdout);
    for (int byte = 0; byte != '\n' && byte != EOF;) {
        byte = std::getchar();
    }
}

/// Reports to the script, which answers with a line when the measurement shall begin.
inline void announceAndWait()
{
    std::puts("matched");
    await();
}

/// Keeps a sender at its rate: sample `index` is due at begin + index / rate.
inline void pace(const Options &options, std::int64_t begin, std::int64_t index)
{
    const std::int64_t due = begin + index * 1'000'000'000 / options.rate;
    const std::int64_t left = due - now();
    if (left > 0) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(left));
    }
}

/// Counts what arrives, in order (of its instance, where there are any) and without gaps, and its
/// delays where there is a rate.
class Arrivals {
public:
    explicit Arrivals(const Options &options)
        : options_(options),
          last_(static_cast<std::size_t>(std::max<std::int64_t>(options.instances, 1)), -1)
    {
        if (options.rate > 0) {
            delays_.reserve(static_cast<std::size_t>(options.count));
        }
    }

    void add(std::int64_t sequence, std::int64_t sent)
    {
        const auto instance = static_cast<std::size_t>(sequence) % last_.size();
        std::int64_t &last = last_[instance];
        const auto wanted = last < 0 ? static_cast<std::int64_t>(instance)
                                     : last + static_cast<std::int64_t>(last_.size());
        if (sequence != wanted) {
            gaps_++;
        }
        last = sequence;
        if (seen_ == options_.warmup) {
            begin_ = now();
        }
        if (options_.rate > 0 && seen_ >= options_.warmup) {
            delays_.push_back(now() - sent);
        }
        if (++seen_ == options_.count) {
            end_ = now();
        }
    }

    bool complete() const
    {
        return seen_ >= options_.count;
    }
    std::int64_t seen() const
    {
        return seen_;
    }

    /// Prints the result; true when nothing was lost and nothing came twice or out of order.
    bool report()
    {
        const double seconds = static_cast<double>(end_ - begin_) / 1e9;
        std::printf("{\"samples\": %lld, \"gaps\": %lld, \"rate\": %.1f",
                    static_cast<long long>(seen_), static_cast<long long>(gaps_),
                    complete() ? static_cast<double>(seen_ - options_.warmup) / seconds : 0);
        if (!delays_.empty()) {
            std::sort(delays_.begin(), delays_.end());
            const auto at = [this](std::size_t percent) {
                return static_cast<double>(delays_[(delays_.size() - 1) * percent / 100]) / 1e3;
            };
            std::printf(", \"p50\": %.1f, \"p99\": %.1f, \"max\": %.1f", at(50), at(99), at(100));
        }
        std::printf(", \"mib\": %.1f}\n", peakMib());
        await(); // a writer that is acknowledged may not lose its reader before
        return complete() && gaps_ == 0;
    }

private:
    const Options &options_;
    std::vector<std::int64_t> last_; // number of each instance's last sample
    std::int64_t seen_ = 0;
    std::int64_t gaps_ = 0;
    std::int64_t begin_ = 0;
    std::int64_t end_ = 0;
    std::vector<std::int64_t> delays_;
};

} // namespace bench

#endif
