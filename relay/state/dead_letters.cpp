#include "state/dead_letters.h"

#include <chrono>

#include <fmt/format.h>

#include "state/sample_json.h"
#include "state/type_text.h"

namespace ferry {
namespace {

/// Of a longer text the beginning is kept; the bytes are whole in any case.
constexpr std::size_t longestText = 64U << 10;

const DatabaseKind lettersKind = {
    "file of dead letters", 0x464a646c, 1,
    "CREATE TABLE types (id INTEGER PRIMARY KEY, name TEXT NOT NULL, idl TEXT NOT NULL,"
    " UNIQUE (name, idl));"
    "CREATE TABLE letters (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL,"
    " route TEXT NOT NULL, end TEXT NOT NULL, reason TEXT NOT NULL, attempts INTEGER NOT NULL,"
    " position TEXT NOT NULL, type INTEGER REFERENCES types, text TEXT NOT NULL,"
    " cdr BLOB NOT NULL, info BLOB NOT NULL, size INTEGER NOT NULL);"
    // Whoever adds or deletes, the sum is right.
    "CREATE TABLE total (bytes INTEGER NOT NULL);"
    "INSERT INTO total VALUES (0);"
    "CREATE TRIGGER added AFTER INSERT ON letters BEGIN"
    " UPDATE total SET bytes = bytes + new.size; END;"
    "CREATE TRIGGER deleted AFTER DELETE ON letters BEGIN"
    " UPDATE total SET bytes = bytes - old.size; END"};

std::int64_t now()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::uint64_t sizeOf(const KeptLetter &letter)
{
    constexpr std::size_t overhead = 128;
    return overhead + letter.text.size() + letter.reason.size() + letter.cdr.size() +
           letter.info.size();
}

KeptLetter letterFor(const DeadLetterAbout &about)
{
    KeptLetter letter;
    static_cast<DeadLetterAbout &>(letter) = about;
    letter.time = now();
    return letter;
}

KeptLetter letterOf(const DeadLetterAbout &about, const SampleList &samples, std::int32_t index)
{
    KeptLetter letter = letterFor(about);
    const auto *sample = static_cast<const DDS_DynamicData *>(samples.samples[index]);
    letter.text = sampleAsJson(*sample, longestText);
    std::size_t length = 0;
    const std::uint8_t *const cdr = DDS_DynamicData_get_cdr(sample, &length);
    letter.cdr.assign(cdr, cdr + length);
    const SampleList one = {samples.samples + index,
                            samples.infos == nullptr ? nullptr : samples.infos + index, 1};
    std::vector<SliceRow> rows;
    layOut(one, 1, 0, letter.info, rows);
    letter.info.resize(letter.info.size() - length);
    return letter;
}

} // namespace

std::vector<std::uint8_t> rowOf(const KeptLetter &letter)
{
    std::vector<std::uint8_t> row = letter.info;
    row.insert(row.end(), letter.cdr.begin(), letter.cdr.end());
    return row;
}

DeadLetters::DeadLetters(Settings settings)
    : settings_(std::move(settings)),
      writer_(std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1))
{
}

StateResult DeadLetters::ready()
{
    if (database_.isOpen()) {
        return {};
    }
    DatabaseFile file;
    file.kind = &lettersKind;
    file.path = settings_.file;
    file.vfs = settings_.vfs;
    file.setsAside = settings_.setsAside;
    file.notify = settings_.notify;
    StateResult result = database_.open(file);
    if (result.ok()) {
        // Files of earlier versions do not have it.
        result = database_.execute("CREATE TABLE IF NOT EXISTS changes"
                                   " (id INTEGER PRIMARY KEY, writer INTEGER, number INTEGER)");
    }
    if (!result.ok()) {
        database_.close(result.fault);
    }
    return result;
}

/// Runs an operation in a transaction. After a failed write or sync nobody knows whether the disk
/// has it: the file is opened anew and asked, so that nobody does it twice. If that fails as well,
/// it may be done twice.
template<class Operation> StateResult DeadLetters::change(Operation &&operation)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    StateResult result = ready();
    if (!result.ok()) {
        return result;
    }
    ++changes_;
    {
        Transaction transaction(database_);
        result = transaction.begin();
        if (result.ok()) {
            result = operation();
        }
        if (result.ok()) {
            result = number();
        }
        if (result.ok()) {
            result = transaction.commit();
        }
    }
    if (result.fault == Fault::io) {
        database_.close(Fault::io);
        return ready().ok() && isDone() ? StateResult() : result;
    }
    database_.setAside(result);
    return result;
}

/// The change under way gets its number, which comes and goes with it.
StateResult DeadLetters::number()
{
    return database_.query("REPLACE INTO changes (id, writer, number) VALUES (0, ?, ?)")
        .bind(writer_)
        .bind(changes_)
        .run();
}

/// Whether the file's last change is the one that was numbered last here.
bool DeadLetters::isDone()
{
    Query query = database_.query("SELECT 1 FROM changes WHERE writer = ? AND number = ?");
    return query.bind(writer_).bind(changes_).next();
}

StateResult DeadLetters::checkRoom(std::uint64_t more)
{
    Query query = database_.query("SELECT bytes FROM total");
    const bool there = query.next();
    const auto bytes = there ? static_cast<std::uint64_t>(query.integer(0)) : 0;
    StateResult result = query.run();
    if (!result.ok() || bytes == 0 || bytes + more <= settings_.maxBytes) {
        return result;
    }
    return {Fault::full, fmt::format("the dead letters in {} are full: {} of {} bytes",
                                     database_.name(), bytes, settings_.maxBytes)};
}

StateResult DeadLetters::typeId(const DDS_TypeCode &type, std::int64_t &id)
{
    const std::string name = typeName(&type);
    const std::string idl = typeText(&type);
    StateResult result = database_.query("INSERT OR IGNORE INTO types (name, idl) VALUES (?, ?)")
                             .bind(name)
                             .bind(idl)
                             .run();
    if (result.ok()) {
        Query query = database_.query("SELECT id FROM types WHERE name = ? AND idl = ?");
        query.bind(name).bind(idl);
        id = query.next() ? query.integer(0) : 0;
        result = query.run();
    }
    return result;
}

StateResult DeadLetters::insert(const KeptLetter &letter, std::int64_t type)
{
    return database_
        .query("INSERT INTO letters (time, route, end, reason, attempts, position, type, text, cdr,"
               " info, size) VALUES (?, ?, ?, ?, ?, ?, nullif(?, 0), ?, ?, ?, ?)")
        .bind(letter.time)
        .bind(letter.route)
        .bind(letter.end)
        .bind(letter.reason)
        .bind(letter.attempts)
        .bind(letter.position)
        .bind(type)
        .bind(letter.text)
        .bindBytes(letter.cdr.data(), letter.cdr.size())
        .bindBytes(letter.info.data(), letter.info.size())
        .bind(static_cast<std::int64_t>(sizeOf(letter)))
        .run();
}

StateResult DeadLetters::add(const DeadLetterAbout &about, const DDS_TypeCode &type,
                             const SampleList &samples)
{
    return change([&] {
        std::int64_t id = 0;
        StateResult result = typeId(type, id);
        for (std::int32_t i = 0; result.ok() && i < samples.count; ++i) {
            const KeptLetter letter = letterOf(about, samples, i);
            result = checkRoom(sizeOf(letter));
            if (result.ok()) {
                result = insert(letter, id);
            }
        }
        return result;
    });
}

StateResult DeadLetters::add(const DeadLetterAbout &about, const std::vector<RejectedText> &texts)
{
    return change([&] {
        StateResult result;
        for (const RejectedText &text : texts) {
            KeptLetter letter = letterFor(about);
            letter.text = text.text;
            letter.reason = text.reason;
            letter.position = text.position;
            if (result.ok()) {
                result = checkRoom(sizeOf(letter));
            }
            if (result.ok()) {
                result = insert(letter, 0);
            }
        }
        return result;
    });
}

StateResult DeadLetters::visit(std::int64_t after, bool whole,
                               const std::function<bool(const KeptLetter &)> &visit)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    StateResult result = ready();
    if (!result.ok()) {
        return result;
    }
    Query query = database_.query(
        "SELECT letters.id, time, route, end, reason, attempts, position, ifnull(name, ''),"
        " ifnull(idl, ''), text, iif(?, cdr, ''), iif(?, info, '')"
        " FROM letters LEFT JOIN types ON letters.type = types.id WHERE letters.id > ?"
        " ORDER BY letters.id");
    query.bind(whole ? 1 : 0).bind(whole ? 1 : 0).bind(after);
    bool more = true;
    while (more && query.next()) {
        KeptLetter letter;
        letter.id = query.integer(0);
        letter.time = query.integer(1);
        letter.route = query.text(2);
        letter.end = query.text(3);
        letter.reason = query.text(4);
        letter.attempts = query.integer(5);
        letter.position = query.text(6);
        letter.type = query.text(7);
        letter.idl = query.text(8);
        letter.text = query.text(9);
        const auto cdr = query.bytes(10);
        const auto info = query.bytes(11);
        letter.cdr.assign(cdr.begin(), cdr.end());
        letter.info.assign(info.begin(), info.end());
        more = visit(letter);
    }
    return query.result();
}

StateResult DeadLetters::remove(const std::vector<Seen> &letters, std::size_t &deleted)
{
    return change([&] {
        StateResult result;
        deleted = 0;
        for (std::size_t i = 0; result.ok() && i < letters.size(); ++i) {
            Query query =
                database_.query("DELETE FROM letters WHERE id = ? AND attempts = ? RETURNING id");
            query.bind(letters[i].id).bind(letters[i].attempts);
            deleted += query.next() ? 1 : 0;
            result = query.run();
        }
        return result;
    });
}

StateResult DeadLetters::failedAgain(std::int64_t id, const std::string &reason,
                                     std::int64_t attempts)
{
    return change([&] {
        return database_
            .query("UPDATE letters SET reason = ?, attempts = attempts + ? WHERE id = ?")
            .bind(reason)
            .bind(attempts)
            .bind(id)
            .run();
    });
}

} // namespace ferry
