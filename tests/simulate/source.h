// What simulated routes read from: a source, or a store that another route fills.
#ifndef TESTS_SIMULATE_SOURCE_H
#define TESTS_SIMULATE_SOURCE_H

#include <memory>

#include "disk.h"
#include "engine/stored_stream.h"
#include "sink.h"
#include "state/store.h"

namespace simulate {

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
    virtual void close(bool crashed);
    /// Whether all has been delivered.
    virtual bool finished() const = 0;

    World &world;
    std::vector<Sink *> sinks;
    std::int64_t readSamples = 0;

protected:
    /// A loan is out.
    void begin();
    /// The loan comes back. All outputs have to have what is acknowledged.
    void end();

    bool lent_ = false;
    Lent loan_;
};

class Source : public Input {
public:
    Source(World &owner, Clock::duration within);

    const int total;
    /// Whether what it lends again has the number that it had before.
    const bool isNumbered;
    /// How many it has by now.
    int available = 0;
    /// Whether anybody keeps records of the present loan that it could not decode.
    bool keepsRecords = false;
    std::string keep(std::size_t records);

    void read(void ***samples, DDS_SampleInfo ***infos, std::int32_t *count,
              QEL_FerrionEnvironment &environment) override;
    void returnLoan(QEL_FerrionEnvironment &environment) override;
    void close(bool crashed) override;
    bool finished() const override
    {
        return position_ == total && !lent_;
    }

private:
    void lend(int count);

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
    Stored(Disk &where, Sink &behind, const ferry::StreamSettings &written, bool numbered);

    /// Has the store open; false if that fails now.
    bool open();
    void close();
    bool mayDrop() const
    {
        return settings.whenFull != ferry::WhenFull::block;
    }
    /// Throws if the disk has crashed in the meantime.
    void look() const;

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
    StoreSink(Stored &stored, const ferry::StreamSettings &stream);

protected:
    Answer answer(const Numbers &numbers, const ferry::SampleList &samples) override;

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
              QEL_FerrionEnvironment &environment) override;
    void returnLoan(QEL_FerrionEnvironment &environment) override;
    bool open(const QEL_FerrionStreamReaderListener &listener) override;
    void close(bool crashed) override;
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
