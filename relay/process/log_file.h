// The log file, which stands in for standard error and goes by its name: who renames it, as
// logrotate does, finds the next line in a new file.
#ifndef FERRY_PROCESS_LOG_FILE_H
#define FERRY_PROCESS_LOG_FILE_H

#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace ferry {

/// One thread at a time.
class LogFile {
public:
    /// Makes the process's standard error go to the file. Returns why not, or "".
    std::string open(const std::filesystem::path &path);
    /// Opens the file again when the name no longer leads to it. While that fails the old one
    /// stays.
    void follow();

    /// Whether the file could be opened and written to; returns why not, or "". Leaves nothing
    /// behind.
    static std::string probe(const std::filesystem::path &path);

private:
    std::filesystem::path path_;
    struct stat identity_ {};
};

} // namespace ferry

#endif
