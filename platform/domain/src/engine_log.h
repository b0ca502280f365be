// The engine's own log.
#ifndef QDDSDOMAIN_SRC_ENGINE_LOG_H
#define QDDSDOMAIN_SRC_ENGINE_LOG_H

namespace qddsdomain {

/// Sends the engine's warnings and errors to this platform's log, once a process; any thread.
void adoptEngineLog();

/// What the engine logs next on this thread has been said already.
void dropNextEngineLine();

} // namespace qddsdomain

#endif
