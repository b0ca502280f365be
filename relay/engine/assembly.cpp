// Creating the objects of the plug-ins.
#include "engine/assembly.h"

#include <algorithm>

#include "engine/guarantee.h"
#include "engine/log.h"
#include "engine/stream_description.h"
#include "ferryjni/delivery.h"

namespace ferry {
namespace {

constexpr QEL_FerrionPluginVersion apiVersion = QEL_FERRION_PLUGIN_API_VERSION;

/// Marks and wakes, nothing else; only the first signal since the last read has to wake.
void onAnnouncement(QEL_FerrionStreamReader *, void *self)
{
    DiscoverySource *source = static_cast<DiscoverySource *>(self);
    if (!source->signalled.exchange(true)) {
        source->wake();
    }
}

const char *nameAt(const std::vector<std::string> &names, std::size_t index)
{
    return index < names.size() ? names[index].c_str() : nullptr;
}

std::string version(const QEL_FerrionPluginVersion &version)
{
    return fmt::format("{}.{}.{}.{}", version.major, version.minor, version.release,
                       version.revision);
}

} // namespace

Assembly::Assembly(const Configuration &configuration, PluginHost &host, Reporter &reporter,
                   RouteRegistry &registry, std::vector<std::unique_ptr<Session>> &sessions,
                   const BufferedOutputs &buffers, const std::function<void()> &wake)
    : configuration_(configuration), host_(host), reporter_(reporter), registry_(registry),
      sessions_(sessions), buffers_(buffers), board_(configuration)
{
    for (const AdapterSettings &settings : configuration.adapters) {
        adapters_.push_back(std::make_unique<Adapter>());
        adapters_.back()->settings = &settings;
    }
    for (const ConnectionSettings &settings : configuration.connections) {
        connections_.push_back(std::make_unique<Connection>());
        connections_.back()->settings = &settings;
        connections_.back()->adapter = adapters_[settings.adapter].get();
        for (const bool inputs : {true, false}) {
            sources_.push_back(std::make_unique<DiscoverySource>());
            DiscoverySource &source = *sources_.back();
            source.connection = connections_.size() - 1;
            source.inputs = inputs;
            source.label = fmt::format("{} streams of connection {}", inputs ? "input" : "output",
                                       settings.name);
            source.wake = wake;
        }
    }
}

std::string Assembly::where() const
{
    const std::lock_guard<std::mutex> lock(whereMutex_);
    return where_;
}

void Assembly::setWhere(const std::string &what)
{
    const std::lock_guard<std::mutex> lock(whereMutex_);
    where_ = what;
}

bool Assembly::giveUp()
{
    if (!call_.load()->guard.giveUp()) {
        return false;
    }
    for (const auto &adapter : adapters_) {
        adapter->occupied = adapter->occupied || adapter.get() == call_.load()->guard.owner();
    }
    leftSomething_ = true;
    // What the thread still uses is never freed.
    auto next = std::make_unique<Call>();
    call_.store(next.get());
    static_cast<void>(ownedCall_.release());
    ownedCall_ = std::move(next);
    return true;
}

void Assembly::problem(const std::string &what, const Adapter &adapter,
                       const std::string &operation, Place place)
{
    reporter_.bad(what, fmt::format("{}: {}", operation, environment().text()), place);
    const bool temporary = mayRestart(adapter);
    problems_ += temporary ? 0 : 1;
    if (!temporary || admits(what, environment().cause())) {
        logAdapterFailure("FERRYRelay_build", adapter.settings->name, operation, environment());
    }
}

/// Whether a failure is to be logged that comes again with each attempt.
bool Assembly::admits(const std::string &what, const char *cause)
{
    if (failures_.size() > mostFailures) {
        failures_.clear();
    }
    return failures_.emplace(what, restartPause).first->second.admit(cause, Clock::now());
}

void Assembly::build(const std::function<bool()> &stop)
{
    for (const auto &adapter : adapters_) {
        if (!stop()) {
            openAdapter(*adapter);
        }
    }
    for (const auto &connection : connections_) {
        if (!stop()) {
            openConnection(*connection);
        }
    }
    registry_.visit([&](Route &route) {
        if (!stop()) {
            open(route);
        }
    });
}

void Assembly::open(Route &route)
{
    const bool good = openRoute(route);
    route.setState(good ? Route::State::active : Route::State::failed);
    if (!good) {
        if (!isPossible(route) || admits(route.name(), "")) {
            logError("FERRYRelay_build", FERRY_LOG_TOPICROUTE_INIT_FAILURE_s, route.name().c_str());
        }
        reporter_.bad(fmt::format("route {}", route.name()), "out of service", {});
    }
}

void Assembly::openAdapter(Adapter &adapter)
{
    const AdapterSettings &settings = *adapter.settings;
    const auto index = static_cast<std::size_t>(&settings - configuration_.adapters.data());
    const std::string what = fmt::format("adapter {}", settings.name);
    const PropertyList properties(settings.properties);
    QEL_FerrionAdapterPlugin *plugin =
        call(fmt::format("create of {}", what), adapter,
             [&](CallEnvironment &own) { return host_.open(settings, properties.get(), own); });
    if (!environment().failed()) {
        const std::string reason = rejectionOf(plugin);
        if (!reason.empty()) {
            environment().fail(reason);
        }
    }
    if (environment().failed()) {
        board_.failed(ObjectBoard::Kind::adapter, index, "create", environment().text());
        problem(what, adapter, "create", settings.place);
        return;
    }
    adapter.plugin = plugin;
    const std::string origin =
        settings.javaClass.empty() ? settings.library.string() : settings.javaClass;
    const std::string details =
        fmt::format("{}, version {}", origin, version(plugin->adapterVersion));
    board_.made(ObjectBoard::Kind::adapter, index, details);
    reporter_.good(what, details);
}

std::string Assembly::rejectionOf(const QEL_FerrionAdapterPlugin *plugin) const
{
    if (plugin == nullptr) {
        return "no plug-in record";
    }
    if (plugin->magic != QEL_FERRION_PLUGIN_MAGIC) {
        return fmt::format("not a plug-in record (magic number {})", plugin->magic);
    }
    if (plugin->apiVersion.major != apiVersion.major) {
        return fmt::format("made for another plug-in interface ({})", version(plugin->apiVersion));
    }
    const QEL_FerrionAdapterOperations &operations = plugin->operations;
    if (operations.delete_adapter == nullptr || operations.create_connection == nullptr ||
        operations.delete_connection == nullptr || operations.create_session == nullptr ||
        operations.delete_session == nullptr) {
        return "a plug-in without connections or sessions";
    }
    return "";
}

void Assembly::openConnection(Connection &connection)
{
    const ConnectionSettings &settings = *connection.settings;
    const std::string what = fmt::format("connection {}", settings.name);
    const std::size_t index = indexOf(connection);
    if (connection.adapter->plugin == nullptr) {
        board_.failed(ObjectBoard::Kind::connection, index, "create",
                      "its adapter is out of service");
        reporter_.bad(what, "its adapter is out of service", settings.place);
        return;
    }
    const PropertyList properties(settings.properties);
    const QEL_FerrionStreamReaderListener inputs{&source(index, true), onAnnouncement};
    const QEL_FerrionStreamReaderListener outputs{&source(index, false), onAnnouncement};
    connection.handle =
        call(fmt::format("create of {}", what), *connection.adapter, [&](CallEnvironment &own) {
            return connection.operations().create_connection(
                connection.adapter->plugin, nameAt(settings.names, 0), nameAt(settings.names, 1),
                &outputs, &inputs, nullptr, nullptr, properties.get(), own.fresh());
        });
    if (connection.handle == nullptr && !environment().failed()) {
        environment().fail("no connection");
    }
    if (environment().failed()) {
        connection.broken = true;
        board_.failed(ObjectBoard::Kind::connection, index, "create", environment().text());
        problem(what, *connection.adapter, fmt::format("create {}", what), settings.place);
        if (mayRestart(*connection.adapter)) {
            if (!connection.timer) {
                connection.timer.emplace(*configuration_.restart);
            }
            connection.timer->failed(Clock::now());
        }
        markReconnecting();
        return;
    }
    const auto toString = connection.operations().connection_to_string;
    const char *text = toString == nullptr ? nullptr : toString(connection.handle);
    board_.made(ObjectBoard::Kind::connection, index, text == nullptr ? "" : text);
    reporter_.good(what, text == nullptr ? "" : text);
}

std::size_t Assembly::indexOf(const Connection &connection) const
{
    return static_cast<std::size_t>(connection.settings - configuration_.connections.data());
}

Assembly::PluginSession &Assembly::sessionOf(std::size_t session, std::size_t connection)
{
    Connection *const owner = connections_[connection].get();
    for (const auto &known : pluginSessions_) {
        if (known->session == session && known->connection == owner) {
            return *known;
        }
    }
    pluginSessions_.push_back(std::make_unique<PluginSession>());
    PluginSession &made = *pluginSessions_.back();
    made.session = session;
    made.connection = owner;
    if (owner->handle == nullptr || owner->broken) {
        return made;
    }
    const SessionSettings &settings = configuration_.sessions[session];
    const std::string what =
        fmt::format("session {} of connection {}", settings.name, owner->settings->name);
    const PropertyList properties(settings.properties);
    QEL_FerrionSession *handle =
        call(fmt::format("create of {}", what), *owner->adapter, [&](CallEnvironment &own) {
            return owner->operations().create_session(owner->handle, properties.get(), own.fresh());
        });
    if (handle == nullptr && !environment().failed()) {
        environment().fail("no session");
    }
    if (environment().failed()) {
        problem(what, *owner->adapter, fmt::format("create {}", what), settings.place);
        if (!mayRestart(*owner->adapter)) {
            logError("FERRYRelay_build", FERRY_LOG_SESSION_START_FAILURE_s, settings.name.c_str());
        }
    } else {
        made.handle = handle;
        reporter_.good(what, "");
    }
    return made;
}

Assembly::PluginSession *Assembly::attach(RouteEnd &end, const StreamSettings &settings,
                                          const Route &route)
{
    const Connection &connection = *connections_[settings.connection];
    end.settings = &settings;
    end.adapter = &connection.adapter->settings->name;
    PluginSession &found = sessionOf(route.settings().session, settings.connection);
    if (found.handle == nullptr) {
        end.lastFailure.note(
            "create", fmt::format("connection {} is out of service", connection.settings->name));
        reporter_.bad(fmt::format("route {}", route.name()),
                      fmt::format("connection {} is out of service", connection.settings->name),
                      settings.place);
        return nullptr;
    }
    end.operations = &connection.operations();
    return &found;
}

/// The writers come first: a reader may have data from its creation on. If one of them or the
/// reader fails, the writers that exist are deleted.
bool Assembly::openRoute(Route &route)
{
    const RouteSettings &settings = route.settings();
    bool good = true;
    for (std::size_t i = 0; i < settings.outputs.size() && good; ++i) {
        good = openWriter(route, route.deliveries()[i]->end(), settings.outputs[i]);
    }
    good = good && openReader(route);
    if (!good) {
        closeWriters(route);
    } else {
        reporter_.good(
            fmt::format("route {}", route.name()),
            settings.input.buffer
                ? fmt::format("type {}", settings.typeName)
                : fmt::format("type {}, {}", settings.typeName,
                              guaranteeOf(configuration_, settings,
                                          [&](const StreamSettings &end, std::uint32_t role) {
                                              return deliveryOf(settings.session, end, role);
                                          })));
    }
    return good;
}

/// Creates one end of a route; null after reporting why there is none.
template<class Handle, class Create>
Handle *Assembly::openEnd(Route &route, RouteEnd &end, const StreamSettings &settings,
                          const std::string &kind, Create &&create)
{
    PluginSession *const owner = attach(end, settings, route);
    if (owner == nullptr) {
        return nullptr;
    }
    const std::string what = fmt::format("{} of {}", kind, end.label);
    const StreamDescription stream(route.settings(), settings);
    const PropertyList properties(settings.properties);
    Handle *handle = call(
        fmt::format("create of {}", what), *owner->connection->adapter,
        [&](CallEnvironment &own) { return create(*owner, stream.get(), properties.get(), own); });
    if (handle == nullptr && !environment().failed()) {
        environment().fail(fmt::format("no stream {}", kind));
    }
    if (environment().failed()) {
        end.lastFailure.note(fmt::format("create {}", kind), environment().text());
        problem(fmt::format("route {}", route.name()), *owner->connection->adapter,
                fmt::format("create {}", what), settings.place);
        return nullptr;
    }
    return handle;
}

/// What the adapter of an end declares; the properties are those that it is made with.
std::uint32_t Assembly::deliveryOf(std::size_t session, const StreamSettings &end,
                                   std::uint32_t role)
{
    const AdapterSettings &adapter = *connections_[end.connection]->adapter->settings;
    Properties properties = configuration_.sessions[session].properties;
    properties.insert(properties.end(), end.properties.begin(), end.properties.end());
    return host_.delivery(adapter, role, properties);
}

const StreamSettings *Assembly::endWithoutOpaque(const RouteSettings &route)
{
    const auto carries = [&](const StreamSettings &end, std::uint32_t role) {
        return (deliveryOf(route.session, end, role) & FERRY_DELIVERY_OPAQUE) != 0;
    };
    if (!carries(route.input, FERRY_SETTING_OF_READER)) {
        return &route.input;
    }
    const auto found =
        std::find_if(route.outputs.begin(), route.outputs.end(), [&](const StreamSettings &end) {
            return !carries(end, FERRY_SETTING_OF_WRITER);
        });
    return found == route.outputs.end() ? nullptr : &*found;
}

bool Assembly::numbers(const RouteSettings &route)
{
    return !route.input.buffer && (deliveryOf(route.session, route.input, FERRY_SETTING_OF_READER) &
                                   FERRY_DELIVERY_NUMBERS) != 0;
}

/// An output that leaves out samples by their numbers needs a store that gives them, and drops
/// none. The numbers of a source rise only as long as it has one handle. Returns what is missing,
/// or "".
std::string Assembly::obstacleToOnce(const RouteSettings &route, const StreamSettings &output)
{
    if (output.buffer ||
        (deliveryOf(route.session, output, FERRY_SETTING_OF_WRITER) & FERRY_DELIVERY_ONCE) == 0) {
        return "";
    }
    const BufferSettings *const store =
        route.input.buffer ? &configuration_.buffers[*route.input.buffer].settings : nullptr;
    if (store == nullptr || !store->stored) {
        return "only a store gives numbers: add \"store: {}\" to the output";
    }
    return store->letters.empty() && store->whenFull != WhenFull::block
               ? "its store drops samples when it is full: only \"when_full: block\" goes with that"
               : "";
}

void Assembly::rejectOutput(Route &route, const StreamSettings &settings,
                            const std::string &obstacle)
{
    const std::string text = fmt::format(
        "output {}/{} writes each sample once by its number, and {}",
        configuration_.connections[settings.connection].name, settings.stream, obstacle);
    ++problems_;
    route.reject();
    route.input().lastFailure.note("create", text);
    logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_build", route.name(), "{}{}",
             configuration_.prefix(settings.place), text);
    reporter_.bad(fmt::format("route {}", route.name()), text, settings.place);
}

/// Opens what stands between two routes; false after reporting why that failed.
bool Assembly::openBuffer(Route &route, RouteEnd &end, const StreamSettings &settings)
{
    static const std::string adapter = "ferry";
    end.settings = &settings;
    end.adapter = &adapter;
    end.operations = &StoredStream::operations;
    const StateResult result = configuration_.onlyTried ? end.buffer->probe() : end.buffer->open();
    if (result.ok()) {
        return true;
    }
    end.lastFailure.note("open", result.text);
    const bool temporary = configuration_.restart && !end.buffer->isRejected();
    problems_ += temporary ? 0 : 1;
    if (!temporary || admits(end.buffer->label(), result.text.c_str())) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_build", route.name(), "{}{}: {}",
                 configuration_.prefix(settings.place), end.buffer->label(), result.text);
    }
    reporter_.bad(fmt::format("route {}", route.name()), result.text, settings.place);
    return false;
}

bool Assembly::openWriter(Route &route, WriterEnd &output, const StreamSettings &settings)
{
    if (output.buffer != nullptr) {
        const bool good = openBuffer(route, output, settings);
        output.writer = good ? output.buffer->stream().writer() : nullptr;
        output.buffer->stream().setNumbered(numbers(route.settings()));
        output.takesAnything = true;
        return good;
    }
    output.delivery = deliveryOf(route.settings().session, settings, FERRY_SETTING_OF_WRITER);
    const std::string obstacle = obstacleToOnce(route.settings(), settings);
    if (!obstacle.empty()) {
        rejectOutput(route, settings, obstacle);
        return false;
    }
    output.writer = openEnd<QEL_FerrionStreamWriter>(
        route, output, settings, "writer",
        [&](const PluginSession &owner, const QEL_FerrionStreamInfo *info,
            const QEL_FerrionProperties *properties,
            CallEnvironment &own) -> QEL_FerrionStreamWriter * {
            const QEL_FerrionAdapterOperations &table = *output.operations;
            if (table.create_stream_writer == nullptr || table.write == nullptr) {
                own.fail("the adapter has no stream writers");
                return nullptr;
            }
            return table.create_stream_writer(owner.connection->handle, owner.handle, info,
                                              properties, own.fresh());
        });
    return output.writer != nullptr;
}

bool Assembly::openReader(Route &route)
{
    ReaderEnd &input = route.input();
    const QEL_FerrionStreamReaderListener listener = route.listener();
    if (input.buffer != nullptr) {
        if (openBuffer(route, input, route.settings().input)) {
            input.reader = input.buffer->stream().reader();
            input.buffer->stream().start(listener);
        }
        return input.reader != nullptr;
    }
    input.reader = openEnd<QEL_FerrionStreamReader>(
        route, input, route.settings().input, "reader",
        [&](const PluginSession &owner, const QEL_FerrionStreamInfo *info,
            const QEL_FerrionProperties *properties,
            CallEnvironment &own) -> QEL_FerrionStreamReader * {
            const QEL_FerrionAdapterOperations &table = *input.operations;
            if (table.create_stream_reader == nullptr || table.read == nullptr ||
                table.return_loan == nullptr) {
                own.fail("the adapter has no stream readers");
                return nullptr;
            }
            return table.create_stream_reader(owner.connection->handle, owner.handle, info,
                                              properties, &listener, own.fresh());
        });
    return input.reader != nullptr;
}

} // namespace ferry
