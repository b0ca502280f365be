// `ferry list streams`: what connections announce.
#include <fmt/format.h>

#include "launcher/start.h"
#include "launcher/verb.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

class ListStreams : public Verb {
public:
    void declare(CLI::App &command) override
    {
        CLI::Option *const file = command.add_option("FILE", file_, "Configuration file (YAML)");
        command.add_option("--domain", domain_, "Without FILE: the DDS domain (default 0)")
            ->check(CLI::Range(0, 230))
            ->excludes(file);
        command
            .add_option("--set", settings_,
                        "Without FILE: a property of the connection, NAME=VALUE; may be repeated")
            ->allow_extra_args(false)
            ->excludes(file);
        command.add_option("--wait", wait_,
                           fmt::format("Seconds to wait for announcements (default {})",
                                       options_.wait.count() / 1000));
        command.add_flag("--idl{*}", idl_, "Print the types as IDL, too, or only one: --idl=TYPE");
        addJavaHome(command, javaHome_);
    }

    void complete() override
    {
        properties_ = propertiesIn(settings_);
        options_.task = Task::list;
        if (!wait_.empty()) {
            options_.wait = secondsOf("--wait", wait_, 0, 3600);
        }
        if (!idl_.empty()) {
            options_.idl = idl_ == "*" ? "" : idl_;
        }
    }

    int run() override
    {
        if (file_.empty()) {
            return startRelay(ofDomain(), options_, nullptr);
        }
        ConfigurationFile file(file_, Needs::connections);
        if (!file.complain()) {
            return exitUsage;
        }
        // A list has no use for routes.
        Configuration &configuration = *file.configuration();
        configuration.routes.clear();
        configuration.discovery.clear();
        if (!configuration.needsJava()) {
            return startRelay(configuration, options_, nullptr);
        }
        const std::optional<VmCandidate> vm = chooseVm(javaHome_, configuration);
        return vm ? startRelay(configuration, options_, &*vm) : exitNoStart;
    }

private:
    /// One connection on a DDS domain.
    Configuration ofDomain() const
    {
        Configuration configuration;
        configuration.name = "ferry";
        configuration.directory = std::filesystem::current_path();
        AdapterSettings adapter;
        adapter.name = "dds";
        adapter.library = findInstallation().plugin(adapter.name);
        adapter.entry = pluginEntry(adapter.name);
        configuration.adapters.push_back(adapter);
        ConnectionSettings connection;
        connection.name = "dds";
        connection.properties = properties_;
        connection.properties.emplace_back("domain", std::to_string(domain_));
        configuration.connections.push_back(connection);
        return configuration;
    }

    std::string file_;
    int domain_ = 0;
    std::vector<std::string> settings_;
    Properties properties_;
    std::string wait_;
    std::string idl_;
    std::filesystem::path javaHome_;
    RunOptions options_;
};

const RegisteredVerb<ListStreams> registered(
    "list streams",
    "Open the connections of a file, or one on a DDS domain, wait, and print a table of the "
    "streams that they announce");

} // namespace
} // namespace ferry
