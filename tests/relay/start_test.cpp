// Before the relay runs: which Java VM is taken, and what it is started with.
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "engine/java_options.h"
#include "launcher/virtual_machine.h"

namespace {

using namespace ferry;
namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class VmTest : public testing::Test {
protected:
    VmTest()
    {
        std::string pattern = testing::TempDir() + "ferry_vm_XXXXXX";
        root = fs::canonical(mkdtemp(pattern.data()));
        places.systemDirectory = root / "jvm";
    }
    ~VmTest() override
    {
        fs::remove_all(root);
    }

    fs::path install(const std::string &name, const std::string &version)
    {
        const fs::path home = root / name;
        fs::create_directories(home / "lib/server");
        fs::create_directories(home / "bin");
        std::ofstream(home / "lib/server/libjvm.so") << "";
        std::ofstream(home / "bin/java") << "";
        std::ofstream(home / "release") << "A=\"1\"\nJAVA_VERSION=\"" << version << "\"\n";
        return home;
    }

    /// The home that is chosen, or the refusal.
    std::string find()
    {
        search = VmSearch();
        findVm(places, search);
        return search.chosen == nullptr ? "none: " + search.refusal : search.chosen->home.string();
    }

    fs::path root;
    VmPlaces places;
    VmSearch search;
};

TEST_F(VmTest, TakesTheNamedOneElseThatOnThePathElseTheSystems)
{
    EXPECT_EQ(find(), "none: ");
    EXPECT_NE(noVmText(search).find((root / "jvm/default-java").string()), std::string::npos);
    const fs::path seventeen = install("jvm/a-17", "17.0.9");
    const fs::path newest = install("jvm/b-25", "25.0.3");
    install("jvm/c-11", "11.0.2");
    EXPECT_EQ(find(), newest.string());
    fs::create_symlink(seventeen, root / "jvm/default-java");
    EXPECT_EQ(find(), seventeen.string());
    const fs::path other = install("opt/jdk", "21.0.1");
    fs::create_directories(root / "bin");
    fs::create_symlink(other / "bin/java", root / "bin/java");
    places.path = "/nowhere:" + (root / "bin").string();
    EXPECT_EQ(find(), other.string());
    EXPECT_EQ(search.chosen->version, 21);
    places.javaHome = newest.string();
    EXPECT_EQ(find(), newest.string());
    places.configuration = seventeen;
    EXPECT_EQ(find(), seventeen.string());
    places.commandLine = other;
    EXPECT_EQ(find(), other.string());
}

TEST_F(VmTest, TakesNoOtherWhenTheNamedOneIsUseless)
{
    install("jvm/b-25", "25.0.3");
    const fs::path old = install("old", "11.0.2");
    places.javaHome = "/nowhere";
    EXPECT_EQ(find(), "none: JAVA_HOME names /nowhere, but there is no such directory");
    places.javaHome = root.string();
    EXPECT_EQ(find(),
              "none: JAVA_HOME names " + root.string() + ", but it has no lib/server/libjvm.so");
    places.javaHome = old.string();
    EXPECT_EQ(find(), "none: JAVA_HOME names " + old.string() +
                          ", but it is version 11.0.2, older than 17");
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
    const std::string logFormat = "-Djava.util.logging.SimpleFormatter.format=%1$tFT%1$tT.%1$tL"
                                  "%1$tz %4$s %3$s: %5$s%6$s%n";
    EXPECT_EQ(javaOptions(path, settings, 17, "/crash"),
              (Texts{"-Djava.class.path=/p.jar:/u.jar", "-Xrs", "-Xmx512m", "-Dfile.encoding=UTF-8",
                     "-Dstdout.encoding=UTF-8", "-Dstderr.encoding=UTF-8",
                     "-Dsun.stdout.encoding=UTF-8", "-Dsun.stderr.encoding=UTF-8", libraries,
                     logFormat, "-XX:ErrorFile=/crash/ferry_java_crash_%p.log"}));
    settings.options = {"-XX:MaxRAMPercentage=50", "-Dfile.encoding=ISO-8859-1",
                        "-Djava.library.path=/y", "-XX:ErrorFile=/x"};
    EXPECT_EQ(javaOptions(path, settings, 24, "/crash"),
              (Texts{"-Djava.class.path=/p.jar:/u.jar", "-Xrs", "-Dstdout.encoding=UTF-8",
                     "-Dstderr.encoding=UTF-8", "-Dsun.stdout.encoding=UTF-8",
                     "-Dsun.stderr.encoding=UTF-8", logFormat, "--enable-native-access=ALL-UNNAMED",
                     "-XX:MaxRAMPercentage=50", "-Dfile.encoding=ISO-8859-1",
                     "-Djava.library.path=/y", "-XX:ErrorFile=/x"}));
}

} // namespace
