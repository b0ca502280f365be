#include "launcher/command_line.h"

#include <algorithm>
#include <iostream>

#include <CLI/CLI.hpp>

#include "config/diagnostics.h"
#include "launcher/version.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

const char *const footer = R"(Examples:
  ferry check weather.yaml                 does everything short of moving a sample
  ferry run weather.yaml                   relays until Ctrl-C or SIGTERM
  ferry run weather.yaml --until-idle      copies what is there, then ends
  ferry run weather.yaml --until-idle=5 --quiet
  ferry list streams --domain 7            what is on a DDS domain
  ferry list streams weather.yaml --idl    what the connections of a file announce, with types
  ferry new adapter Gauge                  makes a project for an adapter in Java
  ferry doctor                             what is installed, what is missing

Exit codes:
  0  done, or stopped by a signal in time
  1  it ran, but samples were lost or something failed
  2  bad command line or configuration
  3  could not start (no Java VM, or no route could be started)
  4  told to stop, but an adapter did not come back: the process was ended
  130, 143  a second SIGINT, SIGTERM came before the end

Paths in a configuration file start from the file's own directory, in which ferry runs.
Results go to standard output, the log to standard error.)";

struct RunTexts {
    std::string idle;
    std::string debug;
};

void addRun(CLI::App &app, CommandLine &line, RunTexts &texts, bool &quiet, bool &verbose)
{
    CLI::App *run = app.add_subcommand("run", "Run the routes of a configuration file");
    run->add_option("FILE", line.file, "Configuration file (YAML)")->required();
    CLI::Option *untilIdle =
        run->add_flag("--until-idle{1}", texts.idle,
                      "End when every input has been empty for SECONDS (1 when not said): "
                      "--until-idle=SECONDS");
    run->add_flag("--after-first", line.afterFirst,
                  "With --until-idle: not before a first sample has come")
        ->needs(untilIdle);
    run->add_option("--drain-seconds", line.drain,
                    "How long a stop may take before it is forced (default 5)")
        ->check(CLI::Range(0.1, 3600.0));
    run->add_option("--java-home", line.javaHome, "Java installation to use");
    run->add_flag("--java-debug{5005}", texts.debug,
                  "Let Java debuggers of this machine attach at PORT (5005 when not said): "
                  "--java-debug=PORT");
    run->add_flag("--java-check", line.debugging.check, "Have the Java VM check every JNI call");
    CLI::Option *quietFlag =
        run->add_flag("-q,--quiet", quiet, "Only errors and the final summary");
    run->add_flag("-v,--verbose", verbose, "Log everything")->excludes(quietFlag);
}

void addCheck(CLI::App &app, CommandLine &line, std::string &settings, bool &verbose)
{
    CLI::App *check = app.add_subcommand(
        "check", "Load everything a configuration file names, move no sample, tell what was found");
    check->add_option("FILE", line.file, "Configuration file (YAML)");
    check->add_flag("--settings{*}", settings,
                    "Only print the settings that the file's Java adapters declare, or those of a "
                    "class, without file: --settings=CLASS");
    check
        ->add_option("--drain-seconds", line.drain,
                     "How long the end may take before it is forced (default 5)")
        ->check(CLI::Range(0.1, 3600.0));
    check->add_option("--java-home", line.javaHome, "Java installation to use");
    check->add_flag("-v,--verbose", verbose, "Log everything");
}

struct ListTexts {
    std::string idl;
    std::vector<std::string> settings;
};

void addList(CLI::App &app, CommandLine &line, ListTexts &texts)
{
    CLI::App *list = app.add_subcommand("list", "Tell what is there");
    list->require_subcommand(1);
    CLI::App *streams = list->add_subcommand(
        "streams",
        "Open the connections of a file, or one on a DDS domain, wait, and print a table of "
        "the streams that they announce");
    CLI::Option *file = streams->add_option("FILE", line.file, "Configuration file (YAML)");
    streams->add_option("--domain", line.domain, "Without FILE: the DDS domain (default 0)")
        ->check(CLI::Range(0, 230))
        ->excludes(file);
    streams
        ->add_option("--set", texts.settings,
                     "Without FILE: a property of the connection, NAME=VALUE; may be repeated")
        ->allow_extra_args(false)
        ->excludes(file);
    streams->add_option("--wait", line.wait, "Seconds to wait for announcements (default 2)")
        ->check(CLI::Range(0.0, 3600.0));
    streams->add_flag("--idl{*}", texts.idl,
                      "Print the types as IDL, too, or only one: --idl=TYPE");
    streams->add_option("--java-home", line.javaHome, "Java installation to use");
}

void addNew(CLI::App &app, CommandLine &line)
{
    CLI::App *make = app.add_subcommand("new", "Make something to begin with");
    make->require_subcommand(1);
    CLI::App *adapter = make->add_subcommand(
        "adapter", "Make a project for an adapter in Java, which can be built and run at once");
    adapter->add_option("NAME", line.adapter.name, "Begins the name of the class")->required();
    adapter->add_option("--package", line.adapter.package,
                        "Its Java package (default org.example.NAME)");
    adapter->add_option("DIR", line.adapter.directory, "Where to (default NAME in small letters)");
}

Properties properties(const std::vector<std::string> &settings)
{
    Properties result;
    for (const std::string &setting : settings) {
        const std::size_t at = setting.find('=');
        if (at == 0 || at == std::string::npos) {
            throw CLI::ValidationError("--set", "takes NAME=VALUE, not " + setting);
        }
        result.emplace_back(setting.substr(0, at), setting.substr(at + 1));
    }
    return result;
}

std::vector<std::string> verbsOf(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(verb->get_name());
    }
    return names;
}

/// Where the words lead that stand in the place of verbs; refuses the first that is none.
const CLI::App *follow(const CLI::App &app, const std::vector<std::string> &words)
{
    const CLI::App *at = &app;
    for (const std::string &word : words) {
        const std::vector<std::string> verbs = verbsOf(*at);
        if (verbs.empty() || word[0] == '-') {
            break;
        }
        if (std::find(verbs.begin(), verbs.end(), word) == verbs.end()) {
            throw CLI::ParseError("there is no \"" + at->get_name() + " " + word + "\"" +
                                      suggestion(word, verbs),
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

Verb verbOf(const CLI::App &app)
{
    return app.got_subcommand("run")       ? Verb::run
           : app.got_subcommand("check")   ? Verb::check
           : app.got_subcommand("list")    ? Verb::list
           : app.got_subcommand("new")     ? Verb::create
           : app.got_subcommand("archive") ? Verb::archive
                                           : Verb::doctor;
}

/// A flag's own text, because the library takes the values of flags for whole numbers.
double seconds(const std::string &text)
{
    if (text.empty()) {
        return -1;
    }
    double value = 0;
    if (!CLI::detail::lexical_cast(text, value) || !(value > 0 && value <= 86400)) {
        throw CLI::ValidationError("--until-idle", "takes a number of seconds up to 86400");
    }
    return value;
}

int port(const std::string &text)
{
    int value = 0;
    if (!text.empty() && (!CLI::detail::lexical_cast(text, value) || value < 1 || value > 65535)) {
        throw CLI::ValidationError("--java-debug", "takes a port from 1 to 65535");
    }
    return value;
}

} // namespace

std::optional<CommandLine> readCommandLine(int argc, char **argv, int &code)
{
    CommandLine line;
    RunTexts run;
    bool quiet = false;
    bool verbose = false;
    CLI::App app("Relays samples between adapters, as a configuration file says.", "ferry");
    app.set_version_flag("--version", std::string("ferry ") + FERRY_VERSION);
    app.footer(footer);
    app.require_subcommand(1);
    addRun(app, line, run, quiet, verbose);
    std::string settings;
    addCheck(app, line, settings, verbose);
    ListTexts list;
    addList(app, line, list);
    addNew(app, line);
    CLI::App *archive = app.add_subcommand(
        "archive", "Keep what the Java VM makes of the installation's classes, for quicker starts");
    archive->add_option("--java-home", line.javaHome, "Java installation to use");
    CLI::App *doctor = app.add_subcommand(
        "doctor", "Tell which Java VM, libraries and jars were found and what is missing");
    doctor->add_option("--java-home", line.javaHome, "Java installation to use");
    try {
        readVerbs(app, std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
        app.parse(argc, argv);
        line.untilIdle = seconds(run.idle);
        line.debugging.port = port(run.debug);
        line.verbosity = quiet     ? Verbosity::quiet
                         : verbose ? Verbosity::verbose
                                   : Verbosity::normal;
        line.verb = verbOf(app);
        line.properties = properties(list.settings);
        line.settings = !settings.empty();
        line.settingsClass = settings == "*" ? "" : settings;
        if (line.verb == Verb::check && line.file.empty() && line.settingsClass.empty()) {
            throw CLI::RequiredError("FILE");
        }
        line.idl = !list.idl.empty();
        line.idlType = list.idl == "*" ? "" : list.idl;
        return line;
    } catch (const CLI::ParseError &error) {
        code = app.exit(error) == 0 ? exitOk : exitUsage;
        return std::nullopt;
    }
}

} // namespace ferry
