// The status of a relay as JSON: the one form that the control socket, the verbs and HTTP share.
#ifndef FERRY_CONTROL_STATUS_JSON_H
#define FERRY_CONTROL_STATUS_JSON_H

#include <nlohmann/json.hpp>

#include "config/configuration.h"
#include "engine/status.h"

namespace ferry {

using Json = nlohmann::ordered_json;

/// Without secrets: what adapters say has been through the same filter as the log.
Json statusJson(const Configuration &configuration, const RelayStatus &status);

/// One route of it, with all reasons why it does not move.
Json whyJson(const Configuration &configuration, const RelayStatus &status,
             const RouteStatus &route);

/// The words for states, as in the JSON.
const char *nameOf(RouteStatus::State state);
const char *nameOf(ObjectStatus::State state);

/// In one line; bytes that are no UTF-8 are replaced.
std::string lineOf(const Json &json);

} // namespace ferry

#endif
