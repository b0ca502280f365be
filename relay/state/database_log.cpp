// Making sure of a log that an earlier connection has left.
#include <algorithm>
#include <memory>

#include "state/database.h"

namespace ferry {
namespace {

/// The log as a file of SQLite's file system, beside SQLite itself, which holds the lock.
class LogFile {
public:
    explicit LogFile(sqlite3 *database)
        : path_(sqlite3_filename_wal(sqlite3_db_filename(database, "main")))
    {
        code_ = sqlite3_file_control(database, "main", SQLITE_FCNTL_VFS_POINTER, &system_);
    }
    ~LogFile()
    {
        if (file_ != nullptr && file_->pMethods != nullptr) {
            file_->pMethods->xClose(file_);
        }
    }
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    /// SQLite's code.
    int code() const
    {
        return code_;
    }
    /// False as well after a failure.
    bool isThere()
    {
        int there = 0;
        if (code_ == SQLITE_OK) {
            code_ = system_->xAccess(system_, path_, SQLITE_ACCESS_EXISTS, &there);
        }
        return code_ == SQLITE_OK && there != 0;
    }
    /// Writes each byte as it reads it. Only what is written anew is written by a sync that comes
    /// after a failed one.
    void rewrite()
    {
        // The largest page: SQLite's own system writes no more than 128 KiB at once.
        constexpr sqlite3_int64 step = 1 << 16;
        sqlite3_int64 size = 0;
        open();
        run([&] { return file_->pMethods->xFileSize(file_, &size); });
        const std::unique_ptr<char[]> bytes(new char[static_cast<std::size_t>(step)]);
        for (sqlite3_int64 at = 0; at < size && code_ == SQLITE_OK; at += step) {
            const int count = static_cast<int>(std::min(step, size - at));
            run([&] { return file_->pMethods->xRead(file_, bytes.get(), count, at); });
            run([&] { return file_->pMethods->xWrite(file_, bytes.get(), count, at); });
        }
        run([&] { return file_->pMethods->xSync(file_, SQLITE_SYNC_NORMAL); });
    }

private:
    void open()
    {
        memory_.reset(new char[static_cast<std::size_t>(system_->szOsFile)]());
        file_ = reinterpret_cast<sqlite3_file *>(memory_.get());
        constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_WAL;
        run([&] { return system_->xOpen(system_, path_, file_, flags, nullptr); });
    }
    template<class Call> void run(Call &&call)
    {
        code_ = code_ == SQLITE_OK ? call() : code_;
    }

    const char *const path_;
    sqlite3_vfs *system_ = nullptr;
    std::unique_ptr<char[]> memory_;
    sqlite3_file *file_ = nullptr;
    int code_;
};

} // namespace

/// `any`: there was a log. Nobody else writes it meanwhile. If the file is in use all the same,
/// whoever uses it has made sure of the log.
StateResult Database::secureLog(bool &any)
{
    LogFile log(handle_);
    any = log.isThere();
    if (!any) {
        return failure(log.code());
    }
    Transaction transaction(*this);
    StateResult result = transaction.begin();
    if (!result.ok()) {
        any = false;
        return result.fault == Fault::busy ? StateResult() : result;
    }
    log.rewrite();
    return failure(log.code());
}

} // namespace ferry
