#include "launcher/new_adapter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "process/exit_code.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

/// What stands in the template for what the user chooses. The template compiles as it is.
constexpr const char *templatePackage = "org.example.template";
constexpr const char *templateClass = "Template";
constexpr const char *templateName = "template";
constexpr const char *templateJars = "/opt/ferryjni/share/ferryjni/java";

constexpr std::array<const char *, 54> javaWords = {
    "_",       "abstract",  "assert",       "boolean",  "break",      "byte",    "case",
    "catch",   "char",      "class",        "const",    "continue",   "default", "do",
    "double",  "else",      "enum",         "extends",  "false",      "final",   "finally",
    "float",   "for",       "goto",         "if",       "implements", "import",  "instanceof",
    "int",     "interface", "long",         "native",   "new",        "null",    "package",
    "private", "protected", "public",       "return",   "short",      "static",  "strictfp",
    "super",   "switch",    "synchronized", "this",     "throw",      "throws",  "transient",
    "true",    "try",       "void",         "volatile", "while"};

bool isIdentifier(const std::string &text)
{
    const auto fits = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
    };
    return !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) == 0 &&
           std::all_of(text.begin(), text.end(), fits) &&
           std::find(javaWords.begin(), javaWords.end(), text) == javaWords.end();
}

/// Those of the JDK, and of what ferry shares among adapters, are taken.
bool isPackage(const std::string &text)
{
    std::istringstream parts(text);
    bool good = !text.empty() && text.back() != '.';
    for (std::string part; std::getline(parts, part, '.');) {
        good = good && isIdentifier(part);
    }
    const std::string whole = text + ".";
    return good && whole.rfind("java.", 0) != 0 && whole.rfind("com.qel.", 0) != 0;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

void replaceAll(std::string &text, const std::string &from, const std::string &to)
{
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

/// One file of the project, complete.
struct ProjectFile {
    fs::path path;
    std::string text;
    bool executable;
};

std::string filled(std::string text, const NewAdapter &adapter, const std::string &jars,
                   char separator)
{
    const auto path = [separator](std::string package) {
        std::replace(package.begin(), package.end(), '.', separator);
        return package;
    };
    std::string name = adapter.name;
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    // What is put in last cannot be taken for a word of the template.
    replaceAll(text, path(templatePackage), "\1");
    replaceAll(text, templateClass, "\2");
    replaceAll(text, templateName, lower(name));
    replaceAll(text, templateJars, jars);
    replaceAll(text, "\2", name);
    replaceAll(text, "\1", path(adapter.package));
    return text;
}

std::vector<ProjectFile> project(const NewAdapter &adapter, const fs::path &root,
                                 const std::string &jars)
{
    std::vector<ProjectFile> files;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file()) {
            std::ostringstream text;
            text << std::ifstream(entry.path()).rdbuf();
            const std::string path = fs::relative(entry.path(), root).string();
            files.push_back(
                {filled(path, adapter, jars, '/'), filled(text.str(), adapter, jars, '.'),
                 (entry.status().permissions() & fs::perms::owner_exec) != fs::perms::none});
        }
    }
    std::sort(files.begin(), files.end(),
              [](const auto &a, const auto &b) { return a.path < b.path; });
    return files;
}

int refuse(const std::string &text)
{
    std::fprintf(stderr, "ferry: %s\n", text.c_str());
    return exitUsage;
}

} // namespace

int makeAdapter(const NewAdapter &wanted, const Installation &installation)
{
    NewAdapter adapter = wanted;
    if (!isIdentifier(adapter.name)) {
        return refuse("\"" + adapter.name +
                      "\" cannot begin the name of a Java class: letters, digits and '_', "
                      "no digit first, no word of the language");
    }
    if (adapter.package.empty()) {
        adapter.package = "org.example." + lower(adapter.name);
    }
    if (!isPackage(adapter.package)) {
        return refuse("\"" + adapter.package + "\" cannot be a Java package of yours");
    }
    const fs::path directory = adapter.directory.empty() ? lower(adapter.name) : adapter.directory;
    const std::vector<ProjectFile> files =
        project(adapter, installation.templates / "adapter", installation.jarDirectory.string());
    for (const ProjectFile &file : files) {
        if (fs::exists(fs::symlink_status(directory / file.path))) {
            return refuse((directory / file.path).string() + " is there already; nothing was made");
        }
    }
    for (const ProjectFile &file : files) {
        const fs::path path = directory / file.path;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << file.text;
        if (file.executable) {
            fs::permissions(path, fs::perms::owner_exec, fs::perm_options::add);
        }
        if (fs::file_size(path) != file.text.size()) {
            return refuse("cannot write " + path.string());
        }
        std::printf("%s\n", path.c_str());
    }
    std::printf("next: cd %s && ./build.sh && ferry run %s.yaml --until-idle\n", directory.c_str(),
                lower(adapter.name).c_str());
    return exitOk;
}

} // namespace ferry
