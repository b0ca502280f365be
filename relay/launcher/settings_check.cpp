#include "launcher/settings_check.h"

#include <algorithm>
#include <sys/mman.h>
#include <unistd.h>

#include "launcher/program.h"

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

/// What SettingsTool prints of classes, for people.
std::string described(const std::vector<std::string> &fields)
{
    std::string text;
    std::string role;
    for (std::size_t i = 0; i + 3 < fields.size();) {
        const std::string *field = &fields[i];
        if (field[0] == "class") {
            text += field[1] + (field[2] == "ok" ? "\n" : "\n  declares no settings\n");
            role.clear();
            i += 4;
            continue;
        }
        if (field[1] != role) {
            role = field[1];
            text += "  " + role + "\n";
        }
        const auto has = [&](char flag) { return field[8].find(flag) != std::string::npos; };
        text += "    " + field[2] + ": " + field[9] + (has('r') ? "; required" : "") +
                (has('d') ? "; default " + field[7] : "") +
                (has('c') ? "; may change in use" : "") + "\n        " + field[10] + "\n";
        i += 11;
    }
    return text;
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

} // namespace

SettingsCheck::SettingsCheck(const std::filesystem::path &javaHome,
                             const Installation &installation, const Configuration &configuration)
    : program_(javaHome / "bin" / "java"), installation_(installation),
      configuration_(configuration)
{
}

std::vector<SettingsCheck::Paths> SettingsCheck::adapterPaths() const
{
    std::vector<Paths> all;
    for (const AdapterSettings &adapter : configuration_.adapters) {
        if (!adapter.javaClass.empty() &&
            std::find(all.begin(), all.end(), adapter.ownEntries()) == all.end()) {
            all.push_back(adapter.ownEntries());
        }
    }
    return all;
}

std::optional<std::string> SettingsCheck::ask(const Paths &own,
                                              const std::vector<std::string> &classes,
                                              const std::string &input) const
{
    std::string classPath;
    for (const Paths *entries : {&installation_.jars, &own, &configuration_.java.classPath}) {
        for (const std::string &entry : *entries) {
            classPath += (classPath.empty() ? "" : ":") + entry;
        }
    }
    const MemoryFile given;
    const MemoryFile answer;
    std::vector<std::string> command = {program_, "-XX:TieredStopAtLevel=1", "-cp", classPath,
                                        "com.qel.ferrion.kit.SettingsTool"};
    command.insert(command.end(), classes.begin(), classes.end());
    if (!given.fill(input) || !runProgram(command, given.descriptor(), answer.descriptor())) {
        return std::nullopt;
    }
    return answer.content();
}

bool SettingsCheck::run(Diagnostics &diagnostics) const
{
    bool answered = true;
    for (const Paths &own : adapterPaths()) {
        answered = run(own, diagnostics) && answered;
    }
    return answered;
}

bool SettingsCheck::run(const Paths &own, Diagnostics &diagnostics) const
{
    std::vector<const PropertySource *> asked;
    std::string question;
    for (const PropertySource &source : configuration_.sources) {
        const std::size_t adapter = source.role == "ADAPTER"
                                        ? source.owner
                                        : configuration_.connections[source.owner].adapter;
        const std::string &javaClass = configuration_.adapters[adapter].javaClass;
        if (javaClass.empty() || configuration_.adapters[adapter].ownEntries() != own) {
            continue;
        }
        asked.push_back(&source);
        appendField(question, dotted(javaClass));
        appendField(question, source.role);
        appendField(question, std::to_string(source.properties.size()));
        for (const auto &[name, value] : source.properties) {
            appendField(question, name);
            appendField(question, value);
        }
    }
    const std::optional<std::string> answer = ask(own, {}, question);
    const std::vector<std::string> fields = fieldsOf(answer.value_or(""));
    for (std::size_t i = 0; i + 2 < fields.size(); i += 3) {
        const PropertySource &source = *asked.at(std::stoul(fields[i]));
        const auto place = source.places.find(fields[i + 1]);
        if (!isTemplate(source.properties, fields[i + 1])) {
            diagnostics.add(place == source.places.end() ? source.place : place->second,
                            source.path + ": " + fields[i + 2]);
        }
    }
    return answer.has_value();
}

std::optional<std::string> SettingsCheck::describe(const std::string &javaClass) const
{
    if (!javaClass.empty()) {
        const auto answer = ask(installation_.adapterJars(javaClass), {javaClass}, "");
        return answer ? std::optional(described(fieldsOf(*answer))) : std::nullopt;
    }
    std::string text;
    for (const Paths &own : adapterPaths()) {
        std::vector<std::string> classes;
        for (const AdapterSettings &adapter : configuration_.adapters) {
            const std::string name = dotted(adapter.javaClass);
            if (!name.empty() && adapter.ownEntries() == own &&
                std::find(classes.begin(), classes.end(), name) == classes.end()) {
                classes.push_back(name);
            }
        }
        const std::optional<std::string> answer = ask(own, classes, "");
        if (!answer) {
            return std::nullopt;
        }
        text += described(fieldsOf(*answer));
    }
    return text;
}

} // namespace ferry
