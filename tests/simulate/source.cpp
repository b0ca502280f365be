#include "source.h"

#include <algorithm>

namespace simulate {
namespace {

std::int64_t numberInStore(const DDS_SampleInfo &info)
{
    const DDS_SequenceNumber_t &number = info.publication_sequence_number;
    return std::int64_t{number.high} << 32 | number.low;
}

} // namespace

void Input::begin()
{
    readSamples += static_cast<std::int64_t>(loan_.numbers.size());
    lent_ = true;
    for (Sink *sink : sinks) {
        sink->expect(&loan_);
    }
}

void Input::end()
{
    world.require(lent_, "a loan is returned that is not out");
    lent_ = false;
    for (const Sink *sink : sinks) {
        world.require(sink->settled(), "acknowledged, but {} has not got all of it", sink->name);
        for (int number : loan_.numbers) {
            world.require(sink->has(number), "{} is acknowledged, but {} has not got it", number,
                          sink->name);
        }
    }
}

void Input::close(bool crashed)
{
    lent_ = false;
    readSamples = crashed ? 0 : readSamples;
    for (Sink *sink : sinks) {
        sink->expect(nullptr);
        sink->known = crashed ? 0 : sink->known;
    }
}

Source::Source(World &owner, Clock::duration within)
    : Input(owner), total(owner.chance.between(1, mostSamples)), isNumbered(owner.chance.oneIn(2)),
      repeats_(!owner.chance.oneIn(4)), mostAtOnce_(owner.chance.pick({1, 3, 20, mostSamples})),
      troubles_(owner, within)
{
    for (int number = 0; number <= mostSamples; ++number) {
        DDS_SampleInfo &info = infoValues_[static_cast<std::size_t>(number)];
        info.valid_data = 1;
        info.publication_sequence_number.low = isNumbered ? static_cast<unsigned>(number) : 0;
    }
}

void Source::read(void ***samples, DDS_SampleInfo ***infos, std::int32_t *count,
                  QEL_FerrionEnvironment &environment)
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
    rejected_ = trouble == Trouble::partial ? static_cast<std::size_t>(world.chance.below(3)) : 0;
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

void Source::lend(int count)
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

void Source::returnLoan(QEL_FerrionEnvironment &environment)
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

void Source::close(bool crashed)
{
    Input::close(crashed);
    position_ = repeats_ ? durable_ : position_;
}

std::string Source::keep(std::size_t records)
{
    world.require(records == rejected_, "{} records kept of {}", records, rejected_);
    world.mayCrash();
    const bool fails = troubles_.next(world) != Trouble::none;
    rejected_ = fails ? rejected_ : 0;
    return fails ? "no room" : "";
}

Stored::Stored(Disk &where, Sink &behind, const ferry::StreamSettings &written, bool numbered)
    : disk(where), output(behind), isNumbered(numbered)
{
    using ferry::WhenFull;
    Chance &chance = disk.world.chance;
    settings.file = "/" + output.name + ".db";
    settings.maxBytes = static_cast<std::uint64_t>(chance.pick({1000, 8000, 1 << 20}));
    settings.whenFull =
        chance.pick({WhenFull::block, WhenFull::block, WhenFull::dropOldest, WhenFull::dropNewest});
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

bool Stored::open()
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
        disk.world.require(isNew || (temporary && !disk.world.quiet), "a store does not open: {}",
                           result.text);
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

void Stored::close()
{
    stream.reset();
    store.reset();
}

void Stored::look() const
{
    if (disk.isDead()) {
        throw Crash();
    }
}

StoreSink::StoreSink(Stored &stored, const ferry::StreamSettings &stream)
    : Sink(stored.disk.world, stored.output.name + " store", stream), stored_(stored)
{
    counts = Counts::nothing;
    marks = false;
    takesAnything = true;
    bad.clear();
}

Sink::Answer StoreSink::answer(const Numbers &numbers, const ferry::SampleList &samples)
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

bool StoredSource::open(const QEL_FerrionStreamReaderListener &listener)
{
    const bool opened = stored_.open();
    if (opened) {
        stored_.stream->start(listener);
    }
    return opened;
}

/// What came back may be lent again after a crash, but nothing from before the last loan.
void StoredSource::close(bool crashed)
{
    if (stored_.stream != nullptr && !crashed) {
        stored_.stream->stop();
    }
    Input::close(crashed);
    floor_ = crashed ? first_ : floor_;
}

void StoredSource::read(void ***samples, DDS_SampleInfo ***infos, std::int32_t *count,
                        QEL_FerrionEnvironment &environment)
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

void StoredSource::returnLoan(QEL_FerrionEnvironment &environment)
{
    end();
    const auto count = static_cast<std::int32_t>(loan_.numbers.size());
    ferry::StoredStream::operations.return_loan(stored_.stream->reader(), nullptr, nullptr, count,
                                                &environment);
    floor_ = count > 0 ? last_ + 1 : floor_;
    stored_.look();
    world.mayCrash();
}

} // namespace simulate
