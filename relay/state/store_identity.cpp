// Opening the file of a store: whether it is one, whose, and what an earlier life has left.
#include <algorithm>
#include <chrono>

#include <fmt/format.h>

#include "state/store_file.h"
#include "state/type_text.h"

namespace ferry {
namespace {

const DatabaseKind storeKind = {
    "store", 0x464a7374, 2,
    "CREATE TABLE store (route TEXT NOT NULL, output TEXT NOT NULL, type TEXT NOT NULL,"
    " idl TEXT NOT NULL, next INTEGER NOT NULL, samples INTEGER NOT NULL, bytes INTEGER NOT NULL,"
    " dropped INTEGER NOT NULL, damaged INTEGER NOT NULL);"
    // A slice a row, by the number of its first sample.
    "CREATE TABLE slices (first INTEGER PRIMARY KEY, count INTEGER NOT NULL,"
    " length INTEGER NOT NULL, time INTEGER NOT NULL, hash INTEGER NOT NULL,"
    " samples BLOB NOT NULL);"
    // Up to which number the store has had the samples of each source that numbers them.
    "CREATE TABLE sources (handle BLOB PRIMARY KEY, number INTEGER NOT NULL,"
    " moved INTEGER NOT NULL) WITHOUT ROWID"};

std::int64_t timeAsNumber()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

StateResult StoreFile::ready()
{
    if (database_.isOpen()) {
        return {};
    }
    DatabaseFile file;
    file.kind = &storeKind;
    file.path = settings_.file;
    file.vfs = settings_.vfs;
    file.exclusive = true;
    file.notify = settings_.notify;
    StateResult result = database_.open(file);
    if (result.ok()) {
        result = load();
    }
    if (!result.ok()) {
        database_.close(result.fault);
    }
    return result;
}

StateResult StoreFile::load()
{
    std::string texts[4];
    Counts found;
    bool owned = false;
    StateResult result;
    {
        Query query = database_.query("SELECT route, output, type, idl, next, samples, bytes,"
                                      " dropped, damaged FROM store");
        owned = query.next();
        for (int i = 0; owned && i < 4; ++i) {
            texts[i] = query.text(i);
        }
        if (owned) {
            found = {query.integer(4), query.integer(5), query.integer(6), query.integer(7),
                     query.integer(8)};
        }
        result = query.run();
    }
    if (!result.ok() || !owned) {
        return result.ok() ? addOwner() : result;
    }
    result = checkOwner(texts[0], texts[1]);
    if (result.ok()) {
        result = checkType(texts[2], texts[3]);
    }
    if (result.ok() && !known_) {
        result = marks_.load(database_);
    }
    if (result.ok() && known_ && found.next > counts_.next) {
        return undo(found);
    }
    if (result.ok()) {
        counts_ = found;
        known_ = true;
        Query oldest = database_.query("SELECT time FROM slices ORDER BY first LIMIT 1");
        counts_.oldest = oldest.next() ? oldest.integer(0) : 0;
        result = oldest.run();
    }
    return result;
}

/// A new file. What was in one that was set aside is not delivered from here.
StateResult StoreFile::addOwner()
{
    const std::string name = typeName(settings_.type);
    const std::string idl = typeText(settings_.type);
    Counts counts;
    counts.next =
        std::max(settings_.firstNumber != 0 ? settings_.firstNumber : timeAsNumber(), counts_.next);
    counts.dropped = counts_.dropped;
    counts.damaged = counts_.damaged + counts_.samples;
    Transaction transaction(database_);
    StateResult result = transaction.begin();
    if (result.ok()) {
        result = database_.query("INSERT INTO store VALUES (?, ?, ?, ?, ?, 0, 0, ?, ?)")
                     .bind(settings_.route)
                     .bind(settings_.output)
                     .bind(name)
                     .bind(idl)
                     .bind(counts.next)
                     .bind(counts.dropped)
                     .bind(counts.damaged)
                     .run();
    }
    if (result.ok()) {
        result = marks_.replace(database_);
    }
    if (result.ok()) {
        result = transaction.commit();
    }
    if (result.ok()) {
        counts_ = counts;
        known_ = true;
    }
    return result;
}

/// An append that was reported as failed is in the file after all. Whoever appends tries it again,
/// so it goes; its numbers are not used a second time.
StateResult StoreFile::undo(const Counts &found)
{
    Counts counts = found;
    Transaction transaction(database_);
    StateResult result = transaction.begin();
    if (result.ok()) {
        result = database_.query("DELETE FROM slices WHERE first >= ?").bind(counts_.next).run();
    }
    if (result.ok()) {
        result = marks_.replace(database_);
    }
    if (result.ok()) {
        Query left = database_.query("SELECT total(count), total(length + ?) FROM slices");
        left.bind(rowOverhead);
        if (left.next()) {
            counts.samples = left.integer(0);
            counts.bytes = left.integer(1);
        }
        result = left.run();
    }
    if (result.ok()) {
        result = save(counts);
    }
    if (result.ok()) {
        result = transaction.commit();
    }
    if (result.ok()) {
        counts_ = counts;
    }
    return result;
}

StateResult StoreFile::checkOwner(const std::string &route, const std::string &output) const
{
    if (route == settings_.route && output == settings_.output) {
        return {};
    }
    return {Fault::rejected,
            fmt::format("the store {} belongs to output \"{}\" of route \"{}\", not to output "
                        "\"{}\" of route \"{}\"",
                        database_.name(), output, route, settings_.output, settings_.route)};
}

StateResult StoreFile::checkType(const std::string &name, const std::string &idl) const
{
    const std::string mine = typeText(settings_.type);
    if (mine == idl || mine.empty() || idl.empty()) {
        return {};
    }
    const std::string difference = typeDifference(settings_.type, name, idl);
    if (difference.empty()) {
        return {};
    }
    return {Fault::rejected, fmt::format("the store {} holds samples of another type, \"{}\": {}",
                                         database_.name(), name, difference)};
}

} // namespace ferry
