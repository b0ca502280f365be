// `ferry doctor`: what this installation has, and what it lacks.
#include <cstdio>

#include <fmt/format.h>

#include "config/printable.h"
#include "control/socket_directory.h"
#include "launcher/class_archive.h"
#include "launcher/installation.h"
#include "launcher/verb.h"
#include "launcher/version.h"
#include "launcher/virtual_machine.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

class Findings {
public:
    void good(const std::string &text)
    {
        std::printf("ok    %s\n", text.c_str());
    }
    void bad(const std::string &text)
    {
        std::printf("FAIL  %s\n", text.c_str());
        all_ = false;
    }
    bool all() const
    {
        return all_;
    }

private:
    bool all_ = true;
};

void lookAtVm(const VmSearch &search, Findings &findings)
{
    if (search.chosen == nullptr) {
        findings.bad(fmt::format("Java VM: {}", noVmText(search)));
        return;
    }
    const VmCandidate &chosen = *search.chosen;
    const std::string version = chosen.fullVersion.empty() ? "unknown" : chosen.fullVersion;
    findings.good(fmt::format("Java VM: {} (version {}, by {})", chosen.home.string(), version,
                              chosen.source));
    for (const VmCandidate &candidate : search.candidates) {
        if (&candidate != &chosen) {
            const std::string state = candidate.problem.empty() ? "not used" : candidate.problem;
            std::printf("      also found: %s (version %s): %s\n", candidate.home.c_str(),
                        candidate.fullVersion.c_str(), state.c_str());
        }
    }
}

/// Loads what a relay loads; nothing of it is run.
std::string loadAll(const VmSearch &search, const Installation &installation)
{
    std::string reason;
    if (loadRelay(installation, reason) != nullptr && search.chosen != nullptr) {
        reason = loadVm(search.chosen->library);
        if (reason.empty()) {
            findSymbol(installation.bridge(), "FERRYJNIAdapter_create", reason);
        }
    }
    return reason;
}

void lookAtLibraries(const VmSearch &search, const Installation &installation, Findings &findings)
{
    bool all = true;
    for (const char *name :
         {"libferryrelay.so", "libferryjni.so", "libqddscore.so", "libqddsc.so"}) {
        std::error_code error;
        if (!std::filesystem::exists(installation.libraries / name, error)) {
            findings.bad(
                fmt::format("library missing: {}", (installation.libraries / name).string()));
            all = false;
        }
    }
    if (!all) {
        return;
    }
    const std::string reason = loadAll(search, installation);
    if (!reason.empty()) {
        findings.bad(fmt::format("libraries do not load: {}", reason));
    } else {
        findings.good(fmt::format("libraries: {}{}", installation.libraries.string(),
                                  search.chosen == nullptr ? "" : " (loaded with this VM)"));
    }
}

/// A plug-in that does not load is of no use, whatever the reason.
void lookAtPlugins(const Installation &installation, Findings &findings)
{
    for (const std::string &name : installation.plugins()) {
        std::string reason;
        if (findSymbol(installation.plugin(name), pluginEntry(name), reason) != nullptr) {
            findings.good(
                fmt::format("plug-in: {} ({})", name, installation.plugin(name).string()));
        } else {
            findings.bad(fmt::format("plug-in {} does not load: {}", name, reason));
        }
    }
}

void lookAtJars(const Installation &installation, Findings &findings)
{
    for (const std::string &jar : installation.missingJars()) {
        findings.bad(fmt::format("jar missing: {}", jar));
    }
    for (const std::string &jar : installation.jars) {
        findings.good(fmt::format("jar: {}", jar));
    }
    for (const std::string &javaClass : installation.adapters()) {
        for (const std::string &jar : installation.adapterJars(javaClass)) {
            findings.good(fmt::format("jar: {}", jar));
        }
    }
}

/// Ferry works without; so it is none of the findings.
void lookAtArchive(const VmSearch &search, const Installation &installation)
{
    if (search.chosen != nullptr) {
        const std::filesystem::path archive = classArchive(installation, *search.chosen);
        std::error_code error;
        std::printf(std::filesystem::exists(archive, error)
                        ? "      class archive: %s\n"
                        : "      no class archive %s: \"ferry archive\" makes it, for quicker "
                          "starts\n",
                    archive.c_str());
    }
}

/// Where a relay of this user has its control socket, and which ones run.
void lookAtControl()
{
    std::printf("      control sockets: %s\n", socketDirectory().c_str());
    for (const RunningRelay &relay : runningRelays(socketDirectories())) {
        std::printf("      running: %s, process %d: %s\n", printable(relay.name).c_str(),
                    relay.process, printable(relay.path.string()).c_str());
    }
}

class Doctor : public Verb {
public:
    void declare(CLI::App &command) override
    {
        addJavaHome(command, javaHome_);
    }

    int run() override
    {
        std::printf("ferry %s\n", FERRY_VERSION);
        Findings findings;
        VmSearch search;
        findVm(vmLocations(javaHome_), search);
        const Installation installation = findInstallation();
        lookAtVm(search, findings);
        lookAtLibraries(search, installation, findings);
        lookAtPlugins(installation, findings);
        lookAtJars(installation, findings);
        lookAtArchive(search, installation);
        lookAtControl();
        std::printf("%s\n",
                    findings.all() ? "everything is there" : "something is missing (see FAIL)");
        return findings.all() ? exitOk : exitErrors;
    }

private:
    std::filesystem::path javaHome_;
};

const RegisteredVerb<Doctor>
    registered("doctor", "Report which Java VM, libraries and jars were found and what is missing");

} // namespace
} // namespace ferry
