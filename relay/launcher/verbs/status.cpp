// `ferry status`: what a relay that runs is doing.
#include <iostream>

#include "launcher/running_relay.h"
#include "launcher/status_text.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

class Status : public RunningRelayVerb {
public:
    void declare(CLI::App &command) override
    {
        declareCommon(command, false);
    }

protected:
    std::string request() const override
    {
        return R"({"version":1,"do":"status"})";
    }
    int show(const nlohmann::ordered_json &answer) const override
    {
        for (const std::string &line : statusLines(answer)) {
            std::cout << line << "\n";
        }
        return codeOf(answer);
    }
    int codeOf(const nlohmann::ordered_json &answer) const override
    {
        return isHealthy(answer) ? exitOk : exitErrors;
    }
};

const RegisteredVerb<Status> registered("status", "Report what a relay that runs is doing");

} // namespace
} // namespace ferry
