/* Route accessors: how a plug-in asks the host about a route that the host owns. */
#ifndef FERRYJNI_ROUTE_H
#define FERRYJNI_ROUTE_H

#include <stdint.h>

#include "ferryjni/export.h"

FERRYJNI_BEGIN

/**
 * A host function of a route: the route's own handle first, then up to five further arguments of
 * one machine word (an integer or a pointer), whose meaning is between the host and its caller. The
 * result is one machine word too. An accessor always passes all five on; a slot that takes fewer
 * does not look at the rest, which the x86-64 and AArch64 calling conventions allow.
 */
typedef intptr_t (*QEL_FerrionRouteFn)(void *routeHandle, intptr_t a1, intptr_t a2, intptr_t a3,
                                       intptr_t a4, intptr_t a5);

/** A route as the host presents it. The host owns and fills it; it is only read here. */
typedef struct QEL_FerrionRoute {
    QEL_FerrionRouteFn get_input_count;
    QEL_FerrionRouteFn get_input_at;
    QEL_FerrionRouteFn lookup_input_by_name;
    QEL_FerrionRouteFn is_input_active;
    QEL_FerrionRouteFn get_input_type_information;
    QEL_FerrionRouteFn get_input_connection;
    QEL_FerrionRouteFn get_output_count;
    QEL_FerrionRouteFn get_output_at;
    QEL_FerrionRouteFn lookup_output_by_name;
    QEL_FerrionRouteFn get_output_type_information;
    QEL_FerrionRouteFn get_output_connection;
    QEL_FerrionRouteFn reserved12;
    /** The setter stands before its getter: hosts fill the record in this order. */
    QEL_FerrionRouteFn set_session_period;
    QEL_FerrionRouteFn get_session_period;
    QEL_FerrionRouteFn reserved15;
    QEL_FerrionRouteFn reserved16;
    QEL_FerrionRouteFn reserved17;
    /** Passed to every function in place of the route. */
    void *routeHandle;
} QEL_FerrionRoute;

/* Each accessor calls the function of its name with the route's handle and returns its result.
 * Nothing is checked: a null route or an empty slot is the caller's fault. */
#define QEL_FERRION_ROUTE_ACCESSOR(slot)                                                           \
    FERRYJNI_API intptr_t QEL_FerrionRoute_##slot##I(const QEL_FerrionRoute *route, intptr_t a1,   \
                                                     intptr_t a2, intptr_t a3, intptr_t a4,        \
                                                     intptr_t a5) FERRYJNI_NOEXCEPT

QEL_FERRION_ROUTE_ACCESSOR(get_input_count);
QEL_FERRION_ROUTE_ACCESSOR(get_input_at);
QEL_FERRION_ROUTE_ACCESSOR(lookup_input_by_name);
QEL_FERRION_ROUTE_ACCESSOR(is_input_active);
QEL_FERRION_ROUTE_ACCESSOR(get_input_type_information);
QEL_FERRION_ROUTE_ACCESSOR(get_input_connection);
QEL_FERRION_ROUTE_ACCESSOR(get_output_count);
QEL_FERRION_ROUTE_ACCESSOR(get_output_at);
QEL_FERRION_ROUTE_ACCESSOR(lookup_output_by_name);
QEL_FERRION_ROUTE_ACCESSOR(get_output_type_information);
QEL_FERRION_ROUTE_ACCESSOR(get_output_connection);
QEL_FERRION_ROUTE_ACCESSOR(get_session_period);
QEL_FERRION_ROUTE_ACCESSOR(set_session_period);

FERRYJNI_END

#endif
