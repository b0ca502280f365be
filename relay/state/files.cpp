#include "state/files.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

namespace ferry {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t longestPart = 80;

bool isPlain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

std::uint64_t littleEndian(const std::uint8_t *bytes, std::size_t length)
{
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < length; ++i) {
        word |= std::uint64_t{bytes[i]} << (8 * i);
    }
    return word;
}

std::string timeForNames()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    return text;
}

fs::path withSuffix(const fs::path &file, const std::string &suffix)
{
    return file.parent_path() / (file.filename().string() + suffix);
}

} // namespace

std::uint64_t hashOf(const void *bytes, std::size_t length)
{
    const auto *at = static_cast<const std::uint8_t *>(bytes);
    std::uint64_t hash = 0x9e3779b97f4a7c15ULL ^ length;
    const auto mix = [&hash](std::uint64_t word) {
        hash = (hash ^ word) * 0xff51afd7ed558ccdULL;
        hash ^= hash >> 32;
    };
    for (; length >= 8; at += 8, length -= 8) {
        mix(littleEndian(at, 8));
    }
    mix(littleEndian(at, length));
    return hash;
}

std::string fileNamePart(const std::string &text)
{
    std::string name;
    for (const char c : text) {
        // A name must not begin with a point: such files are hidden, or are directories.
        const bool plain = isPlain(c) && !(c == '.' && name.empty());
        name += plain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    if (name.size() > longestPart) {
        name = fmt::format("{}%~{:016x}", name.substr(0, longestPart),
                           hashOf(text.data(), text.size()));
    }
    return name;
}

int syncDirectory(const fs::path &directory)
{
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    const int error = ::fsync(descriptor) == 0 ? 0 : errno;
    ::close(descriptor);
    return error;
}

fs::path setAside(const fs::path &file, const std::string &why)
{
    const fs::path first = withSuffix(file, fmt::format(".{}-{}", why, timeForNames()));
    fs::path name = first;
    std::error_code error;
    for (int i = 2; fs::exists(fs::symlink_status(name, error)); ++i) {
        name = withSuffix(first, fmt::format("-{}", i));
    }
    // The log first: without it the file is only older, but a file without its log would be read
    // together with that of its successor.
    for (const char *suffix : {"-wal", "-shm", ""}) {
        fs::rename(withSuffix(file, suffix), withSuffix(name, suffix), error);
        if (error && *suffix == '\0') {
            return {};
        }
    }
    syncDirectory(file.parent_path());
    return name;
}

} // namespace ferry
