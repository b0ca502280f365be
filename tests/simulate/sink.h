// A simulated output with its troubles and its dead letters. It survives a crash with what is
// durable of it, and holds every call that the engine makes against what is known.
#ifndef TESTS_SIMULATE_SINK_H
#define TESTS_SIMULATE_SINK_H

#include <limits>
#include <map>
#include <set>

#include "engine/loan.h"
#include "state/slice.h"
#include "world.h"

namespace simulate {

/// Samples are known by their numbers, from 1 to this.
constexpr int mostSamples = 160;

using Numbers = std::vector<int>;

/// What an input has lent.
struct Lent {
    Numbers numbers;
    std::vector<void *> samples;
};

/// Holds the pauses between failing attempts against the settings.
class Pace {
public:
    explicit Pace(const ferry::RetrySettings &settings) : settings_(settings) {}
    void begins(const World &world);
    void ends(const World &world, bool failed, bool progress);
    void reset()
    {
        failing_ = false;
    }

private:
    ferry::RetrySettings settings_;
    bool failing_ = false;
    int burst_ = 0;
    int pauses_ = 0;
    Time ended_;
    Clock::duration idledBefore_{0};
};

class Sink : public QEL_FerrionStreamWriter {
public:
    /// What its counts mean: the first so many were taken; a write that fails took nothing; nothing
    /// is known.
    enum class Counts { prefix, nothing, vague };

    Sink(World &owner, std::string label, const ferry::StreamSettings &stream);
    virtual ~Sink() = default;

    World &world;
    const std::string name;
    Counts counts;
    /// Whether it says which sample is bad data.
    bool marks;
    /// What it cannot take.
    std::set<int> bad;
    bool takesAnything = false;
    Troubles troubles;
    /// Of the keeper, as this sink's dead letters meet them.
    Troubles keeping;

    std::int32_t write(const ferry::SampleList &samples, QEL_FerrionEnvironment &environment);
    /// Sets samples aside.
    std::string keep(const ferry::Loan &loan);
    /// The input lends these; null when its reader is gone.
    void expect(const Lent *loan);
    /// Whether the present loan is settled.
    bool settled() const
    {
        return next_ == loan_->numbers.size();
    }
    /// Whether there is no good sample near enough to tell that the next ones are bad.
    bool hopeless() const;
    /// The sample has been lent once more, so it may come once more.
    void allow(int number)
    {
        ++allowed_[static_cast<std::size_t>(number)];
    }
    bool has(int number) const
    {
        return taken_[static_cast<std::size_t>(number)] > 0 || dead_.count(number) > 0;
    }
    /// What the engine could know as taken, in this life of the process.
    std::int64_t known = 0;
    std::int64_t letters() const
    {
        return static_cast<std::int64_t>(dead_.size());
    }

protected:
    struct Answer {
        Numbers taken;
        int count = 0;
        std::string error;
        bool marked = false;
        /// As of a call into Java, which has no result when it throws.
        bool throws = false;
    };
    virtual Answer answer(const Numbers &numbers, const ferry::SampleList &samples);

private:
    Answer failure(const Numbers &numbers, int good, Trouble trouble);
    void take(int number);
    std::size_t placeOf(const ferry::SampleList &samples) const;
    void settle(std::size_t at, int count, int sure, const Answer &reply);

    Pace pace_;
    // Durable.
    std::vector<int> taken_ = std::vector<int>(mostSamples + 1);
    std::vector<int> allowed_ = std::vector<int>(mostSamples + 1);
    std::set<int> dead_;

    // Of the present loan.
    const Lent *loan_ = nullptr;
    /// The first sample that is not settled.
    std::size_t next_ = 0;
    /// The sample behind it that was taken; 0 for none.
    std::size_t probed_ = 0;
    /// The sample that the sink has marked as bad.
    static constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();
    std::size_t marked_ = nowhere;
    std::map<std::size_t, int> failedAlone_;
};

/// Has a call fail if there is a text.
void fail(QEL_FerrionEnvironment &environment, const std::string &text);

const DDS_TypeCode *sampleType();
/// There is one sample of each number.
void *sampleOf(int number);
int numberOf(const void *sample);

} // namespace simulate

#endif
