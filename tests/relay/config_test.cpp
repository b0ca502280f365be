// What a configuration file may say, and how a mistake in it is reported.
#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>

#include "../platform/records.h"
#include "config/load.h"
#include "config/printable.h"
#include "config/text.h"
#include "folder_test.h"

namespace {

using namespace ferry;
namespace fs = std::filesystem;

class ConfigTest : public FolderTest {
protected:
    ConfigTest()
    {
        write("p.idl", "module m { struct P { long x; }; enum Color { RED }; };\n");
    }

    void write(const std::string &name, const std::string &text)
    {
        std::ofstream(directory / name, std::ios::binary) << text;
    }

    std::optional<Configuration> load(const std::string &text, Needs needs = Needs::routes)
    {
        write("c.yaml", text);
        Diagnostics diagnostics((directory / "c.yaml").string());
        auto result = loadConfiguration((directory / "c.yaml").string(), diagnostics, needs);
        messages.clear();
        for (const std::string &line : diagnostics.lines()) {
            messages += std::regex_replace(line, std::regex(directory.string() + "/"), "") + "\n";
        }
        EXPECT_TRUE(result.has_value() || !messages.empty());
        return messages.empty() ? std::move(result) : std::nullopt;
    }

    std::string messages;
};

/// The routes of a good file.
const std::string route = "routes:\n"
                          "  r:\n"
                          "    type: m::P\n"
                          "    input: {connection: in, stream: s}\n"
                          "    outputs:\n"
                          "      - {connection: in, stream: t}\n";

TEST_F(ConfigTest, ReportsEveryMistakeWithItsPlace)
{
    setenv("FERRY_TEST_BYTE", "\xFF", 1);
    std::string text;
    std::string expected;
    int checked = 0;
    const auto check = [&] {
        if (!text.empty()) {
            load(std::exchange(text, ""));
            EXPECT_EQ(messages, std::exchange(expected, ""));
            ++checked;
        }
    };
    std::ifstream file(RELAY_DATA "mistakes.txt");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("==", 0) == 0) {
            check();
        } else if (line[0] != '#') {
            text += line + "\n";
        } else if (line[1] != ' ') {
            const auto number = std::to_string(std::count(text.begin(), text.end(), '\n'));
            const bool isPlace = std::isdigit(line[1]) != 0;
            expected += (isPlace ? "c.yaml:" + number + ":" : "") + line.substr(1) + "\n";
        }
    }
    check();
    EXPECT_GT(checked, 10);
}

TEST_F(ConfigTest, ReportsWhatIsWrongWithAFileAsAWhole)
{
    const std::pair<const char *, const char *> files[] = {
        {"#\nroutes: {r: \xC3}\n", "c.yaml:2:13: the file is not valid UTF-8 here\n"},
        {"a: [1,\n", "c.yaml:2:1: not valid YAML: end of sequence flow not found\n"},
        {"", "c.yaml: the configuration file must specify at least one route or discovery\n"},
        {"types: [{idl: 'struct A { lung x; };'}]",
         "c.yaml:1:12: Scoped name 'lung' cannot be resolved\n"}};
    for (const auto &[text, message] : files) {
        load(text);
        EXPECT_EQ(messages, message);
    }
    EXPECT_FALSE(load("adapters: {a: {class: x}}\n", Needs::connections));
    EXPECT_EQ(messages, "c.yaml: the configuration file must specify at least one connection\n");
    EXPECT_FALSE(load("log: x\n", Needs::connections));
    EXPECT_TRUE(
        load("adapters: {a: {class: x}}\nconnections: {c: {adapter: a}}\n", Needs::connections));
    for (const fs::path &path : {directory, directory / "nowhere"}) {
        Diagnostics diagnostics(path);
        EXPECT_FALSE(loadConfiguration(path, diagnostics, Needs::routes));
        EXPECT_EQ(diagnostics.lines(), std::vector{path.string() + ": cannot be read"});
    }
}

TEST_F(ConfigTest, TakesAsManyPropertiesAndAsDeepAsIsNoMistake)
{
    const auto withProperties = [](const std::string &properties) {
        return "types: [{file: p.idl}]\nadapters: {a: {class: C, properties: {" + properties +
               "}}}\nconnections: {in: {adapter: a}}\n" + route;
    };
    std::string many;
    for (int i = 0; i < 10000; ++i) {
        many += "p" + std::to_string(i) + ": 1, ";
    }
    const auto configuration = load(withProperties(many));
    ASSERT_TRUE(configuration) << messages;
    EXPECT_EQ(configuration->adapters[0].properties.size(), 10000U);
    EXPECT_FALSE(load(withProperties(many + "q: 1")));
    EXPECT_EQ(messages,
              "c.yaml:2:38: adapters.a.properties: there are more than 10000 properties\n");
    const auto nested = [](int depth) {
        std::string text = "1";
        for (int i = 0; i < depth; ++i) {
            text = "{d: " + text + "}";
        }
        return "d: " + text;
    };
    EXPECT_TRUE(load(withProperties(nested(16)))) << messages;
    EXPECT_FALSE(load(withProperties(nested(17))));
}

TEST_F(ConfigTest, FillsInWhatTheFileLeavesOut)
{
    setenv("FERRY_TEST_WORD", "w", 1);
    const auto configuration =
        load("types: [{file: p.idl}]\n"
             "adapters:\n"
             "  a: {class: b.C, properties: {p: '${config_dir}/x${env:FERRY_TEST_WORD}${y}${'}}\n"
             "connections: {in: {adapter: a}}\n" +
             route);
    ASSERT_TRUE(configuration) << messages;
    EXPECT_EQ(configuration->name, "c");
    EXPECT_EQ(configuration->adapters[0].javaClass, "b/C");
    EXPECT_EQ(configuration->state, directory / "c.state");
    EXPECT_EQ(configuration->adapters[0].properties[0].second, directory.string() + "/xw${y}${");
    ASSERT_EQ(configuration->sessions.size(), 1U);
    EXPECT_EQ(configuration->sessions[0].period, std::chrono::milliseconds(100));
    const RouteSettings &r = configuration->routes[0];
    EXPECT_EQ(r.outputs[0].maxSamplesPerWrite, 1024);
    EXPECT_EQ(r.outputs[0].batchBytes, 8U << 20);
    EXPECT_TRUE(r.outputs[0].properties.empty());
    EXPECT_EQ(r.onError, OnError::retry);
    EXPECT_STREQ(DDS_TypeCode_get_name(r.type), "m::P");
}

/// A second route, in a session of its own, takes from the buffer what the first one puts into it.
TEST_F(ConfigTest, GivesAnOutputWithABufferARouteOfItsOwn)
{
    setenv("STATE_DIRECTORY", "/s:/other", 1);
    const auto configuration =
        load("types: [{file: p.idl}]\nadapters: {a: {class: C}}\n"
             "connections: {in: {adapter: a}}\n" +
             route +
             "      - {connection: in, stream: u, store: {max_bytes: 90KiB}, retry: {first: 2s}}\n"
             "      - {connection: in, stream: v, required: false}\n");
    ASSERT_TRUE(configuration) << messages;
    unsetenv("STATE_DIRECTORY");
    EXPECT_EQ(configuration->state, "/s");
    EXPECT_EQ(configuration->routes[1].outputs[0].retry.first, std::chrono::seconds(2));
    ASSERT_EQ(configuration->routes.size(), 3U);
    ASSERT_EQ(configuration->sessions.size(), 3U);
    for (std::size_t i = 0; i < 2; ++i) {
        const RouteSettings &second = configuration->routes[i + 1];
        EXPECT_EQ(second.name, i == 0 ? "r to in/u" : "r to in/v");
        EXPECT_EQ(configuration->sessions[second.session].name, second.name);
        EXPECT_EQ(second.input.buffer, i);
        EXPECT_EQ(configuration->routes[0].outputs[i + 1].buffer, i);
        EXPECT_EQ(configuration->buffers[i].settings.stored, i == 0);
    }
    EXPECT_EQ(configuration->buffers[0].settings.maxBytes, 90U << 10);
    EXPECT_EQ(configuration->buffers[1].settings.whenFull, WhenFull::dropOldest);
}

TEST_F(ConfigTest, TurnsDiscoveryIntoRoutesWithOneEndOpen)
{
    auto configuration = load(
        "types: [{file: p.idl}]\n"
        "adapters: {a: {class: C}, n: {plugin: n}}\n"
        "connections: {in: {adapter: a}, out: {adapter: a}, dds: {adapter: n}}\n"
        "sessions: {s: {batch: 7, batch_bytes: 9}}\n"
        "discovery:\n"
        "  i: {connection: in,\n"
        "      outputs: [{connection: out, stream: '${stream}.x', batch_bytes: 5,\n"
        "                 properties: {qel.ferrion.jni.max_samples_per_write: 3}}],\n"
        "      allow: {partition: ['', a]}, properties: {p: '${type}'}, on_error: stop}\n"
        "  o: {connection: out, direction: output, input: {connection: in, stream: q}}\n"
        "  p: {connection: in, outputs: [&n {connection: dds, stream: q},\n"
        "      {connection: out, stream: q, properties: {file: '${partitions}'}}], grace: 0s}\n"
        "  m: {connection: in, outputs: [*n, {connection: out, stream: q}], grace: 3s}\n"
        "  x: {connection: in, outputs: [*n], partitions: merged}\n"
        "  y: {connection: in, outputs: [{connection: out, stream: '${partitions}'}]}\n"
        "routes: {z: {input: {connection: in, stream: 'a*[\\?'}, outputs: [*n]}}\n");
    ASSERT_TRUE(configuration) << messages;
    // A route without a type takes the one stream of that very name.
    const DiscoverySettings z = configuration->discovery.front();
    EXPECT_TRUE(z.name == "z" && z.single && z.merged && z.route.input.stream.empty());
    EXPECT_EQ(z.allow.stream, std::vector<std::string>{"a\\*\\[\\\\\\?"});
    configuration->discovery.erase(configuration->discovery.begin());
    const DiscoverySettings &i = configuration->discovery[0];
    EXPECT_EQ(i.allow.partition, (std::vector<std::string>{"", "a"}));
    EXPECT_EQ(i.route.input.properties, (Properties{{"p", "${type}"}}));
    const DiscoverySettings &o = configuration->discovery[1];
    EXPECT_TRUE(i.inputs && !o.inputs);
    EXPECT_EQ(o.route.outputs[0].connection, 1U);
    EXPECT_EQ(o.route.outputs[0].maxSamplesPerWrite, 7);
    EXPECT_EQ(o.route.outputs[0].batchBytes, 9U);
    EXPECT_EQ(i.route.outputs[0].batchBytes, 5U);
    EXPECT_EQ(i.route.outputs[0].maxSamplesPerWrite, 3);
    EXPECT_EQ(configuration->types.count("m::Color"), 0U);
    // Who does not get the partitions cannot keep them apart.
    std::string merged;
    for (const DiscoverySettings &rule : configuration->discovery) {
        merged += rule.merged ? rule.name : "";
    }
    EXPECT_EQ(merged, "iomx");
    EXPECT_EQ(configuration->discovery[2].grace, std::chrono::milliseconds(0));
    EXPECT_EQ(configuration->discovery[3].grace, std::chrono::milliseconds(3000));
    EXPECT_FALSE(o.grace);
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
             "state: kept\n"
             "types: [{file: p.idl}]\n"
             "adapters: {files: {class: C, class_path: [libs]}, n: {library: n.so, entry: make}, "
             "d: {plugin: dds}}\n"
             "connections:\n"
             "  in:\n"
             "    adapter: files\n"
             "    names: [one, two]\n"
             "    properties: {a: {b: 1.50, c: {d: yes}}, e: , f: 'x y', \"g.h\": \"\\u00e9\"}\n"
             "sessions: {s: {period: 1.5s, batch: 7, batch_bytes: 8}}\n" +
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
    EXPECT_EQ(configuration->adapters[0].classPath,
              (std::vector<std::string>{base + "libs", base + "libs/a.jar", base + "libs/b.jar"}));
    EXPECT_EQ(configuration->java.home, base + "jdk");
    EXPECT_EQ(configuration->log.file, base + "logs/f.log");
    EXPECT_EQ(configuration->state, base + "kept");
    EXPECT_EQ(configuration->adapters[1].library, base + "n.so");
    EXPECT_EQ(configuration->adapters[2].library, "libferryadapter_dds.so");
    EXPECT_EQ(configuration->adapters[2].entry, "FerryAdapter_dds_create");
    EXPECT_EQ(configuration->sessions[0].period, std::chrono::milliseconds(1500));
    // A session's batch goes to its outputs, for the relay and for the bridge.
    EXPECT_EQ(configuration->routes[0].outputs[0].maxSamplesPerWrite, 7);
    EXPECT_EQ(configuration->routes[0].outputs[0].batchBytes, 8U);
    EXPECT_EQ(configuration->routes[0].outputs[0].properties,
              (Properties{{"qel.ferrion.jni.max_samples_per_write", "7"}}));
}

TEST(Printable, EscapesWhatMovesCursorsForgesLinesOrIsNoUtf8)
{
    const std::pair<std::string, const char *> texts[] = {
        {"plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
         "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"a\nb\tc\x1b[2J\x7f", "a\\nb\\tc\\x1b[2J\\x7f"},
        {"\xC2\x9B\xE2\x80\xAE\xE2\x81\xA6\xD8\x9C\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\x8E\xE2\x80\x8F",
         "\\u009b\\u202e\\u2066\\u061c\\u2028\\u2029\\u200e\\u200f"},
        {"\xC2\xA0\xE2\x80\xAF\xE2\x80\x90", "\xC2\xA0\xE2\x80\xAF\xE2\x80\x90"},
        {"x\xFFy\xE2\x82", "x\\xffy\\xe2\\x82"},
        // Longer than need be, half of a pair, beyond the last.
        {"\xE0\x80\x80 \xF0\x80\x80\x80", "\\xe0\\x80\\x80 \\xf0\\x80\\x80\\x80"},
        {"\xED\xA0\x80 \xF4\x90\x80\x80", "\\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80"},
        {"\xEE\x80\x80\xF4\x8F\xBF\xBF", "\xEE\x80\x80\xF4\x8F\xBF\xBF"},
        {std::string("\0", 1), "\\x00"},
    };
    for (const auto &[text, expected] : texts) {
        EXPECT_EQ(printable(text), expected);
    }
    EXPECT_EQ(printable("a\n\tb\r", Layout::kept), "a\n\tb\\r");
}

TEST(Printable, HidesSecretsWhoeverWroteThemAndNothingElse)
{
    EXPECT_EQ(withoutSecrets("a\\npassword=b c"), "a\\npassword=***");
    for (const Record &test : recordsOf("secrets.txt")) {
        EXPECT_EQ(withoutSecrets(test.at(0)), test.at(1));
    }
}

} // namespace
