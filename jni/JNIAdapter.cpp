// The plug-in record with its operation table, and the Java adapter behind it. Runs on the host's
// calling thread, which must be attached.
#include "JNIAdapter.h"

#include <cstddef>
#include <type_traits>

#include "Guards.h"
#include "Heap.h"
#include "JNICommon.h"
#include "JNIConnection.h"
#include "JNIDiscoveryConnection.h"
#include "JNIProperties.h"
#include "JNISession.h"
#include "JNIStreamReader.h"
#include "JNIStreamWriter.h"
#include "Operation.h"

using ferryjni::asAdapter;
using ferryjni::LocalFrame;
using ferryjni::Operation;

namespace {

// Hosts read the record by its offsets.
static_assert(std::is_standard_layout_v<FERRYJNIAdapter>);
static_assert(offsetof(QEL_FerrionPluginVersion, major) == 0);
static_assert(offsetof(QEL_FerrionPluginVersion, minor) == 4);
static_assert(offsetof(QEL_FerrionPluginVersion, release) == 8);
static_assert(offsetof(QEL_FerrionPluginVersion, revision) == 12);
static_assert(offsetof(QEL_FerrionAdapterPlugin, magic) == 0);
static_assert(offsetof(QEL_FerrionAdapterPlugin, apiVersion) == 4);
static_assert(offsetof(QEL_FerrionAdapterPlugin, adapterVersion) == 20);
static_assert(offsetof(QEL_FerrionAdapterPlugin, operations) == 40);
static_assert(sizeof(QEL_FerrionAdapterOperations) == 23 * sizeof(void *));
static_assert(offsetof(FERRYJNIAdapter, plugin) == 0);
static_assert(offsetof(FERRYJNIAdapter, jniGlobal) == 224);
static_assert(offsetof(FERRYJNIAdapter, adapterClass) == 232);
static_assert(offsetof(FERRYJNIAdapter, defaultConstructor) == 240);
static_assert(offsetof(FERRYJNIAdapter, propertiesConstructor) == 248);
static_assert(offsetof(FERRYJNIAdapter, finalizeMethod) == 256);
static_assert(offsetof(FERRYJNIAdapter, javaAdapter) == 264);
static_assert(sizeof(FERRYJNIAdapter) == 272);
#define SLOT(number, name)                                                                         \
    static_assert(offsetof(QEL_FerrionAdapterOperations, name) == (number) * sizeof(void *))
SLOT(0, delete_adapter);
SLOT(1, create_connection);
SLOT(2, delete_connection);
SLOT(3, create_session);
SLOT(4, delete_session);
SLOT(5, create_stream_reader);
SLOT(6, delete_stream_reader);
SLOT(7, create_stream_writer);
SLOT(8, delete_stream_writer);
SLOT(9, get_pub_discovery_reader);
SLOT(10, get_sub_discovery_reader);
SLOT(11, reserved11);
SLOT(12, reserved12);
SLOT(13, connection_to_string);
SLOT(14, connection_update);
SLOT(15, reserved15);
SLOT(16, session_update);
SLOT(17, read);
SLOT(18, return_loan);
SLOT(19, stream_reader_update);
SLOT(20, write);
SLOT(21, stream_writer_update);
SLOT(22, reserved22);
#undef SLOT

} // namespace

FERRYJNIAdapter *FERRYJNIAdapter_new(const QEL_FerrionProperties *properties,
                                     QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIAdapter_new", environment);
    auto *adapter = ferryjni::newStructure<FERRYJNIAdapter>("struct FERRYJNIAdapter");
    if (adapter == nullptr) {
        operation.report("error creating JNI adapter");
        return nullptr;
    }
    adapter->plugin = {};
    adapter->plugin.magic = QEL_FERRION_PLUGIN_MAGIC;
    adapter->plugin.apiVersion = QEL_FERRION_PLUGIN_API_VERSION;
    adapter->jniGlobal = environment->jniGlobal;
    if (FERRYJNIAdapter_allocateJava(adapter, environment->className, properties, environment) ==
        0) {
        operation.report("error initializing JVM for JNI adapter");
        // Directly: there may be no Java adapter to finalize.
        ferryjni::freeStructure(adapter);
        return nullptr;
    }
    if (FERRYJNIAdapter_initialize(adapter) == 0) {
        operation.report("error initializing JNI adapter");
        FERRYJNIAdapter_delete(&adapter->plugin, environment);
        return nullptr;
    }
    return adapter;
}

int32_t FERRYJNIAdapter_initialize(FERRYJNIAdapter *adapter) noexcept
{
    QEL_FerrionAdapterOperations &table = adapter->plugin.operations;
    table.delete_adapter = FERRYJNIAdapter_delete;
    table.create_connection = FERRYJNIAdapter_create_connection;
    table.delete_connection = FERRYJNIAdapter_delete_connection;
    table.create_session = FERRYJNIConnection_create_session;
    table.delete_session = FERRYJNIConnection_delete_session;
    table.create_stream_reader = FERRYJNIConnection_create_stream_reader;
    table.delete_stream_reader = FERRYJNIConnection_delete_stream_reader;
    table.connection_update = FERRYJNIConnection_update;
    table.connection_to_string = FERRYJNIConnection_to_string;
    table.create_stream_writer = FERRYJNIConnection_create_stream_writer;
    table.delete_stream_writer = FERRYJNIConnection_delete_stream_writer;
    table.session_update = FERRYJNISession_update;
    table.read = FERRYJNIStreamReader_read;
    table.return_loan = FERRYJNIStreamReader_return_loan;
    table.stream_reader_update = FERRYJNIStreamReader_update;
    table.write = FERRYJNIStreamWriter_write;
    table.stream_writer_update = FERRYJNIStreamWriter_update;
    table.get_pub_discovery_reader = FERRYJNIDiscoveryConnection_get_pub_discovery_reader;
    table.get_sub_discovery_reader = FERRYJNIDiscoveryConnection_get_sub_discovery_reader;
    table.reserved11 = nullptr;
    table.reserved12 = nullptr;
    return 1;
}

int32_t FERRYJNIAdapter_delete(QEL_FerrionAdapterPlugin *adapter,
                               QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIAdapter *self = asAdapter(adapter);
    FERRYJNIAdapter_finalizeJava(self, environment);
    self->jniGlobal = nullptr;
    return ferryjni::freeStructure(self);
}

QEL_FerrionConnection *FERRYJNIAdapter_create_connection(
    QEL_FerrionAdapterPlugin *adapter, const char *firstName, const char *secondName,
    const QEL_FerrionStreamReaderListener *subscriptionListener,
    const QEL_FerrionStreamReaderListener *publicationListener, void *, void *,
    const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIConnection *connection =
        FERRYJNIConnection_new(asAdapter(adapter), firstName, secondName, subscriptionListener,
                               publicationListener, properties, environment);
    if (connection == nullptr) {
        const Operation operation("FERRYJNIAdapter_create_connection", environment);
        operation.report("error creating  connection");
    }
    return connection;
}

void FERRYJNIAdapter_delete_connection(QEL_FerrionAdapterPlugin *,
                                       QEL_FerrionConnection *connection,
                                       QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIConnection_delete(connection, environment);
}

namespace {

/// Finds the adapter class, its constructor and its finalizer.
bool findAdapterClass(const Operation &operation, FERRYJNIAdapter *adapter, JNIEnv *env,
                      const char *className) noexcept
{
    const auto failDescribed = [&operation, env](const char *text) {
        env->ExceptionDescribe();
        operation.report(text);
        return false;
    };
    jobject local = env->FindClass(className);
    if (local == nullptr) {
        return failDescribed("error finding class");
    }
    adapter->adapterClass =
        static_cast<jclass>(FERRYJNICommon_newGlobalRefReplacingLocalRef(env, &local));
    if (adapter->adapterClass == nullptr) {
        return failDescribed("error getting adapter class");
    }
    adapter->propertiesConstructor =
        env->GetMethodID(adapter->adapterClass, "<init>", "(Ljava/util/Properties;)V");
    if (adapter->propertiesConstructor == nullptr) {
        if (ferryjni::logs(FERRYLOG_BIT_WARNING)) {
            QELLog_debug("%s:Could not find constructor %s(java.util.Properties) - will use "
                         "default constructor\n",
                         "FERRYJNIAdapter_allocateJava", className);
        }
        env->ExceptionClear();
        adapter->defaultConstructor = env->GetMethodID(adapter->adapterClass, "<init>", "()V");
        if (adapter->defaultConstructor == nullptr) {
            return failDescribed("error getting adapter default constructor");
        }
    }
    adapter->finalizeMethod = env->GetMethodID(adapter->adapterClass, "finalize", "()V");
    if (adapter->finalizeMethod == nullptr) {
        ferryjni::clearPending(env);
        operation.report("error getting adapter finalize");
        return false;
    }
    return true;
}

bool constructAdapter(const Operation &operation, FERRYJNIAdapter *adapter, JNIEnv *env,
                      const QEL_FerrionProperties *properties) noexcept
{
    jobject object = nullptr;
    if (adapter->propertiesConstructor != nullptr) {
        jobject javaProperties = nullptr;
        if (!ferryjni::toJavaProperties(adapter->jniGlobal, env, properties,
                                        operation.environment(), &javaProperties)) {
            operation.report("null properties object");
            return false;
        }
        object =
            env->NewObject(adapter->adapterClass, adapter->propertiesConstructor, javaProperties);
    } else {
        object = env->NewObject(adapter->adapterClass, adapter->defaultConstructor);
    }
    operation.threw(env, "exception");
    if (object == nullptr) {
        operation.report("error getting adapter object");
        return false;
    }
    adapter->javaAdapter = operation.globalRef(env, object, "error getting adapter object");
    return adapter->javaAdapter != nullptr;
}

bool readVersion(const Operation &operation, FERRYJNIAdapter *adapter, JNIEnv *env) noexcept
{
    const FERRYJNIGlobal *global = adapter->jniGlobal;
    jobject version = env->CallObjectMethod(adapter->javaAdapter, global->adapterGetVersion);
    if (operation.threw(env, "exception calling Adapter.getVersion()")) {
        return false;
    }
    if (version == nullptr) {
        operation.report("error getting Version object");
        return false;
    }
    // compatibility 15: a getter that throws is no failure, but nothing may stay pending
    const auto number = [env, version](jmethodID getter) {
        const jint value = env->CallIntMethod(version, getter);
        ferryjni::clearPending(env);
        return value;
    };
    QEL_FerrionPluginVersion &target = adapter->plugin.adapterVersion;
    target.major = number(global->versionGetMajorNumber);
    target.minor = number(global->versionGetMinorNumber);
    target.release = number(global->versionGetReleaseNumber);
    target.revision = number(global->versionGetRevisionNumber);
    return true;
}

} // namespace

int32_t FERRYJNIAdapter_allocateJava(FERRYJNIAdapter *adapter, const char *className,
                                     const QEL_FerrionProperties *properties,
                                     QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIAdapter_allocateJava", environment);
    JNIEnv *env = operation.javaEnv(adapter->jniGlobal);
    if (env == nullptr) {
        return 0;
    }
    const LocalFrame frame(env);
    const bool made = findAdapterClass(operation, adapter, env, className) &&
                      constructAdapter(operation, adapter, env, properties) &&
                      readVersion(operation, adapter, env);
    return made ? 1 : 0;
}

void FERRYJNIAdapter_finalizeJava(FERRYJNIAdapter *adapter,
                                  QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIAdapter_finalizeJava", environment);
    JNIEnv *env = operation.javaEnv(adapter->jniGlobal);
    if (env == nullptr) {
        return;
    }
    const LocalFrame frame(env);
    env->CallVoidMethod(adapter->javaAdapter, adapter->finalizeMethod);
    operation.threw(env, "exception");
    FERRYJNICommon_deleteGlobalRef(env, &adapter->javaAdapter);
}
