// A session of a Java connection.
#ifndef FERRYJNI_JNISESSION_H
#define FERRYJNI_JNISESSION_H

#include <jni.h>

#include "JNIConnection.h"

struct FERRYJNISession : QEL_FerrionSession {
    /// Global reference; set only when creation succeeds.
    jobject javaSession;
    /// Not owned; set only when creation succeeds.
    FERRYJNIConnection *connection;
};

namespace ferryjni {

/// The session's connection, or null when the session is null or incomplete.
inline FERRYJNIConnection *connectionOf(const FERRYJNISession *session) noexcept
{
    return session != nullptr ? session->connection : nullptr;
}

} // namespace ferryjni

/// Creates the session. After a failure that follows the Java call the record comes back with
/// neither field set and the error in the environment; null before that.
FERRYJNISession *FERRYJNISession_new(FERRYJNIConnection *connection,
                                     const QEL_FerrionProperties *properties,
                                     QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNISession_delete(FERRYJNISession *session, QEL_FerrionEnvironment *environment) noexcept;
/// Slot 16.
void FERRYJNISession_update(QEL_FerrionSession *session, const QEL_FerrionProperties *properties,
                            QEL_FerrionEnvironment *environment) noexcept;

#endif
