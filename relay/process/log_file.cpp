#include "process/log_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace ferry {
namespace {

constexpr int appending = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY;

std::string reason()
{
    return std::strerror(errno);
}

} // namespace

std::string LogFile::open(const std::filesystem::path &path)
{
    const int file = ::open(path.c_str(), appending | O_CREAT, 0644);
    if (file < 0) {
        return reason();
    }
    std::string failure;
    if (fstat(file, &identity_) != 0 || dup2(file, STDERR_FILENO) < 0) {
        failure = reason();
    } else {
        path_ = path;
    }
    close(file);
    return failure;
}

void LogFile::follow()
{
    struct stat now {};
    const bool same =
        path_.empty() || (stat(path_.c_str(), &now) == 0 && now.st_dev == identity_.st_dev &&
                          now.st_ino == identity_.st_ino);
    if (!same) {
        open(path_);
    }
}

std::string LogFile::probe(const std::filesystem::path &path)
{
    const int made = ::open(path.c_str(), appending | O_CREAT | O_EXCL, 0644);
    const int file = made >= 0 || errno != EEXIST ? made : ::open(path.c_str(), appending);
    if (file < 0) {
        return reason();
    }
    std::string failure;
    struct statvfs space {};
    if (made >= 0 ? write(made, "\n", 1) != 1 : fstatvfs(file, &space) != 0) {
        failure = reason();
    } else if (made < 0 && space.f_blocks > 0 && space.f_bavail == 0) {
        failure = std::strerror(ENOSPC);
    }
    close(file);
    if (made >= 0) {
        unlink(path.c_str());
    }
    return failure;
}

} // namespace ferry
