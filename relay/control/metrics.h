// What a relay counts, in the text format of Prometheus.
#ifndef FERRY_CONTROL_METRICS_H
#define FERRY_CONTROL_METRICS_H

#include <string>

#include "config/configuration.h"
#include "engine/status.h"

namespace ferry {

std::string metricsText(const Configuration &configuration, const RelayStatus &status);

} // namespace ferry

#endif
