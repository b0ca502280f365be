#include "launcher/start.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "ferryjni/log.h"
#include "launcher/class_archive.h"
#include "launcher/complain.h"
#include "process/entry.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

/// Paths of the file, and those in the properties of adapters, start from the file's directory: so
/// that is where the process works.
bool enter(const std::filesystem::path &directory)
{
    std::error_code error;
    std::filesystem::current_path(directory, error);
    if (error) {
        complain(fmt::format("ferry: cannot work in {}: {}", directory.string(), error.message()));
    }
    return !error;
}

} // namespace

ConfigurationFile::ConfigurationFile(const std::string &file, Needs needs)
    : file_(file), diagnostics_(file), configuration_(loadConfiguration(file, diagnostics_, needs))
{
    if (configuration_) {
        findInstallation().complete(*configuration_, diagnostics_);
        checkNativeSettings(*configuration_, diagnostics_);
    }
}

bool ConfigurationFile::complain() const
{
    const std::vector<std::string> lines = diagnostics_.lines();
    std::for_each(lines.begin(), lines.end(), complainLine);
    if (!lines.empty()) {
        QELLog_printContextAndMsg("ferry", &FERRY_LOG_CFG_FILE_PARSER_PARSING_FAILURE_s,
                                  file_.c_str());
    }
    return lines.empty();
}

std::optional<VmCandidate> chooseVm(const std::filesystem::path &javaHome,
                                    const Configuration &configuration)
{
    VmLocations locations = vmLocations(javaHome);
    locations.configuration = configuration.java.home;
    VmSearch search;
    findVm(locations, search);
    if (search.chosen == nullptr) {
        complain(fmt::format("ferry: {}", noVmText(search)));
        return std::nullopt;
    }
    return *search.chosen;
}

int startRelay(const Configuration &configuration, const RunOptions &options, const VmCandidate *vm,
               std::function<std::vector<std::string>()> explain)
{
    const Installation installation = findInstallation();
    RelayRequest request;
    // The bridge needs the VM's library to be there.
    std::string reason = vm == nullptr ? "" : loadVm(vm->library);
    const RelayMain relay = reason.empty() ? loadRelay(installation, reason) : nullptr;
    if (relay == nullptr) {
        complain(fmt::format("ferry: {}\n  \"ferry doctor\" has more.", reason));
        return exitNoStart;
    }
    if (!enter(configuration.directory)) {
        return exitNoStart;
    }
    if (vm != nullptr) {
        // An installation that does not say is taken for the oldest.
        request.vmVersion = std::max(vm->version, oldestVm);
        request.classArchive = classArchive(installation, *vm);
    }
    request.configuration = &configuration;
    request.options = options;
    request.jars = installation.jars;
    request.bridge = installation.bridge();
    request.explain = std::move(explain);
    return relay(&request);
}

} // namespace ferry
