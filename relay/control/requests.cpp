#include "control/requests.h"

#include <algorithm>

#include "control/status_json.h"
#include "engine/log.h"

namespace ferry {
namespace {

constexpr int version = 1;

struct Action {
    const char *name;
    bool needsRoute;
};
constexpr Action actions[] = {
    {"status", false}, {"why", true}, {"pause", true}, {"resume", true}, {"restart", true}};

/// A request that is understood, or why it is not.
struct Request {
    const Action *action = nullptr;
    std::string route;
    const char *code = nullptr;
    std::string problem;
};

Request rejected(const char *code, std::string problem)
{
    Request request;
    request.code = code;
    request.problem = std::move(problem);
    return request;
}

std::string namesOfActions()
{
    std::string names;
    for (const Action &action : actions) {
        names += (names.empty() ? "" : ", ") + std::string(action.name);
    }
    return names;
}

/// The text of a member; null if it is missing or no text.
const std::string *textIn(const nlohmann::json &json, const char *member)
{
    const auto found = json.find(member);
    return found == json.end() ? nullptr : found->get_ptr<const std::string *>();
}

/// Discarded if it is no JSON, or has anything inside of anything, which no request has.
nlohmann::json parse(std::string_view line)
{
    bool tooDeep = false;
    using Event = nlohmann::json::parse_event_t;
    const auto look = [&tooDeep](int depth, Event event, const nlohmann::json &) {
        const bool begins = event == Event::object_start || event == Event::array_start;
        tooDeep = tooDeep || (begins && depth > 0);
        return !tooDeep;
    };
    nlohmann::json json = nlohmann::json::parse(line, look, false);
    return tooDeep ? nlohmann::json(nlohmann::json::value_t::discarded) : json;
}

Request read(std::string_view line)
{
    const nlohmann::json json = parse(line);
    if (!json.is_object()) {
        return rejected("bad_request", "a request is an object of JSON in one line, with members "
                                       "that are texts or numbers");
    }
    const auto given = json.find("version");
    if (given == json.end() || !given->is_number_integer() || *given != version) {
        return rejected("unknown_version", fmt::format("\"version\" must be {}", version));
    }
    const std::string *const what = textIn(json, "do");
    const auto action =
        std::find_if(std::begin(actions), std::end(actions),
                     [what](const Action &each) { return what != nullptr && *what == each.name; });
    if (action == std::end(actions)) {
        return rejected("unknown_request",
                        fmt::format("\"do\" must be one of {}", namesOfActions()));
    }
    for (const auto &member : json.items()) {
        if (member.key() != "version" && member.key() != "do" &&
            !(action->needsRoute && member.key() == "route")) {
            return rejected("bad_request",
                            fmt::format("\"{}\" has no member \"{}\"", action->name, member.key()));
        }
    }
    const std::string *const route = textIn(json, "route");
    if (action->needsRoute && route == nullptr) {
        return rejected("bad_request",
                        fmt::format("\"{}\" needs \"route\", the name of one", action->name));
    }
    Request request;
    request.action = action;
    request.route = route == nullptr ? "" : *route;
    return request;
}

std::string good(const Json &content)
{
    Json answer = {{"version", version}, {"ok", true}};
    answer.update(content);
    return lineOf(answer);
}

} // namespace

std::string Requests::refusal(const char *code, const std::string &text)
{
    return lineOf(
        {{"version", version}, {"ok", false}, {"error", {{"code", code}, {"text", text}}}});
}

std::string Requests::why(const std::string &route) const
{
    const RelayStatus status = relay_.status();
    const auto found =
        std::find_if(status.routes.begin(), status.routes.end(),
                     [&](const RouteStatus &each) { return each.totals.name == route; });
    return found == status.routes.end()
               ? refusal("no_such_route", fmt::format("there is no route \"{}\"", route))
               : good(whyJson(configuration_, status, *found));
}

std::string Requests::answer(std::string_view line, const Peer &peer) const
{
    const Request request = read(line);
    if (request.action == nullptr) {
        return refusal(request.code, request.problem);
    }
    const std::string_view action = request.action->name;
    if (action == "status") {
        return good(statusJson(configuration_, relay_.status()));
    }
    if (action == "why") {
        return why(request.route);
    }
    const SteerResult result = action == "restart" ? relay_.restart(request.route)
                                                   : relay_.pause(request.route, action == "pause");
    if (!result.problem.empty()) {
        return refusal(result.unknown ? "no_such_route" : "not_possible", result.problem);
    }
    logAbout(FERRYLOG_BIT_STATUS, "FERRYControl_answer", request.route,
             "{} asked for by process {} of user {}", action, peer.process, peer.user);
    return good({{"route", request.route}});
}

} // namespace ferry
