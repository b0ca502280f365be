// A relay over the scripted plug-in: configurations made in a line, and the log as text.
#ifndef TESTS_RELAY_RELAY_FIXTURE_H
#define TESTS_RELAY_RELAY_FIXTURE_H

#include <gtest/gtest.h>
#include <mutex>
#include <regex>
#include <thread>

#include "counting_new.h"
#include "process/exit_code.h"
#include "process/supervisor.h"
#include "qddscore/log.h"
#include "scripted_plugin.h"

namespace scripted {

class ListReporter : public ferry::Reporter {
public:
    void good(const std::string &what, const std::string &details) override
    {
        lines.push_back(what + ": " + details);
    }
    void bad(const std::string &what, const std::string &, ferry::Place) override
    {
        lines.push_back("bad " + what);
    }
    std::vector<std::string> lines;
};

class RelayTest : public testing::Test {
protected:
    RelayTest()
    {
        QELLog_setSink(
            [](void *self, const char *line, std::size_t) {
                auto *test = static_cast<RelayTest *>(self);
                const std::lock_guard<std::mutex> lock(test->logMutex);
                test->log += std::string(line) + "\n";
            },
            this);
        configuration.name = "test";
        configuration.sessions = {{"main", std::chrono::milliseconds(10), 0, {}}};
    }
    ~RelayTest() override
    {
        QELLog_setSink(nullptr, nullptr);
    }

    /// A route between streams of connections, which are made with an adapter each where needed.
    ferry::RouteSettings &addRoute(const std::string &name, const std::string &input,
                                   const std::vector<std::string> &outputs)
    {
        ferry::RouteSettings route;
        route.name = name;
        route.typeName = "T";
        route.onError = ferry::OnError::carryOn;
        route.input = end(input);
        for (const std::string &output : outputs) {
            route.outputs.push_back(end(output));
        }
        configuration.routes.push_back(route);
        return configuration.routes.back();
    }

    /// "a/stream", a stream of the connection and adapter `a`, which come with those before them.
    ferry::StreamSettings end(const std::string &text)
    {
        ferry::StreamSettings stream;
        stream.connection = static_cast<std::size_t>(text[0] - 'a');
        stream.stream = text.substr(2);
        stream.maxSamplesPerWrite = 1024;
        for (std::size_t i = configuration.connections.size(); i <= stream.connection; ++i) {
            const std::string name(1, static_cast<char>('a' + i));
            configuration.adapters.push_back(
                {name, "", SCRIPTED_LIBRARY, "scripted_create", {{"name", name}}, {}, {}});
            configuration.connections.push_back({name, i, {name}, {}});
        }
        return stream;
    }

    ferry::Supervisor &supervisor()
    {
        if (!supervisor_) {
            options.verbosity = ferry::Verbosity::quiet;
            supervisor_ = std::make_unique<ferry::Supervisor>(configuration, script, reporter,
                                                              console, options, keeper);
        }
        return *supervisor_;
    }

    int runUntilIdle(int milliseconds = 60)
    {
        options.untilIdle = std::chrono::milliseconds(milliseconds);
        return supervisor().run();
    }

    /// Stops the run when the condition holds.
    int runUntil(const std::function<bool()> &condition)
    {
        int code = -1;
        std::thread runner([&, &run = supervisor()] { code = run.run(); });
        EXPECT_TRUE(waitFor(condition)) << summary();
        supervisor().requestStop();
        runner.join();
        return code;
    }

    /// A rule that takes what the connection `a` announces to the connection `b`.
    ferry::DiscoverySettings &addRule(const std::string &name, std::size_t session = 0)
    {
        end("b/");
        ferry::DiscoverySettings rule;
        rule.name = name;
        rule.grace = std::chrono::milliseconds(0);
        rule.route.session = session;
        rule.route.outputs = {end("b/${stream}.out")};
        configuration.discovery.push_back(rule);
        return configuration.discovery.back();
    }

    /// A struct of one member.
    static const DDS_TypeCode *type(const std::string &name, const char *member = "x",
                                    DDS_TCKind kind = DDS_TK_LONG)
    {
        const DDS_StructMember members[] = {{member, DDS_TypeCode_get_primitive(kind), 0}};
        return DDS_TypeCode_create_struct(name.c_str(), nullptr, DDS_EXTENSIBILITY_FINAL, members,
                                          1, nullptr);
    }

    /// The totals of a route, of those that are gone too; no name when there is none.
    ferry::RouteTotals totals(const std::string &name)
    {
        for (const ferry::RouteTotals &route : supervisor().relay().totals()) {
            if (route.name == name) {
                return route;
            }
        }
        return {};
    }

    static bool waitFor(const std::function<bool()> &condition)
    {
        const auto limit = ferry::Clock::now() + std::chrono::seconds(120);
        while (ferry::Clock::now() < limit) {
            if (condition()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    /// Without the rates.
    std::string summary()
    {
        std::string text;
        for (const std::string &line : ferry::summaryLines(supervisor().relay().totals())) {
            text += std::regex_replace(line, std::regex(", \\d+ samples/s"), "") + "\n";
        }
        return text;
    }

    bool logged(const std::string &text)
    {
        return times(text) > 0;
    }

    /// How often the log says so. Any thread.
    int times(const std::string &text)
    {
        const std::lock_guard<std::mutex> lock(logMutex);
        int count = 0;
        for (std::size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }

    ferry::Configuration configuration;
    Script script{configuration};
    ListReporter reporter;
    ferry::Console console;
    ferry::RunOptions options;
    /// Where bad data goes.
    ferry::DeadLetterKeeper *keeper = nullptr;
    std::mutex logMutex;
    std::string log;

private:
    std::unique_ptr<ferry::Supervisor> supervisor_;
};

} // namespace scripted

#endif
