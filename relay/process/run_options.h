// What the command line asks of a run: one record from the verb that reads it to whoever acts on
// it.
#ifndef FERRY_PROCESS_RUN_OPTIONS_H
#define FERRY_PROCESS_RUN_OPTIONS_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "engine/discovery_rule.h"
#include "engine/task.h"
#include "process/java_options.h"

namespace ferry {

enum class Verbosity { quiet, normal, verbose };

struct RunOptions {
    Task task = Task::run;
    /// End when everything has been quiet for that long.
    std::optional<std::chrono::milliseconds> untilIdle;
    /// Not before a sample has been read.
    bool afterFirst = false;
    /// With untilIdle: how long nothing but what fails again and again may be left before the run
    /// ends without it.
    std::chrono::milliseconds giveUp{60000};
    /// How long a stop may take until it is forced.
    std::chrono::milliseconds drain{5000};
    /// How long a call of an adapter may take until that is reported, first; then each time that it
    /// has doubled.
    std::chrono::milliseconds stall{10000};
    Verbosity verbosity = Verbosity::normal;
    JavaDebugging debugging;
    /// Task::list: how long to wait for announcements.
    std::chrono::milliseconds wait{2000};
    /// Task::list: whether to print types as IDL; with a name only that one.
    std::optional<std::string> idl;
    /// Task::list: gets the streams, which are not printed then. Their types live as long as the
    /// process.
    std::function<void(const std::vector<AnnouncedStream> &)> streams;
};

} // namespace ferry

#endif
