// `ferry dead`: what was set aside as bad data, to be looked at, tried again or given up.
#include <iostream>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "launcher/complain.h"
#include "launcher/dead_letter_text.h"
#include "launcher/retry_plan.h"
#include "launcher/start.h"
#include "launcher/verb.h"
#include "process/exit_code.h"
#include "state/state_directory.h"

namespace ferry {
namespace {

class Dead : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("FILE", file_, "Configuration file (YAML)")->required();
        command
            .add_option("ACTION", action_,
                        "ls: list them; show: all that is known of them; retry: write them to "
                        "their output once more; drop: delete them")
            ->required()
            ->check(CLI::IsMember({"ls", "show", "retry", "drop"}));
        command.add_option("ID", ids_, "Which of them; all if there is none (not with show)");
        command.add_flag("--json", json_, "With ls and show: as JSON");
        addJavaHome(command, javaHome_);
        options_.untilIdle = std::chrono::milliseconds(200);
        command.add_option_function<std::string>(
            "--give-up",
            [this](const std::string &text) {
                options_.giveUp = secondsOf("--give-up", text, 0, 86400);
            },
            fmt::format("With retry: how many seconds an output that is away is waited for "
                        "(default {})",
                        options_.giveUp.count() / 1000));
    }

    void complete() override
    {
        if (action_ == "show" && ids_.empty()) {
            throw CLI::RequiredError("ID");
        }
        if (json_ && action_ != "ls" && action_ != "show") {
            throw CLI::ValidationError("--json", "is for ls and show");
        }
    }

    int run() override
    {
        ConfigurationFile file(file_);
        if (!file.complain()) {
            return exitUsage;
        }
        const Configuration &configuration = *file.configuration();
        letterFile_ = StateDirectory(configuration.state).deadLetters();
        std::error_code error;
        if (!std::filesystem::exists(letterFile_, error)) {
            return print({}) | nameMissing({});
        }
        DeadLetters letters(settings());
        std::vector<KeptLetter> chosen;
        if (!choose(letters, chosen)) {
            return exitErrors;
        }
        const int missing = nameMissing(chosen);
        if (action_ == "drop") {
            return drop(letters, chosen) | missing;
        }
        return (action_ == "retry" ? retry(configuration, letters, chosen) : print(chosen)) |
               missing;
    }

private:
    /// The relay may have the file as well, so nothing is done to it but what is asked for.
    DeadLetters::Settings settings() const
    {
        DeadLetters::Settings settings;
        settings.file = letterFile_;
        settings.setsAside = false;
        return settings;
    }

    bool choose(DeadLetters &letters, std::vector<KeptLetter> &chosen) const
    {
        const std::set<std::int64_t> wanted(ids_.begin(), ids_.end());
        const StateResult result =
            letters.visit(0, action_ == "show", [&](const KeptLetter &letter) {
                if (wanted.empty() || wanted.count(letter.id) != 0) {
                    chosen.push_back(letter);
                }
                return true;
            });
        if (!result.ok()) {
            complain("ferry: " + result.text);
        }
        return result.ok();
    }

    /// Of the numbers that were asked for.
    int nameMissing(const std::vector<KeptLetter> &chosen) const
    {
        std::set<std::int64_t> missing(ids_.begin(), ids_.end());
        for (const KeptLetter &letter : chosen) {
            missing.erase(letter.id);
        }
        for (const std::int64_t id : missing) {
            complain(fmt::format("ferry: there is no dead letter {}", id));
        }
        return missing.empty() ? exitOk : exitErrors;
    }

    int print(const std::vector<KeptLetter> &chosen) const
    {
        if (json_) {
            nlohmann::ordered_json all = nlohmann::ordered_json::array();
            for (const KeptLetter &letter : chosen) {
                all.push_back(describeAsJson(letter));
            }
            std::cout << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
        } else if (action_ == "show") {
            for (const KeptLetter &letter : chosen) {
                std::cout << (&letter == &chosen.front() ? "" : "\n") << describe(letter);
            }
        } else if (chosen.empty()) {
            std::cout << "no dead letters\n";
        } else {
            for (const std::string &line : deadLetterTable(chosen)) {
                std::cout << line << "\n";
            }
        }
        return std::cout.flush() ? exitOk : exitErrors;
    }

    static int drop(DeadLetters &letters, const std::vector<KeptLetter> &chosen)
    {
        std::vector<DeadLetters::Seen> seen;
        seen.reserve(chosen.size());
        for (const KeptLetter &letter : chosen) {
            seen.push_back({letter.id, letter.attempts});
        }
        std::size_t deleted = 0;
        const StateResult result = letters.remove(seen, deleted);
        if (!result.ok()) {
            complain("ferry: " + result.text);
            return exitErrors;
        }
        std::cout << fmt::format("{} dead letters dropped\n", deleted);
        return deleted == seen.size() ? exitOk : exitErrors;
    }

    int retry(const Configuration &configuration, DeadLetters &letters,
              const std::vector<KeptLetter> &chosen)
    {
        const RetryPlan plan = planRetry(configuration, letterFile_, chosen);
        int code = exitOk;
        if (!plan.configuration.routes.empty()) {
            std::optional<VmCandidate> vm;
            if (configuration.needsJava()) {
                vm = chooseVm(javaHome_, configuration);
                if (!vm) {
                    return exitNoStart;
                }
            }
            code = startRelay(plan.configuration, options_, vm ? &*vm : nullptr);
        }
        return report(letters, chosen, plan) | code;
    }

    /// What is still there was not taken.
    int report(DeadLetters &letters, const std::vector<KeptLetter> &tried,
               const RetryPlan &plan) const
    {
        std::set<std::int64_t> numbers;
        for (const KeptLetter &letter : tried) {
            numbers.insert(letter.id);
        }
        std::size_t left = 0;
        const StateResult result = letters.visit(0, false, [&](const KeptLetter &letter) {
            if (numbers.count(letter.id) != 0) {
                const auto impossible = plan.impossible.find(letter.id);
                complainLine(fmt::format("ferry: dead letter {} stays: {}", letter.id,
                                         impossible == plan.impossible.end() ? letter.reason
                                                                             : impossible->second));
                ++left;
            }
            return true;
        });
        if (!result.ok()) {
            complain("ferry: " + result.text);
            return exitErrors;
        }
        std::cout << fmt::format("{} of {} dead letters taken\n", tried.size() - left,
                                 tried.size());
        return left == 0 ? exitOk : exitErrors;
    }

    std::string file_;
    std::string action_;
    std::vector<std::int64_t> ids_;
    bool json_ = false;
    std::filesystem::path javaHome_;
    std::filesystem::path letterFile_;
    RunOptions options_;
};

const RegisteredVerb<Dead>
    registered("dead", "What was set aside as bad data: list, show, try again, drop");

} // namespace
} // namespace ferry
