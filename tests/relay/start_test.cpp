// Before the relay runs: which Java VM is taken, and what it is started with.
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "folder_test.h"
#include "launcher/virtual_machine.h"
#include "process/flood_gate.h"
#include "process/java_options.h"

namespace {

using namespace ferry;
namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class VmTest : public FolderTest {
protected:
    VmTest()
    {
        locations.systemDirectory = directory / "jvm";
    }

    fs::path install(const std::string &name, const std::string &version)
    {
        const fs::path home = directory / name;
        fs::create_directories(home / "lib/server");
        fs::create_directories(home / "bin");
        std::ofstream(home / "lib/server/libjvm.so") << "";
        std::ofstream(home / "bin/java") << "";
        std::ofstream(home / "release") << "A=\"1\"\nJAVA_VERSION=\"" << version << "\"\n";
        return home;
    }

    /// The home that is chosen, or why the named one is rejected.
    std::string find()
    {
        search = VmSearch();
        findVm(locations, search);
        return search.chosen == nullptr ? "none: " + search.rejection
                                        : search.chosen->home.string();
    }

    VmLocations locations;
    VmSearch search;
};

TEST_F(VmTest, TakesTheNamedOneElseThatOnThePathElseTheSystems)
{
    EXPECT_EQ(find(), "none: ");
    EXPECT_NE(noVmText(search).find((directory / "jvm/default-java").string()), std::string::npos);
    const fs::path seventeen = install("jvm/a-17", "17.0.9");
    const fs::path newest = install("jvm/b-25", "25.0.3");
    install("jvm/c-11", "11.0.2");
    EXPECT_EQ(find(), newest.string());
    fs::create_symlink(seventeen, directory / "jvm/default-java");
    EXPECT_EQ(find(), seventeen.string());
    const fs::path other = install("opt/jdk", "21.0.1");
    fs::create_directories(directory / "bin");
    fs::create_symlink(other / "bin/java", directory / "bin/java");
    locations.path = "/nowhere:" + (directory / "bin").string();
    EXPECT_EQ(find(), other.string());
    EXPECT_EQ(search.chosen->version, 21);
    locations.javaHome = newest.string();
    EXPECT_EQ(find(), newest.string());
    locations.configuration = seventeen;
    EXPECT_EQ(find(), seventeen.string());
    locations.commandLine = other;
    EXPECT_EQ(find(), other.string());
}

TEST_F(VmTest, TakesNoOtherWhenTheNamedOneIsUseless)
{
    install("jvm/b-25", "25.0.3");
    const fs::path old = install("old", "1.8.0_392");
    locations.javaHome = "/nowhere";
    EXPECT_EQ(find(), "none: JAVA_HOME names /nowhere, but there is no such directory");
    locations.javaHome = directory.string();
    EXPECT_EQ(find(), "none: JAVA_HOME names " + directory.string() +
                          ", but it has no lib/server/libjvm.so");
    locations.javaHome = old.string();
    EXPECT_EQ(find(), "none: JAVA_HOME names " + old.string() +
                          ", but it is version 1.8.0_392, older than 17");
}

TEST(JavaOptions, AreFerrysUnlessTheUserHasSetThem)
{
    JavaSettings settings;
    settings.classPath = {"/u.jar"};
    const Texts path = classPathEntries({"/p.jar"}, settings);
    setenv("LD_LIBRARY_PATH", "/mine", 1);
    const std::string libraries =
        "-Djava.library.path=/mine:/usr/java/packages/lib:/usr/lib/x86_64-linux-gnu/jni:"
        "/lib/x86_64-linux-gnu:/usr/lib/x86_64-linux-gnu:/usr/lib/jni:/lib:/usr/lib";
    const std::string logging =
        "-Djava.util.logging.config.class=com.qel.ferrion.relay.LogSettings";
    const std::string level = "-Dcom.qel.ferrion.relay.level=";
    EXPECT_EQ(javaOptions(path, settings, LogLevel::status, 17, "/crash"),
              (Texts{"-Djava.class.path=/p.jar:/u.jar", "-Xrs", "-Xmx512m", "-Dfile.encoding=UTF-8",
                     "-Dstdout.encoding=UTF-8", "-Dstderr.encoding=UTF-8",
                     "-Dsun.stdout.encoding=UTF-8", "-Dsun.stderr.encoding=UTF-8", libraries,
                     logging, level + "INFO", "-XX:ErrorFile=/crash/ferry_java_crash_%p.log"}));
    EXPECT_EQ(javaOptions(path, settings, LogLevel::warning, 17, "/crash")[10], level + "WARNING");
    settings.options = {"-XX:MaxRAMPercentage=50", "-Dfile.encoding=ISO-8859-1",
                        "-Djava.library.path=/y", "-XX:ErrorFile=/x",
                        "-Djava.util.logging.config.file=/z"};
    EXPECT_EQ(
        javaOptions(path, settings, LogLevel::debug, 24, "/crash"),
        (Texts{"-Djava.class.path=/p.jar:/u.jar", "-Xrs", "-Dstdout.encoding=UTF-8",
               "-Dstderr.encoding=UTF-8", "-Dsun.stdout.encoding=UTF-8",
               "-Dsun.stderr.encoding=UTF-8", level + "FINE", "--enable-native-access=ALL-UNNAMED",
               "-XX:MaxRAMPercentage=50", "-Dfile.encoding=ISO-8859-1", "-Djava.library.path=/y",
               "-XX:ErrorFile=/x", "-Djava.util.logging.config.file=/z"}));
}

TEST(JavaOptions, YieldToEachWayOfSettingTheSame)
{
    const auto has = [](const JavaSettings &settings, int version, const std::string &option,
                        const JavaDebugging &debugging = {}, const fs::path &archive = {}) {
        const Texts all =
            javaOptions({}, settings, LogLevel::error, version, "/", debugging, archive);
        return std::find(all.begin(), all.end(), option) != all.end();
    };
    for (const char *own :
         {"-Xmx1g", "-XX:MaxHeapSize=1g", "-XX:MaxRAMPercentage=5", "-XX:MaxRAM=1g"}) {
        JavaSettings settings;
        settings.options = {own};
        EXPECT_FALSE(has(settings, 17, "-Xmx512m")) << own;
        EXPECT_TRUE(has(settings, 17, own));
        EXPECT_TRUE(has(settings, 17, "-Xrs"));
    }
    EXPECT_TRUE(has({}, 17, "-Dcom.qel.ferrion.relay.level=SEVERE"));
    EXPECT_FALSE(has({}, 21, "--enable-native-access=ALL-UNNAMED"));
    EXPECT_TRUE(has({}, 22, "--enable-native-access=ALL-UNNAMED"));
    // The archive: only one that is there, and where the user has none of their own.
    const std::string archive = testing::TempDir() + "ferry_archive.jsa";
    std::ofstream(archive) << "";
    const std::string mapped = "-XX:SharedArchiveFile=" + archive;
    EXPECT_TRUE(has({}, 17, mapped, {}, archive));
    EXPECT_TRUE(has({}, 17, "-Xlog:cds=off,cds+dynamic=off", {}, archive));
    for (const char *own :
         {"-Xshare:off", "-XX:SharedArchiveFile=/x", "-XX:ArchiveClassesAtExit=/x"}) {
        JavaSettings settings;
        settings.options = {own};
        EXPECT_FALSE(has(settings, 17, mapped, {}, archive)) << own;
    }
    fs::remove(archive);
    EXPECT_FALSE(has({}, 17, mapped, {}, archive));
    const std::string agent =
        "-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,quiet=y,address=127.0.0.1:5005";
    EXPECT_TRUE(has({}, 17, agent, {5005, false}));
    EXPECT_FALSE(has({}, 17, "-Xcheck:jni", {5005, false}));
    EXPECT_TRUE(has({}, 17, "-Xcheck:jni", {0, true}));
    EXPECT_TRUE(has({}, 17, "-XX:+DisplayVMOutputToStderr", {0, true}));
    EXPECT_FALSE(has({}, 17, agent, {0, true}));
}

TEST(FloodGate, CountsWhatIsTooMuchOfOneLine)
{
    FloodGate gate;
    const Clock::time_point begin{};
    std::uint64_t heldBack = 0;
    int admitted = 0;
    for (int i = 0; i < 1000; ++i) {
        admitted += gate.admit("a", begin, heldBack) ? 1 : 0;
        EXPECT_TRUE(gate.admit("b" + std::to_string(i), begin, heldBack));
    }
    EXPECT_LT(admitted, 20);
    gate = FloodGate();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(gate.admit("a", begin, heldBack), i < 5);
    }
    EXPECT_FALSE(gate.admit("a", begin + std::chrono::milliseconds(9999), heldBack));
    EXPECT_TRUE(gate.admit("a", begin + std::chrono::seconds(10), heldBack));
    EXPECT_EQ(heldBack, 96U);
    EXPECT_TRUE(gate.admit("a", begin + std::chrono::seconds(10), heldBack));
    EXPECT_EQ(heldBack, 0U);
    // Lines that are all different make room for each other, not for the one that floods.
    gate = FloodGate();
    for (int i = 0; i < 6 + 511; ++i) {
        gate.admit(i < 6 ? "a" : std::to_string(i), begin + std::chrono::seconds(i < 6 ? 5 : 0),
                   heldBack);
    }
    EXPECT_TRUE(gate.admit("b", begin + std::chrono::seconds(10), heldBack));
    EXPECT_FALSE(gate.admit("a", begin + std::chrono::seconds(10), heldBack));
}

} // namespace
