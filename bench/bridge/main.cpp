// The bridge beside a loop written by hand that makes the same Java calls: what the bridge adds.
// Prints JSON, one object a line; run.py runs it and makes tables of it.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <functional>
#include <sstream>
#include <thread>

#include <CLI/CLI.hpp>
#include <valgrind/callgrind.h>

#include "host.h"
#include "reference.h"
#include "socket.h"
#include "start.h"

namespace {

using namespace bench;

double wallTime()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// One way to move a batch, with objects of its own. `move` returns the number of samples moved
/// well.
struct Variant {
    std::function<int32_t()> move;
    std::function<void()> verify = [] {};
};

/// Readers and writers for the variants of one batch size.
class Course {
public:
    Course(const Vm &vm, const Payload &payload, Host &host, int32_t batch)
        : global_(vm.global), host_(host), payload_(payload), batch_(batch),
          toWrite_(payload, batch)
    {
    }
    ~Course()
    {
        for (FERRYJNIStreamReader *reader : readers_) {
            host_.remove(reader);
        }
        for (FERRYJNIStreamWriter *writer : writers_) {
            host_.remove(writer);
        }
    }
    Course(const Course &) = delete;
    Course &operator=(const Course &) = delete;

    Variant make(bool reads, bool byHand)
    {
        return reads ? reading(byHand) : writing(byHand);
    }

private:
    Variant reading(bool byHand)
    {
        FERRYJNIStreamReader *reader = host_.makeReader(batch_);
        readers_.push_back(reader);
        // Both let the host have the last sample of a batch, which shows whether all came.
        auto last = std::make_shared<void *>(nullptr);
        auto moved = std::make_shared<int64_t>(0);
        Variant variant;
        if (byHand) {
            variant.move = [=] {
                const int32_t count = bench::readAndReturn(global_, reader);
                *last = reader->sampleArray[count - 1];
                *moved += count;
                return count;
            };
        } else {
            variant.move = [=] {
                const int32_t count = host_.readAndReturn(reader, last.get());
                *moved += count;
                return count;
            };
        }
        variant.verify = [=] {
            check(host_.environment, "read");
            const auto *sample = static_cast<const DDS_DynamicData *>(*last);
            int64_t number = -1;
            DDS_DynamicData_get_longlong(sample, "number", &number);
            size_t size = 0;
            DDS_DynamicData_get_cdr(sample, &size);
            if (number != *moved - 1 || size != payload_.size) {
                fail("a sample read is not the one sent");
            }
        };
        return variant;
    }

    Variant writing(bool byHand)
    {
        FERRYJNIStreamWriter *writer = host_.makeWriter(batch_);
        writers_.push_back(writer);
        Variant variant;
        if (byHand) {
            // What the bridge makes when a position is first used is there before the loop.
            host_.operations().write(writer, toWrite_.samples.data(), toWrite_.infos.data(), batch_,
                                     &host_.environment);
            variant.move = [=] {
                return bench::write(global_, writer, toWrite_.samples.data(), toWrite_.infos.data(),
                                    batch_);
            };
        } else {
            variant.move = [=] {
                return host_.operations().write(writer, toWrite_.samples.data(),
                                                toWrite_.infos.data(), batch_, &host_.environment);
            };
        }
        variant.verify = [this] { check(host_.environment, "write"); };
        return variant;
    }

    const FERRYJNIGlobal *global_;
    Host &host_;
    const Payload &payload_;
    int32_t batch_;
    Batch toWrite_;
    std::vector<FERRYJNIStreamReader *> readers_;
    std::vector<FERRYJNIStreamWriter *> writers_;
};

/// Runs `operations` batches; the CPU time of one sample in nanoseconds.
double block(const Variant &variant, int32_t batch, int operations)
{
    int64_t moved = 0;
    const double begin = threadTime();
    for (int i = 0; i < operations; ++i) {
        moved += variant.move();
    }
    const double time = threadTime() - begin;
    variant.verify();
    if (moved != int64_t{batch} * operations) {
        fail("samples were lost");
    }
    return time / static_cast<double>(moved);
}

struct Options {
    std::string payload = "64";
    std::vector<int32_t> batches = {1, 32, 128, 1024};
    int rounds = 200;
    std::string variant = "bridge";
    int operations = 2000;
    std::string direction = "read";
    int threads = 1;
    double seconds = 3;
    int64_t samples = 100'000'000;
    bool fresh = false;
    std::vector<std::string> vmOptions;
};

/// A few thousand batches before anything counts, so that the VM has compiled all there is to.
constexpr int warmUpOperations = 10'000;
constexpr int64_t mostWarmUpSamples = 2'000'000;
/// Long enough for the clock, short enough that both variants meet the same neighbours.
constexpr double blockNanoseconds = 2e6;

int warmUpsOf(int32_t batch)
{
    return static_cast<int>(std::min<int64_t>(warmUpOperations, mostWarmUpSamples / batch));
}

void ratios(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    Host host(vm, payload);
    for (const int32_t batch : options.batches) {
        for (const bool reads : {true, false}) {
            Course course(vm, payload, host, batch);
            const Variant variants[] = {course.make(reads, false), course.make(reads, true),
                                        course.make(reads, true)};
            double perSample = 0;
            for (const Variant &variant : variants) {
                perSample = block(variant, batch, warmUpsOf(batch));
            }
            const int operations =
                std::max(1, static_cast<int>(blockNanoseconds / (perSample * batch)));
            std::vector<double> bridge;
            std::vector<double> reference;
            std::vector<double> ratio;
            std::vector<double> twins;
            for (int round = 0; round < options.rounds; ++round) {
                double time[3];
                // Each variant is as often the first of a round as the others.
                for (int i = 0; i < 3; ++i) {
                    const int which = (round + i) % 3;
                    time[which] = block(variants[which], batch, operations);
                }
                bridge.push_back(time[0]);
                reference.push_back((time[1] + time[2]) / 2);
                ratio.push_back(time[0] / reference.back());
                twins.push_back(time[1] / time[2]);
            }
            printf("{\"name\": \"%s\", \"payload\": \"%s\", \"bytes\": %zu, \"batch\": %d, "
                   "\"ratio\": %.4f, \"twins\": %.4f, \"bridge_ns\": %.1f, \"reference_ns\": "
                   "%.1f}\n",
                   reads ? "read" : "write", options.payload.c_str(), payload.size, batch,
                   median(ratio), median(twins), median(bridge), median(reference));
            fflush(stdout);
        }
    }
}

/// The bridge and the socket in turn, by the clock on the wall: two processes share the work.
void socket(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    Host host(vm, payload);
    for (const int32_t batch : options.batches) {
        Socket other(payload, batch);
        const Batch toWrite(payload, batch);
        Course course(vm, payload, host, batch);
        for (const bool reads : {true, false}) {
            void *last = nullptr;
            const Variant variants[] = {
                course.make(reads, false),
                {[&] { return reads ? other.readAndReturn(&last) : other.write(toWrite); }}};
            for (const Variant &variant : variants) {
                block(variant, batch, warmUpsOf(batch));
            }
            const int operations = std::max(1, 20'000 / batch);
            std::vector<double> times[2];
            std::vector<double> ratio;
            for (int round = 0; round < options.rounds; ++round) {
                for (size_t i = 0; i < 2; ++i) {
                    const double begin = wallTime();
                    block(variants[i], batch, operations);
                    times[i].push_back((wallTime() - begin) * 1e9 / operations / batch);
                }
                ratio.push_back(times[1].back() / times[0].back());
            }
            printf("{\"name\": \"%s\", \"batch\": %d, \"ratio\": %.3f, \"bridge_ns\": %.1f, "
                   "\"socket_ns\": %.1f}\n",
                   reads ? "read" : "write", batch, median(ratio), median(times[0]),
                   median(times[1]));
            fflush(stdout);
        }
    }
}

/// For callgrind: counts the instructions of a fixed number of batches, those of Java included.
void instructions(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    Host host(vm, payload);
    const int32_t batch = options.batches.front();
    Course course(vm, payload, host, batch);
    const Variant variant = course.make(options.direction == "read", options.variant != "bridge");
    block(variant, batch, warmUpsOf(batch));
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
    block(variant, batch, options.operations);
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_STOP_INSTRUMENTATION;
}

int64_t residentKib()
{
    FILE *file = fopen("/proc/self/statm", "r");
    long long total = 0;
    long long resident = 0;
    if (file == nullptr || fscanf(file, "%lld %lld", &total, &resident) != 2) {
        fail("no /proc/self/statm");
    }
    fclose(file);
    return resident * 4;
}

/// Milliseconds of a full collection.
double fullCollection(JNIEnv *env)
{
    jclass system = env->FindClass("java/lang/System");
    const double begin = wallTime();
    env->CallStaticVoidMethod(system, env->GetStaticMethodID(system, "gc", "()V"));
    const double time = (wallTime() - begin) * 1e3;
    env->DeleteLocalRef(system);
    return time;
}

/// Moves very many samples through one thread that never leaves the VM.
void memory(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    Host host(vm, payload);
    constexpr int32_t batch = 128;
    constexpr int64_t steps = 10;
    JNIEnv *env = FERRYJNIGlobal_getEnv(vm.global);
    FERRYJNIStreamReader *reader = host.makeReader(batch, options.fresh);
    // The first step is the warm-up.
    for (int64_t step = 0; step <= steps; ++step) {
        for (int64_t moved = 0; moved < options.samples / steps;) {
            void *last = nullptr;
            moved += host.readAndReturn(reader, &last);
        }
        check(host.environment, "read");
        double best = fullCollection(env);
        for (int i = 0; i < 4; ++i) {
            best = std::min(best, fullCollection(env));
        }
        printf("{\"name\": \"memory\", \"fresh\": %s, \"samples\": %lld, \"resident_kib\": %lld, "
               "\"collection_ms\": %.2f}\n",
               options.fresh ? "true" : "false",
               static_cast<long long>(step * (options.samples / steps)),
               static_cast<long long>(residentKib()), best);
        fflush(stdout);
    }
    host.remove(reader);
}

/// Readers and writers, one of each on every thread; CPU per sample and samples a second.
void threads(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    constexpr int32_t batch = 128;
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::atomic<bool> stop{false};
    std::vector<double> times(static_cast<size_t>(options.threads));
    std::vector<int64_t> counts(static_cast<size_t>(options.threads));
    std::vector<std::thread> workers;
    for (int i = 0; i < options.threads; ++i) {
        workers.emplace_back([&, i] {
            FERRYJNIGlobal_attachCurrentThread(vm.global);
            {
                Host host(vm, payload);
                Course course(vm, payload, host, batch);
                const Variant variants[] = {course.make(true, false), course.make(false, false)};
                for (const Variant &variant : variants) {
                    block(variant, batch, warmUpsOf(batch));
                }
                ready++;
                while (!go) {
                    std::this_thread::yield();
                }
                int64_t moved = 0;
                const double begin = threadTime();
                while (!stop) {
                    moved += variants[0].move() + variants[1].move();
                }
                times[static_cast<size_t>(i)] = threadTime() - begin;
                counts[static_cast<size_t>(i)] = moved;
                variants[0].verify();
                variants[1].verify();
            }
            FERRYJNIGlobal_detachCurrentThread(vm.global);
        });
    }
    while (ready < options.threads) {
        std::this_thread::yield();
    }
    const double begin = wallTime();
    go = true;
    std::this_thread::sleep_for(std::chrono::duration<double>(options.seconds));
    stop = true;
    const double wall = wallTime() - begin;
    double cpu = 0;
    int64_t moved = 0;
    for (int i = 0; i < options.threads; ++i) {
        workers[static_cast<size_t>(i)].join();
        cpu += times[static_cast<size_t>(i)];
        moved += counts[static_cast<size_t>(i)];
    }
    printf("{\"name\": \"threads\", \"threads\": %d, \"ns_per_sample\": %.1f, "
           "\"samples_per_second\": %.0f}\n",
           options.threads, cpu / static_cast<double>(moved), static_cast<double>(moved) / wall);
}

/// Reads of many sizes, from a reader whose arrays hold as many: the cost of a sample.
void sizes(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    Host host(vm, payload);
    for (const int32_t batch : options.batches) {
        Course course(vm, payload, host, batch);
        const Variant variants[] = {course.make(true, false), course.make(true, true)};
        std::vector<double> times[2];
        const int operations = std::max(1, 20'000 / batch);
        for (const Variant &variant : variants) {
            block(variant, batch, warmUpsOf(batch));
        }
        for (int round = 0; round < options.rounds; ++round) {
            for (int i = 0; i < 2; ++i) {
                times[i].push_back(block(variants[i], batch, operations));
            }
        }
        printf("{\"name\": \"sizes\", \"batch\": %d, \"ns_per_sample\": %.1f, "
               "\"reference_ns\": %.1f}\n",
               batch, median(times[0]), median(times[1]));
        fflush(stdout);
    }
}

/// A reader's life with one read, in nanoseconds of CPU.
double lifeOf(Host &host, int32_t batch, int32_t room)
{
    const double begin = threadTime();
    FERRYJNIStreamReader *reader = host.makeReader(batch, false, room);
    void *last = nullptr;
    if (host.readAndReturn(reader, &last) != batch) {
        fail("a read of another size");
    }
    host.remove(reader);
    return threadTime() - begin;
}

/// Readers whose arrays grow to twice their size in their one read, beside readers that have the
/// room from the start and so do everything else as well.
void growth(const Options &options, const Vm &vm)
{
    const Payload payload(options.payload);
    Host host(vm, payload);
    for (const int32_t batch : options.batches) {
        std::vector<double> ratio;
        std::vector<double> twins;
        std::vector<double> whole;
        for (int round = -options.rounds; round < options.rounds; ++round) {
            const double before = lifeOf(host, batch, batch);
            const double grown = lifeOf(host, batch, batch / 2);
            const double behind = lifeOf(host, batch, batch);
            if (round >= 0) {
                ratio.push_back(2 * grown / (before + behind));
                twins.push_back(before / behind);
                whole.push_back((before + behind) / 2);
            }
        }
        printf("{\"name\": \"growth\", \"batch\": %d, \"ratio\": %.4f, \"twins\": %.4f, "
               "\"ns_per_sample\": %.1f}\n",
               batch, median(ratio), median(twins), median(whole) / batch);
        fflush(stdout);
    }
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app("The bridge beside a loop written by hand");
    app.require_subcommand(1);
    app.add_option("--payload", options.payload)->check(CLI::IsMember({"64", "1024", "nested"}));
    app.add_option("--batch", options.batches);
    app.add_option("--rounds", options.rounds);
    app.add_option("--variant", options.variant)->check(CLI::IsMember({"bridge", "reference"}));
    app.add_option("--direction", options.direction)->check(CLI::IsMember({"read", "write"}));
    app.add_option("--operations", options.operations);
    app.add_option("--threads", options.threads);
    app.add_option("--seconds", options.seconds);
    app.add_option("--samples", options.samples);
    app.add_flag("--fresh", options.fresh);
    app.add_option("--vm", options.vmOptions);
    const std::pair<const char *, void (*)(const Options &, const Vm &)> modes[] = {
        {"ratios", ratios}, {"instructions", instructions},
        {"memory", memory}, {"threads", threads},
        {"sizes", sizes},   {"growth", growth},
        {"socket", socket}};
    for (const auto &mode : modes) {
        app.add_subcommand(mode.first)->fallthrough();
    }
    const CLI::App *startMode = app.add_subcommand("start")->fallthrough();
    CLI11_PARSE(app, argc, argv);

    if (startMode->parsed()) {
        start(options.variant != "bridge", options.vmOptions);
        fflush(stdout);
        // The VM's end is not measured.
        _Exit(0);
    }
    const Vm vm(options.vmOptions);
    // A host's threads are attached ones, not the one that made the VM.
    std::thread([&] {
        FERRYJNIGlobal_attachCurrentThread(vm.global);
        for (const auto &mode : modes) {
            if (app.got_subcommand(mode.first)) {
                mode.second(options, vm);
            }
        }
        FERRYJNIGlobal_detachCurrentThread(vm.global);
    }).join();
    return 0;
}
