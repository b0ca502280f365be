#include "state/store_file.h"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>

#include "state/files.h"

namespace ferry {
namespace {

std::int64_t wallMilliseconds()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::int64_t bytesOf(const std::vector<SliceRow> &rows)
{
    std::int64_t bytes = 0;
    for (const SliceRow &row : rows) {
        bytes += static_cast<std::int64_t>(row.length);
    }
    return bytes;
}

std::int64_t samplesOf(const std::vector<SliceRow> &rows)
{
    std::int64_t samples = 0;
    for (const SliceRow &row : rows) {
        samples += row.count;
    }
    return samples;
}

} // namespace

/// Runs an operation over the open file. After a failed write nobody knows what the disk has, so
/// the file is opened anew for the next one. A damaged file makes place for another, on which the
/// operation is tried again.
template<class Operation> StateResult StoreFile::attempt(Operation &&operation)
{
    for (bool again = true;; again = false) {
        StateResult result = ready();
        if (result.ok()) {
            result = operation();
        }
        if (result.fault == Fault::io) {
            database_.close(result.fault);
        }
        if (result.fault != Fault::corrupt || !again ||
            !database_.setAside(
                result, fmt::format(", and the {} samples in it are lost", counts_.samples))) {
            return result;
        }
    }
}

StateResult StoreFile::open()
{
    return attempt([] { return StateResult(); });
}

/// On a full disk the log's old space may be what is left to write to. An empty store gives it back
/// if that is not enough, because the file may have to grow. A store that is not empty keeps it for
/// its deletions.
StateResult StoreFile::apply(const StoreChange &change)
{
    bool room = true;
    const auto commit = [&] { return this->commit(change, room); };
    StateResult result = attempt(commit);
    for (const bool giveBack : {false, true}) {
        if (result.fault == Fault::full && (!giveBack || counts_.samples == 0) &&
            attempt([&] { return database_.checkpoint(giveBack); }).ok()) {
            result = attempt(commit);
        }
    }
    if (result.ok() && !room && settings_.whenFull == WhenFull::block) {
        return {Fault::full, fmt::format("the store {} is full: {} of {} bytes", database_.name(),
                                         counts_.bytes, settings_.maxBytes)};
    }
    return result;
}

StateResult StoreFile::commit(const StoreChange &change, bool &room)
{
    Counts counts = counts_;
    Transaction transaction(database_);
    StateResult result = transaction.begin();
    if (result.ok()) {
        result = this->change(change, counts, room);
    }
    const bool nothing =
        !room && settings_.whenFull == WhenFull::block && counts.samples == counts_.samples;
    if (!result.ok() || nothing) {
        return result;
    }
    result = transaction.commit();
    if (result.ok()) {
        counts_ = counts;
        if (change.rows != nullptr && isSettled(room)) {
            marks_.accept();
        }
        removed_ = std::max(removed_, change.delivered);
    }
    return result;
}

StateResult StoreFile::change(const StoreChange &change, Counts &counts, bool &room)
{
    StateResult result = removeDelivered(change.delivered, counts);
    if (result.ok() && change.rows != nullptr) {
        result = makeRoom(change, counts, room);
        if (result.ok() && isSettled(room)) {
            result = marks_.save(database_, counts.next);
        }
        if (result.ok() && room) {
            result = insert(change, counts);
        }
    }
    return result.ok() ? save(counts) : result;
}

/// Whether nobody will append again what there may be no room for.
bool StoreFile::isSettled(bool room) const
{
    return room || settings_.whenFull == WhenFull::dropNewest;
}

/// A store that keeps nothing takes any append, so that none waits for ever.
StateResult StoreFile::makeRoom(const StoreChange &change, Counts &counts, bool &room)
{
    const std::int64_t size =
        bytesOf(*change.rows) + rowOverhead * static_cast<std::int64_t>(change.rows->size());
    const auto fits = [&] {
        return counts.samples == 0 ||
               counts.bytes + size <= static_cast<std::int64_t>(settings_.maxBytes);
    };
    bool dropped = settings_.whenFull == WhenFull::dropOldest;
    while (!fits() && dropped) {
        StateResult result = dropOne(change.lent, counts, dropped);
        if (!result.ok()) {
            return result;
        }
    }
    // What is being delivered stays; beside it there is room for the newest.
    room = fits() || settings_.whenFull == WhenFull::dropOldest;
    if (!room && settings_.whenFull == WhenFull::dropNewest) {
        counts.dropped += samplesOf(*change.rows);
    }
    return {};
}

StateResult StoreFile::removeDelivered(std::int64_t last, Counts &counts)
{
    Query query = database_.query("DELETE FROM slices WHERE first <= ?"
                                  " RETURNING count, length");
    query.bind(last);
    while (query.next()) {
        counts.samples -= query.integer(0);
        counts.bytes -= query.integer(1) + rowOverhead;
    }
    return query.result();
}

StateResult StoreFile::dropOne(std::int64_t behind, Counts &counts, bool &dropped)
{
    Query query = database_.query("DELETE FROM slices WHERE first ="
                                  " (SELECT min(first) FROM slices WHERE first > ?)"
                                  " RETURNING count, length");
    query.bind(behind);
    dropped = query.next();
    if (dropped) {
        counts.dropped += query.integer(0);
        counts.samples -= query.integer(0);
        counts.bytes -= query.integer(1) + rowOverhead;
    }
    return query.run();
}

StateResult StoreFile::insert(const StoreChange &change, Counts &counts)
{
    const std::int64_t now = wallMilliseconds();
    for (const SliceRow &row : *change.rows) {
        const std::uint8_t *const bytes = change.bytes + row.from;
        StateResult result =
            database_
                .query("INSERT INTO slices (first, count, length, time, hash, samples)"
                       " VALUES (?, ?, ?, ?, ?, ?)")
                .bind(counts.next)
                .bind(row.count)
                .bind(static_cast<std::int64_t>(row.length))
                .bind(now)
                .bind(static_cast<std::int64_t>(hashOf(bytes, row.length)))
                .bindBytes(bytes, row.length)
                .run();
        if (!result.ok()) {
            return result;
        }
        counts.next += row.count;
        counts.samples += row.count;
        counts.bytes += static_cast<std::int64_t>(row.length) + rowOverhead;
    }
    return database_.reserve();
}

StateResult StoreFile::save(Counts &counts)
{
    Query oldest = database_.query("SELECT time FROM slices ORDER BY first LIMIT 1");
    counts.oldest = oldest.next() ? oldest.integer(0) : 0;
    StateResult result = oldest.run();
    if (!result.ok()) {
        return result;
    }
    return database_
        .query("UPDATE store SET next = ?, samples = ?, bytes = ?, dropped = ?, damaged = ?")
        .bind(counts.next)
        .bind(counts.samples)
        .bind(counts.bytes)
        .bind(counts.dropped)
        .bind(counts.damaged)
        .run();
}

StateResult StoreFile::read(std::int64_t after, StoredSlice &slice)
{
    return attempt([&] {
        RowHead damaged;
        StateResult result;
        do {
            slice.clear();
            damaged = {};
            result = readRows(after, slice, damaged);
            if (result.ok() && damaged.count > 0) {
                result = removeDamaged(damaged);
            }
        } while (result.ok() && damaged.count > 0);
        return result;
    });
}

/// Small rows go together: what was appended one sample at a time need not be written so.
StateResult StoreFile::readRows(std::int64_t after, StoredSlice &slice, RowHead &damaged)
{
    RowHead row;
    StateResult result = readHead(after, row);
    while (result.ok() && row.count > 0) {
        const bool fits =
            slice.count() + row.count <= settings_.maxSamples &&
            slice.size() + static_cast<std::uint64_t>(row.length) <= settings_.sliceBytes;
        if (slice.count() > 0 && !fits) {
            break;
        }
        bool good = false;
        result = readRow(row, slice, good);
        if (result.ok() && !good) {
            damaged = row;
            break;
        }
        if (result.ok()) {
            const std::int64_t last = row.first;
            row = {};
            result = readHead(last, row);
        }
    }
    return result;
}

StateResult StoreFile::readHead(std::int64_t after, RowHead &row)
{
    Query query = database_.query("SELECT first, count, length FROM slices WHERE first > ?"
                                  " ORDER BY first LIMIT 1");
    query.bind(after);
    if (query.next()) {
        row = {query.integer(0), query.integer(1), query.integer(2)};
    }
    return query.run();
}

StateResult StoreFile::readRow(const RowHead &row, StoredSlice &slice, bool &good)
{
    Query query = database_.query("SELECT hash, samples FROM slices WHERE first = ?");
    query.bind(row.first);
    if (query.next()) {
        const auto bytes = query.bytes(1);
        const std::size_t from = slice.size();
        std::copy(bytes.begin(), bytes.end(), slice.grow(bytes.size()));
        good = query.integer(0) == static_cast<std::int64_t>(hashOf(bytes.data(), bytes.size())) &&
               slice.decode(from, row.first, static_cast<std::int32_t>(row.count));
    }
    return query.run();
}

/// Its neighbours are whole, so they go on.
StateResult StoreFile::removeDamaged(const RowHead &row)
{
    Counts counts = counts_;
    Transaction transaction(database_);
    StateResult result = transaction.begin();
    if (result.ok()) {
        result = database_.query("DELETE FROM slices WHERE first = ?").bind(row.first).run();
    }
    if (result.ok()) {
        counts.damaged += row.count;
        counts.samples -= row.count;
        counts.bytes -= row.length + rowOverhead;
        result = save(counts);
    }
    if (result.ok()) {
        result = transaction.commit();
    }
    if (result.ok()) {
        counts_ = counts;
        notify(fmt::format("the store {} has a damaged row: the {} samples from number {} on are "
                           "lost",
                           database_.name(), row.count, row.first));
    }
    return result;
}

void StoreFile::notify(const std::string &text) const
{
    if (settings_.notify) {
        settings_.notify(text);
    }
}

} // namespace ferry
