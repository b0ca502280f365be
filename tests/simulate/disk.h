// A disk in memory, as a virtual file system of SQLite. What was not synced may be lost, kept or
// torn in a crash, each write for itself; a failed sync loses some of what it covered.
#ifndef TESTS_SIMULATE_DISK_H
#define TESTS_SIMULATE_DISK_H

#include <algorithm>
#include <cstring>

#include <sqlite3.h>

#include "world.h"

namespace simulate {

inline bool isNoRoom(Trouble trouble)
{
    return trouble == Trouble::shortCount || trouble == Trouble::lies;
}

inline bool isBroken(Trouble trouble)
{
    return trouble == Trouble::throws || trouble == Trouble::partial;
}

class Disk;
/// The one that there is.
inline Disk *g_disk = nullptr;

/// The operations return SQLite's codes.
class Disk {
public:
    explicit Disk(World &owner) : world(owner)
    {
        g_disk = this;
        // Chance begins anew there, too.
        sqlite3_randomness(0, nullptr);
    }
    ~Disk()
    {
        g_disk = nullptr;
    }

    /// As SQLite knows it: the disk that was made last.
    static const char *vfs();

    World &world;
    /// After a crash nothing reaches it until it is there again.
    bool isDead = false;
    /// Short counts and lies: no room. Throws and partial counts: a write or a sync fails.
    Troubles troubles;

    /// After a crash: what is left is what was synced, and some of the rest.
    void reboot()
    {
        isDead = false;
        for (auto &[name, file] : files_) {
            for (File::Change &change : file.changes) {
                const int fate = world.chance.below(3);
                if (fate == 2 && !change.bytes.empty()) {
                    change.bytes.resize(world.chance.below(change.bytes.size()) / 512 * 512);
                }
                if (fate > 0) {
                    apply(change, file.synced);
                }
            }
            file.changes.clear();
            file.seen = file.synced;
            file.doubtful = false;
        }
    }

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
    File *open(const std::string &name, bool create)
    {
        return !isDead && (create || has(name)) ? &files_[name] : nullptr;
    }
    bool has(const std::string &name) const
    {
        const auto found = files_.find(name);
        return found != files_.end() && !found->second.seen.empty();
    }
    int read(File &file, void *to, int count, sqlite3_int64 at)
    {
        const auto wanted = static_cast<std::size_t>(count);
        const std::size_t from = std::min(static_cast<std::size_t>(at), file.seen.size());
        const std::size_t there = std::min(wanted, file.seen.size() - from);
        std::memset(to, 0, wanted);
        std::copy_n(file.seen.data() + from, there, static_cast<std::uint8_t *>(to));
        return isDead ? SQLITE_IOERR_READ : there < wanted ? SQLITE_IOERR_SHORT_READ : SQLITE_OK;
    }
    int write(File &file, const void *from, int count, sqlite3_int64 to)
    {
        if (isDead) {
            return SQLITE_IOERR_WRITE;
        }
        const auto at = static_cast<std::size_t>(to);
        const Trouble trouble = troubles.next(world);
        const bool fails = isBroken(trouble);
        const bool full =
            isNoRoom(trouble) && at + static_cast<std::size_t>(count) > file.seen.size();
        const bool crash = crashes();
        const bool torn = crash || trouble == Trouble::partial;
        const auto *const bytes = static_cast<const std::uint8_t *>(from);
        if (torn) {
            count = world.chance.below(count);
        }
        if (torn || (!full && !fails)) {
            add(file, {at, {bytes, bytes + count}, false});
        }
        return full && !crash ? SQLITE_FULL : torn || fails ? SQLITE_IOERR_WRITE : SQLITE_OK;
    }
    int cut(File &file, sqlite3_int64 size)
    {
        if (crashes()) {
            return SQLITE_IOERR_TRUNCATE;
        }
        add(file, {static_cast<std::size_t>(size), {}, true});
        return SQLITE_OK;
    }
    int control(File &file, int operation, void *argument)
    {
        if (operation != SQLITE_FCNTL_SIZE_HINT) {
            return SQLITE_NOTFOUND;
        }
        const sqlite3_int64 size = *static_cast<sqlite3_int64 *>(argument);
        if (isDead || static_cast<std::size_t>(size) <= file.seen.size()) {
            return isDead ? SQLITE_IOERR_WRITE : SQLITE_OK;
        }
        return isNoRoom(troubles.next(world)) ? SQLITE_FULL : cut(file, size);
    }
    int sync(File &file, int)
    {
        if (crashes()) {
            return SQLITE_IOERR_FSYNC;
        }
        const bool fails = isBroken(troubles.next(world));
        for (const File::Change &change : file.changes) {
            if (!fails || world.chance.oneIn(2)) {
                apply(change, file.synced);
            }
        }
        file.changes.clear();
        file.doubtful = file.doubtful || fails;
        world.trace("disk: a sync{}", fails ? " fails" : "");
        return fails ? SQLITE_IOERR_FSYNC : SQLITE_OK;
    }
    int measure(File &file, sqlite3_int64 *size)
    {
        *size = static_cast<sqlite3_int64>(file.seen.size());
        return SQLITE_OK;
    }
    int remove(const std::string &name)
    {
        return crashes()                 ? SQLITE_IOERR_DELETE
               : files_.erase(name) == 0 ? SQLITE_IOERR_DELETE_NOENT
                                         : SQLITE_OK;
    }
    /// What is only in memory may be gone when the file is opened again.
    int close(File &file)
    {
        if (file.doubtful && file.changes.empty() && !isDead && world.chance.oneIn(2)) {
            file.seen = file.synced;
            file.doubtful = false;
        }
        return SQLITE_OK;
    }

private:
    bool crashes()
    {
        isDead = isDead || world.crashes();
        return isDead;
    }
    static void apply(const File::Change &change, Bytes &bytes)
    {
        const std::size_t end = change.at + change.bytes.size();
        if (change.cuts || bytes.size() < end) {
            bytes.resize(end);
        }
        std::copy(change.bytes.begin(), change.bytes.end(),
                  bytes.begin() + static_cast<std::ptrdiff_t>(change.at));
    }
    static void add(File &file, File::Change change)
    {
        apply(change, file.seen);
        file.changes.push_back(std::move(change));
    }

    std::map<std::string, File> files_;
};

struct Handle : sqlite3_file {
    Disk::File *file;
};

/// As SQLite calls what a disk does with a file that is open.
template<auto operation, class... Arguments>
int onFile(sqlite3_file *handle, Arguments... arguments)
{
    return (g_disk->*operation)(*static_cast<Handle *>(handle)->file, arguments...);
}

inline sqlite3_io_methods fileMethods()
{
    sqlite3_io_methods methods{};
    methods.iVersion = 1;
    methods.xClose = onFile<&Disk::close>;
    methods.xRead = onFile<&Disk::read>;
    methods.xWrite = onFile<&Disk::write>;
    methods.xTruncate = onFile<&Disk::cut>;
    methods.xSync = onFile<&Disk::sync>;
    methods.xFileSize = onFile<&Disk::measure>;
    methods.xFileControl = onFile<&Disk::control>;
    methods.xLock = methods.xUnlock = [](sqlite3_file *, int) { return SQLITE_OK; };
    methods.xCheckReservedLock = [](sqlite3_file *, int *reserved) { return *reserved = 0; };
    methods.xSectorSize = [](sqlite3_file *) { return 4096; };
    methods.xDeviceCharacteristics = [](sqlite3_file *) {
        return SQLITE_IOCAP_POWERSAFE_OVERWRITE;
    };
    return methods;
}

inline int openFile(sqlite3_vfs *, const char *name, sqlite3_file *handle, int flags, int *out)
{
    static const sqlite3_io_methods methods = fileMethods();
    Disk::File *const file = g_disk->open(name, (flags & SQLITE_OPEN_CREATE) != 0);
    handle->pMethods = file == nullptr ? nullptr : &methods;
    static_cast<Handle *>(handle)->file = file;
    if (out != nullptr) {
        *out = flags;
    }
    return file == nullptr ? SQLITE_CANTOPEN : SQLITE_OK;
}

inline sqlite3_vfs makeSystem()
{
    sqlite3_vfs system{};
    system.iVersion = 1;
    system.szOsFile = sizeof(Handle);
    system.mxPathname = 200;
    system.zName = "simulated";
    system.xOpen = openFile;
    system.xDelete = [](sqlite3_vfs *, const char *name, int) { return g_disk->remove(name); };
    system.xAccess = [](sqlite3_vfs *, const char *name, int, int *there) {
        *there = g_disk->has(name) ? 1 : 0;
        return SQLITE_OK;
    };
    system.xFullPathname = [](sqlite3_vfs *, const char *name, int size, char *path) {
        sqlite3_snprintf(size, path, "%s", name);
        return SQLITE_OK;
    };
    system.xRandomness = [](sqlite3_vfs *, int count, char *to) {
        std::fill_n(to, count, '\x2a');
        return count;
    };
    system.xSleep = [](sqlite3_vfs *, int microseconds) { return microseconds; };
    system.xCurrentTime = [](sqlite3_vfs *, double *julianDay) {
        *julianDay = 2461000;
        return SQLITE_OK;
    };
    return system;
}

inline const char *Disk::vfs()
{
    static sqlite3_vfs system = makeSystem();
    static const int registered = sqlite3_vfs_register(&system, 0);
    return registered == SQLITE_OK ? system.zName : nullptr;
}

} // namespace simulate

#endif
