// A session: defaults for its streams, and nothing else.
#ifndef FERRYADAPTER_DDS_SESSION_H
#define FERRYADAPTER_DDS_SESSION_H

#include "ferryjni/plugin.h"
#include "settings.h"

namespace ferrydds {

class Session : public QEL_FerrionSession {
public:
    /// Throws Failure.
    explicit Session(const QEL_FerrionProperties *properties);

    const Settings &settings() const
    {
        return settings_;
    }
    /// For streams that are made later. Throws Failure.
    void update(const QEL_FerrionProperties *properties);

private:
    Settings settings_;
};

} // namespace ferrydds

#endif
