// Sessions: created and deleted through the Java connection, on the host's calling thread.
#include "JNISession.h"

#include <cstddef>
#include <type_traits>

#include "Guards.h"
#include "Heap.h"
#include "JNICommon.h"
#include "JNIEntity.h"
#include "JNIProperties.h"
#include "Operation.h"

using ferryjni::LocalFrame;
using ferryjni::Operation;

static_assert(std::is_standard_layout_v<FERRYJNISession>);
static_assert(offsetof(FERRYJNISession, javaSession) == 0);
static_assert(offsetof(FERRYJNISession, connection) == 8);
static_assert(sizeof(FERRYJNISession) == 16);

FERRYJNISession *FERRYJNISession_new(FERRYJNIConnection *connection,
                                     const QEL_FerrionProperties *properties,
                                     QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNISession_new", environment);
    auto *session = ferryjni::newStructure<FERRYJNISession>("struct FERRYJNISession");
    if (session == nullptr) {
        operation.report("error creating JNI session");
        return nullptr;
    }
    const FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        // compatibility 4: the record stays behind
        return nullptr;
    }
    const LocalFrame frame(env);
    jobject javaProperties = nullptr;
    if (!ferryjni::toJavaProperties(global, env, properties, environment, &javaProperties)) {
        operation.report("null connection object");
        ferryjni::freeStructure(session);
        return nullptr;
    }
    jobject javaSession = env->CallObjectMethod(connection->javaConnection,
                                                global->connectionCreateSession, javaProperties);
    if (operation.threw(env, "exception")) {
        return session;
    }
    if (javaSession == nullptr) {
        operation.report("null connection object");
        return session;
    }
    jobject reference =
        operation.globalRef(env, javaSession, "global reference to connection instance");
    if (reference != nullptr) {
        session->javaSession = reference;
        session->connection = connection;
    }
    return session;
}

void FERRYJNISession_delete(FERRYJNISession *session, QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNISession_delete", environment);
    const FERRYJNIConnection *connection = ferryjni::connectionOf(session);
    const FERRYJNIGlobal *global = ferryjni::globalOf(connection);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    env->CallVoidMethod(connection->javaConnection, global->connectionDeleteSession,
                        session->javaSession);
    operation.threw(env, "exception");
    FERRYJNICommon_deleteGlobalRef(env, &session->javaSession);
    ferryjni::freeStructure(session);
}

void FERRYJNISession_update(QEL_FerrionSession *session, const QEL_FerrionProperties *properties,
                            QEL_FerrionEnvironment *environment) noexcept
{
    const auto *self = static_cast<const FERRYJNISession *>(session);
    const FERRYJNIConnection *connection = ferryjni::connectionOf(self);
    const FERRYJNIAdapter *adapter = connection != nullptr ? connection->adapter : nullptr;
    if (FERRYJNIEntity_update(self->javaSession, adapter, properties, environment) == 0) {
        const Operation operation("FERRYJNISession_update", environment);
        operation.report("error calling Session.update()");
    }
}
