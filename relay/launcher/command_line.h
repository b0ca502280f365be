// The command line, as values.
#ifndef FERRY_LAUNCHER_COMMAND_LINE_H
#define FERRY_LAUNCHER_COMMAND_LINE_H

#include <filesystem>
#include <optional>
#include <string>

#include "launcher/new_adapter.h"
#include "process/entry.h"

namespace ferry {

enum class Verb { run, check, list, create, archive, doctor };

struct CommandLine {
    Verb verb = Verb::run;
    std::string file;
    std::filesystem::path javaHome;
    /// Seconds; below 0 when not given.
    double untilIdle = -1;
    bool afterFirst = false;
    double drain = 5;
    JavaDebugging debugging;
    Verbosity verbosity = Verbosity::normal;
    /// `list streams`; without a file the domain and the properties of its connection.
    int domain = 0;
    Properties properties;
    double wait = 2;
    bool idl = false;
    std::string idlType;
    /// `check`: print what adapters declare, of the file or of one class.
    bool settings = false;
    std::string settingsClass;
    NewAdapter adapter;
};

/// Reads the arguments. When there is nothing to do (help, version, a mistake), what there is to
/// say has been said, and `code` is the exit code.
std::optional<CommandLine> readCommandLine(int argc, char **argv, int &code);

} // namespace ferry

#endif
