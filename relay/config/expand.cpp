#include "config/expand.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include <fmt/format.h>

namespace ferry {
namespace {

constexpr std::string_view variable = "env:";
constexpr std::string_view file = "file:";
/// Far beyond any password or certificate.
constexpr std::size_t largestFile = std::size_t{1} << 20;

bool startsWith(const std::string &text, std::string_view start)
{
    return text.compare(0, start.size(), start) == 0;
}

/// Both return what is missing, or "".
std::string readVariable(const std::string &name, std::string &value)
{
    const char *const found = std::getenv(name.c_str());
    value = found == nullptr ? "" : found;
    return found == nullptr ? fmt::format("needs {}, which the environment does not have", name)
                            : "";
}

std::string readFile(const std::filesystem::path &path, std::string &value)
{
    std::ifstream in(path, std::ios::binary);
    const int error = errno;
    std::error_code failed;
    if (!in || std::filesystem::is_directory(path, failed)) {
        return fmt::format("needs the file \"{}\": {}", path.string(),
                           in ? "a directory" : std::strerror(error));
    }
    value.resize(largestFile + 1);
    in.read(value.data(), static_cast<std::streamsize>(value.size()));
    value.resize(static_cast<std::size_t>(in.gcount()));
    if (value.size() > largestFile) {
        return fmt::format("needs the file \"{}\", which has more than {} bytes", path.string(),
                           largestFile);
    }
    value.erase(value.find_last_not_of("\r\n") + 1);
    return "";
}

} // namespace

std::string expand(std::string &text, const std::string &directory)
{
    std::string missing;
    for (std::size_t at = 0; (at = text.find("${", at)) != std::string::npos;) {
        const std::size_t end = text.find('}', at);
        if (end == std::string::npos) {
            break;
        }
        const std::string name = text.substr(at + 2, end - at - 2);
        std::string value;
        std::string problem;
        if (name == "config_dir") {
            value = directory;
        } else if (startsWith(name, variable)) {
            problem = readVariable(name.substr(variable.size()), value);
        } else if (startsWith(name, file)) {
            problem = readFile(std::filesystem::path(directory) / name.substr(file.size()), value);
        } else {
            at = end;
            continue;
        }
        missing = problem.empty() ? missing : problem;
        text.replace(at, end + 1 - at, value);
        at += value.size();
    }
    return missing;
}

} // namespace ferry
