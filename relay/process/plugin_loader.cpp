#include "process/plugin_loader.h"

#include <algorithm>
#include <charconv>
#include <dlfcn.h>

#include "engine/log.h"
#include "ferryjni/delivery.h"
#include "ferryjni/settings.h"
#include "process/java_output.h"

namespace ferry {
namespace {

/// Stands for an adapter with a class path of its own.
constexpr const char *isolatedAdapter = "com/qel/ferrion/relay/IsolatedAdapter";

/// Which adapter a question to Java is about, and its class. Only an adapter that the configuration
/// gives a class path has classes of its own name.
std::string javaName(const AdapterSettings &settings)
{
    const std::string owner = settings.classPath.empty() ? "" : settings.name;
    std::string type = settings.javaClass;
    std::replace(type.begin(), type.end(), '/', '.');
    return owner + '\0' + type;
}

} // namespace

PluginLoader::PluginLoader(const Configuration &configuration, JavaStart java)
    : configuration_(configuration), java_(std::move(java))
{
}

bool PluginLoader::start()
{
    if (!configuration_.needsJava()) {
        return true;
    }
    const std::string reason = bridge_.load(java_.bridge);
    if (!reason.empty()) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_start", "Java", "{}", reason);
        return false;
    }
    FERRYJNIGlobal *const global = bridge_.start(java_.options, java_.logMask);
    {
        const std::lock_guard<std::mutex> lock(askMutex_);
        global_ = global;
    }
    if (global_ != nullptr && !java_.debuggers.empty()) {
        logAbout(FERRYLOG_BIT_STATUS, "FERRYRelay_start", "Java", "debuggers can attach at {}",
                 java_.debuggers);
    }
    return global_ != nullptr;
}

QEL_FerrionAdapterPlugin *PluginLoader::open(const AdapterSettings &settings,
                                             const QEL_FerrionProperties *properties,
                                             CallEnvironment &environment)
{
    return settings.javaClass.empty() ? openNative(settings, properties, environment)
                                      : openJava(settings, properties, environment);
}

QEL_FerrionAdapterPlugin *PluginLoader::openJava(const AdapterSettings &settings,
                                                 const QEL_FerrionProperties *properties,
                                                 CallEnvironment &environment)
{
    QEL_FerrionEnvironment *raw = environment.fresh();
    raw->jniGlobal = global_;
    raw->className = settings.javaClass.c_str();
    if (!settings.ownEntries().empty()) {
        const std::string reason = findIsolated(settings);
        if (!reason.empty()) {
            logError("FERRYRelay_open", FERRY_LOG_ADAPTER_NOT_FOUND_FAILURE_s, raw->className);
            environment.fail(reason);
            return nullptr;
        }
        raw->className = isolatedAdapter;
    }
    QEL_FerrionAdapterPlugin *plugin = bridge_.createAdapter(properties, raw);
    if (environment.failed() && std::string(environment.text()) == "error finding class") {
        logError("FERRYRelay_open", FERRY_LOG_ADAPTER_NOT_FOUND_FAILURE_s,
                 settings.javaClass.c_str());
    }
    return plugin;
}

/// Has Java find the class that the adapter to be created next stands for; why there is none, or
/// "".
std::string PluginLoader::findIsolated(const AdapterSettings &settings) const
{
    std::string question = javaName(settings);
    for (const std::string &entry : settings.ownEntries()) {
        question += '\0' + entry;
    }
    return bridge_.ask(global_, isolatedAdapter, question);
}

/// A native adapter's library stays loaded: threads of it may outlive its objects.
QEL_FerrionAdapterPlugin *PluginLoader::openNative(const AdapterSettings &settings,
                                                   const QEL_FerrionProperties *properties,
                                                   CallEnvironment &environment)
{
    void *library = dlopen(settings.library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void *symbol = library == nullptr ? nullptr : dlsym(library, settings.entry.c_str());
    if (symbol == nullptr) {
        const char *reason = dlerror();
        std::error_code ignored;
        if (!std::filesystem::exists(settings.library, ignored)) {
            logError("FERRYRelay_open", FERRY_LOG_ADAPTER_NOT_FOUND_FAILURE_s,
                     settings.library.c_str());
        }
        environment.fresh();
        environment.fail(reason == nullptr ? "the entry point is null" : reason);
        return nullptr;
    }
    const auto create = reinterpret_cast<QEL_FerrionAdapterPlugin_CreateFn>(symbol);
    QEL_FerrionAdapterPlugin *const plugin = create(properties, environment.fresh());
    void *const stopBy = dlsym(library, fmt::format("{}_stop_by", settings.entry).c_str());
    if (stopBy != nullptr && plugin != nullptr && !environment.failed() &&
        plugin->magic == QEL_FERRION_PLUGIN_MAGIC) {
        addStopListener(*plugin, reinterpret_cast<QEL_FerrionAdapterPlugin_StopByFn>(stopBy));
    }
    return plugin;
}

void PluginLoader::addStopListener(QEL_FerrionAdapterPlugin &plugin,
                                   QEL_FerrionAdapterPlugin_StopByFn notify)
{
    std::optional<std::int64_t> already;
    {
        const std::lock_guard<std::mutex> lock(stopMutex_);
        listeners_.push_back({&plugin, notify});
        already = stopBy_;
    }
    if (already) {
        notify(&plugin, *already);
    }
}

void PluginLoader::stopBy(Clock::time_point deadline)
{
    const std::int64_t time = nanoseconds(deadline);
    std::vector<Listener> listeners;
    {
        const std::lock_guard<std::mutex> lock(stopMutex_);
        stopBy_ = time;
        listeners = listeners_;
    }
    for (const Listener &listener : listeners) {
        listener.notify(listener.plugin, time);
    }
}

bool PluginLoader::anyStopBy() const
{
    const std::lock_guard<std::mutex> lock(stopMutex_);
    return !listeners_.empty();
}

/// Writes that go on are interrupted when half of the time has gone.
void PluginLoader::endWritesBy(Clock::time_point deadline)
{
    const std::lock_guard<std::mutex> lock(askMutex_);
    if (global_ == nullptr || !attachThread()) {
        return;
    }
    const auto half = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::max((deadline - Clock::now()) / 2, Clock::duration::zero()));
    bridge_.ask(global_, "com/qel/ferrion/relay/Stopping", std::to_string(half.count()));
    detachThread();
}

void *PluginLoader::find(const AdapterSettings &settings, const std::string &name)
{
    void *library = settings.library.empty()
                        ? nullptr
                        : dlopen(settings.library.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (library == nullptr) {
        return nullptr;
    }
    void *symbol = dlsym(library, fmt::format("{}_{}", settings.entry, name).c_str());
    dlclose(library); // only what this look counted: a plug-in's library stays loaded
    return symbol;
}

std::uint32_t PluginLoader::delivery(const AdapterSettings &settings, std::uint32_t role,
                                     const Properties &properties)
{
    if (!settings.javaClass.empty()) {
        return javaDelivery(settings, role, properties);
    }
    const auto declared = reinterpret_cast<FERRY_DeliveryFn>(find(settings, "delivery"));
    return declared == nullptr ? 0 : declared(role, PropertyList(properties).get());
}

std::uint32_t PluginLoader::javaDelivery(const AdapterSettings &settings, std::uint32_t role,
                                         const Properties &properties) const
{
    std::string question = javaName(settings);
    question += '\0';
    question += role == FERRY_SETTING_OF_READER ? "READER" : "WRITER";
    for (const auto &[name, value] : properties) {
        question.append(1, '\0').append(name).append(1, '\0').append(value);
    }
    const std::string answer = bridge_.ask(global_, "com/qel/ferrion/relay/Deliveries", question);
    std::uint32_t bits = 0;
    std::from_chars(answer.data(), answer.data() + answer.size(), bits);
    return bits;
}

bool PluginLoader::attachThread()
{
    if (global_ == nullptr) {
        return true;
    }
    const std::lock_guard<std::mutex> lock(attachMutex_);
    return bridge_.attachCurrentThread(global_) != nullptr;
}

void PluginLoader::detachThread()
{
    if (global_ != nullptr) {
        bridge_.detachCurrentThread(global_);
    }
}

void PluginLoader::stop()
{
    {
        // Their plug-ins have been deleted. A further run is not stopped by this one's stop.
        const std::lock_guard<std::mutex> lock(stopMutex_);
        listeners_.clear();
        stopBy_.reset();
    }
    FERRYJNIGlobal *global = nullptr;
    {
        const std::lock_guard<std::mutex> lock(askMutex_);
        std::swap(global, global_);
    }
    if (global != nullptr) {
        bridge_.destroy(global);
    }
}

FailureDetails PluginLoader::takeFailure(const std::string & /*adapter*/)
{
    return javaoutput::takeFailure();
}

std::string PluginLoader::threadDump()
{
    const std::lock_guard<std::mutex> lock(askMutex_);
    if (global_ == nullptr) {
        return "no Java VM is running\n";
    }
    std::string text = "the thread cannot be attached to the VM";
    if (attachThread()) {
        text = bridge_.ask(global_, "com/qel/ferrion/relay/ThreadDump", "");
        detachThread();
    }
    return fmt::format("{}\n", text);
}

} // namespace ferry
