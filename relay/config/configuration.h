// What a configuration file says, after it has been checked whole. Plain values: made on the main
// thread before anything starts, read-only afterwards, so every thread may look at it.
#ifndef FERRY_CONFIG_CONFIGURATION_H
#define FERRY_CONFIG_CONFIGURATION_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "config/diagnostics.h"
#include "config/keys.h"
#include "qddsc/type_code.h"

namespace ferry {

/// Property names and values in the order of the file, nested names joined by dots.
using Properties = std::vector<std::pair<std::string, std::string>>;

enum class LogLevel { error, warning, status, debug };

struct LogSettings {
    LogLevel level = LogLevel::status;
    /// Absolute; empty for standard error.
    std::filesystem::path file;
    Place place{};
};

/// Where operators can ask and steer a relay that runs.
struct ControlSettings {
    bool on = true;
    /// Absolute; empty for a socket in the directory that is this user's for such.
    std::filesystem::path path;
    Place place{};
};

/// What is shown over HTTP, if anything.
struct HttpSettings {
    /// As it is written; empty for none.
    std::string listen;
    /// Its two parts: a numeric address, and the port.
    std::string address;
    std::uint16_t port = 0;
    /// Absolute; empty if who asks needs none.
    std::filesystem::path tokenFile;
    Place place{};
};

struct JavaSettings {
    /// Absolute; empty when the file does not say.
    std::filesystem::path home;
    /// Absolute entries beside those of the product, directories already expanded.
    std::vector<std::string> classPath;
    std::vector<std::string> options;
};

/// Where an adapter's plug-in comes from: a Java class, a native library and its entry point, or a
/// native plug-in of this installation by its name.
struct AdapterSettings {
    std::string name;
    /// Slash-separated, as the VM looks it up; empty for a native adapter.
    std::string javaClass;
    /// Absolute; empty for a Java adapter. Of a plug-in of the installation it is only a file name
    /// until somebody who knows the installation completes it.
    std::filesystem::path library;
    std::string entry;
    Properties properties;
    /// Absolute entries that this Java adapter alone sees, directories already expanded.
    std::vector<std::string> classPath;
    /// Jars that come with an adapter of the installation, behind those. Only somebody who knows
    /// the installation can fill them in.
    std::vector<std::string> installedJars;
    Place place{};

    /// All that this adapter does not share with others.
    std::vector<std::string> ownEntries() const
    {
        std::vector<std::string> entries = classPath;
        entries.insert(entries.end(), installedJars.begin(), installedJars.end());
        return entries;
    }
};

struct ConnectionSettings {
    std::string name;
    std::size_t adapter = 0;
    /// Handed to the adapter as they are; a missing one is a null name.
    std::vector<std::string> names;
    Properties properties;
    Place place{};
};

struct SessionSettings {
    std::string name;
    std::chrono::milliseconds period{100};
    /// Samples per write of outputs that do not say otherwise; 0 when the file does not say.
    std::int32_t batch = 0;
    Properties properties;
    /// Bytes per write of outputs that do not say otherwise.
    std::uint64_t batchBytes = keys::defaultBatchBytes;
    Place place{};
};

/// How something that fails is tried again: after pauses that double, up to a longest one.
struct RetrySettings {
    std::chrono::milliseconds first{100};
    std::chrono::milliseconds max{30000};
    /// How long it may go on failing; 0 for ever.
    std::chrono::milliseconds limit{0};
    /// Whether a sample that is offered alone and not taken is bad data at once.
    bool oneAttempt = false;
};

/// What a full buffer does with further samples.
enum class WhenFull { block, dropOldest, dropNewest };

/// Samples on their way to an output that goes its own way.
struct BufferSettings {
    /// On the disk, through restarts; else in memory.
    bool stored = true;
    /// Absolute; empty for a file in the state directory.
    std::filesystem::path path;
    std::uint64_t maxBytes = 0;
    WhenFull whenFull = WhenFull::block;
    /// The dead letters of the file `path` that are to go to the output once more, by their
    /// numbers, and nothing else; empty for a buffer that a route fills.
    std::set<std::int64_t> letters = {};
};

/// A buffer, with whose it is.
struct OutputBuffer {
    BufferSettings settings;
    std::string route;
    /// "connection/stream".
    std::string output;
    const DDS_TypeCode *type = nullptr;
    /// Of one write to the output.
    std::int32_t maxSamples = 0;
    std::uint64_t batchBytes = 0;
    Place place{};
};

struct StreamSettings {
    /// Of an input that is a buffer: none.
    std::size_t connection = 0;
    std::string stream;
    /// Of a stream that was announced; empty when nothing is known.
    std::vector<std::string> partitions;
    Properties properties;
    /// Outputs only: the most samples of one write call.
    std::int32_t maxSamplesPerWrite = 0;
    /// Outputs only: the bytes of samples with which a write call is full.
    std::uint64_t batchBytes = keys::defaultBatchBytes;
    Place place{};
    /// Outputs only: what becomes of samples that it does not take.
    RetrySettings retry{};
    /// Outputs only: the buffer that it is to have.
    std::optional<BufferSettings> own;
    /// Index of the buffer that stands for this end.
    std::optional<std::size_t> buffer;
};

/// What becomes of a route whose output does not take its samples: they are offered again, they
/// are lost, or the route stops.
enum class OnError { retry, carryOn, stop };

struct RouteSettings {
    std::string name;
    std::size_t session = 0;
    std::string typeName;
    const DDS_TypeCode *type = nullptr;
    StreamSettings input;
    std::vector<StreamSettings> outputs;
    OnError onError = OnError::retry;
    /// Whether bad data is set aside, or stops the route.
    bool deadLetters = true;
};

/// Glob patterns by what they are held against.
struct StreamPatterns {
    std::vector<std::string> stream;
    std::vector<std::string> type;
    /// The default partition is "".
    std::vector<std::string> partition;
};

/// Routes that are made at run time, for streams that a connection announces.
/// Another name for streams.
struct RenameSettings {
    std::regex from;
    /// With $1 and the like for what groups matched.
    std::string to;
};

/// Properties for some of the streams of a rule.
struct QosSettings {
    StreamPatterns match;
    Properties properties;
};

struct DiscoverySettings {
    std::string name;
    /// Whose announcements count.
    std::size_t connection = 0;
    /// Announced input streams are read; else announced output streams are written.
    bool inputs = true;
    /// An empty list allows everything; one entry in a list is enough.
    StreamPatterns allow;
    StreamPatterns deny;
    /// What `${stream}` stands for; the stream's own name where none fits.
    std::vector<RenameSettings> rename;
    /// For the announced end, on top of its properties there.
    std::vector<QosSettings> qos;
    /// Whether the streams of one name that differ in their partitions share a route.
    bool merged = false;
    /// It stands for a route of the file that has no type.
    bool single = false;
    /// How long a route outlives its stream, in case that comes back; without a value the
    /// adapter decides whether it does at all.
    std::optional<std::chrono::milliseconds> grace;
    /// Each route, but for its name and type. The stream of the announced end is empty; other
    /// streams and properties may hold `${stream}`, `${type}` and `${partitions}`.
    RouteSettings route;
};

/// Properties with their places in the file, for what only the adapter itself can check.
struct PropertySource {
    /// A FERRY_SETTING_OF_... bit.
    std::uint32_t role = 0;
    /// Of an adapter itself, else of the connection.
    std::size_t owner = 0;
    /// As in messages: "connections.db".
    std::string path;
    Place place{};
    std::map<std::string, Place> places;
    Properties properties;
};

/// Adapters, connections and sessions are referred to by their index.
struct Configuration {
    /// As the user wrote it; stands before a place in messages.
    std::string file;
    /// The file's name without directory and extension: what the service is called in messages.
    std::string name;
    /// Absolute directory that relative paths of the file start from.
    std::filesystem::path directory;
    LogSettings log;
    ControlSettings control;
    HttpSettings http;
    JavaSettings java;
    /// Absolute. Made when something is first kept.
    std::filesystem::path state;
    Place statePlace{};
    std::uint64_t deadLetterBytes = 0;
    /// Nothing is moved: what is there is only looked at.
    bool onlyTried = false;
    /// Each between two routes: what is put into it moves on in a session of its own.
    std::vector<OutputBuffer> buffers;
    /// How connections and routes that are out of service are made anew; without a value they are
    /// not.
    std::optional<RetrySettings> restart;
    std::vector<AdapterSettings> adapters;
    std::vector<ConnectionSettings> connections;
    std::vector<SessionSettings> sessions;
    std::vector<RouteSettings> routes;
    std::vector<DiscoverySettings> discovery;
    /// The named structs of `types`, for streams that are announced without one.
    std::map<std::string, const DDS_TypeCode *> types;
    /// What in the IDL of the types has no effect, a line each.
    std::vector<std::string> typeNotes;
    std::vector<PropertySource> sources;

    /// What stands before a message about a place in the file: "relay.yaml:4:7: ", or nothing.
    std::string prefix(Place place) const
    {
        return place.line == 0 ? "" : fmt::format("{}:{}:{}: ", file, place.line, place.column);
    }
    /// Whether any adapter is a Java class.
    bool needsJava() const
    {
        return std::any_of(adapters.begin(), adapters.end(),
                           [](const auto &adapter) { return !adapter.javaClass.empty(); });
    }
};

constexpr std::size_t noConnection = std::numeric_limits<std::size_t>::max();

/// What stands before and after the name of an installation's plug-in in its file name.
constexpr const char pluginPrefix[] = "libferryadapter_";
constexpr const char *pluginSuffix = ".so";

/// The entry point of an installation's plug-in.
inline std::string pluginEntry(const std::string &name)
{
    return "FerryAdapter_" + name + "_create";
}

} // namespace ferry

#endif
