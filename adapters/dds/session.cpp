#include "session.h"

namespace ferrydds {

Session::Session(const QEL_FerrionProperties *properties)
    : settings_(settingTable, FERRY_SETTING_OF_SESSION, "session", properties)
{
}

void Session::update(const QEL_FerrionProperties *properties)
{
    settings_.update(properties);
}

} // namespace ferrydds
