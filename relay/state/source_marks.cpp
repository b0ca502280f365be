#include "state/source_marks.h"

#include <algorithm>
#include <cstring>

namespace ferry {
namespace {

/// A source that begins anew with each file has a handle for each of them.
constexpr std::size_t mostSources = 256;

std::int64_t numberOf(const DDS_SampleInfo *info)
{
    return info == nullptr ? 0
                           : std::int64_t{info->publication_sequence_number.high} << 32 |
                                 info->publication_sequence_number.low;
}

} // namespace

StateResult SourceMarks::load(Database &database)
{
    Query query = database.query("SELECT handle, number, moved FROM sources");
    while (query.next()) {
        const auto handle = query.bytes(0);
        Source source{};
        std::copy_n(handle.begin(), std::min(handle.size(), source.size()), source.begin());
        marks_[source] = {query.integer(1), query.integer(2)};
    }
    return query.result();
}

StateResult SourceMarks::replace(Database &database)
{
    StateResult result = database.query("DELETE FROM sources").run();
    for (auto mark = marks_.begin(); result.ok() && mark != marks_.end(); ++mark) {
        result = write(database, mark->first, mark->second);
    }
    return result;
}

SampleList SourceMarks::newOf(const SampleList &samples)
{
    moved_.clear();
    if (!samples.numbered || samples.infos == nullptr) {
        return samples;
    }
    samples_.clear();
    infos_.clear();
    for (std::int32_t i = 0; i < samples.count; ++i) {
        DDS_SampleInfo *const info = samples.infos[i];
        const std::int64_t number = numberOf(info);
        if (number > 0) {
            Source source{};
            std::memcpy(source.data(), info->publication_handle.keyHash, source.size());
            const auto known = marks_.find(source);
            if (known != marks_.end() && number <= known->second.number) {
                continue;
            }
            Mark &mark = moved(source);
            mark.number = std::max(mark.number, number);
        }
        samples_.push_back(samples.samples[i]);
        infos_.push_back(info);
    }
    return {samples_.data(), infos_.data(), static_cast<std::int32_t>(samples_.size())};
}

/// Few sources have samples in one append.
SourceMarks::Mark &SourceMarks::moved(const Source &source)
{
    const auto found = std::find_if(moved_.rbegin(), moved_.rend(),
                                    [&](const auto &mark) { return mark.first == source; });
    return found != moved_.rend() ? found->second : moved_.emplace_back(source, Mark()).second;
}

StateResult SourceMarks::save(Database &database, std::int64_t order)
{
    StateResult result;
    for (auto mark = moved_.begin(); result.ok() && mark != moved_.end(); ++mark) {
        mark->second.order = order;
        result = write(database, mark->first, mark->second);
    }
    const bool isNew = std::any_of(moved_.begin(), moved_.end(), [this](const auto &mark) {
        return marks_.count(mark.first) == 0;
    });
    if (!result.ok() || !isNew) {
        return result;
    }
    return database
        .query("DELETE FROM sources WHERE moved <"
               " (SELECT moved FROM sources ORDER BY moved DESC LIMIT 1 OFFSET ?)")
        .bind(static_cast<std::int64_t>(mostSources - 1))
        .run();
}

void SourceMarks::accept()
{
    for (const auto &[source, mark] : moved_) {
        marks_[source] = mark;
    }
    moved_.clear();
    while (marks_.size() > mostSources) {
        marks_.erase(
            std::min_element(marks_.begin(), marks_.end(), [](const auto &a, const auto &b) {
                return a.second.order < b.second.order;
            }));
    }
}

StateResult SourceMarks::write(Database &database, const Source &source, const Mark &mark)
{
    return database.query("INSERT OR REPLACE INTO sources (handle, number, moved) VALUES (?, ?, ?)")
        .bindBytes(source.data(), source.size())
        .bind(mark.number)
        .bind(mark.order)
        .run();
}

} // namespace ferry
