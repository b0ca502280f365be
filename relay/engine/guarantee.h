// What a route guarantees of its samples, and why it is not more.
#ifndef FERRY_ENGINE_GUARANTEE_H
#define FERRY_ENGINE_GUARANTEE_H

#include <functional>
#include <string>

#include "config/configuration.h"

namespace ferry {

/// What the adapter at an end declares: FERRY_DELIVERY_... bits. The second is the role.
using DeliveryOf = std::function<std::uint32_t(const StreamSettings &, std::uint32_t)>;

/// "at least once", or "at most once: the input cannot repeat, and output db/t has no store". Not
/// for the second route of a buffer, of which the first one tells.
std::string guaranteeOf(const Configuration &configuration, const RouteSettings &route,
                        const DeliveryOf &delivery);

} // namespace ferry

#endif
