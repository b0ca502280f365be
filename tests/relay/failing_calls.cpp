// The functions stand in place of those of the libraries, and call them.
#include "failing_calls.h"

#include <dlfcn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace failing {

Failure failure;

namespace {

/// SQLite's own calls of itself are not counted.
thread_local int inside = 0;

bool failsNow()
{
    return failure.at > 0 && --failure.at == 0;
}

template<class Function> Function *theirs(Function *, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

template<class... Values, class... Arguments>
int sqlite(int (*same)(Values...), const char *name, Arguments... arguments)
{
    const bool fails = inside == 0 && failsNow();
    if (fails && !failure.afterwards) {
        return failure.sqlite;
    }
    ++inside;
    const int code = theirs(same, name)(arguments...);
    --inside;
    return fails ? failure.sqlite : code;
}

template<class Result, class... Values, class... Arguments>
Result ofSystem(Result (*same)(Values...), const char *name, Arguments... arguments)
{
    if (failsNow()) {
        errno = failure.system;
        return -1;
    }
    return theirs(same, name)(arguments...);
}

/// While calls fail there is room enough and no power cut, so these do nothing.
template<class... Values, class... Arguments>
int idle(int code, int (*same)(Values...), const char *name, Arguments... arguments)
{
    const bool fails = failsNow();
    return fails ? code : failure.system != 0 ? 0 : theirs(same, name)(arguments...);
}

int sync(int (*same)(int), const char *name, int descriptor)
{
    errno = failure.system != 0 ? failure.system : errno;
    return idle(-1, same, name, descriptor);
}

int control(int (*same)(sqlite3 *, const char *, int, void *), const char *name, sqlite3 *of,
            const char *database, int what, void *value)
{
    const bool isRoom = what == SQLITE_FCNTL_SIZE_HINT || what == SQLITE_FCNTL_CHUNK_SIZE;
    return isRoom ? idle(failure.sqlite, same, name, of, database, what, value)
                  : sqlite(same, name, of, database, what, value);
}

} // namespace
} // namespace failing

#define REPLACE(result, name, parameters, way, ...)                                                \
    extern "C" [[gnu::visibility("default")]] result name parameters                               \
    {                                                                                              \
        return failing::way(name, #name, __VA_ARGS__);                                             \
    }

REPLACE(int, sqlite3_open_v2, (const char *file, sqlite3 **to, int flags, const char *vfs), sqlite,
        file, to, flags, vfs)
REPLACE(int, sqlite3_prepare_v3,
        (sqlite3 * of, const char *sql, int length, unsigned flags, sqlite3_stmt **to,
         const char **rest),
        sqlite, of, sql, length, flags, to, rest)
REPLACE(int, sqlite3_step, (sqlite3_stmt * of), sqlite, of)
REPLACE(int, sqlite3_exec,
        (sqlite3 * of, const char *sql, int (*row)(void *, int, char **, char **), void *data,
         char **error),
        sqlite, of, sql, row, data, error)
REPLACE(int, sqlite3_wal_checkpoint_v2,
        (sqlite3 * of, const char *name, int mode, int *size, int *count), sqlite, of, name, mode,
        size, count)
REPLACE(int, sqlite3_file_control, (sqlite3 * of, const char *name, int what, void *value), control,
        of, name, what, value)
REPLACE(int, fdatasync, (int descriptor), sync, descriptor)
REPLACE(int, fsync, (int descriptor), sync, descriptor)
REPLACE(ssize_t, pwrite, (int descriptor, const void *bytes, size_t count, off_t at), ofSystem,
        descriptor, bytes, count, at)
REPLACE(int, rename, (const char *from, const char *to) noexcept, ofSystem, from, to)
REPLACE(int, mkdir, (const char *path, mode_t mode) noexcept, ofSystem, path, mode)
REPLACE(int, flock, (int descriptor, int operation) noexcept, ofSystem, descriptor, operation)
