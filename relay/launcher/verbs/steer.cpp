// `ferry pause`, `resume`, `restart` and `why`: about one route of a relay that runs.
#include <iostream>

#include <fmt/format.h>

#include "config/printable.h"
#include "launcher/running_relay.h"
#include "launcher/status_text.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

class RouteVerb : public RunningRelayVerb {
public:
    explicit RouteVerb(const char *name) : name_(name) {}

    void declare(CLI::App &command) override
    {
        declareCommon(command, true);
    }

protected:
    std::string request() const override
    {
        return nlohmann::ordered_json{{"version", 1}, {"do", name_}, {"route", route()}}.dump(
            -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    }

private:
    const char *const name_;
};

class Why : public RouteVerb {
public:
    Why() : RouteVerb("why") {}

protected:
    int show(const nlohmann::ordered_json &answer) const override
    {
        for (const std::string &line : whyLines(answer)) {
            std::cout << line << "\n";
        }
        return exitOk;
    }
};

/// One that changes something.
class Steer : public RouteVerb {
public:
    Steer(const char *name, const char *done) : RouteVerb(name), done_(done) {}

protected:
    int show(const nlohmann::ordered_json &) const override
    {
        std::cout << fmt::format("route {}: {}\n", printable(route()), done_);
        return exitOk;
    }

private:
    const char *const done_;
};

class Pause : public Steer {
public:
    Pause() : Steer("pause", "paused until \"ferry resume\"") {}
};
class Resume : public Steer {
public:
    Resume() : Steer("resume", "goes on") {}
};
class Restart : public Steer {
public:
    Restart() : Steer("restart", "is made anew; \"ferry status\" tells what became of it") {}
};

const RegisteredVerb<Why> why("why", "Tell why a route of a relay that runs does not move");
const RegisteredVerb<Pause> pause("pause", "Have a route of a relay that runs leave its input");
const RegisteredVerb<Resume> resume("resume", "Have a paused route go on");
const RegisteredVerb<Restart> restart("restart", "Make a route of a relay that runs anew");

} // namespace
} // namespace ferry
