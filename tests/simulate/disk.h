// A disk in memory, as a virtual file system of SQLite. What was not synced may be lost, kept or
// torn in a crash, each write for itself; a failed sync loses some of what it covered.
#ifndef TESTS_SIMULATE_DISK_H
#define TESTS_SIMULATE_DISK_H

#include "world.h"

namespace simulate {

/// The operations return SQLite's codes.
class Disk {
public:
    explicit Disk(World &owner);
    ~Disk();

    /// As SQLite knows it: the disk that was made last.
    static const char *vfs();

    World &world;
    /// Short counts and lies: no room. Throws and partial counts: a write or a sync fails.
    Troubles troubles;

    /// From now on nothing reaches the disk.
    void crash()
    {
        dead_ = true;
    }
    bool isDead() const
    {
        return dead_;
    }
    /// After a crash: what is left is what was synced, and some of the rest.
    void reboot();

    using Bytes = std::vector<std::uint8_t>;
    struct File {
        struct Change {
            std::size_t at;
            Bytes bytes;
            /// The file ends at `at`.
            bool cuts;
        };
        /// What a process reads, and what is on the disk for sure.
        Bytes seen;
        Bytes synced;
        std::vector<Change> changes;
        /// A sync has failed: some of what is seen is in memory only, and not going to be written.
        bool doubtful = false;
    };

    /// Null if there is none, or nothing can be opened.
    File *open(const std::string &name, bool create);
    bool has(const std::string &name) const;
    int read(const File &file, void *to, std::size_t count, std::size_t at) const;
    int write(File &file, const void *from, std::size_t count, std::size_t at);
    int cut(File &file, std::size_t size);
    int reserve(File &file, std::size_t size);
    int sync(File &file);
    int remove(const std::string &name);
    void close(File &file);

private:
    bool crashes();
    static void apply(const File::Change &change, Bytes &bytes);
    static void add(File &file, File::Change change);

    std::map<std::string, File> files_;
    bool dead_ = false;
};

} // namespace simulate

#endif
