// A verb of the command line: `ferry run`, `ferry list streams`. Each is a file of its own in
// verbs/, which registers it; nothing else names it.
#ifndef FERRY_LAUNCHER_VERB_H
#define FERRY_LAUNCHER_VERB_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace ferry {

class Verb {
public:
    Verb() = default;
    Verb(const Verb &) = delete;
    Verb &operator=(const Verb &) = delete;
    virtual ~Verb() = default;

    /// Adds the verb's options. `command` is its own.
    virtual void declare(CLI::App &command) = 0;
    /// What the library cannot check of the options; throws CLI::ValidationError.
    virtual void complete() {}
    /// Does it, and returns the exit code.
    virtual int run() = 0;
};

struct VerbDefinition {
    /// One word, or two: a group and a verb of it.
    std::string name;
    std::string help;
    std::unique_ptr<Verb> (*make)();
};

/// All verbs, by name. Filled before main().
std::vector<VerbDefinition> &verbs();

/// At namespace scope in the verb's file.
template<class Type> class RegisteredVerb {
public:
    RegisteredVerb(const char *name, const char *help)
    {
        verbs().push_back(
            {name, help, []() -> std::unique_ptr<Verb> { return std::make_unique<Type>(); }});
    }
};

// Options that several verbs have.
void addJavaHome(CLI::App &command, std::filesystem::path &home);
void addDrain(CLI::App &command, std::chrono::milliseconds &drain);

/// A number of seconds within limits; throws CLI::ValidationError in the option's name.
std::chrono::milliseconds secondsOf(const std::string &option, const std::string &text,
                                    double least, double most);

/// Properties given as NAME=VALUE; throws CLI::ValidationError in the name of --set.
std::vector<std::pair<std::string, std::string>>
propertiesIn(const std::vector<std::string> &settings);

/// Reads the arguments and runs the verb; returns the exit code.
int runCommandLine(int argc, char **argv);

} // namespace ferry

#endif
