// A simulated output with its troubles and its dead letters. It survives a crash with what is
// durable of it, and holds every call that the engine makes against what is known.
#ifndef TESTS_SIMULATE_SINK_H
#define TESTS_SIMULATE_SINK_H

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <set>

#include "../relay/numbered.h"
#include "engine/loan.h"
#include "ferryjni/delivery.h"
#include "state/slice.h"
#include "world.h"

namespace simulate {

using numbered::fail, numbered::numberOf, numbered::sampleType;

/// Samples are known by their numbers, from 1 to this.
constexpr int mostSamples = 160;

using Numbers = std::vector<int>;

/// There is one sample of each number, as long as the process lives. Some of them are large.
inline void *sampleOf(int number)
{
    static std::map<int, DDS_DynamicData *> samples;
    DDS_DynamicData *&sample = samples[number];
    if (sample == nullptr) {
        sample = DDS_DynamicData_new(sampleType(), nullptr);
        numbered::set(sample, number, number % 7 == 0 ? 200 : 0);
    }
    return sample;
}

/// What an input has lent.
struct Lent {
    Numbers numbers;
    std::vector<void *> samples;
    Numbers part(std::size_t from, std::size_t to) const
    {
        return {numbers.data() + from, numbers.data() + to};
    }
};

/// Holds the pauses between failing attempts against the settings.
class Pace {
public:
    explicit Pace(const ferry::RetrySettings &settings) : settings_(settings) {}
    /// Halving and the search behind a bad sample may follow each other immediately, but no more.
    void begins(const World &world)
    {
        constexpr int immediate = 32;
        if (!failing_) {
            return;
        }
        if (world.now == ended_) {
            ++burst_;
            world.require(burst_ <= immediate, "the {}th attempt in a row without a pause", burst_);
            return;
        }
        burst_ = 0;
        const Clock::duration most = std::max<Clock::duration>(
            milliseconds(1), std::min<Clock::duration>(
                                 settings_.max, settings_.first * (1 << std::min(pauses_, 20))));
        const Clock::duration pause = world.idled - idledBefore_;
        ++pauses_;
        world.require(pause <= most, "pause {} took {} of at most {} ns", pauses_, pause.count(),
                      most.count());
    }
    void ends(const World &world, bool failed, bool progress)
    {
        if (!failing_ || progress) {
            burst_ = pauses_ = 0;
        }
        failing_ = failed;
        ended_ = world.now;
        idledBefore_ = world.idled;
    }
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
    enum class Counts : std::uint32_t {
        prefix = FERRY_DELIVERY_COUNTS_PREFIX,
        nothing = FERRY_DELIVERY_TAKES_NOTHING,
        vague = 0
    };

    Sink(World &owner, std::string label, const ferry::StreamSettings &stream)
        : world(owner), name(std::move(label)),
          counts(owner.chance.pick({Counts::prefix, Counts::nothing, Counts::vague})),
          marks(owner.chance.oneIn(3)), pace_(stream.retry)
    {
        for (int runs = world.chance.pick({0, 0, 1, 3, 8}); runs > 0; --runs) {
            const int begin = world.chance.between(1, mostSamples);
            const int end = begin + world.chance.pick({1, 1, 2, 5, 14});
            for (int number = begin; number < end; ++number) {
                bad.insert(number);
            }
        }
    }
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

    std::int32_t write(const ferry::SampleList &samples, QEL_FerrionEnvironment &environment)
    {
        const std::size_t at = placeOf(samples);
        pace_.begins(world);
        const int count = samples.count;
        const Numbers numbers = loan_->part(at, at + static_cast<std::size_t>(count));
        Answer reply = answer(numbers, samples);
        const bool crash = world.crashes();
        if (crash && counts == Counts::prefix) {
            reply.taken.resize(world.chance.below(reply.taken.size() + 1));
        }
        world.trace("{}: {} to {} written, {} taken, says {} '{}'", name, numbers.front(),
                    numbers.back(), reply.taken.size(), reply.count, reply.error);
        const bool isPossible = reply.count >= 0 && reply.count <= count;
        const bool isSure = isPossible && (counts == Counts::prefix || reply.count == count);
        const int sure = isSure ? reply.count : 0;
        int left = sure;
        for (const int number : reply.taken) {
            take(number);
            allowed_[number] += left-- > 0 ? 0 : 1;
        }
        if (crash) {
            throw Crash();
        }
        world.details = {};
        world.details.rejected = reply.marked ? 1 : 0;
        world.details.taken = reply.throws ? reply.count : 0;
        reply.marked = reply.marked && isPossible && reply.count < count;
        settle(at, count, sure, reply);
        fail(environment, reply.error);
        return reply.throws ? 0 : reply.count;
    }
    /// Sets samples aside.
    std::string keep(const ferry::Loan &loan)
    {
        const auto count = static_cast<std::size_t>(loan.count);
        world.require(!takesAnything, "{}: {} are set aside, but for lack of room", name, count);
        world.require(loan_ != nullptr && loan_->samples[next_] == loan.samples[0],
                      "{}: {} is set aside, which is not its turn", name,
                      numberOf(loan.samples[0]));
        const bool isMarked = marked_ == next_;
        world.require(isMarked ? count == 1 : probed_ == next_ + count,
                      "{}: {} from {} on are set aside, but what is behind them was not taken",
                      name, count, loan_->numbers[next_]);
        for (std::size_t i = next_; i < next_ + count; ++i) {
            world.require(isMarked || failedAlone_[i] >= 2,
                          "{}: {} is set aside, but neither marked nor has it failed alone twice",
                          name, loan_->numbers[i]);
        }
        pace_.begins(world);
        const bool isFull = keeping.next(world) != Trouble::none;
        pace_.ends(world, isFull, !isFull);
        world.trace("{}: {} from {} on set aside{}", name, count, loan_->numbers[next_],
                    isFull ? ", but there is no room" : "");
        world.mayCrash();
        if (isFull) {
            return "no room";
        }
        const Numbers dead = loan_->part(next_, next_ + count);
        dead_.insert(dead.begin(), dead.end());
        next_ += count + (probed_ > 0 ? 1 : 0);
        probed_ = 0;
        marked_ = nowhere;
        world.mayCrash();
        return "";
    }
    /// The input lends these; null when its reader is gone.
    void expect(const Lent *loan)
    {
        loan_ = loan;
        next_ = probed_ = 0;
        marked_ = nowhere;
        failedAlone_.clear();
        if (loan == nullptr) {
            pace_.reset();
        }
    }
    /// Whether the present loan is settled.
    bool settled() const
    {
        return next_ == loan_->numbers.size();
    }
    /// Whether there is no good sample near enough to tell that the next ones are bad.
    bool hopeless() const
    {
        constexpr std::size_t farthest = 17;
        if (loan_ == nullptr || settled()) {
            return false;
        }
        const Numbers next = loan_->part(next_, std::min(loan_->numbers.size(), next_ + farthest));
        return std::all_of(next.begin(), next.end(),
                           [this](int number) { return bad.count(number) > 0; });
    }
    /// The sample has been lent once more, so it may come once more.
    void allow(int number)
    {
        ++allowed_[number];
    }
    bool has(int number) const
    {
        return taken_.count(number) > 0 || dead_.count(number) > 0;
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
    virtual Answer answer(const Numbers &numbers, const ferry::SampleList &)
    {
        Trouble trouble = troubles.next(world);
        if (trouble == Trouble::hangs) {
            world.now += world.chance.time(0, 40000);
            trouble = world.chance.pick({Trouble::none, Trouble::throws, Trouble::partial});
        }
        const auto isBad = [this](int number) { return bad.count(number) > 0; };
        const auto firstBad = std::find_if(numbers.begin(), numbers.end(), isBad);
        if (trouble != Trouble::none || firstBad != numbers.end()) {
            return failure(numbers, static_cast<int>(firstBad - numbers.begin()), trouble);
        }
        // It may have something to report all the same.
        const bool remark = !world.quiet && world.chance.oneIn(40);
        return {numbers, static_cast<int>(numbers.size()), remark ? "a remark" : ""};
    }

private:
    /// `good` samples come before the first one that it cannot take, which is what fails if there
    /// is no other trouble.
    Answer failure(const Numbers &numbers, int good, Trouble trouble)
    {
        Chance &chance = world.chance;
        const int count = static_cast<int>(numbers.size());
        const bool isBad = trouble == Trouble::none;
        const int some = isBad                        ? good
                         : trouble == Trouble::throws ? 0
                                                      : chance.below(std::min(good, count - 1) + 1);
        int taken = some;
        Answer result{{}, some, isBad ? "bad data" : "away", isBad && marks};
        if (trouble == Trouble::shortCount || (isBad && !marks && chance.oneIn(4))) {
            result.error.clear();
        }
        if (trouble == Trouble::lies) {
            result.count = chance.pick(
                {-1, count + 1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()});
            result.marked = marks;
        } else if (counts == Counts::nothing) {
            // The answer to its commit may be what fails.
            const bool isCommitted =
                good == count && trouble == Trouble::partial && chance.oneIn(2);
            taken = isCommitted ? count : 0;
        } else if (counts == Counts::vague && !result.marked) {
            result.count = chance.below(count);
        }
        result.taken.assign(numbers.begin(), numbers.begin() + taken);
        for (auto from = numbers.begin() + good;
             counts == Counts::vague && isBad && from < numbers.end(); ++from) {
            if (bad.count(*from) == 0 && chance.oneIn(2)) {
                result.taken.push_back(*from);
            }
        }
        result.throws = counts == Counts::prefix && trouble != Trouble::lies &&
                        !result.error.empty() && chance.oneIn(2);
        return result;
    }
    void take(int number)
    {
        const int times = ++taken_[number];
        world.require(times <= 1 + allowed_[number], "{}: {} is there {} times", name, number,
                      times);
        world.tally["doubled"] += times > 1 ? 1 : 0;
    }
    /// Offered is what comes next, or one sample behind others, each of which has failed alone.
    std::size_t placeOf(const ferry::SampleList &samples) const
    {
        world.require(loan_ != nullptr && samples.count > 0, "{}: written without a loan", name);
        const auto found = std::search(loan_->samples.begin(), loan_->samples.end(),
                                       samples.samples, samples.samples + samples.count);
        const int number = numberOf(samples.samples[0]);
        world.require(found != loan_->samples.end(), "{}: {} to be written is no part of the loan",
                      name, number);
        const auto at = static_cast<std::size_t>(found - loan_->samples.begin());
        world.require(at >= next_, "{}: {} is written, but was settled", name, number);
        world.require(probed_ == 0, "{}: {} is written before bad data is set aside", name, number);
        for (std::size_t i = next_; i < at; ++i) {
            world.require(samples.count == 1 && failedAlone_.count(i) > 0,
                          "{}: {} is written before {}", name, number, loan_->numbers[i]);
        }
        return at;
    }
    /// What the engine may conclude from the answer.
    void settle(std::size_t at, int count, int sure, const Answer &reply)
    {
        const bool isProbe = at > next_;
        known += sure;
        pace_.ends(world, sure<count, sure> 0 || (reply.marked && !isProbe));
        if (sure < count && count == 1) {
            ++failedAlone_[at];
        }
        if (isProbe) {
            probed_ = sure == count ? at : 0;
            return;
        }
        next_ += static_cast<std::size_t>(sure);
        marked_ = reply.marked ? at + static_cast<std::size_t>(reply.count) : nowhere;
        // Later on somebody may mend the data, which does not take back what was said.
        world.require(marked_ == nowhere || bad.count(loan_->numbers[marked_]) > 0,
                      "{}: a good sample is marked", name);
    }

    Pace pace_;
    // Durable.
    std::map<int, int> taken_;
    std::map<int, int> allowed_;
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

} // namespace simulate

#endif
