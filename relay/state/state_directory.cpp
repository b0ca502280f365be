#include "state/state_directory.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "state/files.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

constexpr const char version[] = "1\n";
constexpr const char lockName[] = "lock";
constexpr const char versionName[] = "version";

/// The first bytes of a small file; "" if there are none.
std::string contentOf(int descriptor)
{
    char text[64];
    const ssize_t length = ::pread(descriptor, text, sizeof text, 0);
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : "";
}

bool writeAll(int descriptor, const std::string &text)
{
    return ::pwrite(descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

std::string withoutNewline(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

/// A file that holds the text, whole or not at all; 0 or an errno.
int makeFile(const fs::path &file, const std::string &text)
{
    const fs::path fresh = file.string() + ".new";
    const int descriptor = ::open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return errno;
    }
    int error = writeAll(descriptor, text) && ::fsync(descriptor) == 0 ? 0 : errno;
    ::close(descriptor);
    if (error == 0 && std::rename(fresh.c_str(), file.c_str()) != 0) {
        error = errno;
    }
    return error != 0 ? error : syncDirectory(file.parent_path());
}

} // namespace

StateDirectory::~StateDirectory()
{
    if (lock_ >= 0) {
        ::close(lock_);
    }
}

StateResult StateDirectory::open()
{
    if (lock_ >= 0) {
        return {};
    }
    if (::mkdir(path_.c_str(), 0700) == 0) {
        syncDirectory(path_.parent_path());
    } else if (errno != EEXIST) {
        return failure("", errno);
    }
    StateResult result = lock();
    if (result.ok()) {
        result = checkVersion();
    }
    if (!result.ok() && lock_ >= 0) {
        ::close(lock_);
        lock_ = -1;
    }
    return result;
}

StateResult StateDirectory::probe() const
{
    std::error_code error;
    const bool there = fs::exists(path_, error);
    const fs::path &place = there ? path_ : path_.parent_path();
    if (::access(place.c_str(), W_OK | X_OK) != 0) {
        return failure("", errno);
    }
    return there && fs::exists(path_ / versionName, error) ? checkVersion() : StateResult();
}

/// The lock goes with the process, however that ends. What stands in the file is for people.
StateResult StateDirectory::lock()
{
    const int descriptor = ::open((path_ / lockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return failure(lockName, errno);
    }
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        const std::string owner = withoutNewline(contentOf(descriptor));
        ::close(descriptor);
        if (error != EWOULDBLOCK) {
            return failure(lockName, error);
        }
        return {Fault::busy, fmt::format("the state directory \"{}\" is in use by process {}",
                                         path_.string(), owner.empty() ? "?" : owner)};
    }
    lock_ = descriptor;
    // On a full disk the number is missing from the message above, no more.
    if (::ftruncate(lock_, 0) == 0) {
        writeAll(lock_, fmt::format("{}\n", ::getpid()));
    }
    return {};
}

StateResult StateDirectory::checkVersion() const
{
    const fs::path file = path_ / versionName;
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        const int error = errno == ENOENT ? makeFile(file, version) : errno;
        return error == 0 ? StateResult() : failure(versionName, error);
    }
    const std::string found = contentOf(descriptor);
    ::close(descriptor);
    if (found == version) {
        return {};
    }
    return {Fault::rejected,
            fmt::format("the state directory \"{}\" has version \"{}\", this ferry knows version "
                        "\"{}\" only",
                        path_.string(), withoutNewline(found), withoutNewline(version))};
}

StateResult StateDirectory::failure(const std::string &name, int error) const
{
    const bool full = error == ENOSPC || error == EDQUOT;
    const fs::path about = name.empty() ? path_ : path_ / name;
    return {full ? Fault::full : Fault::io,
            fmt::format("state directory: \"{}\": {}", about.string(), std::strerror(error))};
}

fs::path StateDirectory::file(const std::vector<std::string> &parts) const
{
    std::string name;
    for (const std::string &part : parts) {
        // Escaped parts hold no tilde that begins one: only the hash of a long one has it.
        name += (name.empty() ? "" : "~") + fileNamePart(part);
    }
    return path_ / (name + ".db");
}

} // namespace ferry
