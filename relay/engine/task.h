// What a relay is started for.
#ifndef FERRY_ENGINE_TASK_H
#define FERRY_ENGINE_TASK_H

namespace ferry {

/// To move samples; to make everything and move none; or to make connections only and list what
/// they announce.
enum class Task { run, check, list };

} // namespace ferry

#endif
