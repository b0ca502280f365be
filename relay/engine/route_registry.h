// Every route there is, and what became of those that are gone. The control thread adds and
// removes; any thread may look.
#ifndef FERRY_ENGINE_ROUTE_REGISTRY_H
#define FERRY_ENGINE_ROUTE_REGISTRY_H

#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "engine/route.h"

namespace ferry {

class RouteRegistry {
public:
    /// Takes a route over. One that comes back goes on from its earlier totals.
    Route &add(std::unique_ptr<Route> route);
    /// Deletes a route that no session has and whose reader and writers are gone; its totals stay.
    void remove(const Route &route);

    /// Any thread: has a route paused by an operator, or not, and those of its name that come after
    /// it. False if there is none of that name.
    bool pause(const std::string &name, bool paused);
    /// Any thread: those that are gone, as in totals().
    std::vector<RouteTotals> gone() const;

    /// Looks at every route; none is added or removed meanwhile. The body must not call a plug-in.
    template<class Body> void forEach(Body &&body) const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto &route : routes_) {
            body(*route);
        }
    }
    /// Control thread: every route, in the order in which they were added; the body may do anything
    /// but add and remove.
    template<class Body> void visit(Body &&body) const
    {
        for (const auto &route : routes_) {
            body(*route);
        }
    }

    /// One entry a route, those that are gone behind the others. Beyond the last few hundred,
    /// routes that are gone share one entry.
    std::vector<RouteTotals> totals() const;

private:
    void fold();
    void addGone(std::vector<RouteTotals> &all) const;

    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Route>> routes_;
    /// In the order of their going.
    std::vector<RouteTotals> gone_;
    RouteTotals others_;
    /// Of routes that an operator has paused.
    std::set<std::string> paused_;
};

} // namespace ferry

#endif
