#include "launcher/settings_check.h"

#include <algorithm>
#include <cctype>
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fmt/format.h>

#include "launcher/program.h"
#include "settings/check.h"
#include "settings/suggestion.h"
#include "settings/value.h"

namespace ferry {
namespace {

/// A file in memory: neither side waits for the other, and secrets reach no disk.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("ferry", MFD_CLOEXEC)) {}
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    ~MemoryFile()
    {
        close(descriptor_);
    }

    int descriptor() const
    {
        return descriptor_;
    }
    bool fill(const std::string &text) const
    {
        return write(descriptor_, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
               lseek(descriptor_, 0, SEEK_SET) == 0;
    }
    std::string content() const
    {
        std::string text;
        char buffer[4096];
        lseek(descriptor_, 0, SEEK_SET);
        for (ssize_t got = 0; (got = read(descriptor_, buffer, sizeof buffer)) > 0;) {
            text.append(buffer, static_cast<std::size_t>(got));
        }
        return text;
    }

private:
    int descriptor_;
};

std::string dotted(std::string javaClass)
{
    std::replace(javaClass.begin(), javaClass.end(), '/', '.');
    return javaClass;
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

void appendField(std::string &text, const std::string &field)
{
    text.append(field).push_back('\0');
}

std::vector<std::string> fieldsOf(const std::string &text)
{
    std::vector<std::string> fields;
    for (std::size_t from = 0, end = 0; (end = text.find('\0', from)) != std::string::npos;
         from = end + 1) {
        fields.push_back(text.substr(from, end - from));
    }
    return fields;
}

/// Whether the value is completed when a stream is found, and so cannot be judged yet.
bool isTemplate(const Properties &properties, const std::string &name)
{
    return std::any_of(properties.begin(), properties.end(), [&](const auto &property) {
        return property.first == name &&
               (property.second.find("${stream}") != std::string::npos ||
                property.second.find("${partitions}") != std::string::npos ||
                property.second.find("${type}") != std::string::npos);
    });
}

/// The adapter that the properties go to; null where the file's mistakes leave that open.
const AdapterSettings *adapterOf(const Configuration &configuration, const PropertySource &source)
{
    std::size_t adapter = source.owner;
    if (source.role != FERRY_SETTING_OF_ADAPTER) {
        if (source.owner >= configuration.connections.size()) {
            return nullptr;
        }
        adapter = configuration.connections[source.owner].adapter;
    }
    return adapter < configuration.adapters.size() ? &configuration.adapters[adapter] : nullptr;
}

void add(Diagnostics &diagnostics, const PropertySource &source, const std::string &name,
         const std::string &text)
{
    const auto place = source.places.find(name);
    if (!isTemplate(source.properties, name)) {
        diagnostics.add(place == source.places.end() ? source.place : place->second,
                        fmt::format("{}: {}", source.path, text));
    }
}

void addMissing(Diagnostics &diagnostics, const AdapterSettings &adapter,
                const Installation &installation)
{
    const std::string name = dotted(adapter.javaClass);
    diagnostics.add(adapter.place,
                    fmt::format("adapters.{}.class: there is no class \"{}\"{}", adapter.name, name,
                                suggestion(name, installation.adapterNames())));
}

/// Null for a library that cannot be loaded, and for a plug-in that declares nothing.
const FERRY_SettingTable *tableOf(const std::filesystem::path &library, const std::string &entry,
                                  std::string &reason)
{
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char *const text = dlerror();
        reason = text == nullptr ? "cannot be loaded" : text;
        return nullptr;
    }
    const auto function =
        reinterpret_cast<FERRY_SettingsFn>(dlsym(handle, (entry + "_settings").c_str()));
    const FERRY_SettingTable *const table = function == nullptr ? nullptr : function();
    return table != nullptr && table->version == FERRY_SETTINGS_VERSION ? table : nullptr;
}

std::vector<std::vector<std::string>> pathsOf(const std::vector<AdapterSettings> &adapters)
{
    std::vector<std::vector<std::string>> all;
    for (const AdapterSettings &adapter : adapters) {
        if (!adapter.javaClass.empty() &&
            std::find(all.begin(), all.end(), adapter.ownEntries()) == all.end()) {
            all.push_back(adapter.ownEntries());
        }
    }
    return all;
}

/// A row of the tool's answer, which begins at `at`.
Declaration declarationAt(const std::vector<std::string> &fields, std::size_t at)
{
    Declaration declared;
    declared.roles = roleOf(fields[at + 1]);
    declared.name = fields[at + 2];
    declared.kind = kindOf(fields[at + 3]);
    declared.low = fields[at + 4].empty() ? 0 : std::stoll(fields[at + 4]);
    declared.high = fields[at + 5].empty() ? 0 : std::stoll(fields[at + 5]);
    const FERRY_Setting words{"", 0, declared.kind, fields[at + 6].c_str(), 0, 0, "", "", 0, ""};
    declared.words = wordsOf(words);
    const std::string &flags = fields[at + 8];
    const auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
    if (has('d')) {
        declared.fallback = fields[at + 7];
    }
    declared.required = has('r');
    declared.changeable = has('c');
    declared.allowed = fields[at + 9];
    declared.help = fields[at + 10];
    return declared;
}

/// What the tool has printed about one class after the other.
std::vector<Declarations> declarationsIn(const std::vector<std::string> &fields)
{
    constexpr std::size_t rowFields = 11;
    constexpr std::size_t classFields = 4;
    std::vector<Declarations> all;
    for (std::size_t at = 0; at + classFields <= fields.size();) {
        if (fields[at] == "class") {
            all.push_back({fields[at + 1],
                           fields[at + 2] == "missing" ? fields[at + 3] : "",
                           fields[at + 2] == "ok",
                           {}});
            at += classFields;
        } else if (!all.empty() && at + rowFields <= fields.size()) {
            all.back().settings.push_back(declarationAt(fields, at));
            at += rowFields;
        } else {
            break;
        }
    }
    return all;
}

} // namespace

Declarations nativeDeclarations(const std::string &name, const std::filesystem::path &library,
                                const std::string &entry)
{
    Declarations declarations{name, "", false, {}};
    const FERRY_SettingTable *const table = tableOf(library, entry, declarations.missing);
    if (table != nullptr) {
        declarations.declares = true;
        declarations.settings = declarationsOf(*table);
    }
    return declarations;
}

void checkNativeSettings(const Configuration &configuration, Diagnostics &diagnostics)
{
    for (const PropertySource &source : configuration.sources) {
        const AdapterSettings *const adapter = adapterOf(configuration, source);
        std::string ignored;
        const FERRY_SettingTable *const table =
            adapter == nullptr || adapter->library.empty()
                ? nullptr
                : tableOf(adapter->library, adapter->entry, ignored);
        if (table != nullptr) {
            for (const SettingProblem &problem :
                 checkProperties(*table, source.role, source.properties)) {
                add(diagnostics, source, problem.name, problem.text);
            }
        }
    }
}

JavaDeclarations::JavaDeclarations(const std::filesystem::path &javaHome,
                                   const Installation &installation)
    : program_(javaHome / "bin" / "java"), installation_(installation)
{
}

std::optional<std::vector<std::string>>
JavaDeclarations::ask(const Paths &own, const Paths &shared,
                      const std::vector<std::string> &classes, const std::string &input) const
{
    std::vector<std::string> entries = installation_.jars;
    entries.insert(entries.end(), own.begin(), own.end());
    entries.insert(entries.end(), shared.begin(), shared.end());
    const MemoryFile given;
    const MemoryFile answer;
    std::vector<std::string> command = {program_, "-XX:TieredStopAtLevel=1", "-cp",
                                        fmt::format("{}", fmt::join(entries, ":")),
                                        "com.qel.ferrion.kit.SettingsTool"};
    command.insert(command.end(), classes.begin(), classes.end());
    if (!given.fill(input) || !runProgram(command, given.descriptor(), answer.descriptor())) {
        return std::nullopt;
    }
    return fieldsOf(answer.content());
}

bool JavaDeclarations::check(const Configuration &configuration, Diagnostics &diagnostics) const
{
    bool answered = true;
    for (const Paths &own : pathsOf(configuration.adapters)) {
        answered = checkThoseOf(own, configuration, diagnostics) && answered;
    }
    return answered;
}

/// Adapters of one class path are asked together.
bool JavaDeclarations::checkThoseOf(const Paths &own, const Configuration &configuration,
                                    Diagnostics &diagnostics) const
{
    std::vector<const PropertySource *> asked;
    std::string question;
    for (const PropertySource &source : configuration.sources) {
        const AdapterSettings *const adapter = adapterOf(configuration, source);
        if (adapter == nullptr || adapter->javaClass.empty() || adapter->ownEntries() != own) {
            continue;
        }
        asked.push_back(&source);
        appendField(question, dotted(adapter->javaClass));
        appendField(question, upper(roleNames(source.role).front()));
        appendField(question, std::to_string(source.properties.size()));
        for (const auto &[name, value] : source.properties) {
            appendField(question, name);
            appendField(question, value);
        }
    }
    const auto fields = ask(own, configuration.java.classPath, {}, question);
    for (std::size_t i = 0; fields && i + 2 < fields->size(); i += 3) {
        const PropertySource &source = *asked.at(std::stoul((*fields)[i]));
        if ((*fields)[i + 1].empty()) {
            addMissing(diagnostics, *adapterOf(configuration, source), installation_);
        } else {
            add(diagnostics, source, (*fields)[i + 1], (*fields)[i + 2]);
        }
    }
    return fields.has_value();
}

std::optional<std::vector<Declarations>>
JavaDeclarations::declarations(const std::vector<AdapterSettings> &adapters,
                               const JavaSettings &java) const
{
    std::vector<Declarations> all;
    for (const Paths &own : pathsOf(adapters)) {
        std::vector<std::string> classes;
        for (const AdapterSettings &adapter : adapters) {
            const std::string name = dotted(adapter.javaClass);
            if (!name.empty() && adapter.ownEntries() == own &&
                std::find(classes.begin(), classes.end(), name) == classes.end()) {
                classes.push_back(name);
            }
        }
        const auto fields = ask(own, java.classPath, classes, "");
        if (!fields) {
            return std::nullopt;
        }
        for (Declarations &declarations : declarationsIn(*fields)) {
            all.push_back(std::move(declarations));
        }
    }
    return all;
}

} // namespace ferry
