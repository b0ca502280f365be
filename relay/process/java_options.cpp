#include "process/java_options.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>

namespace ferry {
namespace {

/// The first release that warns of native code loaded without leave, and knows the option for all
/// of the class path.
constexpr int nativeAccessVersion = 22;

bool userSets(const JavaSettings &settings, const std::vector<std::string> &prefixes)
{
    return std::any_of(settings.options.begin(), settings.options.end(), [&](const auto &option) {
        return std::any_of(prefixes.begin(), prefixes.end(),
                           [&](const auto &prefix) { return option.rfind(prefix, 0) == 0; });
    });
}

/// Where Debian's own VMs look for native libraries of Java packages, such as a database driver's:
/// a VM from elsewhere would not find them.
std::string libraryPath()
{
    const char *const first = std::getenv("LD_LIBRARY_PATH");
    return fmt::format("{}{}/usr/java/packages/lib:/usr/lib/{arch}/jni:/lib/{arch}:/usr/lib/{arch}:"
                       "/usr/lib/jni:/lib:/usr/lib",
                       first == nullptr ? "" : first, first == nullptr ? "" : ":",
                       fmt::arg("arch", FERRY_LIBRARY_ARCHITECTURE));
}

/// As the JDK's loggers name it.
const char *javaLevel(LogLevel level)
{
    switch (level) {
    case LogLevel::error:
        return "SEVERE";
    case LogLevel::warning:
        return "WARNING";
    case LogLevel::status:
        return "INFO";
    case LogLevel::debug:
        break;
    }
    return "FINE";
}

} // namespace

std::vector<std::string> classPathEntries(const std::vector<std::string> &productJars,
                                          const JavaSettings &settings)
{
    std::vector<std::string> entries = productJars;
    entries.insert(entries.end(), settings.classPath.begin(), settings.classPath.end());
    return entries;
}

std::vector<std::string> javaOptions(const std::vector<std::string> &classPath,
                                     const JavaSettings &settings, LogLevel level, int vmVersion,
                                     const std::filesystem::path &errorDirectory,
                                     const JavaDebugging &debugging,
                                     const std::filesystem::path &classArchive)
{
    // As an option of its own the class path is exactly this: an empty one, or one made of few
    // entries elsewhere, would let the environment's CLASSPATH or the current directory in.
    std::vector<std::string> options = {
        fmt::format("-Djava.class.path={}", fmt::join(classPath, ":"))};
    const auto unlessSet = [&](const std::string &option,
                               const std::vector<std::string> &prefixes) {
        if (!userSets(settings, prefixes)) {
            options.push_back(option);
        }
    };
    // Signals are the relay's, not the VM's.
    unlessSet("-Xrs", {"-Xrs"});
    // The VM's own default is a quarter of the machine.
    unlessSet("-Xmx512m", {"-Xmx", "-XX:MaxHeapSize", "-XX:MaxRAMPercentage", "-XX:MaxRAM="});
    for (const char *name : {"file.encoding", "stdout.encoding", "stderr.encoding",
                             "sun.stdout.encoding", "sun.stderr.encoding"}) {
        const std::string option = fmt::format("-D{}=", name);
        unlessSet(fmt::format("{}UTF-8", option), {option});
    }
    unlessSet(fmt::format("-Djava.library.path={}", libraryPath()), {"-Djava.library.path="});
    // What adapters log in Java stands among our own lines, from the same level on.
    unlessSet("-Djava.util.logging.config.class=com.qel.ferrion.relay.LogSettings",
              {"-Djava.util.logging."});
    options.push_back(fmt::format("-Dcom.qel.ferrion.relay.level={}", javaLevel(level)));
    unlessSet(
        fmt::format("-XX:ErrorFile={}", (errorDirectory / "ferry_java_crash_%p.log").string()),
        {"-XX:ErrorFile="});
    if (vmVersion >= nativeAccessVersion) {
        unlessSet("--enable-native-access=ALL-UNNAMED", {"--enable-native-access"});
    }
    std::error_code error;
    if (std::filesystem::exists(classArchive, error) &&
        !userSets(settings, {"-Xshare:", "-XX:SharedArchiveFile", "-XX:ArchiveClassesAtExit"})) {
        // One that does not fit is of no use and does no harm: nobody needs to read about it.
        options.insert(options.end(),
                       {fmt::format("-XX:SharedArchiveFile={}", classArchive.string()),
                        "-Xlog:cds=off,cds+dynamic=off"});
    }
    if (debugging.port != 0) {
        // Quiet: what the agent would say goes to standard output, among the results.
        options.push_back(
            fmt::format("-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,quiet=y,address={}",
                        debuggerAddress(debugging.port)));
    }
    if (debugging.check) {
        options.insert(options.end(), {"-Xcheck:jni", "-XX:+DisplayVMOutputToStderr"});
    }
    options.insert(options.end(), settings.options.begin(), settings.options.end());
    return options;
}

} // namespace ferry
