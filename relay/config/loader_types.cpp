// The sections that say what exists before any adapter: types, log, java.
#include <algorithm>

#include <fmt/format.h>

#include "config/keys.h"
#include "config/loader.h"
#include "qddsc/type_code.h"

namespace ferry {
namespace fs = std::filesystem;

void Loader::readTypes(const YAML::Node &node)
{
    if (!node.IsDefined() || node.IsNull()) {
        return;
    }
    if (!node.IsSequence()) {
        diagnostics_.add(placeOf(node),
                         "types must be a list of \"- file: ...\" or \"- idl: ...\"");
        typesBroken_ = true;
        return;
    }
    for (std::size_t i = 0; i < node.size(); ++i) {
        readType(node[i], fmt::format("types[{}]", i));
    }
}

void Loader::readType(const YAML::Node &node, const std::string &path)
{
    const Section section(diagnostics_, node, path, keys::ofType);
    const bool hasFile = section.has("file");
    if (hasFile == section.has("idl")) {
        diagnostics_.add(section.place(),
                         fmt::format("{} must have either \"file\" or \"idl\"", path));
        typesBroken_ = true;
        return;
    }
    if (!hasFile) {
        if (const auto text = section.text("idl")) {
            addInlineType(section.find("idl"), *text);
        }
        return;
    }
    if (const auto file = section.text("file")) {
        DDS_ErrorText error{};
        const fs::path path_ = absolute(*file);
        if (DDS_TypeLibrary_add_idl_file(types_.get(), path_.c_str(), &error) == 0) {
            diagnostics_.addForeign(placeOf(section.find("file")), error.text);
            typesBroken_ = true;
        }
    }
}

/// A block text keeps its lines, so empty lines in front of it make the compiler's line numbers
/// those of the configuration file. (Columns start where the block's indentation ends.)
void Loader::addInlineType(const YAML::Node &node, const std::string &text)
{
    const Place place = placeOf(node);
    const std::string firstLine = text.substr(0, text.find('\n'));
    std::size_t lineStart = 0;
    for (int line = 1; line <= place.line; ++line) {
        lineStart = text_.find('\n', lineStart);
        lineStart = lineStart == std::string::npos ? lineStart : lineStart + 1;
    }
    std::string padded = text;
    if (lineStart != std::string::npos) {
        const std::string next = text_.substr(lineStart, text_.find('\n', lineStart) - lineStart);
        if (next.size() > firstLine.size() &&
            next.substr(next.size() - firstLine.size()) == firstLine) {
            padded.insert(0, static_cast<std::size_t>(place.line), '\n');
        }
    }
    DDS_ErrorText error{};
    if (DDS_TypeLibrary_add_idl_text(types_.get(), padded.c_str(), diagnostics_.file().c_str(),
                                     &error) == 0) {
        diagnostics_.addForeign(place, error.text);
        typesBroken_ = true;
    }
}

void Loader::readLog(const YAML::Node &node)
{
    const Section section(diagnostics_, node, "log", keys::ofLog);
    configuration_.log.level = static_cast<LogLevel>(*section.choice("level"));
    if (const auto file = section.text("file")) {
        configuration_.log.file = absolute(*file);
        configuration_.log.place = placeOf(section.find("file"));
    }
}

void Loader::readJava(const YAML::Node &node)
{
    const Section section(diagnostics_, node, "java", keys::ofJava);
    if (const auto home = section.text("home")) {
        configuration_.java.home = absolute(*home);
    }
    readClassPath(section, configuration_.java.classPath);
    readJavaOptions(section.find("options"), section.pathOf("options"));
}

/// A directory stands for itself and for every jar in it: the VM does not expand a `*` that it is
/// given by a host.
void Loader::readClassPath(const Section &section, std::vector<std::string> &classPath)
{
    const std::string key = section.pathOf("class_path");
    for (const auto &[entry, place] : readTexts(diagnostics_, section.find("class_path"), key)) {
        const fs::path path = absolute(entry);
        std::error_code error;
        if (entry.find(':') != std::string::npos) {
            diagnostics_.add(
                place, fmt::format("{} takes one file or directory per entry; \"{}\" holds a ':'",
                                   key, entry));
            continue;
        }
        if (!fs::exists(path, error)) {
            diagnostics_.add(place, fmt::format("{}: there is no {}", key, path.string()));
            continue;
        }
        classPath.push_back(path.string());
        if (fs::is_directory(path, error)) {
            std::vector<std::string> jars;
            for (const auto &file : fs::directory_iterator(path, error)) {
                if (file.path().extension() == ".jar") {
                    jars.push_back(file.path().string());
                }
            }
            std::sort(jars.begin(), jars.end());
            classPath.insert(classPath.end(), jars.begin(), jars.end());
        }
    }
}

void Loader::readJavaOptions(const YAML::Node &node, const std::string &path)
{
    for (const auto &[option, place] : readTexts(diagnostics_, node, path)) {
        const auto starts = [&, &text = option](const char *word) {
            return text.rfind(word, 0) == 0;
        };
        if (option[0] != '-') {
            diagnostics_.add(
                place,
                fmt::format(
                    "\"{}\" is no option of the Java VM: options start with '-', one per entry",
                    option));
        } else if (starts("-Djava.class.path") || option == "-cp" || option == "-classpath" ||
                   starts("--class-path")) {
            diagnostics_.add(place,
                             "the class path is set with java.class_path, not with an option");
        } else {
            configuration_.java.options.push_back(option);
        }
    }
}

} // namespace ferry
