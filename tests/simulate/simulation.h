// One run of the relay's core over simulated plug-ins: what fails when is drawn from a seed.
#ifndef TESTS_SIMULATE_SIMULATION_H
#define TESTS_SIMULATE_SIMULATION_H

#include <algorithm>

#include "engine/route.h"
#include "source.h"

namespace simulate {
using ferry::Route;

inline const std::string adapterName = "simulated";

inline QEL_FerrionAdapterOperations makeOperations()
{
    QEL_FerrionAdapterOperations table{};
    table.read = [](QEL_FerrionStreamReader *reader, void ***samples, DDS_SampleInfo ***infos,
                    std::int32_t *count, QEL_FerrionEnvironment *environment) {
        static_cast<Input *>(reader)->read(samples, infos, count, *environment);
    };
    table.return_loan = [](QEL_FerrionStreamReader *reader, void **, DDS_SampleInfo **,
                           std::int32_t, QEL_FerrionEnvironment *environment) {
        static_cast<Input *>(reader)->returnLoan(*environment);
    };
    table.write = [](QEL_FerrionStreamWriter *writer, void *const *samples,
                     DDS_SampleInfo *const *infos, std::int32_t count,
                     QEL_FerrionEnvironment *environment) {
        return static_cast<Sink *>(writer)->write({samples, infos, count}, *environment);
    };
    return table;
}

inline const QEL_FerrionAdapterOperations operations = makeOperations();

/// A route with its input and its outputs.
struct Flow {
    ferry::RouteSettings settings;
    milliseconds period{100};
    std::unique_ptr<Input> input;
    /// Null where a store is read.
    Source *source = nullptr;
    std::vector<std::unique_ptr<Sink>> sinks;
    std::unique_ptr<Route> route;
    /// What it counted in earlier lives.
    ferry::RouteTotals before;
    /// When it is made anew if it has no route.
    Time opens;
    /// Steps at this moment that brought nothing.
    Time stillAt;
    int still = 0;

    std::int64_t progress() const
    {
        std::int64_t sum = input->readSamples;
        for (const auto &sink : sinks) {
            sum += sink->known + sink->letters();
        }
        return sum;
    }
    /// Whether bad data may put the route out of service.
    bool stopsForData() const
    {
        return !settings.deadLetters ||
               std::any_of(settings.outputs.begin(), settings.outputs.end(),
                           [](const auto &output) { return output.retry.limit.count() > 0; });
    }
};

/// Runs until all is delivered, and adds to the tally what came about; throws a Violation.
class Simulation : ferry::DeadLetterKeeper {
public:
    Simulation(std::uint64_t seed, bool verbose, Tally &tally)
        : world_(seed, verbose, tally), disk_(world_),
          trouble_(world_.chance.time(1000, world_.chance.pick({3000, 30000, 200000}))),
          quietAt_(world_.now + trouble_), restless_(world_.chance.pick({20, 200, 5000}))
    {
        if (world_.chance.oneIn(2)) {
            disk_.troubles = Troubles(world_, trouble_);
        }
        for (int heads = world_.chance.pick({1, 1, 2}); heads > 0; --heads) {
            addHead(heads);
        }
        world_.crashIn = world_.chance.oneIn(2) ? world_.chance.below(300) : -1;
    }
    ~Simulation() override
    {
        world_.quiet = true;
        disk_.isDead = true;
    }
    void run()
    {
        constexpr int longWait = 1000;
        int waiting = 0;
        std::int64_t before = taken();
        while (!finished()) {
            if (!world_.quiet && world_.now >= quietAt_) {
                settleDown();
            }
            if (world_.quiet && world_.now >= deadline_) {
                world_.require(mend(), "a route does not go on");
                settleDown();
            }
            pass();
            // What goes on like this until the deadline shows nothing new.
            waiting = taken() == before ? waiting + 1 : 0;
            before = taken();
            if (world_.quiet && waiting > longWait) {
                waiting = 0;
                if (mend()) {
                    settleDown();
                }
            }
        }
        for (const auto &stored : stores_) {
            checkStored(*stored);
        }
        for (const auto &flow : flows_) {
            for (const auto &sink : flow->sinks) {
                world_.tally["letters"] += sink->letters();
            }
        }
    }

private:
    std::string keep(const ferry::DeadLetter &letter) override
    {
        return sinks_.at(letter.output)->keep(letter.samples);
    }
    std::string keep(const ferry::RouteSettings &route, const std::string &,
                     const std::vector<ferry::RejectedRecord> &records) override
    {
        return sources_.at(route.name)->keep(records.size());
    }
    Flow &add(const std::string &name)
    {
        Chance &chance = world_.chance;
        flows_.push_back(std::make_unique<Flow>());
        Flow &flow = *flows_.back();
        flow.settings.name = name;
        flow.settings.deadLetters = !chance.oneIn(6);
        flow.period = milliseconds(chance.pick({200, 1000, 5000}));
        flow.opens = world_.now;
        return flow;
    }
    /// A route from a source, and those behind its stores.
    void addHead(int number)
    {
        Flow &flow = add(fmt::format("route{}", number));
        auto source = std::make_unique<Source>(world_, trouble_);
        flow.source = source.get();
        flow.source->keepsRecords = flow.settings.deadLetters;
        sources_[flow.settings.name] = flow.source;
        flow.input = std::move(source);
        for (int i = world_.chance.pick({1, 1, 2, 3}); i > 0; --i) {
            const std::string label = fmt::format("sink{}{}", number, i);
            if (world_.chance.oneIn(3)) {
                addStored(flow, label);
            } else {
                addOutput(flow, label);
            }
        }
    }
    ferry::StreamSettings drawOutput()
    {
        Chance &chance = world_.chance;
        ferry::StreamSettings output;
        output.maxSamplesPerWrite = chance.pick({1, 2, 7, 1024});
        output.batchBytes = chance.pick<std::uint64_t>({300, 1U << 20});
        output.retry.first = milliseconds(chance.pick({1, 100, 700}));
        output.retry.max =
            std::max(output.retry.first * chance.pick({1, 10, 100}), milliseconds(500));
        output.retry.limit = milliseconds(chance.pick({0, 0, 0, 5000}));
        return output;
    }
    void addOutput(Flow &flow, const std::string &label)
    {
        const ferry::StreamSettings output = drawOutput();
        auto sink = std::make_unique<Sink>(world_, label, output);
        sink->troubles = Troubles(world_, trouble_);
        sink->keeping = Troubles(world_, trouble_);
        addSink(flow, std::move(sink), output);
    }
    void addStored(Flow &flow, const std::string &label)
    {
        Flow &behind = add(label + " stored");
        addOutput(behind, label);
        stores_.push_back(std::make_unique<Stored>(disk_, *behind.sinks.front(),
                                                   behind.settings.outputs.front(),
                                                   flow.source->isNumbered));
        behind.input = std::make_unique<StoredSource>(*stores_.back());
        const ferry::StreamSettings output = drawOutput();
        addSink(flow, std::make_unique<StoreSink>(*stores_.back(), output), output);
    }
    void addSink(Flow &flow, std::unique_ptr<Sink> sink, const ferry::StreamSettings &output)
    {
        sinks_[sink->name] = sink.get();
        if (flow.input != nullptr) {
            flow.input->sinks.push_back(sink.get());
        }
        flow.settings.outputs.push_back(output);
        flow.sinks.push_back(std::move(sink));
    }
    /// The source has more.
    void produce(Flow &flow)
    {
        const int most = flow.source->total - flow.source->available;
        flow.source->available +=
            world_.quiet ? most : std::min(most, world_.chance.between(1, 40));
        if (flow.route != nullptr && most > 0 && world_.chance.oneIn(2)) {
            const QEL_FerrionStreamReaderListener listener = flow.route->listener();
            listener.onDataAvailable(flow.input.get(), listener.listenerData);
        }
    }
    void open(Flow &flow)
    {
        flow.route = std::make_unique<Route>(flow.settings, flow.period, world_, [] {});
        ferry::ReaderEnd &input = flow.route->input();
        input.adapter = &adapterName;
        input.operations = &operations;
        input.label = "source";
        input.reader = flow.input.get();
        for (std::size_t i = 0; i < flow.sinks.size(); ++i) {
            Sink &sink = *flow.sinks[i];
            ferry::WriterEnd &end = flow.route->deliveries()[i]->end();
            end.adapter = &adapterName;
            end.operations = &operations;
            end.label = sink.name;
            end.writer = &sink;
            end.takesAnything = sink.takesAnything;
            end.delivery = static_cast<std::uint32_t>(sink.counts);
        }
        flow.route->setKeeper(flow.settings.deadLetters ? this : nullptr);
        if (!flow.before.outputs.empty()) {
            flow.route->resume(flow.before);
        }
        if (flow.input->open(flow.route->listener())) {
            flow.route->setState(Route::State::active);
        } else {
            flow.route.reset();
            flow.opens = world_.now + world_.chance.time(1, 3000);
        }
    }
    /// The route goes, and comes again after a while, with what it has counted.
    void close(Flow &flow)
    {
        flow.route->release();
        checkTotals(flow);
        flow.before = flow.route->totals();
        flow.route.reset();
        flow.input->close(false);
        flow.opens = world_.now + world_.chance.time(0, world_.quiet ? 60000 : 3000);
        ++world_.tally["stops"];
        world_.trace("{} closed", flow.settings.name);
    }
    /// The process ends, and another one starts.
    void crash(bool orderly)
    {
        world_.trace("{}", orderly ? "end" : "crash");
        ++world_.tally[orderly ? "ends" : "crashes"];
        if (!orderly) {
            disk_.isDead = true;
        }
        guard_ = std::make_unique<ferry::CallGuard>();
        for (const auto &flow : flows_) {
            if (flow->route != nullptr) {
                world_.tally["retries"] += static_cast<std::int64_t>(flow->route->totals().retries);
            }
            flow->route.reset();
            flow->before = {};
            flow->input->close(true);
            flow->opens = world_.now + world_.chance.time(0, 3000);
        }
        for (const auto &stored : stores_) {
            stored->close();
        }
        if (disk_.isDead) {
            disk_.reboot();
        }
        world_.crashIn = world_.quiet || world_.chance.oneIn(3) ? -1 : world_.chance.below(200);
    }
    /// What happens from time to time by itself. Returns whether a step of the flow is due.
    bool due(Flow &flow)
    {
        if (flow.source != nullptr && (world_.quiet || world_.chance.oneIn(8))) {
            produce(flow);
        }
        if (flow.route == nullptr && world_.now >= flow.opens) {
            open(flow);
        }
        if (flow.route != nullptr && !world_.quiet && world_.chance.oneIn(restless_)) {
            close(flow);
        }
        return flow.route != nullptr && flow.route->ready(world_.now);
    }
    /// Reads nothing, and no output gets anything: that may happen a few times in a row, no more.
    void step(Flow &flow)
    {
        const Time before = world_.now;
        const std::int64_t had = flow.progress();
        flow.route->step(*guard_);
        checkTotals(flow);
        const bool isStill =
            had == flow.progress() && before == world_.now && before == flow.stillAt;
        flow.still = isStill ? flow.still + 1 : 0;
        flow.stillAt = world_.now;
        world_.require(flow.still < 100, "{} steps in a row without progress", flow.still);
        if (flow.route->state() == Route::State::failed) {
            close(flow);
        }
    }
    /// Each sample that was read is somewhere, and none is said to be where it is not.
    void checkTotals(const Flow &flow) const
    {
        const ferry::RouteTotals totals = flow.route->totals();
        const auto read = static_cast<std::uint64_t>(flow.input->readSamples);
        world_.require(totals.read == read, "{} read of {}", totals.read, read);
        for (std::size_t i = 0; i < flow.sinks.size(); ++i) {
            const auto known = static_cast<std::uint64_t>(flow.sinks[i]->known);
            const ferry::RouteTotals::Output &output = totals.outputs[i];
            const auto pending = static_cast<std::uint64_t>(flow.route->deliveries()[i]->pending());
            world_.require(output.written + output.dead + output.held + pending == read,
                           "{}: written {}, set aside {}, held {} and pending {} of {} read",
                           output.label, output.written, output.dead, output.held, pending, read);
            world_.require(output.written <= known && output.lost == 0,
                           "{}: {} written, but {} taken, {} lost", output.label, output.written,
                           known, output.lost);
        }
    }
    /// What the store has taken on is at its output, but for what it counts.
    void checkStored(const Stored &stored) const
    {
        const ferry::BufferLevel level = stored.store->level();
        const Sink &into = *sinks_.at(stored.output.name + " store");
        std::uint64_t missing = 0;
        for (int number = 1; number <= mostSamples; ++number) {
            missing += into.has(number) && !stored.output.has(number) ? 1 : 0;
        }
        world_.require(missing <= level.dropped && (stored.mayDrop() || level.dropped == 0) &&
                           level.damaged == 0,
                       "{}: {} are missing, {} counted as dropped, {} as damaged",
                       stored.output.name, missing, level.dropped, level.damaged);
    }
    /// One step of any route that has something to do.
    void pass()
    {
        try {
            if (!world_.quiet && world_.chance.oneIn(8 * restless_)) {
                crash(true);
            }
            std::vector<Flow *> ready;
            for (const auto &flow : flows_) {
                if (due(*flow)) {
                    ready.push_back(flow.get());
                }
            }
            if (ready.empty()) {
                sleep();
                return;
            }
            step(*ready[world_.chance.below(ready.size())]);
        } catch (const Crash &) {
            crash(false);
        }
    }
    void sleep()
    {
        Time wake =
            world_.quiet ? deadline_ : std::min(quietAt_, world_.now + world_.chance.time(0, 5000));
        for (const auto &flow : flows_) {
            wake = std::min(wake, flow->route == nullptr ? flow->opens : flow->route->nextDue());
        }
        world_.sleepUntil(std::max(wake, world_.now));
    }
    /// From now on nothing fails any more but bad data. A sample costs some pauses at most.
    void settleDown()
    {
        world_.trace("quiet");
        world_.quiet = true;
        world_.crashIn = -1;
        Clock::duration longest{std::chrono::seconds(300)};
        for (const auto &flow : flows_) {
            longest += mostSamples * flow->period;
            for (std::size_t i = 0; i < flow->sinks.size(); ++i) {
                const auto bad = static_cast<int>(flow->sinks[i]->bad.size());
                longest += (20 + 5 * bad) * Clock::duration(flow->settings.outputs[i].retry.max);
            }
        }
        deadline_ = world_.now + longest;
    }
    bool finished() const
    {
        return world_.quiet && std::all_of(flows_.begin(), flows_.end(), [](const auto &flow) {
                   return flow->input->finished();
               });
    }
    /// Grows whenever an output has more than before.
    std::int64_t taken() const
    {
        std::int64_t sum = 0;
        for (const auto &flow : flows_) {
            sum += flow->progress() - flow->input->readSamples;
        }
        return sum;
    }
    /// What a route may wait for without an end: that somebody mends the data.
    bool mend()
    {
        bool any = false;
        for (const auto &flow : flows_) {
            for (const auto &sink : flow->sinks) {
                if (!flow->input->finished() && !sink->bad.empty() &&
                    (sink->hopeless() || flow->stopsForData())) {
                    sink->bad.clear();
                    any = true;
                    ++world_.tally["mended"];
                }
            }
        }
        return any;
    }

    World world_;
    Disk disk_;
    /// By their names, and by those of their routes.
    std::map<std::string, Sink *> sinks_;
    std::map<std::string, Source *> sources_;
    std::vector<std::unique_ptr<Stored>> stores_;
    std::vector<std::unique_ptr<Flow>> flows_;
    std::unique_ptr<ferry::CallGuard> guard_ = std::make_unique<ferry::CallGuard>();
    /// For so long things fail.
    Clock::duration trouble_;
    Time quietAt_;
    /// In how many passes a route is stopped once.
    int restless_;
    Time deadline_;
};

} // namespace simulate

#endif
