// Dead letters to be written once more, as a configuration that a relay runs.
#ifndef FERRY_LAUNCHER_RETRY_PLAN_H
#define FERRY_LAUNCHER_RETRY_PLAN_H

#include <map>
#include <string>
#include <vector>

#include "config/configuration.h"
#include "state/dead_letters.h"

namespace ferry {

struct RetryPlan {
    /// The file's own adapters and connections, and a route for each output that has letters.
    Configuration configuration;
    /// Why a letter cannot be tried, by its number.
    std::map<std::int64_t, std::string> impossible;
};

/// `file` is that of the letters. Their bytes are not needed.
RetryPlan planRetry(const Configuration &configuration, const std::filesystem::path &file,
                    const std::vector<KeptLetter> &letters);

} // namespace ferry

#endif
