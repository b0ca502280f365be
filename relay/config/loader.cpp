#include "config/loader.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <regex>
#include <set>

#include <arpa/inet.h>

#include "config/keys.h"
#include "config/load.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

void readLog(const Section &section, LogSettings &log)
{
    section.read("level", log.level);
    section.read("file", log.file);
    log.place = section["file"].place();
}

/// A path, or the word for none.
void readControl(const Section &file, ControlSettings &control)
{
    control.place = file["control"].place();
    control.on = file["control"].isGiven() ? file["control"].text().value_or("") != "off" : true;
    if (control.on) {
        file.read("control", control.path);
    }
}

/// Whether an address is numeric, and whether it is one of this machine alone.
bool isNumeric(const std::string &address, bool &loopback)
{
    in_addr four{};
    in6_addr six{};
    if (inet_pton(AF_INET, address.c_str(), &four) == 1) {
        loopback = ntohl(four.s_addr) >> 24U == 127;
        return true;
    }
    loopback = address == "::1";
    return inet_pton(AF_INET6, address.c_str(), &six) == 1;
}

/// "127.0.0.1:9464", "[::1]:9464", "localhost:9464"
void readHttp(const Section &section, HttpSettings &http)
{
    section.read("listen", http.listen);
    section.read("token_file", http.tokenFile);
    if (http.listen.empty()) {
        return;
    }
    const Entry listen = section["listen"];
    http.place = listen.place();
    static const std::regex form(R"((\[([^\]]+)\]|([^:\[\]]+)):(\d{1,5}))");
    std::smatch parts;
    bool loopback = false;
    const bool fits = std::regex_match(http.listen, parts, form);
    if (fits) {
        http.address = parts[2].matched ? parts[2].str() : parts[3].str();
        http.address = http.address == "localhost" ? "127.0.0.1" : http.address;
    }
    const int port = fits ? std::stoi(parts[4].str()) : 0;
    if (!fits || port < 1 || port > 65535 || !isNumeric(http.address, loopback)) {
        listen.complain("{} must be a numeric address and a port, as in 127.0.0.1:9464 or "
                        "[::1]:9464, not \"{}\"",
                        http.listen);
    } else if (!loopback && http.tokenFile.empty()) {
        listen.complain("{}: {} can be reached from other machines, which needs \"token_file\"",
                        http.listen);
    }
    http.port = static_cast<std::uint16_t>(port);
}

/// A directory stands for itself and for every jar in it: the VM does not expand a `*` that it is
/// given by a host.
void readClassPath(const Entry &list, std::vector<std::string> &classPath)
{
    for (const auto &[entry, place] : list.javaTexts()) {
        const fs::path path = list.document().absolute(entry);
        std::error_code error;
        if (entry.find(':') != std::string::npos) {
            list.diagnostics().add(place,
                                   "{} takes one file or directory per entry; \"{}\" holds a ':'",
                                   list.path(), entry);
        } else if (!fs::exists(path, error)) {
            list.diagnostics().add(place, "{}: there is no {}", list.path(), path.string());
        } else {
            const std::vector<std::string> jars = jarsIn(path);
            classPath.push_back(path.string());
            classPath.insert(classPath.end(), jars.begin(), jars.end());
        }
    }
}

void readJavaOptions(const Entry &list, std::vector<std::string> &options)
{
    for (const auto &[option, place] : list.javaTexts()) {
        const auto starts = [&, &text = option](const char *word) {
            return text.rfind(word, 0) == 0;
        };
        if (!starts("-")) {
            list.diagnostics().add(
                place, "\"{}\" is no option of the Java VM: options start with '-', one per entry",
                option);
        } else if (starts("-Djava.class.path") || option == "-cp" || option == "-classpath" ||
                   starts("--class-path")) {
            list.diagnostics().add(
                place, "the class path is set with java.class_path, not with an option");
        } else {
            options.push_back(option);
        }
    }
}

void readJava(const Section &section, JavaSettings &java)
{
    section.read("home", java.home);
    readClassPath(section["class_path"], java.classPath);
    readJavaOptions(section["options"], java.options);
}

/// The name becomes a part of a file name and of a symbol.
void readPlugin(const Entry &plugin, AdapterSettings &adapter)
{
    const std::string name = plugin.text().value_or("");
    const auto isPlain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
    if (!std::all_of(name.begin(), name.end(), isPlain)) {
        plugin.complain("{} must be a plain word of letters, digits and '_', not \"{}\"", name);
    }
    adapter.library = pluginPrefix + name + pluginSuffix;
    adapter.entry = pluginEntry(name);
}

/// Where the adapter comes from: one of three keys says it, and the others go with one of them.
void readOrigin(const Section &section, AdapterSettings &adapter)
{
    if (section.has("class") + section.has("library") + section.has("plugin") != 1) {
        section.diagnostics().add(section.keyPlace(),
                                  "{} must have one of \"class\", \"plugin\" and \"library\"",
                                  section.path());
        return;
    }
    const auto only = [&](const char *key, const char *with) {
        if (section.has(key) && !section.has(with)) {
            section.diagnostics().add(section[key].keyPlace(), "{} goes with \"{}\" only",
                                      section[key].path(), with);
        }
    };
    only("class_path", "class");
    only("entry", "library");
    if (section.has("library") && !section.has("entry")) {
        section.complainOfMissing("entry");
    }
    section.read("library", adapter.library);
    section.read("entry", adapter.entry);
    section.read("class", adapter.javaClass);
    std::replace(adapter.javaClass.begin(), adapter.javaClass.end(), '.', '/');
    if (section.has("plugin")) {
        readPlugin(section["plugin"], adapter);
    }
}

/// A service manager's directory for it, else one beside the file.
fs::path defaultState(const Configuration &configuration)
{
    const char *const given = std::getenv("STATE_DIRECTORY");
    const std::string text = given == nullptr ? "" : given;
    const fs::path directory = text.substr(0, text.find(':'));
    return directory.is_absolute() ? directory
                                   : configuration.directory / (configuration.name + ".state");
}

} // namespace

Loader::Loader(Diagnostics &diagnostics, const std::string &text, const fs::path &file)
    : document_{diagnostics, file.parent_path()}, types_(text)
{
    configuration_.directory = document_.directory;
    configuration_.name = file.stem().string();
}

Configuration Loader::load(const YAML::Node &root)
{
    const Section file(Entry(document_, root, "", "", {}), keys::ofFile);
    const auto each = [&](const char *key, void (Loader::*read)(const Entry &)) {
        for (const Entry &entry : file[key].entries()) {
            (this->*read)(entry);
        }
    };
    types_.read(file["types"]);
    configuration_.types = types_.structs();
    configuration_.typeNotes = types_.notes();
    readLog(Section(file["log"], keys::ofLog), configuration_.log);
    readControl(file, configuration_.control);
    if (file.has("http")) {
        readHttp(Section(file["http"], keys::ofHttp), configuration_.http);
    }
    readJava(Section(file["java"], keys::ofJava), configuration_.java);
    readRetry(Section(file["restart"], keys::ofRestart), configuration_.restart.emplace());
    Section(file["dead_letters"], keys::ofDeadLetters)
        .read("max_bytes", configuration_.deadLetterBytes);
    file.read("state", configuration_.state);
    configuration_.statePlace = file["state"].place();
    if (!file.has("state")) {
        configuration_.state = defaultState(configuration_);
    }
    each("adapters", &Loader::readAdapter);
    each("connections", &Loader::readConnection);
    each("sessions", &Loader::readSession);
    if (configuration_.sessions.empty()) {
        configuration_.sessions.emplace_back();
        configuration_.sessions.back().name = "default";
    }
    each("routes", &Loader::readRoute);
    each("discovery", &Loader::readDiscovery);
    collectSessionSources();
    addBuffers();
    return configuration_;
}

void Loader::readAdapter(const Entry &entry)
{
    const Section section(entry, keys::ofAdapter);
    AdapterSettings adapter;
    adapter.name = entry.name();
    adapter.place = entry.keyPlace();
    readOrigin(section, adapter);
    readClassPath(section["class_path"], adapter.classPath);
    adapter.properties =
        readProperties(section, FERRY_SETTING_OF_ADAPTER, configuration_.adapters.size());
    configuration_.adapters.push_back(std::move(adapter));
}

void Loader::readConnection(const Entry &entry)
{
    const Section section(entry, keys::ofConnection);
    ConnectionSettings connection;
    connection.name = entry.name();
    connection.place = entry.keyPlace();
    connection.adapter = reference(section["adapter"], "adapter", configuration_.adapters);
    section.read("names", connection.names);
    if (connection.names.size() > 2) {
        section["names"].complain("{} takes at most two names");
    }
    connection.properties =
        readProperties(section, FERRY_SETTING_OF_CONNECTION, configuration_.connections.size());
    configuration_.connections.push_back(std::move(connection));
}

void Loader::readSession(const Entry &entry)
{
    const Section section(entry, keys::ofSession);
    SessionSettings session;
    session.name = entry.name();
    session.place = entry.keyPlace();
    section.read("period", session.period);
    section.read("batch", session.batch);
    section.read("batch_bytes", session.batchBytes);
    sessionSources_.push_back(readSource(section, FERRY_SETTING_OF_SESSION, 0));
    session.properties = sessionSources_.back().properties;
    configuration_.sessions.push_back(std::move(session));
}

PropertySource Loader::readSource(const Section &section, std::uint32_t role, std::size_t owner)
{
    const Entry properties = section["properties"];
    PropertySource source{role, owner, section.path(), properties.keyPlace(), {}, {}};
    properties.readProperties(source);
    return source;
}

Properties Loader::readProperties(const Section &section, std::uint32_t role, std::size_t owner)
{
    configuration_.sources.push_back(readSource(section, role, owner));
    return configuration_.sources.back().properties;
}

/// A session's properties go to every connection that its routes use.
void Loader::collectSessionSources()
{
    std::set<std::pair<std::size_t, std::size_t>> used;
    const auto add = [&](const RouteSettings &route) {
        used.emplace(route.session, route.input.connection);
        for (const StreamSettings &output : route.outputs) {
            used.emplace(route.session, output.connection);
        }
    };
    std::for_each(configuration_.routes.begin(), configuration_.routes.end(), add);
    for (const DiscoverySettings &rule : configuration_.discovery) {
        add(rule.route);
    }
    for (const auto &[session, connection] : used) {
        // The default session has none.
        if (session < sessionSources_.size()) {
            configuration_.sources.push_back(sessionSources_[session]);
            configuration_.sources.back().owner = connection;
        }
    }
}

} // namespace ferry
