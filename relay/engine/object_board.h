// What has become of each adapter and connection. The control thread writes it down, others read
// it while that thread is inside a plug-in.
#ifndef FERRY_ENGINE_OBJECT_BOARD_H
#define FERRY_ENGINE_OBJECT_BOARD_H

#include <mutex>
#include <vector>

#include "config/configuration.h"
#include "engine/status.h"

namespace ferry {

class ObjectBoard {
public:
    enum class Kind { adapter, connection };

    explicit ObjectBoard(const Configuration &configuration);

    // Control thread. `index` is that of the configuration.
    void made(Kind kind, std::size_t index, const std::string &details);
    void failed(Kind kind, std::size_t index, const std::string &operation,
                const std::string &text);
    void closed(Kind kind, std::size_t index);
    /// When it is made anew at the earliest.
    void retryAt(Kind kind, std::size_t index, std::int64_t time);

    // Any thread.
    std::vector<ObjectStatus> adapters() const;
    std::vector<ObjectStatus> connections() const;

private:
    ObjectStatus &at(Kind kind, std::size_t index)
    {
        return kind == Kind::adapter ? adapters_[index] : connections_[index];
    }
    static void set(ObjectStatus &object, ObjectStatus::State state);

    mutable std::mutex mutex_;
    std::vector<ObjectStatus> adapters_;
    std::vector<ObjectStatus> connections_;
};

} // namespace ferry

#endif
