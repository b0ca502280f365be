// The interface between the launcher and the relay's library, both of the same build. If Java is
// needed the launcher has loaded a VM's library before.
#ifndef FERRY_PROCESS_ENTRY_H
#define FERRY_PROCESS_ENTRY_H

#include <functional>

#include "config/configuration.h"
#include "process/run_options.h"

namespace ferry {

struct RelayRequest {
    const Configuration *configuration = nullptr;
    RunOptions options;
    /// The product's jars.
    std::vector<std::string> jars;
    /// The bridge's library, for Java adapters.
    std::filesystem::path bridge;
    /// Feature release of the VM whose library was loaded; 0 when none was.
    int vmVersion = 0;
    /// Where that VM's archive of the product's classes is, if there is one.
    std::filesystem::path classArchive;
    /// Reports what the declarations of Java adapters reject in the configuration, with places.
    /// Null if there is nobody to ask. Slow.
    std::function<std::vector<std::string>()> explain;
};

} // namespace ferry

/// Runs a relay to its end on the calling thread, the only one of the process so far; returns the
/// exit code. The signals that stop it are blocked afterwards.
extern "C" __attribute__((visibility("default"))) int
ferry_relay_main(const ferry::RelayRequest *request);

#endif
