#include "config/keys.h"

#include <algorithm>
#include <iterator>

#include "ferryjni/properties.h"

namespace ferry::keys {
namespace {

constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t day = 24LL * 3600 * 1000 * millisecond;
constexpr std::int64_t mostSamples = 1'000'000;
/// No sample is larger.
constexpr std::int64_t mostBytes = 2'147'483'647;
/// Of what is kept on a disk: 1 PiB.
constexpr std::int64_t mostStored = 1LL << 50;

constexpr FERRY_Setting row(const char *name, std::uint32_t sections, std::uint32_t kind,
                            const char *help, std::uint32_t flags = 0)
{
    return {name, sections, kind, nullptr, 0, 0, nullptr, nullptr, flags, help, nullptr};
}

constexpr FERRY_Setting choice(const char *name, std::uint32_t sections, const char *words,
                               const char *fallback, const char *help)
{
    return {name, sections, FERRY_SETTING_CHOICE, words, 0, 0, nullptr, fallback, 0, help, nullptr};
}

constexpr FERRY_Setting number(const char *name, std::uint32_t sections, std::uint32_t kind,
                               std::int64_t low, std::int64_t high, const char *fallback,
                               const char *help)
{
    return {name, sections, kind, nullptr, low, high, nullptr, fallback, 0, help, nullptr};
}

constexpr std::uint32_t required = FERRY_SETTING_REQUIRED;
constexpr std::uint32_t section = FERRY_SETTING_SECTION;
constexpr std::uint32_t list = FERRY_SETTING_LIST;
constexpr std::uint32_t text = FERRY_SETTING_TEXT;
constexpr std::uint32_t path = FERRY_SETTING_PATH;
constexpr std::uint32_t ends = ofInput | ofOutput;

// clang-format off
constexpr FERRY_Setting rows[] = {
    row("state", ofFile, path, "the directory of stores, positions and dead letters; NAME.state beside the file if nothing says"),
    row("restart", ofFile, section, "when connections and routes that are out of service are made anew"),
    row("control", ofFile, path, "the socket for status, pause and the like; one in the user's directory for such if nothing says; off for none"),
    row("http", ofFile, section, "what is shown over HTTP: metrics and status, to be read only; nothing if it is not there"),
    row("dead_letters", ofFile, section, "what is kept of bad data"),
    row("types", ofFile, list, "types of samples, as IDL"),
    row("java", ofFile, section, "the Java VM and what all Java adapters share"),
    row("log", ofFile, section, "what is logged, and where"),
    row("adapters", ofFile, section, "adapters by name: what makes connections"),
    row("connections", ofFile, section, "connections by name"),
    row("sessions", ofFile, section, "threads by name; one of the name default if there are none"),
    row("routes", ofFile, section, "routes by name: what moves samples from an input to outputs"),
    row("discovery", ofFile, section, "rules by name that make routes for streams that are announced"),

    row("file", ofType, path, "a file of IDL"),
    row("idl", ofType, text, "IDL, in the configuration itself"),
    row("include", ofType, list, "folders in which files are looked for that the IDL includes, behind the folder of the file that includes them"),

    row("home", ofJava, path, "the Java installation"),
    row("class_path", ofJava | ofAdapter, list, "jars and folders of jars or classes; of an adapter, seen by it alone"),
    row("options", ofJava, list, "options of the Java VM, one per entry"),

    choice("level", ofLog, "error warning status debug", "status", "the least severe messages that are logged"),
    row("file", ofLog, path, "where run logs instead of standard error"),

    row("listen", ofHttp, text, "an address and a port, 127.0.0.1:9464; one that is not of the loopback needs token_file", required),
    row("token_file", ofHttp, path, "a file with a token, without which nothing is shown: Authorization: Bearer TOKEN"),

    row("class", ofAdapter, text, "a Java adapter: its class, or the short name of an installed one"),
    row("plugin", ofAdapter, text, "a native adapter of the installation by its name"),
    row("library", ofAdapter, path, "a native adapter elsewhere: its shared library"),
    row("entry", ofAdapter, text, "the entry point of that library"),

    row("adapter", ofConnection, text, "the adapter that makes it", required),
    row("names", ofConnection, list, "up to two names, handed to the adapter as they are"),

    number("period", ofSession, FERRY_SETTING_DURATION, millisecond, day, "100ms", "how often inputs are read that do not report their data"),
    number("batch", ofSession, FERRY_SETTING_WHOLE, 1, mostSamples, nullptr, "most samples of one write to each output of its routes; 1024 if nothing says"),
    number("batch_bytes", ofSession, FERRY_SETTING_BYTES, 1, mostBytes, defaultBatchText, "a write is full with the sample that brings it to so many bytes"),

    row("session", ofRoute | ofDiscovery, text, "the session that moves its samples; needed if there are several"),
    row("type", ofRoute, text, "the type of its samples: a struct of types; without it the route is made when its input is announced, with the type that is"),
    row("input", ofRoute, section, "the stream that is read", required),
    row("input", ofDiscovery, section, "the stream that is read, with direction output"),
    row("outputs", ofRoute, list, "the streams that are written, at least one", required),
    row("outputs", ofDiscovery, list, "the streams that are written, with direction input"),
    choice("on_error", ofRoute | ofDiscovery, "retry continue stop", "retry", "what becomes of samples that an output does not take: they are offered again, they are lost, or the route stops"),
    choice("dead_letter", ofRoute | ofDiscovery, "keep none", "keep", "with on_error: retry: whether bad data is set aside, or stops the route"),

    row("connection", ofDiscovery, text, "the connection whose streams are announced", required),
    choice("direction", ofDiscovery, "input output", "input", "whether announced streams are read, or written"),
    row("allow", ofDiscovery, section, "patterns of what gets a route; all if there are none"),
    row("deny", ofDiscovery, section, "patterns of what gets none"),
    row("rename", ofDiscovery, list, "names that ${stream} stands for at the other end; the first that fits counts"),
    row("qos", ofDiscovery, list, "properties of the announced end, for some streams; of a property that several give the last one counts"),
    choice("partitions", ofDiscovery, "apart merged", nullptr, "whether streams of one name in different partitions get routes of their own; apart if the other ends can tell them apart"),
    number("grace", ofDiscovery, FERRY_SETTING_DURATION, 0, day, nullptr, "how long a route outlives its stream; the adapter's to say if it is not there"),

    number("first", ofRetry, FERRY_SETTING_DURATION, millisecond, day, "100ms", "the longest pause after a first failure; it doubles with each one"),
    number("max", ofRetry, FERRY_SETTING_DURATION, millisecond, day, "30s", "the longest pause of all"),
    number("for", ofRetry, FERRY_SETTING_DURATION, 0, day, "0s", "how long failures may last until the route stops; 0s for ever"),

    number("first", ofRestart, FERRY_SETTING_DURATION, millisecond, day, "1s", "the longest pause after a first failure; it doubles with each one"),
    number("max", ofRestart, FERRY_SETTING_DURATION, millisecond, day, "1m", "the longest pause of all"),
    number("for", ofRestart, FERRY_SETTING_DURATION, 0, day, "0s", "how long it may go on failing until it is given up; 0s for ever"),

    row("path", ofStore, path, "the file; one in the state directory if nothing says"),
    number("max_bytes", ofStore, FERRY_SETTING_BYTES, 65536, mostStored, "1GiB", "how many bytes of samples it keeps"),
    choice("when_full", ofStore, "block drop_oldest drop_newest", "block", "what becomes of further samples: they wait at their source, or some are lost"),

    number("max_bytes", ofDeadLetters, FERRY_SETTING_BYTES, 65536, mostStored, "256MiB", "how many bytes are kept; a route with more of them waits"),

    row("from", ofRename, text, "a regular expression (ECMAScript) for the whole of a stream's name", required),
    row("to", ofRename, text, "the other name; $1 is what the first group matched", required),

    row("match", ofQos, section, "patterns of the streams", required),

    row("stream", ofPatterns, list, "patterns of stream names"),
    row("type", ofPatterns, list, "patterns of type names"),
    row("partition", ofPatterns, list, "patterns of partitions; the default one is \"\""),

    row("connection", ends, text, "the connection that it belongs to", required),
    row("stream", ends, text, "the stream's name", required),
    number("batch_bytes", ofOutput, FERRY_SETTING_BYTES, 1, mostBytes, nullptr, "the session's batch_bytes for this output"),
    row("required", ofOutput, FERRY_SETTING_FLAG, "false: best effort; it never holds up other outputs, and what it does not take in time is lost"),
    row("retry", ofOutput, section, "when samples that it did not take are offered again"),
    row("store", ofOutput, section, "keeps its samples on the disk until it has taken them"),
    row("properties", ofAdapter | ofConnection | ofSession | ends | ofDiscovery | ofQos, section, "what the adapter makes of it; of a rule: of the announced end"),
};
// clang-format on

} // namespace

const std::vector<SectionKind> sections = {
    {ofFile, "file", "", false},
    {ofType, "types", "types", false},
    {ofJava, "java", "java", false},
    {ofLog, "log", "log", false},
    {ofAdapter, "adapters", "adapters", true},
    {ofConnection, "connections", "connections", true},
    {ofSession, "sessions", "sessions", true},
    {ofRoute, "routes", "routes", true},
    {ofInput, "input", "input", false},
    {ofOutput, "output", "outputs", false},
    {ofDiscovery, "rules", "discovery", true},
    {ofRename, "rename", "rename", false},
    {ofQos, "qos", "qos", false},
    {ofPatterns, "patterns", "allow deny match", false},
    {ofRetry, "retry", "retry", false},
    {ofRestart, "restart", "restart", false},
    {ofStore, "store", "store", false},
    {ofHttp, "http", "http", false},
    {ofDeadLetters, "dead letters", "dead_letters", false},
};

const FERRY_SettingTable table = {FERRY_SETTINGS_VERSION, std::size(rows), rows};

std::vector<FERRY_Setting> of(std::uint32_t role)
{
    std::vector<FERRY_Setting> keys;
    std::copy_if(std::begin(rows), std::end(rows), std::back_inserter(keys),
                 [&](const FERRY_Setting &row) { return (row.roles & role) != 0; });
    return keys;
}

const FERRY_Setting samplesPerWrite =
    number(FERRYJNI_PROPERTY_MAX_SAMPLES_PER_WRITE, ofOutput, FERRY_SETTING_WHOLE, 1, mostSamples,
           nullptr, "most samples of one write");

} // namespace ferry::keys
