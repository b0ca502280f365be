// Domains of this process and the configuration that the engine gets for each.
#include "domain.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <mutex>
#include <string_view>
#include <vector>

#include "engine_log.h"
#include "qddscdr/error_text.h"
#include "resources.h"
#include "security.h"
#include "xml.h"

namespace qddsdomain {

namespace {

using qddscdr::setError;

constexpr int32_t largestDomain = 230; // above it RTPS has no ports (RTPS 2.5, 9.6.2.3)
/// Processes on one host and domain that can be found without multicast.
constexpr const char *mostProcesses = "119";

std::vector<std::string> split(const char *list)
{
    std::vector<std::string> parts(1);
    for (const char *c = list == nullptr ? "" : list; *c != '\0'; ++c) {
        if (*c == ',') {
            parts.emplace_back();
        } else if (std::isspace(static_cast<unsigned char>(*c)) == 0) {
            parts.back() += *c;
        }
    }
    if (parts.size() == 1 && parts[0].empty()) {
        parts.clear();
    }
    return parts;
}

bool isAddress(const std::string &text)
{
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

bool hasEmpty(const std::vector<std::string> &parts)
{
    for (const std::string &part : parts) {
        if (part.empty()) {
            return true;
        }
    }
    return false;
}

/// Without comments, in which anything may stand.
std::string withoutComments(const char *xml)
{
    std::string text = xml == nullptr ? "" : xml;
    for (size_t start = 0; (start = text.find("<!--", start)) != std::string::npos;) {
        const size_t end = text.find("-->", start + 4);
        text.erase(start, end == std::string::npos ? end : end + 3 - start);
    }
    return text;
}

/// Whether an element's name begins with the feature's, in small letters. The engine does not tell
/// names by their case.
bool asksFor(std::string_view feature, const char *xml)
{
    const std::string text = withoutComments(xml);
    const auto same = [](char wanted, char there) {
        return wanted == std::tolower(static_cast<unsigned char>(there));
    };
    for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
        const std::string name = text.substr(at + 1, feature.size());
        if (name.size() == feature.size() &&
            std::equal(feature.begin(), feature.end(), name.begin(), same)) {
            return true;
        }
    }
    return false;
}

bool checkSettings(const DDS_ParticipantSettings &settings, DDS_ErrorText *error)
{
    if (settings.domainId < 0 || settings.domainId > largestDomain) {
        setError(error, "domain %d is not between 0 and %d", settings.domainId, largestDomain);
        return false;
    }
    if (settings.multicast < 0 || settings.multicast > 2) {
        setError(error, "multicast %d is not between 0 and 2", settings.multicast);
        return false;
    }
    const std::vector<std::string> interfaces = split(settings.interfaces);
    if (hasEmpty(interfaces)) {
        setError(error, "interfaces \"%s\" has an empty entry", settings.interfaces);
        return false;
    }
    if (interfaces.size() > 1) {
        for (const std::string &name : interfaces) {
            if (name == "auto") {
                setError(error, "interfaces \"%s\": \"auto\" stands alone", settings.interfaces);
                return false;
            }
        }
    }
    if (hasEmpty(split(settings.peers))) {
        setError(error, "peers \"%s\" has an empty entry", settings.peers);
        return false;
    }
    if (settings.transport < 0 || settings.transport > 1) {
        setError(error, "transport %d is not 0 or 1", settings.transport);
        return false;
    }
    if (settings.port < 0 || settings.port > 65535 ||
        (settings.port != 0 && settings.transport == 0)) {
        setError(error, "port %d: a number from 1 to 65535, and only with TCP", settings.port);
        return false;
    }
    // The engine ends the process with it.
    if (asksFor("ssl", settings.xml)) {
        setError(error, "engine XML: SSL cannot be set; security encrypts over TCP, too");
        return false;
    }
    // The engine waits a minute for a daemon of it, and ends the process then.
    if (asksFor("sharedmemory", settings.xml)) {
        setError(error,
                 "engine XML: there is no shared memory here, so SharedMemory cannot be set");
        return false;
    }
    const std::string problem =
        settings.security == nullptr ? "" : securityProblem(*settings.security);
    if (!problem.empty()) {
        setError(error, "security: %s", problem.c_str());
        return false;
    }
    return true;
}

std::string interfacesXml(const std::vector<std::string> &interfaces)
{
    std::string xml;
    for (const std::string &name : interfaces) {
        if (name == "auto") {
            xml += "<NetworkInterface autodetermine=\"true\"/>";
        } else {
            xml += isAddress(name) ? "<NetworkInterface address=\"" : "<NetworkInterface name=\"";
            xml += escape(name) + "\"/>";
        }
    }
    return xml;
}

/// The engine takes several fragments, separated by commas; what comes later wins.
std::string configuration(const DDS_ParticipantSettings &settings)
{
    std::vector<std::string> interfaces = split(settings.interfaces);
    std::vector<std::string> peers = split(settings.peers);
    if (interfaces.empty()) {
        interfaces.emplace_back("127.0.0.1");
        // The loopback interface has no multicast, so participants there are asked one by one.
        if (settings.transport == 0) {
            peers.emplace_back("127.0.0.1");
        }
    }
    constexpr std::array<const char *, 3> multicastNames = {"false", "spdp", "true"};
    std::string xml = "<CycloneDDS><Domain Id=\"" + std::to_string(settings.domainId) + "\">";
    xml += "<General><Interfaces>" + interfacesXml(interfaces) + "</Interfaces><AllowMulticast>";
    xml += multicastNames[static_cast<size_t>(settings.multicast)];
    xml += "</AllowMulticast>";
    if (settings.transport == 1) {
        xml += "<Transport>tcp</Transport>";
    }
    xml += "</General>";
    if (settings.transport == 1) {
        xml += "<TCP><Enable>true</Enable><Port>" +
               std::to_string(settings.port == 0 ? -1 : settings.port) + "</Port></TCP>";
    }
    xml += "<Discovery><ParticipantIndex>auto</ParticipantIndex>";
    xml += "<MaxAutoParticipantIndex>";
    xml += mostProcesses;
    xml += "</MaxAutoParticipantIndex><Peers>";
    for (const std::string &peer : peers) {
        xml += "<Peer Address=\"" + escape(peer) + "\"/>";
    }
    // The key hash in every message lets other implementations see instances go at once. Batching
    // can only be asked for before a writer is made. A writer that has to wait goes on when half of
    // what it sent is acknowledged, not all: so it writes while readers still take. And it begins
    // with its full room: the engine raises that from 30 kB, but behind our writers not always.
    xml += "</Peers></Discovery><Internal><GenerateKeyhash>true</GenerateKeyhash>"
           "<WriteBatch>true</WriteBatch><SocketReceiveBufferSize max=\"4MB\"/>"
           "<SocketSendBufferSize min=\"default\" max=\"4MB\"/>"
           "<Watermarks><WhcLow>500kB</WhcLow><WhcHigh>1MB</WhcHigh><WhcHighInit>1MB</WhcHighInit>"
           "</Watermarks><WriterLingerDuration>0s</WriterLingerDuration></Internal>"
           "</Domain></CycloneDDS>";
    if (settings.security != nullptr) {
        xml += "," + securityXml(*settings.security);
    }
    if (settings.xml != nullptr && settings.xml[0] != '\0') {
        xml += ",";
        xml += settings.xml;
    }
    // A file that is named there is not looked into.
    return xml + ",<SharedMemory><Enable>false</Enable></SharedMemory>";
}

struct Running {
    std::string configuration;
    engine::Entity domain;
    size_t leases = 0;
};

/// Lives until the process ends, so that a lease may be dropped at any time before.
struct Registry {
    std::mutex mutex;
    std::map<int32_t, Running> running;
};
Registry &registry()
{
    static auto *table = new Registry;
    return *table;
}

/// Takes the registry's lock when it goes, so it must not go where that is held.
struct Lease {
    int32_t id;
    bool counted = false;

    explicit Lease(int32_t domain) : id(domain) {}
    Lease(const Lease &) = delete;
    Lease &operator=(const Lease &) = delete;
    ~Lease()
    {
        if (!counted) {
            return;
        }
        Registry &table = registry();
        const std::lock_guard<std::mutex> guard(table.mutex);
        const auto found = table.running.find(id); // there as long as it has a lease
        if (--found->second.leases == 0) {
            table.running.erase(found);
        }
    }
};

/// With the registry locked.
bool start(int32_t id, Running &running, DDS_ErrorText *error)
{
    const EngineComplaints complaints;
    running.domain = engine::Entity(
        dds_create_domain(static_cast<dds_domainid_t>(id), running.configuration.c_str()));
    const dds_entity_t made = running.domain.get();
    if (made == engine::preconditionNotMet) {
        setError(error, "domain %d is in use by other code of this process", id);
    } else if (made < 0) {
        setError(error, "the engine rejects domain %d: %s", id, complaints.text(made).c_str());
    }
    return made > 0;
}

} // namespace

bool isSecured(int32_t domain)
{
    Registry &table = registry();
    const std::lock_guard<std::mutex> guard(table.mutex);
    const auto found = table.running.find(domain);
    return found != table.running.end() &&
           found->second.configuration.find("Security>") != std::string::npos;
}

DomainLease leaseDomain(const DDS_ParticipantSettings &settings, DDS_ErrorText *error)
{
    if (!checkSettings(settings, error)) {
        return nullptr;
    }
    adoptEngineLog();
    const int32_t id = settings.domainId;
    const auto lease = std::make_shared<Lease>(id);
    Registry &table = registry();
    const std::lock_guard<std::mutex> guard(table.mutex);
    std::string wanted = configuration(settings);
    auto found = table.running.find(id);
    if (found != table.running.end() && found->second.configuration != wanted) {
        setError(error,
                 "domain %d already runs in this process with other settings of interfaces, "
                 "multicast, peers or engine XML",
                 id);
        return nullptr;
    }
    if (found == table.running.end()) {
        if (!hasRoomForDomain(split(settings.interfaces).size() + 1, error)) {
            return nullptr;
        }
        Running running;
        running.configuration = std::move(wanted);
        if (!start(id, running, error)) {
            return nullptr;
        }
        found = table.running.emplace(id, std::move(running)).first;
    }
    ++found->second.leases;
    lease->counted = true;
    return {lease, &lease->id};
}

} // namespace qddsdomain
