// A host that defines FERRYLog_setBitmaps itself learns of every change that the library makes.
#include <gtest/gtest.h>

#include <utility>

#include "ferryjni/log.h"

namespace {
std::pair<uint32_t, uint32_t> seen;
}

void FERRYLog_setBitmaps(uint32_t submoduleMask, uint32_t instrumentationMask) noexcept
{
    seen = {submoduleMask, instrumentationMask};
}

TEST(Interposition, SetVerbosityGoesThroughTheHostsSetBitmaps)
{
    FERRYLog_setVerbosity(0x5, 2);
    EXPECT_EQ(seen, std::make_pair(uint32_t{0x5}, uint32_t{0x7}));
    EXPECT_EQ(FERRYLog_g_instrumentationMask, 1U);
}
