// What a configuration file may say, and how a mistake in it is told.
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "config/load.h"

namespace {

using namespace ferry;
namespace fs = std::filesystem;

class ConfigTest : public testing::Test {
protected:
    ConfigTest()
    {
        std::string pattern = testing::TempDir() + "ferry_config_XXXXXX";
        directory = mkdtemp(pattern.data());
        write("p.idl", "module m { struct P { long x; }; enum Color { RED }; };\n");
    }
    ~ConfigTest() override
    {
        fs::remove_all(directory);
    }

    void write(const std::string &name, const std::string &text)
    {
        std::ofstream(directory / name, std::ios::binary) << text;
    }

    std::optional<Configuration> load(const std::string &text)
    {
        write("c.yaml", text);
        Diagnostics diagnostics((directory / "c.yaml").string());
        auto result = loadConfiguration((directory / "c.yaml").string(), diagnostics);
        messages.clear();
        for (std::string line : diagnostics.lines()) {
            const std::string prefix = directory.string() + "/";
            for (std::size_t at; (at = line.find(prefix)) != std::string::npos;) {
                line.erase(at, prefix.size());
            }
            messages += line + "\n";
        }
        EXPECT_EQ(result.has_value(), messages.empty());
        return result;
    }

    fs::path directory;
    std::string messages;
};

/// Line 1 to 6 of every broken file below; what a case adds starts in line 7.
const std::string head = "types:\n"
                         "  - file: p.idl\n"
                         "adapters:\n"
                         "  files: {class: a.b.C}\n"
                         "connections:\n"
                         "  in: {adapter: files}\n";
const std::string route = "routes:\n"
                          "  r:\n"
                          "    type: m::P\n"
                          "    input: {connection: in, stream: s}\n"
                          "    outputs:\n"
                          "      - {connection: in, stream: t}\n";

struct Case {
    const char *text;
    const char *message;
    bool withHead;
};

void PrintTo(const Case &mistake, std::ostream *out)
{
    const std::string message = mistake.message;
    *out << message.substr(0, message.find('\n'));
}

class ConfigMistake : public ConfigTest, public testing::WithParamInterface<Case> {};

TEST_P(ConfigMistake, IsToldWithItsPlace)
{
    load(GetParam().withHead ? head + GetParam().text : std::string(GetParam().text));
    EXPECT_EQ(messages, GetParam().message);
}

#define IN_ROUTE "routes:\n  r:\n    type: m::P\n"
#define GOOD_OUT "    outputs: [{connection: in, stream: t}]\n"
#define GOOD_IN "    input: {connection: in, stream: s}\n"

const Case mistakes[] = {
    // Keys.
    {IN_ROUTE "    input: {conection: in, stream: s}\n" GOOD_OUT,
     "c.yaml:10:13: unknown key \"conection\" in routes.r.input; did you mean \"connection\"?\n",
     true},
    {"adaptors: {}\nroutes: {}\n",
     "c.yaml:1:1: unknown key \"adaptors\"; did you mean \"adapters\"?\n", false},
    {"zzz: 1\n", "c.yaml:1:1: unknown key \"zzz\"\n", false},
    {IN_ROUTE GOOD_IN "    input: {connection: in, stream: u}\n" GOOD_OUT,
     "c.yaml:11:5: key \"input\" in routes.r is given twice (first in line 10)\n", true},
    // References.
    {IN_ROUTE "    input: {connection: inn, stream: s}\n" GOOD_OUT,
     "c.yaml:10:25: routes.r.input.connection: there is no connection \"inn\"; did you mean "
     "\"in\"?\n",
     true},
    {"routes:\n  r:\n    type: m::Q\n" GOOD_IN GOOD_OUT,
     "c.yaml:9:11: routes.r.type: there is no type \"m::Q\"; did you mean \"m::P\"?\n", true},
    {"routes:\n  r:\n    type: m::Color\n" GOOD_IN GOOD_OUT,
     "c.yaml:9:11: routes.r.type: \"m::Color\" is not a struct\n", true},
    {"sessions: {a: , b: }\n" IN_ROUTE GOOD_IN GOOD_OUT,
     "c.yaml:10:5: missing key \"session\" in routes.r: there is more than one session\n", true},
    {"sessions: {a: , b: }\n" IN_ROUTE "    session: c\n" GOOD_IN GOOD_OUT,
     "c.yaml:11:14: routes.r.session: there is no session \"c\"\n", true},
    // Kinds and values.
    {"sessions: {main: {period: 100}}\n",
     "c.yaml:7:27: sessions.main.period must be a duration from "
     "1ms to 24h, such as 100ms, 2s, 5m or 1h, not \"100\"\n",
     true},
    {"sessions: {main: {period: 0ms, batch: 0}}\n",
     "c.yaml:7:27: sessions.main.period must be a duration from 1ms to 24h, such as 100ms, 2s, 5m "
     "or "
     "1h, not \"0ms\"\n"
     "c.yaml:7:39: sessions.main.batch must be a whole number from 1 to 1000000, not \"0\"\n",
     true},
    {IN_ROUTE GOOD_IN "    outputs: []\n",
     "c.yaml:11:14: routes.r.outputs must be a list of at least one output\n", true},
    {IN_ROUTE GOOD_IN GOOD_OUT "    on_error: stopp\n",
     "c.yaml:12:15: routes.r.on_error must be continue or stop, not \"stopp\"; did you mean "
     "\"stop\"?\n",
     true},
    {IN_ROUTE GOOD_IN
     "    outputs:\n      - connection: in\n        stream: t\n        properties:\n"
     "          qel.ferrion.jni.max_samples_per_write: many\n",
     "c.yaml:12:9: routes.r.outputs[0]: property qel.ferrion.jni.max_samples_per_write must be a "
     "whole number from 1 to 1000000, not \"many\"\n",
     true},
    {"log: {level: loud}\n",
     "c.yaml:7:14: log.level must be error, warning, status or debug, not \"loud\"\n", true},
    {"java: {options: [-Djava.class.path=x, Xmx1g], class_path: [nowhere.jar]}\n",
     "c.yaml:7:18: the class path is set with java.class_path, not with an option\n"
     "c.yaml:7:39: \"Xmx1g\" is no option of the Java VM: options start with '-', one per entry\n"
     "c.yaml:7:60: java.class_path: there is no nowhere.jar\n",
     true},
    {"adapters: {a: {class: x, library: y.so, entry: z}, b: {library: y.so}, c: }\n",
     "c.yaml:1:12: adapters.a must have either \"class\" or \"library\"\n"
     "c.yaml:1:55: missing key \"entry\" in adapters.b\n"
     "c.yaml:1:75: missing key \"class\" in adapters.c\n",
     false},
    // Properties.
    {"adapters: {a: {class: x, properties: {list: [1, 2], q: {r: 1}, q.r: 2}}}\n",
     "c.yaml:1:45: adapters.a.properties.list is a list, which a property cannot be: write one "
     "text, "
     "in the form that the adapter documents\n"
     "c.yaml:1:64: property \"q.r\" is given twice\n",
     false},
    {"adapters: {a: {class: x, properties: &p {self: *p}}}\n",
     "c.yaml:1:38: "
     "adapters.a.properties.self.self.self.self.self.self.self.self.self.self.self.self."
     "self.self.self.self.self is nested too deeply\n",
     false},
    {"adapters: {a: {class: x, properties: {e: \"\\U0001F600\", n: \"a\\0b\"}}}\n",
     "c.yaml:1:42: the value of adapters.a.properties.e holds a character beyond U+FFFF "
     "(\"\xF0\x9F\x98\x80\"), which cannot be handed to Java unchanged\n"
     "c.yaml:1:59: the value of adapters.a.properties.n holds a NUL character, which cannot be "
     "handed "
     "to Java\n",
     false},
    {"adapters: {a\xF0\x9F\x98\x80: {class: x}}\n",
     "c.yaml:1:12: a key in adapters holds a character beyond U+FFFF (\"\xF0\x9F\x98\x80\"), which "
     "cannot be handed to Java unchanged\n",
     false},
    // The file as a whole.
    {"routes: {r: \xC3}\n", "c.yaml:1:13: the file is not valid UTF-8 here\n", false},
    {"a: [1,\n", "c.yaml:2:1: not valid YAML: end of sequence flow not found\n", false},
    {"- a\n", "c.yaml:1:1: the file must be a mapping, not a list\n", false},
    {"{}\n---\n{}\n", "c.yaml:3:1: a second document: one file, one document\n", false},
    {"", "c.yaml: the configuration file must specify at least one route\n", false},
    // Types. A type written in the file is told by the file's own line.
    {"types:\n  - file: p.idl\n    idl: x\n  - {fil: p.idl}\n",
     "c.yaml:2:5: types[0] must have either \"file\" or \"idl\"\n"
     "c.yaml:4:5: types[1] must have either \"file\" or \"idl\"\n"
     "c.yaml:4:6: unknown key \"fil\" in types[1]; did you mean \"file\"?\n",
     false},
};

INSTANTIATE_TEST_SUITE_P(All, ConfigMistake, testing::ValuesIn(mistakes));

TEST_F(ConfigTest, InlineTypesAreToldByTheLineOfTheFile)
{
    load("types:\n  - idl: |\n      struct A {\n        lung x;\n      };\n");
    EXPECT_EQ(messages.find("c.yaml:4:"), 0U) << messages;
}

TEST_F(ConfigTest, ExpandsTheFilesDirectoryAndTheEnvironmentInProperties)
{
    setenv("FERRY_TEST_WORD", "w", 1);
    unsetenv("FERRY_TEST_NOTHING");
    const std::string adapter = "adapters: {a: {class: C, properties: {p: '";
    const auto configuration =
        load(adapter + "${config_dir}/x${env:FERRY_TEST_WORD}${y}${'}}}\n" +
             "types: [{file: p.idl}]\n" + "connections: {in: {adapter: a}}\n" + route);
    ASSERT_TRUE(configuration) << messages;
    EXPECT_EQ(configuration->adapters[0].properties[0].second, directory.string() + "/xw${y}${");
    load(adapter + "${env:FERRY_TEST_NOTHING}'}}}\n");
    EXPECT_EQ(messages,
              "c.yaml:1:42: the value of adapters.a.properties.p needs FERRY_TEST_NOTHING, "
              "which the environment does not have\n");
}

TEST_F(ConfigTest, FillsInWhatTheFileLeavesOut)
{
    const auto configuration = load(head + route);
    ASSERT_TRUE(configuration) << messages;
    EXPECT_EQ(configuration->name, "c");
    EXPECT_EQ(configuration->adapters[0].javaClass, "a/b/C");
    ASSERT_EQ(configuration->sessions.size(), 1U);
    EXPECT_EQ(configuration->sessions[0].period, std::chrono::milliseconds(100));
    const RouteSettings &r = configuration->routes[0];
    EXPECT_EQ(r.outputs[0].maxSamplesPerWrite, 1024);
    EXPECT_TRUE(r.outputs[0].properties.empty());
    EXPECT_EQ(r.onError, OnError::carryOn);
    EXPECT_STREQ(DDS_TypeCode_get_name(r.type), "m::P");
}

TEST_F(ConfigTest, FlattensPropertiesAndPathsStartFromTheFile)
{
    write("extra.jar", "");
    fs::create_directory(directory / "libs");
    write("libs/b.jar", "");
    write("libs/a.jar", "");
    write("libs/c.txt", "");
    const auto configuration =
        load("java: {class_path: [extra.jar, libs], home: jdk, options: [-Xint]}\n"
             "log: {file: logs/f.log, level: debug}\n"
             "types: [{file: p.idl}]\n"
             "adapters: {files: {class: C}, n: {library: n.so, entry: make}}\n"
             "connections:\n"
             "  in:\n"
             "    adapter: files\n"
             "    names: [one, two]\n"
             "    properties: {a: {b: 1.50, c: {d: yes}}, e: , f: 'x y', \"g.h\": \"\\u00e9\"}\n"
             "sessions: {s: {period: 1.5s, batch: 7}}\n" +
             route);
    ASSERT_TRUE(configuration) << messages;
    const Properties expected = {
        {"a.b", "1.50"}, {"a.c.d", "yes"}, {"e", ""}, {"f", "x y"}, {"g.h", "\xC3\xA9"}};
    EXPECT_EQ(configuration->connections[0].properties, expected);
    EXPECT_EQ(configuration->connections[0].names, (std::vector<std::string>{"one", "two"}));
    const std::string base = directory.string() + "/";
    EXPECT_EQ(configuration->java.classPath,
              (std::vector<std::string>{base + "extra.jar", base + "libs", base + "libs/a.jar",
                                        base + "libs/b.jar"}));
    EXPECT_EQ(configuration->java.home, base + "jdk");
    EXPECT_EQ(configuration->log.file, base + "logs/f.log");
    EXPECT_EQ(configuration->adapters[1].library, base + "n.so");
    EXPECT_EQ(configuration->sessions[0].period, std::chrono::milliseconds(1500));
    // A session's batch goes to its outputs, for the relay and for the bridge.
    EXPECT_EQ(configuration->routes[0].outputs[0].maxSamplesPerWrite, 7);
    EXPECT_EQ(configuration->routes[0].outputs[0].properties,
              (Properties{{"qel.ferrion.jni.max_samples_per_write", "7"}}));
}

} // namespace
