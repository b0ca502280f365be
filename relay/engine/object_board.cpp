#include "engine/object_board.h"

namespace ferry {

ObjectBoard::ObjectBoard(const Configuration &configuration)
{
    for (const AdapterSettings &settings : configuration.adapters) {
        adapters_.emplace_back();
        adapters_.back().name = settings.name;
        adapters_.back().place = settings.place;
    }
    for (const ConnectionSettings &settings : configuration.connections) {
        connections_.emplace_back();
        connections_.back().name = settings.name;
        connections_.back().adapter = configuration.adapters[settings.adapter].name;
        connections_.back().place = settings.place;
    }
}

/// One that fails again and again has been out of service since the first time.
void ObjectBoard::set(ObjectStatus &object, ObjectStatus::State state)
{
    if (object.state != state) {
        object.state = state;
        object.since = nanoseconds(Clock::now());
    }
    object.retryAt = 0;
}

void ObjectBoard::made(Kind kind, std::size_t index, const std::string &details)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ObjectStatus &object = at(kind, index);
    set(object, ObjectStatus::State::running);
    object.details = details;
}

void ObjectBoard::failed(Kind kind, std::size_t index, const std::string &operation,
                         const std::string &text)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ObjectStatus &object = at(kind, index);
    set(object, ObjectStatus::State::failed);
    const std::uint64_t count = object.failure.count + 1;
    object.failure = {nanoseconds(Clock::now()), count, operation, text};
}

void ObjectBoard::closed(Kind kind, std::size_t index)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ObjectStatus &object = at(kind, index);
    if (object.state == ObjectStatus::State::running) {
        set(object, ObjectStatus::State::closed);
    }
}

void ObjectBoard::retryAt(Kind kind, std::size_t index, std::int64_t time)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    at(kind, index).retryAt = time;
}

std::vector<ObjectStatus> ObjectBoard::adapters() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return adapters_;
}

std::vector<ObjectStatus> ObjectBoard::connections() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return connections_;
}

} // namespace ferry
