// Sweeps; see harness.h.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "harness.h"

namespace bridge {

int64_t libcBlocks = 0;

namespace {

using Lines = std::vector<std::string>;

/// A scenario played once: what came of each command (nothing where the host left it out), how many
/// calls had been counted before it, and what all left behind.
struct Run {
    Lines texts;
    std::vector<size_t> begins;
    int64_t references = 0;
    int64_t blocks = 0;
};

/// The transcript of one command, taken apart.
struct Outcome {
    Lines log;
    std::string firstError;
    Lines calls;
    std::string result;
};

/// Names without their numbers, which depend on what was there before.
std::string withoutNumbers(const std::string &call)
{
    std::string text;
    std::string word;
    for (const char c : call) {
        const bool isNumbered = word == "list" || word == "listener" || word == "d" ||
                                word == "i" || (!word.empty() && isupper(word[0]) != 0);
        if (isdigit(c) == 0 || !isNumbered) {
            text += c;
            word = isalpha(c) != 0 ? word + c : "";
        }
    }
    return text;
}

/// Also holds the environment against the log: its text is the first that an operation reported.
Outcome takeApart(const std::string &text)
{
    Outcome outcome;
    std::string environment;
    std::string reported;
    std::istringstream lines(text);
    std::string line;
    std::getline(std::getline(lines, line), line); // an empty line and the command
    for (std::string before; std::getline(lines, line); before = line) {
        const size_t colon = line.find(':');
        if (line[0] == '<') {
            const size_t mark = line.find(" !");
            outcome.result = line.substr(1, mark - 1);
            environment = mark != std::string::npos ? line.substr(mark + 2) : "";
        } else if (line == "JNICommon_newGlobalRefReplacingLocalRef:!create global reference" &&
                   before == "FERRYJNICommon_newGlobalRef:!create global reference") {
            outcome.log.emplace_back("(no reference)");
        } else if (line.rfind("FERRYJNI", 0) == 0) {
            const std::string context = line.substr(8, colon - 8);
            const std::string what = line.substr(colon + 1);
            if (what == "!create global reference") {
                continue;
            }
            outcome.log.push_back(context + " " + what);
            if (outcome.firstError.empty() && what[0] == '!' && context.rfind("Common_", 0) != 0) {
                outcome.firstError = outcome.log.back();
                // Who makes a VM has no environment yet.
                reported = context != "Global_new" ? what.substr(1) : "";
            }
        } else if (line == "(described)") {
            outcome.log.push_back(line);
        } else if (isupper(line[0]) != 0 && isupper(line[1]) != 0) {
            ADD_FAILURE() << line << text;
        } else {
            outcome.calls.push_back(withoutNumbers(line));
        }
    }
    EXPECT_EQ(environment, reported) << text;
    return outcome;
}

/// In what the outcome of a command differs from the usual one, fact by fact: all of it, or in
/// short the first error and whether there is a record.
Lines difference(const std::string &text, const std::string &usualText, bool inShort)
{
    const Outcome outcome = takeApart(text);
    const Outcome usual = takeApart(usualText);
    Lines facts;
    if (inShort) {
        if (outcome.firstError != usual.firstError && !outcome.firstError.empty()) {
            facts.push_back(outcome.firstError);
        }
    } else {
        if (outcome.log != usual.log) {
            facts = outcome.log;
        }
        if (outcome.calls != usual.calls) {
            for (const std::string &call : outcome.calls) {
                facts.push_back("| " + call);
            }
            if (outcome.calls.empty()) {
                facts.emplace_back("| no call");
            }
        }
    }
    if (inShort ? (outcome.result == " null") != (usual.result == " null")
                : outcome.result != usual.result) {
        facts.push_back("=" + outcome.result);
    }
    return facts;
}

/// A line for each fact, indented.
std::string lineByLine(const Lines &facts, const char *indentation)
{
    std::string text;
    for (const std::string &fact : facts) {
        text += "\n" + (indentation + fact);
    }
    return text;
}

std::string listed(const std::vector<int64_t> &numbers, const char *to)
{
    std::string text;
    for (size_t i = 0; i < numbers.size();) {
        size_t end = i + 1;
        while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) {
            ++end;
        }
        text += (i != 0 ? "," : "") + std::to_string(numbers[i]) +
                (end > i + 1 ? to + std::to_string(numbers[end - 1]) : "");
        i = end;
    }
    return text;
}

/// Faults of one command that have one outcome.
struct Row {
    std::string outcome;
    /// Each fault with the call's name, and what it leaves behind more than is usual.
    std::vector<std::pair<int64_t, std::string>> faults;
    std::vector<int64_t> references;
    std::vector<int64_t> blocks;

    std::string lines() const
    {
        std::string text;
        for (size_t i = 0, end = 0; i < faults.size(); i = end) {
            std::vector<int64_t> numbers;
            for (; end < faults.size() && faults[end].second == faults[i].second; ++end) {
                numbers.push_back(faults[end].first);
            }
            text += (i != 0 ? ",\n" : "") + listed(numbers, "-") + " " + faults[i].second;
        }
        const auto more = [](const std::vector<int64_t> &counts, const char *what) {
            const bool same = std::set<int64_t>(counts.begin(), counts.end()).size() == 1;
            return same && counts[0] == 0
                       ? std::string()
                       : "\n    [" + (same ? std::to_string(counts[0]) : listed(counts, "..")) +
                             what;
        };
        return text + ":" + outcome + more(references, " references]") + more(blocks, " blocks]");
    }
};

class Sweep {
public:
    Sweep(const std::string &kind, const Lines &scenario,
          const std::function<std::function<void(const std::string &)>()> &begin)
        : kind_(kind), scenario_(scenario), begin_(begin), usual_(play(0, false)), failing_(usual_)
    {
        const Lines calls = fault.calls;
        // Backwards, because a fault for good shows in what it changes in the commands after its
        // own, of which all calls fail too.
        Lines backwards;
        for (size_t i = scenario_.size(), end = calls.size(); i-- > 0; end = usual_.begins[i]) {
            SCOPED_TRACE(scenario_[i]);
            once_.clear();
            forGood_.clear();
            for (size_t n = end; n-- > usual_.begins[i];) {
                tryCall(i, n, calls[n]);
            }
            failing_ = end > usual_.begins[i] && kind_ != "env" ? next_ : failing_;
            for (const std::vector<Row> *rows : {&forGood_, &once_}) {
                for (const Row &row : *rows) {
                    backwards.push_back(row.lines());
                }
            }
            if (!forGood_.empty() || !once_.empty()) {
                backwards.push_back(scenario_[i]);
            }
        }
        lines.assign(backwards.rbegin(), backwards.rend());
        lines.emplace_back("> unnoticed");
        for (const auto &[call, count] : unnoticed_) {
            lines.push_back(call + " " + std::to_string(count));
        }
    }

    Lines lines;

private:
    Run play(size_t nth, bool forGood, Fault::Failure failure = Fault::throws)
    {
        Run run;
        run.references = -static_cast<int64_t>(jni.globals.size());
        run.blocks = -heapBlocks() - libcBlocks;
        const auto execute = begin_();
        fault = {kind_, "", nth, forGood, failure};
        for (const std::string &line : scenario_) {
            run.begins.push_back(fault.calls.size());
            execute(line);
            run.texts.push_back(transcript());
        }
        EXPECT_FALSE(fault.isPending());
        fault.kind.clear();
        run.references += static_cast<int64_t>(jni.globals.size());
        run.blocks += heapBlocks() + libcBlocks;
        return run;
    }

    /// What a run changed, from the command of the fault on.
    std::string changes(const Run &run, size_t command, const Lines &usualLater, bool inShort) const
    {
        std::string text =
            lineByLine(difference(run.texts[command], usual_.texts[command], inShort), "    ");
        for (size_t i = command + 1; i < scenario_.size(); ++i) {
            // Signals meet whatever listeners there are; late ones are to meet none.
            const bool counts = scenario_[i][0] != '!' || usual_.texts[i] == "\n" + scenario_[i];
            if (!run.texts[i].empty() && counts) {
                const Lines more = difference(run.texts[i], usualLater[i], inShort);
                text += more.empty() ? "" : "\n    " + scenario_[i].substr(2) + ":";
                text += lineByLine(more, "        ");
            }
        }
        return text;
    }

    /// Keeps an outcome with the others of the command; `usual` is the run without the fault.
    static void add(std::vector<Row> *rows, const std::string &outcome, int64_t number,
                    const std::string &name, const Run &run, const Run &usual)
    {
        auto row = std::find_if(rows->begin(), rows->end(),
                                [&](const Row &each) { return each.outcome == outcome; });
        if (row == rows->end()) {
            row = rows->insert(row, {outcome, {}, {}, {}});
        }
        row->faults.insert(row->faults.begin(), {number, name});
        row->references.insert(row->references.begin(), run.references - usual.references);
        row->blocks.insert(row->blocks.begin(), run.blocks - usual.blocks);
    }

    /// Whether `a` left as much more behind than `usualA` did as `b` more than `usualB`.
    static bool leaveTheSame(const Run &a, const Run &usualA, const Run &b, const Run &usualB)
    {
        return a.references - usualA.references == b.references - usualB.references &&
               a.blocks - usualA.blocks == b.blocks - usualB.blocks;
    }

    /// Lets call `n` fail, which is one of a command.
    void tryCall(size_t command, size_t n, const std::string &call)
    {
        const auto number = static_cast<int64_t>(n - usual_.begins[command] + 1);
        const Run once = play(n + 1, false);
        EXPECT_EQ(fault.calls[n], call);
        const std::string outcome = changes(once, command, usual_.texts, false);
        const bool goesOn = outcome.empty() && leaveTheSame(once, usual_, usual_, usual_);
        if (goesOn) {
            ++unnoticed_[call];
        } else {
            add(&once_, outcome, number, call, once, usual_);
        }
        if (kind_ == "env") {
            // A thread that has been detached for good says and leaves the same everywhere.
            return;
        }
        const Run otherVm = play(n + 1, false, Fault::otherVm);
        EXPECT_EQ(changes(otherVm, command, usual_.texts, false), outcome) << call;
        EXPECT_TRUE(leaveTheSame(otherVm, usual_, once, usual_)) << call;
        Run forGood = play(n + 1, true);
        const std::string brief = changes(forGood, command, failing_.texts, true);
        const bool asOnce = brief == changes(once, command, usual_.texts, true) &&
                            leaveTheSame(forGood, failing_, once, usual_);
        const bool asNext =
            goesOn && brief == nextBrief_ && leaveTheSame(forGood, usual_, next_, usual_);
        if (!asOnce && !asNext) {
            add(&forGood_, brief, number, "and all after", forGood, failing_);
        }
        nextBrief_ = brief;
        next_ = std::move(forGood);
    }

    const std::string kind_;
    const Lines &scenario_;
    const std::function<std::function<void(const std::string &)>()> &begin_;
    const Run usual_;
    /// The life in which all calls of the later commands fail.
    Run failing_;
    /// Of the present command.
    std::vector<Row> once_;
    std::vector<Row> forGood_;
    /// What came of all calls failing from the next on.
    Run next_;
    std::string nextBrief_;
    std::map<std::string, int> unnoticed_;
};

} // namespace

void sweep(const std::string &kind, const Lines &scenario,
           const std::function<std::function<void(const std::string &)>()> &begin,
           const std::string &file)
{
    const std::string path = BRIDGE_CASES_DIR "/" + file + ".sweep";
    // Comments stand at the head and below the line of a command.
    std::vector<std::string> comments(1);
    std::string expected;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (line[0] == '#') {
            comments.back() += line + "\n";
            continue;
        }
        if (isCommand(line)) {
            comments.emplace_back();
        }
        expected += line + "\n";
    }
    std::string text;
    std::string commented = comments[0];
    size_t command = 0;
    for (const std::string &line : Sweep(kind, scenario, begin).lines) {
        text += line + "\n";
        commented += line + "\n";
        if (isCommand(line) && ++command < comments.size()) {
            commented += comments[command];
        }
    }
    if (getenv("FERRY_SWEEP_WRITE") != nullptr) {
        std::ofstream(path) << commented;
        return;
    }
    EXPECT_EQ(text, expected);
}

} // namespace bridge
