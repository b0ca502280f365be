// The bridge's log switches and the host's message catalogue. The switches are plain words: hosts
// poke them from any thread, and every log statement reads them afresh.
#include "ferryjni/log.h"

#include <cstddef>

static_assert(offsetof(QELLogMessage, code) == 0);
static_assert(offsetof(QELLogMessage, format) == 8);
static_assert(sizeof(QELLogMessage) == 16);

uint32_t FERRYLog_g_submoduleMask = 0x000FFFFF;
uint32_t FERRYLog_g_instrumentationMask = FERRYLOG_BIT_ERROR;

#define FERRY_LOG_MESSAGE(name, code, format) const struct QELLogMessage name = {code, format};
#include "Log_normal.msg"
#undef FERRY_LOG_MESSAGE

void FERRYLog_setBitmaps(uint32_t submoduleMask, uint32_t instrumentationMask) noexcept
{
    FERRYLog_g_submoduleMask = submoduleMask;
    FERRYLog_g_instrumentationMask = instrumentationMask;
}

void FERRYLog_getBitmaps(uint32_t *submoduleMask, uint32_t *instrumentationMask) noexcept
{
    *submoduleMask = FERRYLog_g_submoduleMask;
    *instrumentationMask = FERRYLog_g_instrumentationMask;
}

void FERRYLog_setVerbosity(uint32_t submoduleMask, int32_t verbosity) noexcept
{
    uint32_t mask = 0;
    if (verbosity >= 0) {
        // compatibility 20: the count wraps at the width of the word; unsigned, so that nothing
        // overflows
        const uint32_t count = (static_cast<uint32_t>(verbosity) + 1U) % 32U;
        mask = (uint32_t{1} << count) - 1U;
    }
    // compatibility 20: through the exported symbol
    FERRYLog_setBitmaps(submoduleMask, mask);
}
