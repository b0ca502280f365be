// `ferry new adapter`: a project for an adapter of one's own, from the installation's template.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "launcher/installation.h"
#include "launcher/verb.h"
#include "process/exit_code.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

struct NewAdapter {
    /// As the user wrote it: begins the class's name, and in small letters names files.
    std::string name;
    /// "" for org.example.<name>.
    std::string package;
    /// Where to; "" for the name in small letters.
    std::string directory;
    /// C++ in place of Java.
    bool native = false;
};

/// What stands in the template for what the user chooses. The template compiles as it is.
constexpr const char *templatePackage = "org.example.template";
constexpr const char *templateClass = "Template";
constexpr const char *templateName = "template";
constexpr const char *templateJars = "/opt/ferryjni/share/ferryjni/java";
constexpr const char *templatePrefix = "/opt/ferryjni";

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

std::string filled(std::string text, const NewAdapter &adapter, const fs::path &jars,
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
    replaceAll(text, templateJars, jars.string());
    replaceAll(text, templatePrefix, jars.parent_path().parent_path().parent_path().string());
    replaceAll(text, "\2", name);
    replaceAll(text, "\1", path(adapter.package));
    return text;
}

std::vector<ProjectFile> project(const NewAdapter &adapter, const fs::path &root,
                                 const fs::path &jars)
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

int reject(const std::string &text)
{
    std::fprintf(stderr, "ferry: %s\n", text.c_str());
    return exitUsage;
}

/// Makes the project, or nothing where a file of it is there already; returns the exit code.
int makeAdapter(const NewAdapter &wanted, const Installation &installation)
{
    NewAdapter adapter = wanted;
    if (!isIdentifier(adapter.name)) {
        return reject(
            fmt::format("\"{}\" cannot begin the name of a Java class: letters, digits and "
                        "'_', no digit first, no word of the language",
                        adapter.name));
    }
    if (adapter.package.empty()) {
        adapter.package = "org.example." + lower(adapter.name);
    }
    if (!isPackage(adapter.package)) {
        return reject(fmt::format("\"{}\" cannot be a Java package of yours", adapter.package));
    }
    const fs::path directory = adapter.directory.empty() ? lower(adapter.name) : adapter.directory;
    const std::vector<ProjectFile> files =
        project(adapter, installation.templates / (adapter.native ? "native-adapter" : "adapter"),
                installation.jarDirectory);
    for (const ProjectFile &file : files) {
        if (fs::exists(fs::symlink_status(directory / file.path))) {
            return reject(fmt::format("{} is there already; nothing was made",
                                      (directory / file.path).string()));
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
            return reject(fmt::format("cannot write {}", path.string()));
        }
        std::printf("%s\n", path.c_str());
    }
    std::printf("next: cd %s && ./build.sh && ferry run %s.yaml --until-idle\n", directory.c_str(),
                lower(adapter.name).c_str());
    return exitOk;
}

class NewAdapterVerb : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("NAME", adapter_.name, "Begins the name of the class")->required();
        command.add_option("--package", adapter_.package,
                           "Its Java package (default org.example.NAME)");
        command.add_flag("--native", adapter_.native, "In C++, without Java");
        command.add_option("DIR", adapter_.directory, "Where to (default NAME in small letters)");
    }

    int run() override
    {
        return makeAdapter(adapter_, findInstallation());
    }

private:
    NewAdapter adapter_;
};

const RegisteredVerb<NewAdapterVerb>
    registered("new adapter",
               "Make a project for an adapter in Java or C++, which can be built and run at once");

} // namespace
} // namespace ferry
