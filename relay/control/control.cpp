#include "control/control.h"

#include <algorithm>

#include <dlfcn.h>

#include "config/printable.h"
#include "control/metrics.h"
#include "control/reasons.h"
#include "control/socket_directory.h"
#include "control/status_json.h"

namespace ferry {
namespace {

/// Beside the library, or program, that this is a part of.
std::filesystem::path ownDirectory()
{
    Dl_info info{};
    const bool known = dladdr(reinterpret_cast<const void *>(&httpLibrary), &info) != 0;
    return known ? std::filesystem::path(info.dli_fname).parent_path() : std::filesystem::path();
}

/// Whether the relay does what it is there for; if not, why, a line each.
HttpAnswer readiness(const RelayStatus &status)
{
    HttpAnswer answer;
    answer.body.clear();
    if (status.phase != RelayStatus::Phase::running) {
        answer.body = status.phase == RelayStatus::Phase::starting ? "the relay starts\n"
                                                                   : "the relay stops\n";
    }
    for (const RouteStatus &route : status.routes) {
        const std::vector<Reason> reasons = reasonsOf(route, status);
        if (route.state == RouteStatus::State::failed && !reasons.empty()) {
            answer.body +=
                forLog(fmt::format("route {}: {}", route.totals.name, reasons.front().text)) + "\n";
        }
    }
    answer.status = answer.body.empty() ? 200 : 503;
    answer.body = answer.body.empty() ? "ready\n" : answer.body;
    return answer;
}

} // namespace

Control::Control(const Configuration &configuration, Relay &relay)
    : configuration_(configuration), relay_(relay), requests_(configuration, relay),
      server_(
          [this](std::string_view line, const Peer &peer) { return requests_.answer(line, peer); },
          Requests::refusal)
{
}

std::string Control::start()
{
    const ControlSettings &settings = configuration_.control;
    if (!settings.on) {
        return "";
    }
    std::string problem = settings.path.empty()
                              ? socket_.openNamed(socketDirectory(), configuration_.name)
                              : socket_.open(settings.path);
    if (!problem.empty()) {
        return problem;
    }
    return server_.start(socket_.descriptor()) ? "" : "the system gives no thread for it";
}

std::string Control::startHttp()
{
    if (configuration_.http.listen.empty()) {
        return "";
    }
    const std::filesystem::path library = ownDirectory() / httpLibrary;
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    auto *const start =
        handle == nullptr ? nullptr : reinterpret_cast<StartHttp *>(dlsym(handle, httpEntry));
    if (start == nullptr) {
        return fmt::format("http needs {}, which cannot be loaded: {}", library.string(),
                           dlerror());
    }
    std::string problem;
    http_.reset(start(
        configuration_.http, [this](const std::string &path) { return page(path); }, problem));
    return problem;
}

HttpAnswer Control::page(const std::string &path) const
{
    if (path == "/live") {
        return {200, HttpAnswer().type, "live\n"};
    }
    if (path != "/metrics" && path != "/ready" && path != "/status") {
        return {};
    }
    const RelayStatus status = relay_.status();
    if (path == "/ready") {
        return readiness(status);
    }
    if (path == "/metrics") {
        return {200, "text/plain; version=0.0.4; charset=utf-8",
                metricsText(configuration_, status)};
    }
    return {200, "application/json", lineOf(statusJson(configuration_, status)) + "\n"};
}

} // namespace ferry
