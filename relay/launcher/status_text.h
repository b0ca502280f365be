// A relay's answers, for people.
#ifndef FERRY_LAUNCHER_STATUS_TEXT_H
#define FERRY_LAUNCHER_STATUS_TEXT_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace ferry {

/// What runs and what does not, in a few lines; safe for terminals.
std::vector<std::string> statusLines(const nlohmann::ordered_json &status);

/// Why a route does not move; or that it does.
std::vector<std::string> whyLines(const nlohmann::ordered_json &why);

/// Whether nothing of it is out of service.
bool isHealthy(const nlohmann::ordered_json &status);

} // namespace ferry

#endif
