// `ferry check`: does everything short of moving a sample, or prints which settings there are.
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "launcher/complain.h"
#include "launcher/start.h"
#include "launcher/verb.h"
#include "process/exit_code.h"
#include "settings/suggestion.h"

namespace ferry {
namespace {

/// The name of the host's own keys among the adapters'.
constexpr const char *host = "ferry";

class Check : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("FILE", file_, "Configuration file (YAML)");
        CLI::Option *const settings = command.add_flag(
            "--settings{*}", settings_,
            "Only print the settings that there are: of the adapters of FILE, without FILE of all "
            "that are installed, or of one: --settings=ADAPTER (a class, a short name, a plug-in; "
            "ferry for the keys of the file itself)");
        command.add_flag("--json", json_, "With --settings: as JSON")->needs(settings);
        addDrain(command, options_.drain);
        addJavaHome(command, javaHome_);
        command.add_flag("-v,--verbose", verbose_, "Log everything");
    }

    void complete() override
    {
        if (file_.empty() && settings_.empty()) {
            throw CLI::RequiredError("FILE");
        }
        options_.task = Task::check;
        options_.verbosity = verbose_ ? Verbosity::verbose : Verbosity::normal;
    }

    int run() override
    {
        return settings_.empty() ? checkFile() : printSettings();
    }

private:
    /// All mistakes at once: of the file, and of what adapters declare.
    int checkFile()
    {
        ConfigurationFile file(file_);
        Configuration *const configuration = file.configuration();
        std::optional<VmCandidate> vm;
        if (configuration != nullptr && configuration->needsJava()) {
            vm = chooseVm(javaHome_, *configuration);
            if (vm &&
                !checkJavaSettings(vm->home, installation_, *configuration, file.diagnostics())) {
                complain("ferry: the adapters could not be asked for their settings");
            }
        }
        if (!file.complain()) {
            return exitUsage;
        }
        if (verbose_) {
            for (const std::string &note : configuration->typeNotes) {
                std::cout << "note  " << note << "\n";
            }
        }
        return configuration->needsJava() && !vm
                   ? exitNoStart
                   : startRelay(*configuration, options_, vm ? &*vm : nullptr);
    }

    int printSettings()
    {
        std::vector<Declarations> all;
        const int code = settings_ != "*" ? addNamed(all)
                         : file_.empty()  ? addInstalled(all)
                                          : addOfFile(all);
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        bool missing = false;
        for (const Declarations &each : all) {
            missing = missing || !each.missing.empty();
            if (json_) {
                for (auto &row : describeAsJson(each)) {
                    rows.push_back(row);
                }
            } else {
                std::cout << describe(each);
            }
        }
        if (json_) {
            std::cout << rows.dump(1) << '\n';
        }
        return code != exitOk ? code : missing ? exitErrors : exitOk;
    }

    int addNamed(std::vector<Declarations> &all)
    {
        if (settings_ == host) {
            all.push_back(declarationsOf(host, &keys::table));
            return exitOk;
        }
        const std::vector<std::string> plugins = installation_.plugins();
        if (std::find(plugins.begin(), plugins.end(), settings_) != plugins.end()) {
            all.push_back(ofPlugin(settings_));
            return exitOk;
        }
        const std::string name = installation_.classOf(settings_);
        const int code = addJava(all, {name}, {});
        if (code == exitOk && !all.back().missing.empty()) {
            std::vector<std::string> known = installation_.adapterNames();
            known.insert(known.end(), plugins.begin(), plugins.end());
            complain(fmt::format("ferry: there is no adapter \"{}\"{}", settings_,
                                 suggestion(settings_, known)));
            all.clear();
            return exitUsage;
        }
        return code;
    }

    int addInstalled(std::vector<Declarations> &all)
    {
        all.push_back(declarationsOf(host, &keys::table));
        for (const std::string &name : installation_.plugins()) {
            all.push_back(ofPlugin(name));
        }
        return addJava(all, installation_.adapters(), {});
    }

    int addOfFile(std::vector<Declarations> &all)
    {
        ConfigurationFile file(file_);
        if (!file.complain()) {
            return exitUsage;
        }
        const Configuration &configuration = *file.configuration();
        for (const AdapterSettings &adapter : configuration.adapters) {
            if (!adapter.library.empty()) {
                all.push_back(nativeDeclarations(adapter.name, adapter.library, adapter.entry));
            }
        }
        return configuration.needsJava() ? addJava(all, configuration.adapters, configuration.java)
                                         : exitOk;
    }

    Declarations ofPlugin(const std::string &name) const
    {
        return nativeDeclarations(name, installation_.plugin(name), pluginEntry(name));
    }

    int addJava(std::vector<Declarations> &all, const std::vector<std::string> &classes,
                const JavaSettings &java)
    {
        std::vector<AdapterSettings> adapters;
        for (const std::string &name : classes) {
            AdapterSettings adapter;
            adapter.javaClass = name;
            adapter.installedJars = installation_.adapterJars(name);
            adapters.push_back(std::move(adapter));
        }
        return addJava(all, adapters, java);
    }

    int addJava(std::vector<Declarations> &all, const std::vector<AdapterSettings> &adapters,
                const JavaSettings &java)
    {
        Configuration configuration;
        configuration.java = java;
        const std::optional<VmCandidate> vm = chooseVm(javaHome_, configuration);
        if (!vm) {
            return exitNoStart;
        }
        const auto found = javaDeclarations(vm->home, installation_, adapters, java);
        if (!found) {
            complain("ferry: the adapters could not be asked");
            return exitNoStart;
        }
        all.insert(all.end(), found->begin(), found->end());
        return exitOk;
    }

    std::string file_;
    std::string settings_;
    bool json_ = false;
    std::filesystem::path javaHome_;
    bool verbose_ = false;
    RunOptions options_;
    const Installation installation_ = findInstallation();
};

const RegisteredVerb<Check>
    registered("check",
               "Load everything a configuration file names, move no sample, report what was found");

} // namespace
} // namespace ferry
