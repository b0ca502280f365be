#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>

#include <fmt/format.h>

#include "launcher/verb.h"
#include "launcher/version.h"
#include "process/exit_code.h"
#include "settings/suggestion.h"

namespace ferry {
namespace {

const char *const footer = R"(Examples:
  ferry check weather.yaml                 does everything short of moving a sample
  ferry run weather.yaml                   relays until Ctrl-C or SIGTERM
  ferry run weather.yaml --until-idle      copies what is there, then ends
  ferry run weather.yaml --until-idle=5 --quiet
  ferry list streams --domain 7            what is on a DDS domain
  ferry list streams weather.yaml --idl    what the connections of a file announce, with types
  ferry dead weather.yaml ls               what was set aside as bad data
  ferry status                             what a relay that runs is doing
  ferry why observations                   why a route of it does not move
  ferry new config my.csv                  makes a configuration that runs, for a file of data
  ferry new adapter Gauge                  makes a project for an adapter in Java
  ferry doctor                             what is installed, what is missing

Exit codes:
  0  done, or stopped by a signal in time
  1  it ran, but samples were lost or something failed
  2  bad command line or configuration
  3  could not start (no Java VM, or no route could be started)
  4  asked to stop, but an adapter did not return: the process was ended
  130, 143  a second SIGINT, SIGTERM came before the end

Paths in a configuration file start from the file's own directory, in which ferry runs.
Results go to standard output, the log to standard error.)";

/// What stands over verbs of two words.
const std::map<std::string, std::string> groups = {{"list", "Report what is there"},
                                                   {"new", "Make something to begin with"}};

/// The command of a verb, below its group.
CLI::App &addCommand(CLI::App &app, const VerbDefinition &verb)
{
    const std::size_t blank = verb.name.find(' ');
    if (blank == std::string::npos) {
        return *app.add_subcommand(verb.name, verb.help);
    }
    const std::string group = verb.name.substr(0, blank);
    const auto same =
        app.get_subcommands([&](const CLI::App *each) { return each->get_name() == group; });
    CLI::App *const outer =
        same.empty() ? app.add_subcommand(group, groups.at(group)) : same.front();
    outer->require_subcommand(1);
    return *outer->add_subcommand(verb.name.substr(blank + 1), verb.help);
}

std::vector<std::string> namesIn(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(verb->get_name());
    }
    return names;
}

/// Where the words lead that stand in the place of verbs; rejects the first that is none.
const CLI::App *follow(const CLI::App &app, const std::vector<std::string> &words)
{
    const CLI::App *at = &app;
    for (const std::string &word : words) {
        const std::vector<std::string> names = namesIn(*at);
        if (names.empty() || word[0] == '-') {
            break;
        }
        if (std::find(names.begin(), names.end(), word) == names.end()) {
            throw CLI::ParseError(fmt::format("there is no \"{} {}\"{}", at->get_name(), word,
                                              suggestion(word, names)),
                                  exitUsage);
        }
        at = at->get_subcommand(word);
    }
    return at;
}

/// "ferry help list streams" asks for the same as "ferry list streams --help".
void readVerbs(const CLI::App &app, std::vector<std::string> words)
{
    const bool help = !words.empty() && words[0] == "help";
    if (help) {
        words.erase(words.begin());
    }
    const CLI::App *const about = follow(app, words);
    if (help) {
        std::string before;
        for (const CLI::App *outer = about->get_parent(); outer != nullptr;
             outer = outer->get_parent()) {
            before.insert(0, outer->get_name() + (before.empty() ? "" : " "));
        }
        std::cout << about->help(before);
        throw CLI::Success();
    }
}

} // namespace

std::vector<VerbDefinition> &verbs()
{
    static std::vector<VerbDefinition> all;
    return all;
}

void addJavaHome(CLI::App &command, std::filesystem::path &home)
{
    command.add_option("--java-home", home, "Java installation to use");
}

void addDrain(CLI::App &command, std::chrono::milliseconds &drain)
{
    command.add_option_function<std::string>(
        "--drain-seconds",
        [&drain](const std::string &text) {
            drain = secondsOf("--drain-seconds", text, 0.1, 3600);
        },
        fmt::format("How long the end may take before it is forced (default {})",
                    drain.count() / 1000));
}

std::chrono::milliseconds secondsOf(const std::string &option, const std::string &text,
                                    double least, double most)
{
    double value = 0;
    if (!CLI::detail::lexical_cast(text, value) || !(value >= least && value <= most)) {
        throw CLI::ValidationError(
            option, fmt::format("takes a number of seconds from {} to {}", least, most));
    }
    return std::chrono::milliseconds(std::llround(value * 1000));
}

std::vector<std::pair<std::string, std::string>>
propertiesIn(const std::vector<std::string> &settings)
{
    std::vector<std::pair<std::string, std::string>> properties;
    for (const std::string &setting : settings) {
        const std::size_t at = setting.find('=');
        if (at == 0 || at == std::string::npos) {
            throw CLI::ValidationError("--set", fmt::format("takes NAME=VALUE, not {}", setting));
        }
        properties.emplace_back(setting.substr(0, at), setting.substr(at + 1));
    }
    return properties;
}

int runCommandLine(int argc, char **argv)
{
    std::vector<VerbDefinition> &all = verbs();
    std::sort(all.begin(), all.end(),
              [](const VerbDefinition &a, const VerbDefinition &b) { return a.name < b.name; });
    CLI::App app("Relays samples between adapters, as a configuration file says.", "ferry");
    app.set_version_flag("--version", std::string("ferry ") + FERRY_VERSION);
    app.footer(footer);
    app.require_subcommand(1);
    std::vector<std::pair<const CLI::App *, std::unique_ptr<Verb>>> commands;
    for (const VerbDefinition &definition : all) {
        CLI::App &command = addCommand(app, definition);
        commands.emplace_back(&command, definition.make());
        commands.back().second->declare(command);
    }
    const auto chosen = [](const auto &each) { return each.first->parsed(); };
    try {
        readVerbs(app, std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
        app.parse(argc, argv);
        Verb &verb = *std::find_if(commands.begin(), commands.end(), chosen)->second;
        verb.complete();
        return verb.run();
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? exitOk : exitUsage;
    }
}

} // namespace ferry
