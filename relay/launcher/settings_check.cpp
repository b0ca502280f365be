#include "launcher/settings_check.h"

#include <algorithm>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

#include <fmt/format.h>

#include "launcher/program.h"
#include "settings/check.h"
#include "settings/suggestion.h"
#include "settings/value.h"

namespace ferry {
namespace {

using Paths = std::vector<std::string>;

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

/// What the tool has printed: fields that end with NUL; empty ones behind the last.
class Answer {
public:
    explicit Answer(std::string text) : text_(std::make_shared<const std::string>(std::move(text)))
    {
    }

    bool done() const
    {
        return at_ >= text_->size();
    }
    const char *next()
    {
        const char *const field = text_->c_str() + std::min(at_, text_->size());
        at_ += std::strlen(field) + 1;
        return field;
    }
    std::int64_t number()
    {
        return std::strtoll(next(), nullptr, 10);
    }
    /// Fields live as long.
    std::shared_ptr<const std::string> text() const
    {
        return text_;
    }

private:
    std::shared_ptr<const std::string> text_;
    std::size_t at_ = 0;
};

std::string dotted(std::string javaClass)
{
    std::replace(javaClass.begin(), javaClass.end(), '/', '.');
    return javaClass;
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
        diagnostics.add(place == source.places.end() ? source.place : place->second, "{}: {}",
                        source.path, text);
    }
}

void addMissing(Diagnostics &diagnostics, const AdapterSettings &adapter,
                const Installation &installation)
{
    const std::string name = dotted(adapter.javaClass);
    diagnostics.add(adapter.place, "adapters.{}.class: there is no class \"{}\"{}", adapter.name,
                    name, suggestion(name, installation.adapterNames()));
}

/// Null for a library that is no plug-in, and for a plug-in that declares nothing.
const FERRY_SettingTable *tableOf(const std::filesystem::path &library, const std::string &entry,
                                  std::string &reason)
{
    std::string ignored;
    void *const function = findSymbol(library, entry, reason) == nullptr
                               ? nullptr
                               : findSymbol(library, entry + "_settings", ignored);
    const FERRY_SettingTable *const table =
        function == nullptr ? nullptr : reinterpret_cast<FERRY_SettingsFn>(function)();
    return table != nullptr && table->version == FERRY_SETTINGS_VERSION ? table : nullptr;
}

/// What adapters of their own see: those of one class path are asked together.
std::vector<Paths> pathsOf(const std::vector<AdapterSettings> &adapters)
{
    std::vector<Paths> all;
    for (const AdapterSettings &adapter : adapters) {
        if (!adapter.javaClass.empty() &&
            std::find(all.begin(), all.end(), adapter.ownEntries()) == all.end()) {
            all.push_back(adapter.ownEntries());
        }
    }
    return all;
}

/// The tool's input: fields that end with NUL, as its answer.
std::string questionAbout(const Configuration &configuration,
                          const std::vector<const PropertySource *> &sources)
{
    std::string question;
    const auto append = [&](const std::string &field) { question.append(field).push_back('\0'); };
    for (const PropertySource *source : sources) {
        append(dotted(adapterOf(configuration, *source)->javaClass));
        append(std::to_string(source->role));
        append(std::to_string(source->properties.size()));
        for (const auto &[name, value] : source->properties) {
            append(name);
            append(value);
        }
    }
    return question;
}

class SettingsTool {
public:
    SettingsTool(const std::filesystem::path &javaHome, const Installation &installation,
                 const JavaSettings &java)
        : program_(javaHome / "bin" / "java"), installation_(installation), java_(java)
    {
    }

    /// Nothing if it did not end well.
    std::optional<Answer> ask(const Paths &own, const std::vector<std::string> &classes,
                              const std::string &question) const
    {
        Paths entries = installation_.jars;
        entries.insert(entries.end(), own.begin(), own.end());
        entries.insert(entries.end(), java_.classPath.begin(), java_.classPath.end());
        std::vector<std::string> command = {program_, "-XX:TieredStopAtLevel=1", "-cp",
                                            fmt::format("{}", fmt::join(entries, ":")),
                                            "com.qel.ferrion.kit.SettingsTool"};
        command.insert(command.end(), classes.begin(), classes.end());
        const MemoryFile input;
        const MemoryFile output;
        const bool answered =
            input.fill(question) && runProgram(command, input.descriptor(), output.descriptor());
        return answered ? std::make_optional<Answer>(output.content()) : std::nullopt;
    }

private:
    std::filesystem::path program_;
    const Installation &installation_;
    const JavaSettings &java_;
};

FERRY_Setting settingIn(Answer &answer)
{
    const auto bits = [&] { return static_cast<std::uint32_t>(answer.number()); };
    FERRY_Setting setting{};
    setting.name = answer.next();
    setting.roles = bits();
    setting.kind = bits();
    setting.words = answer.next();
    setting.low = answer.number();
    setting.high = answer.number();
    const char *const fallback = answer.next();
    setting.fallback = *fallback == '=' ? fallback + 1 : nullptr;
    setting.flags = bits();
    setting.help = answer.next();
    setting.expected = answer.next();
    return setting;
}

/// Of one class after the other.
void addDeclarations(Answer answer, std::vector<Declarations> &all)
{
    while (!answer.done()) {
        Declarations declarations;
        declarations.adapter = answer.next();
        declarations.declares = answer.next() == std::string("ok");
        declarations.missing = answer.next();
        declarations.texts = answer.text();
        for (std::int64_t rows = answer.number(); rows > 0 && !answer.done(); --rows) {
            declarations.settings.push_back(settingIn(answer));
        }
        all.push_back(std::move(declarations));
    }
}

} // namespace

Declarations nativeDeclarations(const std::string &name, const std::filesystem::path &library,
                                const std::string &entry)
{
    std::string missing;
    Declarations declarations = declarationsOf(name, tableOf(library, entry, missing));
    declarations.missing = missing;
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

bool checkJavaSettings(const std::filesystem::path &javaHome, const Installation &installation,
                       const Configuration &configuration, Diagnostics &diagnostics)
{
    const SettingsTool tool(javaHome, installation, configuration.java);
    bool answered = true;
    for (const Paths &own : pathsOf(configuration.adapters)) {
        std::vector<const PropertySource *> asked;
        for (const PropertySource &source : configuration.sources) {
            const AdapterSettings *const adapter = adapterOf(configuration, source);
            if (adapter != nullptr && !adapter->javaClass.empty() && adapter->ownEntries() == own) {
                asked.push_back(&source);
            }
        }
        std::optional<Answer> answer = tool.ask(own, {}, questionAbout(configuration, asked));
        answered = answered && answer;
        while (answer && !answer->done()) {
            const PropertySource &source = *asked.at(static_cast<std::size_t>(answer->number()));
            const std::string name = answer->next();
            const std::string fault = answer->next();
            if (name.empty()) {
                addMissing(diagnostics, *adapterOf(configuration, source), installation);
            } else {
                add(diagnostics, source, name, fault);
            }
        }
    }
    return answered;
}

std::optional<std::vector<Declarations>>
javaDeclarations(const std::filesystem::path &javaHome, const Installation &installation,
                 const std::vector<AdapterSettings> &adapters, const JavaSettings &java)
{
    const SettingsTool tool(javaHome, installation, java);
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
        const std::optional<Answer> answer = tool.ask(own, classes, "");
        if (!answer) {
            return std::nullopt;
        }
        addDeclarations(*answer, all);
    }
    return all;
}

} // namespace ferry
