// A relay over the scripted plug-in: configurations made in a line, and the log as text.
#ifndef TESTS_RELAY_RELAY_FIXTURE_H
#define TESTS_RELAY_RELAY_FIXTURE_H

#include <gtest/gtest.h>

#include "engine/exit_code.h"
#include "engine/supervisor.h"
#include "qddscore/log.h"
#include "scripted_plugin.h"

namespace scripted {

class NullReporter : public ferry::Reporter {
public:
    void good(const std::string &what, const std::string &details) override
    {
        lines.push_back(what + ": " + details);
    }
    void bad(const std::string &what, const std::string &) override
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
        configuration.sessions.resize(1);
        configuration.sessions[0].name = "main";
        configuration.sessions[0].period = std::chrono::milliseconds(10);
    }
    ~RelayTest() override
    {
        QELLog_setSink(nullptr, nullptr);
        EXPECT_EQ(script.violations(), std::vector<std::string>());
    }

    /// A route between streams of connections, which are made with an adapter each where needed.
    ferry::RouteSettings &addRoute(const std::string &name, const std::string &input,
                                   const std::vector<std::string> &outputs)
    {
        ferry::RouteSettings route;
        route.name = name;
        route.typeName = "T";
        route.input = end(input);
        for (const std::string &output : outputs) {
            route.outputs.push_back(end(output));
        }
        configuration.routes.push_back(route);
        return configuration.routes.back();
    }

    /// "connection/stream"; the adapter has the connection's name.
    ferry::StreamSettings end(const std::string &text)
    {
        const std::string name = text.substr(0, text.find('/'));
        ferry::StreamSettings stream;
        stream.stream = text.substr(text.find('/') + 1);
        stream.maxSamplesPerWrite = 1024;
        for (const auto &connection : configuration.connections) {
            if (connection.name == name) {
                return stream;
            }
            ++stream.connection;
        }
        ferry::AdapterSettings adapter;
        adapter.name = name;
        configuration.adapters.push_back(adapter);
        ferry::ConnectionSettings connection;
        connection.name = name;
        connection.adapter = configuration.adapters.size() - 1;
        connection.names = {name};
        configuration.connections.push_back(connection);
        return stream;
    }

    ferry::Supervisor &supervisor()
    {
        if (!supervisor_) {
            options.quiet = true;
            supervisor_ = std::make_unique<ferry::Supervisor>(configuration, script, reporter,
                                                              console, options);
        }
        return *supervisor_;
    }

    int runUntilIdle(int milliseconds = 60)
    {
        options.untilIdle = std::chrono::milliseconds(milliseconds);
        return supervisor().run();
    }

    std::string summary()
    {
        std::string text;
        for (const std::string &line : ferry::summaryLines(supervisor().relay().sessions())) {
            const std::size_t rate = line.find(" samples/s");
            const bool output = rate == std::string::npos;
            text += (output ? line : line.substr(0, line.rfind(", ", rate))) + "\n";
        }
        return text;
    }

    ferry::Configuration configuration;
    Script script;
    NullReporter reporter;
    ferry::Console console;
    ferry::SupervisorOptions options;
    std::mutex logMutex;
    std::string log;

private:
    std::unique_ptr<ferry::Supervisor> supervisor_;
};

} // namespace scripted

#endif
