// One SQLite file: opened for durable commits, its failures as results. A database and its queries
// are used by one thread at a time.
//
// What a commit has returned for is on the disk. After a commit that failed in a write or a sync
// nobody knows what the disk has. What is read of the log may be in the system's memory only, and
// the system does not write it any more: a power cut would bring back an older log beside a file
// that has parts of the newer one. So the connection is closed at once, and the log is not
// brought into the file. Whoever goes on opens the file again, and asks it: the open writes the log
// once more as it reads, and syncs it, before the log goes into the file. Another process that has
// a shared file open at that moment, and closes it as the last one, does not know of the failure.
#ifndef FERRY_STATE_DATABASE_H
#define FERRY_STATE_DATABASE_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "state/result.h"

namespace ferry {

/// A kind of file: what it is called, and how one is made and known again.
struct DatabaseKind {
    /// As in messages: "store".
    const char *name;
    std::int64_t applicationId;
    std::int64_t version;
    /// Statements that make the tables.
    const char *tables;
};

struct DatabaseFile {
    const DatabaseKind *kind = nullptr;
    std::filesystem::path path;
    /// A virtual file system that is registered with SQLite; "" for SQLite's own.
    std::string vfs = {};
    /// Whether this process alone may open the file. That needs no memory shared with others.
    bool exclusive = false;
    /// How long to wait for others that hold the file.
    int busyMilliseconds = 2000;
    /// Whether a damaged or foreign file gets another name; else it is an error.
    bool setsAside = true;
    /// Told about a file that was set aside.
    std::function<void(const std::string &)> notify = {};
};

/// A statement under way. Values are bound in their order; texts and bytes are not copied, so they
/// must outlive the query.
class Query {
public:
    Query(sqlite3 *database, sqlite3_stmt *statement, const std::string &file, int code);
    ~Query();
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    Query &bind(std::int64_t value);
    Query &bind(std::string_view text);
    Query &bindBytes(const void *bytes, std::size_t length);

    /// Whether there is another row; false as well after a failure, see result().
    bool next();
    /// Runs it to its end.
    StateResult run();
    StateResult result() const;

    /// Of the present row, counted from 0. Bytes are valid until the next row.
    std::int64_t integer(int column) const;
    std::string text(int column) const;
    std::basic_string_view<std::uint8_t> bytes(int column) const;

private:
    sqlite3 *const database_;
    sqlite3_stmt *const statement_;
    const std::string &file_;
    int bound_ = 0;
    int code_;
};

class Database {
public:
    Database() = default;
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    /// Opens the file, or makes it. What an earlier process or connection left in the log is in the
    /// file afterwards, synced, also if a sync of the log has failed. A damaged or foreign file
    /// gets another name, and a new one is made.
    StateResult open(const DatabaseFile &file);
    /// Closes the file and gives it, as it is, a name that says when and why. Its log goes with it.
    /// `details` go behind the message. False if that is not possible.
    bool setAside(const StateResult &why, const std::string &details = "");
    /// The log goes into the file, unless that is closed `after` a write or a sync that failed.
    void close(Fault after = Fault::none);
    bool isOpen() const
    {
        return handle_ != nullptr;
    }

    /// A statement, which is kept for the next time. `sql` is a literal: its address is its name.
    Query query(const char *sql);
    /// One statement or several without values and rows.
    StateResult execute(const char *sql);
    /// Sees to it that a commit of what is written by now cannot run out of room when the log goes
    /// into the file.
    StateResult reserve();
    /// Brings the log into the file, so that its space is used again: by later commits, or with
    /// `giveBack` by anything on the disk.
    StateResult checkpoint(bool giveBack = false);

    const std::string &name() const
    {
        return name_;
    }

private:
    StateResult tryOpen();
    StateResult connect();
    StateResult identify(bool &empty);
    StateResult secureLog(bool &any);
    StateResult prepare();
    StateResult createTables();
    StateResult integer(const char *sql, std::int64_t &value);
    StateResult failure(int code) const;

    DatabaseFile file_;
    sqlite3 *handle_ = nullptr;
    /// The file's path in quotes, for messages.
    std::string name_;
    std::map<const char *, sqlite3_stmt *> statements_;
};

/// Rolls back unless it is committed.
class Transaction {
public:
    explicit Transaction(Database &database) : database_(database) {}
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    StateResult begin();
    /// Returns once all is synced. After a failure nothing of the transaction is taken as done. If
    /// there was no room, the database goes on; after any other failure it is closed.
    StateResult commit();

private:
    Database &database_;
    bool open_ = false;
};

} // namespace ferry

#endif
