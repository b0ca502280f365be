// Reports what became of each object while the relay is put together. Control thread.
#ifndef FERRY_ENGINE_REPORTER_H
#define FERRY_ENGINE_REPORTER_H

#include <string>

#include "config/diagnostics.h"

namespace ferry {

class Reporter {
public:
    virtual ~Reporter() = default;
    /// `what` is an object ("adapter files"), `details` what is known about it.
    virtual void good(const std::string &what, const std::string &details) = 0;
    /// The reason has been logged in full; this is its short form. `place` is the object's in the
    /// configuration file, line 0 where it has none.
    virtual void bad(const std::string &what, const std::string &reason, Place place) = 0;
    /// Whether what was bad so far is a mistake in the configuration, which no time mends. Any
    /// thread.
    virtual bool anyMistake() const
    {
        return false;
    }
};

} // namespace ferry

#endif
