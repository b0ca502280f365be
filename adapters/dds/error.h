// How failures travel: as exceptions inside the adapter, as the call's environment to the host.
#ifndef FERRYADAPTER_DDS_ERROR_H
#define FERRYADAPTER_DDS_ERROR_H

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

#include "ferryjni/environment.h"

namespace ferrydds {

/// Ends a slot's call; its text is what the host gets to see.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Records an error unless one is held: the first of a call is the one that the host sees. A text
/// that is too long is cut at the end of a character.
void report(QEL_FerrionEnvironment *environment, const std::string &text) noexcept;

/// Logs a warning: for what concerns users, and is no failure of a call.
void warn(const char *where, const std::string &text) noexcept;

/// Runs the body of a slot. Whatever it throws becomes the call's error, and `failed` its result.
template<class Result, class Body>
Result guarded(QEL_FerrionEnvironment *environment, Result failed, Body &&body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        report(environment, "memory is short");
    } catch (const std::exception &e) {
        report(environment, e.what());
    } catch (...) {
        report(environment, "unknown failure");
    }
    return failed;
}

} // namespace ferrydds

#endif
