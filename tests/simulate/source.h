// What simulated routes read from: a source, or a store that another route fills.
#ifndef TESTS_SIMULATE_SOURCE_H
#define TESTS_SIMULATE_SOURCE_H

#include <algorithm>
#include <memory>

#include "disk.h"
#include "engine/stored_stream.h"
#include "sink.h"
#include "state/store.h"

namespace simulate {

inline std::int64_t numberInStore(const DDS_SampleInfo &info)
{
    const DDS_SequenceNumber_t &number = info.publication_sequence_number;
    return std::int64_t{number.high} << 32 | number.low;
}

class Input : public QEL_FerrionStreamReader {
public:
    explicit Input(World &owner) : world(owner) {}
    virtual ~Input() = default;
    virtual void read(void ***samples, DDS_SampleInfo ***infos, std::int32_t *count,
                      QEL_FerrionEnvironment &environment) = 0;
    virtual void returnLoan(QEL_FerrionEnvironment &environment) = 0;
    /// A reader is made; false if that is not possible now.
    virtual bool open(const QEL_FerrionStreamReaderListener &)
    {
        return true;
    }
    /// The reader is deleted, or the process has ended.
    virtual void close(bool crashed)
    {
        lent_ = false;
        readSamples = crashed ? 0 : readSamples;
        for (Sink *sink : sinks) {
            sink->expect(nullptr);
            sink->known = crashed ? 0 : sink->known;
        }
    }
    /// Whether all has been delivered.
    virtual bool finished() const = 0;

    World &world;
    std::vector<Sink *> sinks;
    std::int64_t readSamples = 0;

protected:
    /// A loan is out.
    void begin()
    {
        readSamples += static_cast<std::int64_t>(loan_.numbers.size());
        lent_ = true;
        for (Sink *sink : sinks) {
            sink->expect(&loan_);
        }
    }
    /// The loan comes back. All outputs have to have what is acknowledged.
    void end()
    {
        world.require(lent_, "a loan is returned that is not out");
        lent_ = false;
        for (const Sink *sink : sinks) {
            world.require(sink->settled(), "acknowledged, but {} has not got all of it",
                          sink->name);
            for (int number : loan_.numbers) {
                world.require(sink->has(number), "{} is acknowledged, but {} has not got it",
                              number, sink->name);
            }
        }
    }

    bool lent_ = false;
    Lent loan_;
};

class Source : public Input {
public:
    Source(World &owner, Clock::duration within)
        : Input(owner), total(owner.chance.between(1, mostSamples)),
          isNumbered(owner.chance.oneIn(2)), repeats_(!owner.chance.oneIn(4)),
          mostAtOnce_(owner.chance.pick({1, 3, 20, mostSamples})), troubles_(owner, within)
    {
        for (int number = 0; number <= mostSamples; ++number) {
            DDS_SampleInfo &info = infoValues_[static_cast<std::size_t>(number)];
            info.valid_data = 1;
            info.publication_sequence_number.low = isNumbered ? static_cast<unsigned>(number) : 0;
        }
    }

    const int total;
    /// Whether what it lends again has the number that it had before.
    const bool isNumbered;
    /// How many it has by now.
    int available = 0;
    /// Whether anybody keeps records of the present loan that it could not decode.
    bool keepsRecords = false;
    std::string keep(std::size_t records)
    {
        world.require(records == rejected_, "{} records kept of {}", records, rejected_);
        world.mayCrash();
        const bool fails = troubles_.next(world) != Trouble::none;
        rejected_ = fails ? rejected_ : 0;
        return fails ? "no room" : "";
    }

    void read(void ***samples, DDS_SampleInfo ***infos, std::int32_t *count,
              QEL_FerrionEnvironment &environment) override
    {
        world.require(!lent_, "read while a loan is out");
        world.mayCrash();
        const Trouble trouble = troubles_.next(world);
        if (trouble == Trouble::hangs) {
            world.now += world.chance.time(0, 40000);
        }
        lend(trouble == Trouble::throws ? 0 : world.chance.below(mostAtOnce_) + 1);
        const bool fails = trouble == Trouble::throws || trouble == Trouble::partial;
        fail(environment, fails ? "cannot be read" : "");
        rejected_ =
            trouble == Trouble::partial ? static_cast<std::size_t>(world.chance.below(3)) : 0;
        world.details = {};
        world.details.rejected = rejected_;
        world.details.records.assign(rejected_, {"raw", "cannot be decoded", "here"});
        *samples = loan_.samples.data();
        *infos = infos_.data();
        *count = static_cast<std::int32_t>(loan_.samples.size());
        if (*count > 0) {
            world.trace("{} samples up to {} read{}", *count, position_, fails ? ", an error" : "");
        }
    }
    void returnLoan(QEL_FerrionEnvironment &environment) override
    {
        end();
        world.require(rejected_ == 0 || !keepsRecords, "{} records are not kept", rejected_);
        world.mayCrash();
        const bool fails = troubles_.next(world) != Trouble::none;
        if (!fails || world.chance.oneIn(2)) {
            durable_ = position_;
        }
        fail(environment, fails ? "cannot be acknowledged" : "");
        world.mayCrash();
    }
    void close(bool crashed) override
    {
        Input::close(crashed);
        position_ = repeats_ ? durable_ : position_;
    }
    bool finished() const override
    {
        return position_ == total && !lent_;
    }

private:
    void lend(int count)
    {
        loan_ = {};
        infos_.clear();
        for (const int end = std::min(position_ + count, available); position_ < end;) {
            loan_.numbers.push_back(++position_);
            loan_.samples.push_back(sampleOf(position_));
            infos_.push_back(&infoValues_[static_cast<std::size_t>(position_)]);
            for (Sink *sink : sinks) {
                if (position_ <= highest_) {
                    sink->allow(position_);
                }
            }
            highest_ = std::max(highest_, position_);
        }
        begin();
    }

    /// Whether it lends again what did not come back.
    const bool repeats_;
    const int mostAtOnce_;
    const Troubles troubles_;
    /// The last number that it has lent, the last one ever, and the last one that came back.
    int position_ = 0;
    int highest_ = 0;
    int durable_ = 0;
    std::size_t rejected_ = 0;
    std::vector<DDS_SampleInfo> infoValues_ = std::vector<DDS_SampleInfo>(mostSamples + 1);
    std::vector<DDS_SampleInfo *> infos_;
};

/// The real store and its real stream over the simulated disk, between two routes.
class Stored {
public:
    Stored(Disk &where, Sink &behind, const ferry::StreamSettings &written, bool numbered)
        : disk(where), output(behind), isNumbered(numbered)
    {
        using ferry::WhenFull;
        Chance &chance = disk.world.chance;
        settings.file = "/" + output.name + ".db";
        settings.maxBytes = static_cast<std::uint64_t>(chance.pick({1000, 8000, 1 << 20}));
        settings.whenFull = chance.pick(
            {WhenFull::block, WhenFull::block, WhenFull::dropOldest, WhenFull::dropNewest});
        settings.maxSamples = written.maxSamplesPerWrite;
        settings.sliceBytes = written.batchBytes;
        settings.route = "route";
        settings.output = output.name;
        settings.type = sampleType();
        settings.vfs = Disk::vfs();
        settings.firstNumber = 1;
        settings.notify = [this](const std::string &text) {
            disk.world.require(false, "the store says: {}", text);
        };
        ++disk.world.tally["stores"];
    }

    /// Has the store open; false if that fails now.
    bool open()
    {
        if (stream != nullptr) {
            return true;
        }
        store = std::make_unique<ferry::Store>(settings);
        const ferry::StateResult result = store->open();
        look();
        if (!result.ok()) {
            const bool temporary =
                result.fault == ferry::Fault::io || result.fault == ferry::Fault::full;
            // A failed sync can leave a new file without its head. Real ones are set aside by the
            // store.
            const bool isNew = result.fault == ferry::Fault::foreign && !hasTaken;
            disk.world.require(isNew || (temporary && !disk.world.quiet),
                               "a store does not open: {}", result.text);
            store.reset();
            for (const char *suffix : {"", "-journal", "-wal"}) {
                if (isNew) {
                    disk.remove(settings.file.string() + suffix);
                }
            }
            return false;
        }
        stream = std::make_unique<ferry::StoredStream>(*store, settings.type);
        stream->setNumbered(isNumbered);
        return true;
    }
    void close()
    {
        stream.reset();
        store.reset();
    }
    bool mayDrop() const
    {
        return settings.whenFull != ferry::WhenFull::block;
    }
    /// Throws if the disk has crashed in the meantime.
    void look() const
    {
        if (disk.isDead) {
            throw Crash();
        }
    }

    Disk &disk;
    /// What the output may get: all that the store was offered.
    Sink &output;
    const bool isNumbered;
    /// Whether there is anything in the file that must not go.
    bool hasTaken = false;
    ferry::StoreSettings settings;
    std::unique_ptr<ferry::Store> store;
    std::unique_ptr<ferry::StoredStream> stream;
};

/// What the first route writes to.
class StoreSink : public Sink {
public:
    StoreSink(Stored &stored, const ferry::StreamSettings &stream)
        : Sink(stored.disk.world, stored.output.name + " store", stream), stored_(stored)
    {
        counts = Counts::nothing;
        marks = false;
        takesAnything = true;
        bad.clear();
    }

protected:
    Sink::Answer answer(const Numbers &numbers, const ferry::SampleList &samples) override
    {
        for (int number : numbers) {
            if (!offered_.insert(number).second && !stored_.isNumbered) {
                stored_.output.allow(number);
            }
        }
        if (!stored_.open()) {
            return {{}, 0, "the store cannot be opened"};
        }
        QEL_FerrionEnvironment environment{};
        const std::int32_t count = ferry::StoredStream::operations.write(
            stored_.stream->writer(), samples.samples, samples.infos, samples.count, &environment);
        stored_.look();
        const bool taken = count == samples.count;
        stored_.hasTaken = stored_.hasTaken || taken;
        world.require(taken == (environment.errorFlag == 0) && (taken || count == 0),
                      "{}: {} of {} stored, '{}'", name, count, samples.count, environment.message);
        return {taken ? numbers : Numbers(), count, environment.message};
    }

private:
    Stored &stored_;
    std::set<int> offered_;
};

/// What the second route reads from.
class StoredSource : public Input {
public:
    explicit StoredSource(Stored &stored) : Input(stored.disk.world), stored_(stored)
    {
        sinks = {&stored.output};
    }
    void read(void ***samples, DDS_SampleInfo ***infos, std::int32_t *count,
              QEL_FerrionEnvironment &environment) override
    {
        world.require(!lent_, "read while a loan is out");
        ferry::StoredStream::operations.read(stored_.stream->reader(), samples, infos, count,
                                             &environment);
        stored_.look();
        world.mayCrash();
        loan_ = {};
        std::int64_t before = floor_ - 1;
        for (std::int32_t i = 0; i < *count; ++i) {
            const std::int64_t number = numberInStore(*(*infos)[i]);
            world.require(number > before, "the store lends {} behind {}", number, before);
            first_ = i == 0 ? number : first_;
            before = number;
            loan_.samples.push_back((*samples)[i]);
            const int sample = numberOf((*samples)[i]);
            loan_.numbers.push_back(sample);
            const bool isNew = lentBefore_.insert(sample).second;
            world.require(!isNew || sample == *lentBefore_.rbegin() || stored_.mayDrop(),
                          "the store lends {} behind {}", sample, *lentBefore_.rbegin());
            if (number <= last_) {
                stored_.output.allow(sample);
            }
        }
        last_ = std::max(last_, before);
        if (*count > 0) {
            world.trace("{}: {} to {} read from the store", stored_.output.name, first_, before);
        }
        begin();
    }
    void returnLoan(QEL_FerrionEnvironment &environment) override
    {
        end();
        const auto count = static_cast<std::int32_t>(loan_.numbers.size());
        ferry::StoredStream::operations.return_loan(stored_.stream->reader(), nullptr, nullptr,
                                                    count, &environment);
        floor_ = count > 0 ? last_ + 1 : floor_;
        stored_.look();
        world.mayCrash();
    }
    bool open(const QEL_FerrionStreamReaderListener &listener) override
    {
        const bool opened = stored_.open();
        if (opened) {
            stored_.stream->start(listener);
        }
        return opened;
    }
    /// What came back may be lent again after a crash, but nothing from before the last loan.
    void close(bool crashed) override
    {
        if (stored_.stream != nullptr && !crashed) {
            stored_.stream->stop();
        }
        Input::close(crashed);
        floor_ = crashed ? first_ : floor_;
    }
    bool finished() const override
    {
        return !lent_ && stored_.stream != nullptr && stored_.store->level().samples == 0;
    }

private:
    Stored &stored_;
    /// By the numbers that the store gives: the first one that may be lent, the first one of the
    /// last loan, and the last one ever lent.
    std::int64_t floor_ = 0;
    std::int64_t first_ = 0;
    std::int64_t last_ = 0;
    std::set<int> lentBefore_;
};

} // namespace simulate

#endif
