// The directory that keeps what has to outlive a process: stores, positions, dead letters. One
// process at a time uses it, and its files name what they are for.
//
//   StateDirectory directory(path);
//   StateResult result = directory.open();          made if it is missing, locked for this process
//   path = directory.file({"store", route, output}); never two names alike, whatever they hold
#ifndef FERRY_STATE_STATE_DIRECTORY_H
#define FERRY_STATE_STATE_DIRECTORY_H

#include <filesystem>
#include <string>
#include <vector>

#include "state/result.h"

namespace ferry {

class StateDirectory {
public:
    /// `path` is absolute. Nothing is touched before open().
    explicit StateDirectory(std::filesystem::path path) : path_(std::move(path)) {}
    /// Lets go of the lock.
    ~StateDirectory();
    StateDirectory(const StateDirectory &) = delete;
    StateDirectory &operator=(const StateDirectory &) = delete;

    /// Makes the directory, readable by its owner alone, and takes it for this process. `busy`: the
    /// text names the process that has it. `rejected`: it was made by another version. Once it is
    /// open this does nothing. One thread.
    StateResult open();
    /// Whether open() could make or use it, as far as that can be seen without touching anything.
    /// Another process may have it.
    StateResult probe() const;
    const std::filesystem::path &path() const
    {
        return path_;
    }
    /// The file of the configuration's dead letters.
    std::filesystem::path deadLetters() const
    {
        return path_ / "dead_letters.sqlite";
    }
    /// Where the file is, or would be, whose name is made of these parts. A part may be any text.
    std::filesystem::path file(const std::vector<std::string> &parts) const;

private:
    StateResult lock();
    StateResult checkVersion() const;
    StateResult failure(const std::string &name, int error) const;

    const std::filesystem::path path_;
    int lock_ = -1;
};

} // namespace ferry

#endif
