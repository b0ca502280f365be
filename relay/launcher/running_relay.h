// Verbs that ask a relay which runs in another process, at its control socket.
#ifndef FERRY_LAUNCHER_RUNNING_RELAY_H
#define FERRY_LAUNCHER_RUNNING_RELAY_H

#include <string>

#include <nlohmann/json.hpp>

#include "launcher/verb.h"

namespace ferry {

class RunningRelayVerb : public Verb {
public:
    int run() override;

protected:
    /// The options that all of these verbs have. Those about a route have its name first.
    void declareCommon(CLI::App &command, bool aboutRoute);
    /// What is asked for, as in docs/control.md.
    virtual std::string request() const = 0;
    /// Prints the answer for people; returns the exit code.
    virtual int show(const nlohmann::ordered_json &answer) const = 0;
    /// The exit code beside an answer that is printed as JSON.
    virtual int codeOf(const nlohmann::ordered_json &answer) const;

    const std::string &route() const
    {
        return route_;
    }

private:
    std::string control_;
    std::string route_;
    bool json_ = false;
};

} // namespace ferry

#endif
