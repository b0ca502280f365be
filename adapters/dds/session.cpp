#include "session.h"

namespace ferrydds {

Session::Session(const QEL_FerrionProperties *properties)
    : settings_(onSession, "session", properties)
{
}

void Session::update(const QEL_FerrionProperties *properties)
{
    settings_.update(properties);
}

} // namespace ferrydds
