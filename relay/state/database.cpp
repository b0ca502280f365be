#include "state/database.h"

#include <cstring>

#include <fmt/format.h>

#include "state/files.h"

namespace ferry {
namespace {

/// Larger pages make large slices cheaper and small ones dearer: a commit writes three pages or
/// more.
constexpr int pageSize = 16384;
/// The file grows in such steps.
constexpr int growth = 1 << 20;
/// Of the log, before it goes into the file. What was delivered in the meantime need not.
constexpr int logPages = 1024;
constexpr int cacheKilobytes = 8192;

Fault faultOf(int code)
{
    switch (code & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return Fault::none;
    case SQLITE_FULL:
        return Fault::full;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return Fault::busy;
    case SQLITE_CORRUPT:
        return Fault::corrupt;
    case SQLITE_NOTADB:
        return Fault::foreign;
    case SQLITE_TOOBIG:
        return Fault::rejected;
    default:
        return Fault::io;
    }
}

StateResult resultOf(int code, sqlite3 *database, const std::string &file)
{
    const Fault fault = faultOf(code);
    if (fault == Fault::none) {
        return {};
    }
    if (fault == Fault::busy) {
        return {fault, fmt::format("{}: another process uses the file", file)};
    }
    const int system = database == nullptr ? 0 : sqlite3_system_errno(database);
    const bool known = (fault == Fault::io || fault == Fault::full) && system != 0;
    return {fault, fmt::format("{}: {}{}", file, sqlite3_errstr(code),
                               known ? fmt::format(" ({})", std::strerror(system)) : "")};
}

} // namespace

Query::Query(sqlite3 *database, sqlite3_stmt *statement, const std::string &file, int code)
    : database_(database), statement_(statement), file_(file), code_(code)
{
}

Query::~Query()
{
    if (statement_ != nullptr) {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
}

Query &Query::bind(std::int64_t value)
{
    if (code_ == SQLITE_OK) {
        code_ = sqlite3_bind_int64(statement_, ++bound_, value);
    }
    return *this;
}

Query &Query::bind(std::string_view text)
{
    if (code_ == SQLITE_OK) {
        code_ = sqlite3_bind_text64(statement_, ++bound_, text.data(), text.size(), SQLITE_STATIC,
                                    SQLITE_UTF8);
    }
    return *this;
}

Query &Query::bindBytes(const void *bytes, std::size_t length)
{
    if (code_ == SQLITE_OK) {
        // No bytes are not NULL, whatever their address.
        code_ = sqlite3_bind_blob64(statement_, ++bound_, length == 0 ? "" : bytes, length,
                                    SQLITE_STATIC);
    }
    return *this;
}

bool Query::next()
{
    if (code_ == SQLITE_OK || code_ == SQLITE_ROW) {
        code_ = sqlite3_step(statement_);
    }
    return code_ == SQLITE_ROW;
}

StateResult Query::run()
{
    while (next()) {
    }
    return result();
}

StateResult Query::result() const
{
    return resultOf(code_, database_, file_);
}

std::int64_t Query::integer(int column) const
{
    return sqlite3_column_int64(statement_, column);
}

std::string Query::text(int column) const
{
    const auto value = bytes(column);
    return {value.begin(), value.end()};
}

std::basic_string_view<std::uint8_t> Query::bytes(int column) const
{
    const auto *const value =
        static_cast<const std::uint8_t *>(sqlite3_column_blob(statement_, column));
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return value == nullptr ? std::basic_string_view<std::uint8_t>()
                            : std::basic_string_view<std::uint8_t>(value, length);
}

Database::~Database()
{
    close();
}

StateResult Database::open(const DatabaseFile &file)
{
    close();
    file_ = file;
    name_ = fmt::format("\"{}\"", file.path.string());
    StateResult result = tryOpen();
    if (!result.ok() && setAside(result)) {
        result = tryOpen();
    }
    if (!result.ok()) {
        close(result.fault);
    }
    return result;
}

StateResult Database::tryOpen()
{
    bool empty = false;
    bool secured = false;
    StateResult result = connect();
    if (result.ok()) {
        result = identify(empty);
    }
    if (result.ok()) {
        result = secureLog(secured);
    }
    // What was read of the log before may have been another one.
    if (result.ok() && secured) {
        close(Fault::io);
        result = connect();
        if (result.ok()) {
            result = identify(empty);
        }
    }
    if (result.ok()) {
        result = prepare();
    }
    return result.ok() && empty ? createTables() : result;
}

bool Database::setAside(const StateResult &why, const std::string &details)
{
    const bool foreign = why.fault == Fault::foreign;
    if ((!foreign && why.fault != Fault::corrupt) || !file_.setsAside || !file_.vfs.empty()) {
        return false;
    }
    close(Fault::io);
    const std::filesystem::path name = ferry::setAside(file_.path, foreign ? "foreign" : "damaged");
    if (!name.empty() && file_.notify) {
        file_.notify(fmt::format("{}; the file is now \"{}\"{}", why.text, name.string(), details));
    }
    return !name.empty();
}

StateResult Database::connect()
{
    const int code = sqlite3_open_v2(file_.path.c_str(), &handle_,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE |
                                         SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE,
                                     file_.vfs.empty() ? nullptr : file_.vfs.c_str());
    if (code != SQLITE_OK) {
        return failure(code);
    }
    sqlite3_busy_timeout(handle_, file_.busyMilliseconds);
    int step = growth;
    sqlite3_file_control(handle_, "main", SQLITE_FCNTL_CHUNK_SIZE, &step);
    // Without memory shared with others from the first look on.
    return execute(file_.exclusive ? "PRAGMA locking_mode = EXCLUSIVE" : "");
}

StateResult Database::integer(const char *sql, std::int64_t &value)
{
    Query query = this->query(sql);
    value = query.next() ? query.integer(0) : 0;
    return query.run();
}

/// Nothing of the file is changed before it is known to be ours.
StateResult Database::identify(bool &empty)
{
    std::int64_t id = 0;
    std::int64_t version = 0;
    std::int64_t tables = 0;
    StateResult result = integer("PRAGMA application_id", id);
    if (result.ok()) {
        result = integer("PRAGMA user_version", version);
    }
    if (result.ok()) {
        result = integer("SELECT count(*) FROM sqlite_schema", tables);
    }
    empty = id == 0 && tables == 0;
    if (!result.ok() || empty) {
        return result;
    }
    const DatabaseKind &kind = *file_.kind;
    if (id != kind.applicationId) {
        return {Fault::foreign, fmt::format("{} is no {}", name_, kind.name)};
    }
    if (version != kind.version) {
        return {Fault::rejected,
                fmt::format("the {} {} has version {}, this ferry knows version {} only", kind.name,
                            name_, version, kind.version)};
    }
    return {};
}

StateResult Database::prepare()
{
    // A page that is free need not be cleared: that would write every old row once more.
    const std::string settings =
        fmt::format("PRAGMA page_size = {}; PRAGMA secure_delete = OFF; PRAGMA journal_mode = WAL; "
                    "PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = {}; "
                    "PRAGMA cache_size = -{}",
                    pageSize, logPages, cacheKilobytes);
    StateResult result = execute(settings.c_str());
    std::string mode;
    if (result.ok()) {
        Query query = this->query("PRAGMA journal_mode");
        mode = query.next() ? query.text(0) : "";
        result = query.run();
    }
    if (result.ok() && mode != "wal") {
        return {Fault::io, fmt::format("{}: this file system cannot hold it", name_)};
    }
    return result.ok() ? checkpoint() : result;
}

StateResult Database::createTables()
{
    const DatabaseKind &kind = *file_.kind;
    const std::string marks = fmt::format("PRAGMA application_id = {}; PRAGMA user_version = {}",
                                          kind.applicationId, kind.version);
    Transaction transaction(*this);
    StateResult result = transaction.begin();
    if (result.ok()) {
        result = execute(kind.tables);
    }
    if (result.ok()) {
        result = execute(marks.c_str());
    }
    return result.ok() ? transaction.commit() : result;
}

void Database::close(Fault after)
{
    if (after == Fault::io && isOpen()) {
        sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
    for (const auto &[sql, statement] : statements_) {
        sqlite3_finalize(statement);
    }
    statements_.clear();
    sqlite3_close(handle_);
    handle_ = nullptr;
}

StateResult Database::failure(int code) const
{
    return resultOf(code, handle_, name_);
}

Query Database::query(const char *sql)
{
    sqlite3_stmt *&statement = statements_[sql];
    int code = handle_ == nullptr ? SQLITE_IOERR : SQLITE_OK;
    if (statement == nullptr && code == SQLITE_OK) {
        code = sqlite3_prepare_v3(handle_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    }
    return {handle_, statement, name_, code};
}

StateResult Database::execute(const char *sql)
{
    return failure(sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr));
}

StateResult Database::reserve()
{
    std::int64_t pages = 0;
    std::int64_t size = 0;
    StateResult result = integer("PRAGMA page_count", pages);
    if (result.ok()) {
        result = integer("PRAGMA page_size", size);
    }
    std::int64_t bytes = pages * size;
    const int code = sqlite3_file_control(handle_, "main", SQLITE_FCNTL_SIZE_HINT, &bytes);
    if (code == SQLITE_OK || code == SQLITE_NOTFOUND) {
        return result;
    }
    result = failure(code);
    result.fault = Fault::full;
    return result;
}

StateResult Database::checkpoint(bool giveBack)
{
    int frames = 0;
    const int mode = giveBack ? SQLITE_CHECKPOINT_TRUNCATE : SQLITE_CHECKPOINT_RESTART;
    const int code = sqlite3_wal_checkpoint_v2(handle_, "main", mode, &frames, nullptr);
    return (code & 0xff) == SQLITE_BUSY ? StateResult() : failure(code);
}

Transaction::~Transaction()
{
    if (open_ && database_.isOpen()) {
        database_.execute("ROLLBACK");
    }
}

StateResult Transaction::begin()
{
    StateResult result = database_.query("BEGIN IMMEDIATE").run();
    open_ = result.ok();
    return result;
}

StateResult Transaction::commit()
{
    StateResult result = database_.query("COMMIT").run();
    if (result.ok()) {
        open_ = false;
    } else if (result.fault != Fault::full && result.fault != Fault::busy) {
        database_.close(Fault::io);
    }
    return result;
}

} // namespace ferry
