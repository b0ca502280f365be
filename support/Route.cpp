// Route accessors: each forwards to one function of a route that the host owns and fills, on the
// caller's thread.
#include "ferryjni/route.h"

#include <cstddef>

namespace {

constexpr size_t word = sizeof(void *);

// compatibility 3: position 1 is offset 0, and the setter of the period stands before its getter
static_assert(offsetof(QEL_FerrionRoute, get_input_count) == 0 * word);
static_assert(offsetof(QEL_FerrionRoute, get_input_at) == 1 * word);
static_assert(offsetof(QEL_FerrionRoute, lookup_input_by_name) == 2 * word);
static_assert(offsetof(QEL_FerrionRoute, is_input_active) == 3 * word);
static_assert(offsetof(QEL_FerrionRoute, get_input_type_information) == 4 * word);
static_assert(offsetof(QEL_FerrionRoute, get_input_connection) == 5 * word);
static_assert(offsetof(QEL_FerrionRoute, get_output_count) == 6 * word);
static_assert(offsetof(QEL_FerrionRoute, get_output_at) == 7 * word);
static_assert(offsetof(QEL_FerrionRoute, lookup_output_by_name) == 8 * word);
static_assert(offsetof(QEL_FerrionRoute, get_output_type_information) == 9 * word);
static_assert(offsetof(QEL_FerrionRoute, get_output_connection) == 10 * word);
static_assert(offsetof(QEL_FerrionRoute, reserved12) == 11 * word);
static_assert(offsetof(QEL_FerrionRoute, set_session_period) == 12 * word);
static_assert(offsetof(QEL_FerrionRoute, get_session_period) == 13 * word);
static_assert(offsetof(QEL_FerrionRoute, reserved15) == 14 * word);
static_assert(offsetof(QEL_FerrionRoute, reserved16) == 15 * word);
static_assert(offsetof(QEL_FerrionRoute, reserved17) == 16 * word);
static_assert(offsetof(QEL_FerrionRoute, routeHandle) == 17 * word);
static_assert(sizeof(QEL_FerrionRoute) == 18 * word);

} // namespace

#define FORWARD(slot)                                                                              \
    intptr_t QEL_FerrionRoute_##slot##I(const QEL_FerrionRoute *route, intptr_t a1, intptr_t a2,   \
                                        intptr_t a3, intptr_t a4, intptr_t a5) noexcept            \
    {                                                                                              \
        return route->slot(route->routeHandle, a1, a2, a3, a4, a5);                                \
    }

FORWARD(get_input_count)
FORWARD(get_input_at)
FORWARD(lookup_input_by_name)
FORWARD(is_input_active)
FORWARD(get_input_type_information)
FORWARD(get_input_connection)
FORWARD(get_output_count)
FORWARD(get_output_at)
FORWARD(lookup_output_by_name)
FORWARD(get_output_type_information)
FORWARD(get_output_connection)
FORWARD(get_session_period)
FORWARD(set_session_period)
