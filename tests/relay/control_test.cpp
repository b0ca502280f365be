// The control socket, as a client meets it: answers, steering, reasons, and clients that mean ill.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "control/client.h"
#include "control/control.h"
#include "control/socket_directory.h"
#include "relay_fixture.h"

namespace {

using namespace ferry;
using namespace scripted;
using Answer = nlohmann::json;
namespace fs = std::filesystem;

std::string request(const std::string &what, const std::string &route = "")
{
    Answer json = {{"version", 1}, {"do", what}};
    if (!route.empty()) {
        json["route"] = route;
    }
    return json.dump();
}

class ControlTest : public RelayTest {
protected:
    ControlTest()
    {
        std::string pattern = testing::TempDir() + "ferry_control_XXXXXX";
        directory = fs::canonical(mkdtemp(pattern.data()));
        configuration.control.path = directory / "r.sock";
        configuration.restart = RetrySettings{std::chrono::hours(1), std::chrono::hours(1)};
    }
    ~ControlTest() override
    {
        fs::remove_all(directory);
    }

    const fs::path &path() const
    {
        return configuration.control.path;
    }
    Answer say(const std::string &line)
    {
        const Reply reply = ask(path(), line);
        EXPECT_EQ(reply.problem, "");
        return Answer::parse(reply.line, nullptr, false);
    }
    Answer route(const std::string &name)
    {
        const Answer status = say(request("status"));
        for (const Answer &each : status["routes"]) {
            if (each["name"] == name) {
                return each;
            }
        }
        return {{"state", "none"}};
    }
    bool isIn(const std::string &name, const std::string &state)
    {
        return waitFor([&] { return route(name)["state"] == state; });
    }
    /// The codes of the reasons why a route does not move, and their texts.
    std::string why(const std::string &name)
    {
        std::string text;
        const Answer answer = say(request("why", name));
        for (const Answer &reason : answer["reasons"]) {
            text +=
                reason["code"].get<std::string>() + ": " + reason["text"].get<std::string>() + "\n";
        }
        return text;
    }
    /// Runs the relay with its socket while the body does.
    template<class Body> int runWhile(Body &&body)
    {
        options.stall = std::chrono::milliseconds(20);
        Relay &relay = supervisor().relay();
        Control control(configuration, relay);
        EXPECT_EQ(control.start(), "");
        return runUntil([&] {
            EXPECT_TRUE(waitFor([&] { return relay.phase() == Relay::Phase::running; }));
            body();
            return true;
        });
    }
    /// Connected, and nothing else.
    UnixSocket client()
    {
        std::string problem;
        UnixSocket socket = connectTo(path(), problem);
        EXPECT_EQ(problem, "");
        return socket;
    }
    static void put(const UnixSocket &socket, const std::string &text)
    {
        EXPECT_EQ(send(socket.descriptor(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    /// What comes until the server ends the connection.
    static std::string rest(const UnixSocket &socket)
    {
        std::string text;
        char buffer[4096];
        pollfd watched = {socket.descriptor(), POLLIN, 0};
        while (poll(&watched, 1, 60000) > 0) {
            const ssize_t count = recv(socket.descriptor(), buffer, sizeof buffer, 0);
            if (count <= 0) {
                return text;
            }
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text + "(does not end)";
    }

    fs::path directory;
};

/// Whatever is paused stays so when it is made anew; nothing of that is lost or comes twice.
TEST_F(ControlTest, SteersRoutesAndTellsWhatTheyDo)
{
    addRoute("r", "a/in", {"b/x", "c/y"});
    addRoute("other", "a/in2", {"b/z"});
    int next = 0;
    script.streams["in"].source = [&] { return Read{{++next}, ""}; };
    const int code = runWhile([&] {
        EXPECT_TRUE(waitFor([&] { return totals("r").written > 20; }));
        const Answer all = say(request("status"));
        EXPECT_EQ(all["version"], 1);
        EXPECT_EQ(all["relay"]["name"], "test");
        EXPECT_EQ(all["relay"]["pid"], getpid());
        EXPECT_EQ(all["relay"]["phase"], "running");
        EXPECT_EQ(all["adapters"][0]["state"], "running");
        EXPECT_EQ(all["connections"][1]["adapter"], "b");
        EXPECT_EQ(all["sessions"][0]["routes"], 2);
        EXPECT_EQ(all["routes"][0]["outputs"][1]["stream"], "c/y");
        EXPECT_EQ(all["routes"][0]["state"], "running");
        EXPECT_FALSE(all["routes"][1].contains("last_activity"));

        EXPECT_EQ(say(request("pause", "r"))["ok"], true);
        EXPECT_TRUE(isIn("r", "paused"));
        EXPECT_EQ(say(request("restart", "r"))["ok"], true);
        EXPECT_TRUE(waitFor([&] { return route("r")["restarted"] == 1; }));
        EXPECT_EQ(route("r")["state"], "paused");
        const std::uint64_t read = totals("r").read;
        EXPECT_NE(why("r").find("paused: an operator has paused it"), std::string::npos);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(totals("r").read, read);
        EXPECT_NE(summary().find("(paused)"), std::string::npos) << summary();
        EXPECT_EQ(say(request("resume", "r"))["ok"], true);
        EXPECT_TRUE(waitFor([&] { return totals("r").written > read + 20; }));
        EXPECT_EQ(script.called("create_reader in"), 2);
        EXPECT_EQ(script.called("create_writer y"), 2);
        EXPECT_EQ(script.called("create_reader in2"), 1);
    });
    EXPECT_EQ(code, exitOk);
    const auto &writes = script.streams["x"].writes;
    for (std::size_t i = 0; i < writes.size(); ++i) {
        ASSERT_EQ(writes[i], std::vector<int>{static_cast<int>(i) + 1});
    }
    EXPECT_EQ(script.streams["y"].writes, writes);
    EXPECT_FALSE(fs::exists(path()));
}

/// A route of a stream that is announced is another object each time, and still paused. One that
/// has been given up is made anew all the same, with its connection.
TEST_F(ControlTest, SteersDiscoveredRoutesAndThoseOutOfService)
{
    addRule("d");
    addRoute("stops", "c/in", {"b/y"}).onError = OnError::stop;
    configuration.restart = RetrySettings{
        std::chrono::milliseconds(1), std::chrono::milliseconds(1), std::chrono::milliseconds(1)};
    std::atomic<bool> broken{true};
    script.streams["in"].source = [] { return Read{{1}, ""}; };
    script.streams["y"].onWrite = [&](const auto &samples, std::string &error) {
        error = broken ? "password=hush is wrong" : "";
        return broken ? 0 : static_cast<int>(samples.size());
    };
    script.announce("a", {"s", "T", type("T")});
    runWhile([&] {
        EXPECT_TRUE(isIn("d/s", "running"));
        say(request("pause", "d/s"));
        EXPECT_EQ(say(request("restart", "d/s"))["ok"], true);
        EXPECT_TRUE(waitFor([&] { return script.called("create_reader s") == 2; }));
        EXPECT_TRUE(isIn("d/s", "paused"));

        EXPECT_TRUE(waitFor([&] {
            return why("stops").find("further attempts were given up") != std::string::npos;
        }));
        EXPECT_NE(why("stops").find("output_fails: write of b/y failed"), std::string::npos);
        EXPECT_NE(why("stops").find("password=*** is wrong"), std::string::npos) << why("stops");
        broken = false;
        const std::ptrdiff_t connected = script.called("create_connection c");
        EXPECT_EQ(say(request("restart", "stops"))["ok"], true);
        EXPECT_TRUE(waitFor([&] { return totals("stops").written > 10; }));
        EXPECT_EQ(script.called("create_connection c"), connected + 1);
        EXPECT_EQ(route("stops")["state"], "running");
        EXPECT_EQ(route("stops")["error"]["at"], "b/y");
        EXPECT_EQ(route("stops")["error"]["adapter"], "b");
    });
}

/// Why a route does not move, from the outside: one route for each reason.
TEST_F(ControlTest, TellsWhyARouteDoesNotMove)
{
    configuration.sessions.push_back({"hang", std::chrono::milliseconds(10), 0, {}});
    addRoute("retry", "a/in", {"b/full"}).onError = OnError::retry;
    configuration.routes.back().outputs[0].retry = {std::chrono::hours(10), std::chrono::hours(10)};
    configuration.routes.back().outputs[0].place = {7, 9};
    configuration.file = "f.yaml";
    addRoute("hang", "a/in2", {"b/slow"}).session = 1;
    addRoute("behind", "a/in3", {"b/z"}).session = 1;
    addRoute("down", "c/in", {"b/z2"});
    addRoute("quiet", "a/none", {"b/z3"});
    addRoute("throws", "a/bad", {"b/z4"});
    for (const char *stream : {"in", "in2"}) {
        script.streams[stream].reads = {{{1, 2}, ""}};
    }
    script.streams["full"].onWrite = [](const auto &, std::string &error) {
        error = "no space left, jdbc:x://u:hush@h";
        return 0;
    };
    script.streams["bad"].source = [] { return Read{{}, "no such table"}; };
    script.errors["create_connection c"] = "refused";
    std::atomic<bool> release{false};
    script.hooks["write slow"] = [&] { waitFor([&] { return release.load(); }); };
    struct Expected {
        const char *route;
        const char *state;
        const char *reason;
    };
    const Expected expected[] = {
        {"retry", "retrying", "output_fails: b/full has taken nothing of 2 samples for "},
        {"retry", "retrying", "no space left, jdbc:x://***@h; tried again in "},
        {"hang", "running", "call_hangs: write of b/slow has not returned for "},
        {"behind", "running",
         "session_busy: its session hang is inside another route's call: "
         "route hang: write of b/slow has not returned for "},
        {"down", "failed", "out_of_service: out of service for "},
        {"down", "failed", "connection_down: connection c is out of service: refused; tried again"},
        {"quiet", "running", "no_data: a/none has brought no sample yet, for "},
        {"throws", "retrying", "input_fails: read of a/bad failed "}};
    runWhile([&] {
        for (const Expected &each : expected) {
            EXPECT_TRUE(waitFor([&] {
                return why(each.route).find(each.reason) != std::string::npos;
            })) << each.route
                << " " << why(each.route);
            EXPECT_EQ(route(each.route)["state"], each.state) << each.route;
        }
        EXPECT_EQ(say(request("why", "retry"))["reasons"][0]["place"], "f.yaml:7:9");
        EXPECT_EQ(say(request("restart", "hang"))["ok"], true); // once its session lets it
        release = true;
        EXPECT_TRUE(waitFor([&] { return route("hang")["restarted"] == 1; }));
        const std::ptrdiff_t tried = script.called("create_connection c");
        EXPECT_EQ(say(request("restart", "down"))["ok"], true); // at once, with its connection
        EXPECT_TRUE(waitFor([&] { return script.called("create_connection c") == tried + 1; }));
    });
}

/// Nothing that is wrong with a request does anything, and the next one is heard.
TEST_F(ControlTest, AnswersWhatItDoesNotUnderstand)
{
    addRoute("r", "a/in", {"b/x"});
    const std::pair<std::string, const char *> wrong[] = {
        {"pause r", "bad_request"},
        {"[]", "bad_request"},
        {std::string(30000, '['), "bad_request"},
        {R"({"version":1,"do":"pause","route":"\xff"})", "bad_request"},
        {"{\"version\":1,\"do\":\"pause\",\"route\":\"\xff\"}", "bad_request"},
        {R"({"version":1,"do":"pause","route":"r","sure":true})", "bad_request"},
        {R"({"version":1,"do":"pause","route":["r"]})", "bad_request"},
        {R"({"version":1,"do":"pause","route":7})", "bad_request"},
        {R"({"version":1,"do":"pause"})", "bad_request"},
        {R"({"version":1,"do":"status","route":"r"})", "bad_request"},
        {R"({"version":2,"do":"status"})", "unknown_version"},
        {R"({"version":"1","do":"status"})", "unknown_version"},
        {R"({"do":"status"})", "unknown_version"},
        {R"({"version":1,"do":"stop"})", "unknown_request"},
        {R"({"version":1})", "unknown_request"},
        {request("pause", "R"), "no_such_route"},
        {request("why", "r\n"), "no_such_route"},
        {request("pause", std::string(70000, 'x')), "too_large"}};
    runWhile([&] {
        for (const auto &[line, code] : wrong) {
            const Answer answer = say(line);
            EXPECT_EQ(answer["ok"], false) << line.substr(0, 200);
            EXPECT_EQ(answer["error"]["code"], code) << line.substr(0, 200);
        }
        EXPECT_EQ(route("r")["state"], "running");
        // Several in one piece, blank lines between them, the last one without its end.
        const UnixSocket socket = client();
        put(socket, "\n\r\n" + request("pause", "r") + "\nnonsense\n" + request("why", "r"));
        shutdown(socket.descriptor(), SHUT_WR);
        const std::string text = rest(socket);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3) << text;
        EXPECT_NE(text.find("\"paused\""), std::string::npos) << text;
    });
}

/// Clients that do not read, do not write, write without end, or are too many. Meanwhile samples go
/// through, and who behaves gets an answer.
TEST_F(ControlTest, IsNotHeldUpByItsClients)
{
    addRoute("r", "a/in", {"b/x"});
    script.streams["in"].source = [] { return Read{{1}, ""}; };
    const Requests requests(configuration, supervisor().relay());
    const auto answer = [&](std::string_view line, const Peer &peer) {
        return line == "big" ? std::string(32 << 20, 'x') : requests.answer(line, peer);
    };
    const auto serve = [&](const ServerLimits &limits, const std::function<void()> &body) {
        ControlSocket socket;
        EXPECT_EQ(socket.open(path()), "");
        Server server(answer, Requests::refusal, limits);
        EXPECT_TRUE(server.start(socket.descriptor()));
        body();
    };
    runUntil([&] {
        EXPECT_TRUE(waitFor([&] { return totals("r").written > 0; }));
        ServerLimits few;
        few.clients = 3;
        serve(few, [&] {
            const UnixSocket silent = client();
            const UnixSocket deaf = client();
            put(deaf, "big\n" + request("status") + "\n");
            const UnixSocket endless = client();
            const std::string piece(4096, 'x');
            EXPECT_TRUE(waitFor([&] { // until nobody takes it any more
                return send(endless.descriptor(), piece.data(), piece.size(), MSG_NOSIGNAL) < 0 &&
                       errno == EPIPE;
            }));
            EXPECT_NE(rest(endless).find("too_large"), std::string::npos);
            const std::uint64_t before = totals("r").written;
            EXPECT_EQ(say(request("status"))["ok"], true);
            const UnixSocket last = client();
            EXPECT_NE(rest(client()).find("\"busy\""), std::string::npos);
            EXPECT_TRUE(waitFor([&] { return totals("r").written > before + 10; }));
        });
        // Whoever does nothing is left, in the middle of an answer, too.
        ServerLimits brief;
        brief.idle = std::chrono::milliseconds(100);
        serve(brief, [&] {
            const UnixSocket silent = client();
            const UnixSocket deaf = client();
            put(deaf, "big\n");
            EXPECT_EQ(rest(silent), "");
            std::this_thread::sleep_for(2 * brief.idle);
            EXPECT_LT(rest(deaf).size(), std::size_t{32} << 20);
            EXPECT_EQ(say(request("status"))["ok"], true);
        });
        return true;
    });
}

/// The file: for its user alone, never in the place of something that is used, never left behind.
TEST_F(ControlTest, OwnsItsSocketFile)
{
    const auto open = [&](const fs::path &at) { return ControlSocket().open(at); };
    struct stat found {};
    {
        ControlSocket socket;
        ASSERT_EQ(socket.open(path()), "");
        ASSERT_EQ(lstat(path().c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 07777, 0600U);
        EXPECT_EQ(open(path()),
                  "process " + std::to_string(getpid()) + " listens at " + path().string());
        // Another one in its place is not this one's to remove.
        fs::rename(path(), directory / "moved");
        ControlSocket second;
        ASSERT_EQ(second.open(path()), "");
        socket.remove();
        EXPECT_TRUE(fs::exists(path()));
    }
    EXPECT_FALSE(fs::exists(path()));
    fs::remove(directory / "moved");
    // What a process that was killed has left is replaced, and removed where it is nobody's.
    const pid_t child = fork();
    if (child == 0) {
        ControlSocket one;
        ControlSocket two;
        _exit(one.open(path()).empty() && two.open(directory / "old-1.sock").empty() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    ControlSocket next;
    EXPECT_EQ(next.open(path()), "");
    chmod(directory.c_str(), 0700);
    ControlSocket named;
    EXPECT_EQ(named.openNamed(directory, "a b/c"), "");
    EXPECT_EQ(named.path().filename(), "a_b_c-" + std::to_string(getpid()) + ".sock");
    EXPECT_FALSE(fs::exists(directory / "old-1.sock"));
    const auto relays = runningRelays({directory}, "a_b_c");
    ASSERT_EQ(relays.size(), 1U);
    EXPECT_EQ(relays[0].process, getpid());
    EXPECT_TRUE(runningRelays({directory}, "a").empty());

    std::ofstream(directory / "file") << "x";
    EXPECT_NE(open(directory / "file").find("is no socket"), std::string::npos);
    EXPECT_NE(open(directory / std::string(120, 'n')).find("longer than the 107"),
              std::string::npos);
    EXPECT_NE(open(directory / "no" / "r.sock").find("cannot be opened"), std::string::npos);
    chmod(directory.c_str(), 0770);
    EXPECT_NE(ControlSocket().openNamed(directory, "r").find("others may write"),
              std::string::npos);
    fs::create_directory_symlink(directory, directory / "link");
    EXPECT_NE(ControlSocket().openNamed(directory / "link", "r").find("not a directory"),
              std::string::npos);
    // While another one looks at the directory, this one waits; not for ever.
    const int lock = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    EXPECT_NE(open(directory / "s.sock").find("locked by another process"), std::string::npos);
    close(lock);
}

} // namespace
