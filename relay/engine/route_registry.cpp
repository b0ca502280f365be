#include "engine/route_registry.h"

#include <algorithm>

namespace ferry {
namespace {

/// Routes that are gone and still have a line of their own. Streams may have a new name each time
/// they come, and a relay may run for years.
constexpr std::size_t maxGone = 256;

} // namespace

Route &RouteRegistry::add(std::unique_ptr<Route> route)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto earlier = std::find_if(gone_.begin(), gone_.end(), [&](const RouteTotals &totals) {
        return totals.name == route->name() && totals.outputs.size() == route->deliveries().size();
    });
    if (earlier != gone_.end()) {
        route->resume(*earlier);
        gone_.erase(earlier);
    }
    route->pause(Route::byOperator, paused_.count(route->name()) != 0);
    routes_.push_back(std::move(route));
    return *routes_.back();
}

void RouteRegistry::remove(const Route &route)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    gone_.push_back(route.totals());
    gone_.back().gone = true;
    if (gone_.size() > maxGone) {
        fold();
    }
    routes_.erase(std::find_if(routes_.begin(), routes_.end(),
                               [&](const auto &known) { return known.get() == &route; }));
}

/// The one that has been gone longest joins the others.
void RouteRegistry::fold()
{
    const RouteTotals &oldest = gone_.front();
    others_.gone = true;
    others_.name = "others";
    others_.read += oldest.read;
    others_.written += oldest.written;
    others_.unreadable += oldest.unreadable;
    others_.bad += oldest.bad;
    others_.ends += oldest.ends;
    others_.errors += oldest.errors;
    others_.lost += oldest.lost;
    others_.retries += oldest.retries;
    others_.dead += oldest.dead;
    others_.held += oldest.held;
    const bool first = others_.firstActivity == 0 || oldest.firstActivity < others_.firstActivity;
    others_.firstActivity =
        first && oldest.firstActivity > 0 ? oldest.firstActivity : others_.firstActivity;
    others_.lastActivity = std::max(others_.lastActivity, oldest.lastActivity);
    others_.failed = others_.failed || oldest.failed;
    gone_.erase(gone_.begin());
}

std::vector<RouteTotals> RouteRegistry::totals() const
{
    std::vector<RouteTotals> all;
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &route : routes_) {
        all.push_back(route->totals());
    }
    addGone(all);
    return all;
}

std::vector<RouteTotals> RouteRegistry::gone() const
{
    std::vector<RouteTotals> all;
    const std::lock_guard<std::mutex> lock(mutex_);
    addGone(all);
    return all;
}

void RouteRegistry::addGone(std::vector<RouteTotals> &all) const
{
    all.insert(all.end(), gone_.begin(), gone_.end());
    if (others_.gone) {
        all.push_back(others_);
    }
}

bool RouteRegistry::pause(const std::string &name, bool paused)
{
    bool any = false;
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &route : routes_) {
        if (route->name() == name) {
            route->pause(Route::byOperator, paused);
            any = true;
        }
    }
    if (any && paused) {
        paused_.insert(name);
    } else if (!paused) {
        any = paused_.erase(name) != 0 || any;
    }
    return any;
}

} // namespace ferry
