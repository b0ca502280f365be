#include "engine/log.h"

namespace ferry {

std::atomic<std::uint32_t> g_logMask{FERRYLOG_BIT_ERROR | FERRYLOG_BIT_WARNING};

} // namespace ferry
