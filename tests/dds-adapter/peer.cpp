// The tests, or with "--peer" the other process that they have.
#include <csignal>
#include <cstring>
#include <map>

#include "crossing.h"
#include "qddscore/log.h"

namespace {

// "+P" makes a writer in partitions P, "*P" one that is durable, exclusive and more, "!P" has the
// first one write once a reader is there, "-P" deletes it, "-*P" the other one; "rT" makes a reader
// of topic T that is never read, "RT" an exclusive one; "?T" a writer that announces no type; "kT"
// one that dies of its first sample. Nobody waits for a peer that has died for longer than a
// second.
int serve(const char *domain)
{
    Host host(std::stoi(domain), "",
              "engine_xml=<Discovery><LeaseDuration>1s</LeaseDuration></Discovery>");
    std::map<std::string, QEL_FerrionStreamWriter *> writers;
    std::vector<QEL_FerrionStreamReader *> readers;
    char line[80];
    while (std::fscanf(stdin, "%79s", line) == 1) {
        QEL_FerrionStreamWriter *&writer = writers[line[0] == '*' ? line : line + 1];
        const std::string partitions = "partitions=" + std::string(line + 1) + "; ";
        if (line[0] == '+') {
            writer =
                host.writer("peer", partitions + "reliability=best_effort; wait_for_readers=1");
        } else if (line[0] == '!') {
            write(host, writer, {{"a", static_cast<int32_t>(std::strlen(line)), ALIVE, 100}});
        } else if (line[0] == '*') {
            writer =
                host.writer("peer", partitions + "durability=transient_local; durable_depth=7; "
                                                 "deadline=1h; lifespan=7200000.25ms; "
                                                 "ownership=exclusive; ownership_strength=5");
        } else if (line[0] == '?') {
            writer = host.writer(line + 1, "match=name");
        } else if (line[0] == '-') {
            host.remove(writer);
            writer = nullptr;
        } else if (line[0] == 'R') {
            readers.push_back(host.reader(line + 1, "ownership=exclusive; deadline=1m"));
        } else {
            readers.push_back(host.reader(line + 1, "max_samples=10"));
            if (line[0] == 'k' && eventually([&] { return host.signalled == readers.back(); })) {
                raise(SIGKILL);
            }
        }
    }
    for (QEL_FerrionStreamReader *each : readers) {
        host.remove(each);
    }
    for (const auto &[name, each] : writers) {
        if (each != nullptr) {
            host.remove(each);
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::string(argv[1]) == "--peer") {
        return serve(argv[2]);
    }
    testing::InitGoogleTest(&argc, argv);
    QELLog_setLogLevel = [](uint32_t level) { g_level = level; };
    QELLog_setSink(
        [](void *, const char *line, std::size_t) {
            const std::lock_guard<std::mutex> lock(g_logMutex);
            g_log += std::string(line) + "\n";
        },
        nullptr);
    return RUN_ALL_TESTS();
}
