// Drives the adapter's table as a host would; peers are other connections of this process, or this
// program again as another process.
#include "../platform/records.h"
#include "host.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <unistd.h>

#include "qddscore/log.h"

namespace {

template<typename Condition> bool eventually(Condition condition)
{
    return within(std::chrono::seconds(10), condition);
}

// Whether the text was logged; each time that it was is reported once.
std::mutex g_logMutex;
std::string g_log;
std::atomic<uint32_t> g_level{0}; // of the last line
bool logged(const std::string &text)
{
    const std::lock_guard<std::mutex> lock(g_logMutex);
    const size_t at = g_log.find(text);
    if (at == std::string::npos) {
        return false;
    }
    g_log.erase(at, text.size());
    return true;
}

// A sample with its information, as text: "a=1 @100", or "a disposed @102".
std::string textOf(const DDS_DynamicData &sample, const DDS_SampleInfo &info)
{
    const char *id = "?";
    int32_t n = -1;
    DDS_DynamicData_get_string(&sample, "id", &id, nullptr);
    DDS_DynamicData_get_long(&sample, "n", &n);
    EXPECT_EQ(info.source_timestamp.nanosec, 123456789U);
    EXPECT_TRUE(info.publication_handle.isValid == 1 && info.instance_handle.isValid == 1);
    EXPECT_TRUE(info.valid_data != 0 || n == 0);
    const char *end =
        info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE ? " disposed" : " left";
    return id + (info.valid_data != 0 ? "=" + std::to_string(n) : end) + " @" +
           std::to_string(info.source_timestamp.sec);
}

constexpr int32_t ALIVE = DDS_ALIVE_INSTANCE_STATE;

struct Sent {
    const char *id;
    int32_t n;
    int32_t state;
    int32_t seconds;
};

int write(Host &host, QEL_FerrionStreamWriter *writer, const std::vector<Sent> &all)
{
    std::vector<Sample> owners;
    std::vector<void *> samples;
    std::vector<DDS_SampleInfo> values(all.size());
    std::vector<DDS_SampleInfo *> infos;
    for (size_t i = 0; i < all.size(); ++i) {
        owners.push_back(
            makeSample(static_cast<const DDS_TypeCode *>(host.stream.typeRepresentation)));
        setString(owners.back(), "id", all[i].id);
        DDS_DynamicData_set_long(owners.back().get(), "n", all[i].n);
        samples.push_back(owners.back().get());
        values[i].instance_state = all[i].state;
        values[i].valid_data = all[i].state == ALIVE ? 1 : 0;
        values[i].source_timestamp = {all[i].seconds, 123456789};
        infos.push_back(&values[i]);
    }
    return host.table().write(writer, samples.data(), infos.data(),
                              static_cast<int32_t>(all.size()), host.fresh());
}

// The ends are written when the samples have been read: an end that overtakes them is reported with
// them, at their time.
const std::vector<Sent> births = {{"a", 1, ALIVE, 100}, {"b", 2, ALIVE, 101}, {"c", 3, ALIVE, 102}};
const std::vector<Sent> ends = {{"a", 9, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE, 103},
                                {"b", 9, DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE, 104}};

// Reads `count` samples, at most two at a time.
std::set<std::string> readSet(Host &host, QEL_FerrionStreamReader *reader, size_t count)
{
    std::set<std::string> seen;
    eventually([&] {
        const int read = host.read<DDS_DynamicData>(
            reader, [&](auto &sample, auto &info) { seen.insert(textOf(sample, info)); });
        EXPECT_LE(read, 2);
        host.expectError("");
        return seen.size() >= count;
    });
    return seen;
}

// A read without the return of what was lent is rejected.
void expectOneLoan(Host &host, QEL_FerrionStreamReader *reader)
{
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    int32_t count = 0;
    EXPECT_TRUE(eventually([&] {
        host.table().read(reader, &samples, &infos, &count, host.fresh());
        return count == 1;
    }));
    host.table().read(reader, &samples, &infos, &count, host.fresh());
    EXPECT_EQ(count, 0);
    host.expectError("the last loan has not been returned");
    host.environment.message[0] = '\0';
    host.table().read(reader, &samples, &infos, &count, &host.environment);
    host.expectError(""); // the first error of a call is the one
    host.table().return_loan(reader, samples, infos, count, host.fresh());
}

// This program as another process, which does what its standard input says until that ends.
class Peer {
public:
    explicit Peer(const char *domain, bool dies = false)
        : pipe_(popen(("exec timeout 60 /proc/$PPID/exe --peer " + std::string(domain)).c_str(),
                      "w")),
          dies_(dies)
    {
    }
    ~Peer()
    {
        EXPECT_EQ(pclose(pipe_) == 0, !dies_);
    }
    void send(const std::string &command) const
    {
        std::fprintf(pipe_, "%s\n", command.c_str());
        std::fflush(pipe_);
    }

private:
    FILE *pipe_;
    bool dies_;
};

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

// Lines of data/settings.txt.
TEST(DdsAdapter, WhatIsWrongWithASettingIsSaid)
{
    Host host(21);
    for (const std::string &line : linesOf("dds-adapter/data/settings.txt")) {
        const size_t arrow = line.find(" -> ");
        const std::string settings = line.substr(2, arrow - 2);
        if (line[0] == 'c') {
            const Properties properties(settings);
            EXPECT_EQ(host.table().create_connection(host.plugin, nullptr, nullptr, nullptr,
                                                     nullptr, nullptr, nullptr, &properties.raw,
                                                     host.fresh()),
                      nullptr);
        } else if (line[0] == 'r') {
            EXPECT_EQ(host.reader("s", settings), nullptr);
        } else if (QEL_FerrionStreamWriter *made = host.writer("s", settings); made != nullptr) {
            host.remove(made);
        }
        host.expectError(line.substr(arrow + 4));
    }
    QEL_FerrionStreamReader *reader = host.reader("s", "batch=5");
    const Properties allowed("batch=7; reliability=reliable");
    EXPECT_NE(host.table().stream_reader_update(reader, &allowed.raw, host.fresh()), 0);
    const Properties rejected("reliability=best_effort");
    EXPECT_EQ(host.table().stream_reader_update(reader, &rejected.raw, host.fresh()), 0);
    host.expectError("\"reliability\" cannot be changed while in use (those "
                     "that can: batch, batch_bytes)");
    host.remove(reader);
    host.table().connection_update(host.connection, &allowed.raw, host.fresh());
    host.expectError("unknown property \"batch\", which belongs to sessions and readers");
    const Properties other("domain=22");
    host.table().connection_update(host.connection, &other.raw, host.fresh());
    host.expectError("\"domain\" cannot be changed while in use (those that can: none)");
    EXPECT_EQ(FerryAdapter_dds_create(&allowed.raw, host.fresh()), nullptr);
    host.expectError("which belongs to sessions and readers (known: none)");
    // A text that is cut ends with a whole character.
    std::string umlauts;
    for (int i = 0; i < 1000; ++i) {
        umlauts += "\xc3\xa4";
    }
    for (const std::string &value : {umlauts, "x" + umlauts}) {
        EXPECT_EQ(host.reader("s", "batch=" + value), nullptr);
        EXPECT_EQ(host.error(), ("reader of stream \"s\": property \"batch\" must be a whole "
                                 "number from 1 to 1000000, not \"" +
                                 value)
                                    .substr(0, host.error().size()));
        EXPECT_EQ(host.error().back(), '\xa4');
    }
    EXPECT_EQ(host.reader(nullptr), nullptr);
    EXPECT_EQ(host.error(),
              "reader of stream \"\": it has no name, and property \"topic\" says none");
    host.remove(static_cast<QEL_FerrionStreamReader *>(nullptr));
    host.remove(static_cast<QEL_FerrionStreamWriter *>(nullptr));
    host.stream.typeRepresentationKind = 1;
    EXPECT_EQ(host.reader("s"), nullptr);
    host.expectError("is given as representation 1; only 0");
    host.stream.typeRepresentationKind = 0;
    host.stream.typeRepresentation = nullptr;
    EXPECT_EQ(host.reader("s"), nullptr);
    host.expectError("it has no type");
}

TEST(DdsAdapter, SamplesAndTheEndsOfInstancesCross)
{
    Host left(21, NEAR);
    Host right(21, NEAR);
    EXPECT_STREQ(left.table().connection_to_string(left.connection), "domain 21 on loopback");
    QEL_FerrionStreamWriter *writer = left.writer("life", "wait_for_readers=1; wait_timeout=50ms");
    EXPECT_EQ(write(left, writer, births), 0);
    left.expectError("after 50ms there are 0 of 1 readers");
    QEL_FerrionStreamWriter *careless = left.writer("life");
    EXPECT_EQ(write(left, careless, births), 3); // to nobody
    left.expectError("\"life\": there is no reader");
    EXPECT_EQ(write(left, careless, births), 3);
    left.expectError("");
    left.remove(careless);
    left.expectError("\"life\": 6 samples were written while there was no reader");
    QEL_FerrionStreamReader *reader = right.reader("life", "batch=2");
    QEL_FerrionStreamReader *deaf = // which has no listener
        right.table().create_stream_reader(right.connection, right.session, &right.stream, nullptr,
                                           nullptr, right.fresh());
    right.expectError("");
    ASSERT_TRUE(eventually([&] { return write(left, writer, births) == 3; })) << left.error();
    EXPECT_EQ(readSet(right, reader, 3),
              (std::set<std::string>{"a=1 @100", "b=2 @101", "c=3 @102"}));
    EXPECT_EQ(write(left, writer, ends), 2) << left.error();
    EXPECT_EQ(readSet(right, reader, 2), (std::set<std::string>{"a disposed @103", "b left @104"}));
    EXPECT_EQ(right.signalled, reader);
    write(left, writer, {births[0]});
    expectOneLoan(right, reader);

    // The count is that of the samples in front of a bad one.
    const Sample good = makeSample(readingType());
    const Sample wrong = makeSample(typeFromIdl("struct Wrong { long n; };", "Wrong"));
    void *samples[] = {good.get(), good.get(), wrong.get(), nullptr};
    EXPECT_EQ(left.table().write(writer, samples, nullptr, 4, left.fresh()), 2);
    left.expectError("2 of 4 samples were written; sample 2: ");
    EXPECT_EQ(left.table().write(writer, samples + 3, nullptr, 1, left.fresh()), 0);
    left.expectError("sample 0: there is no sample");

    // What holds for the first write holds for every one.
    right.remove(deaf);
    EXPECT_TRUE(logged("samples had arrived and were not read"));
    right.remove(reader);
    EXPECT_TRUE(logged("\"life\": 2 samples had arrived and were not read; they are lost"));
    QEL_FerrionStreamReader *misfit = right.reader("life", "durability=transient_local");
    EXPECT_EQ(write(left, writer, births), 0);
    left.expectError("after 50ms there are 0 of 1 readers (wait_for_readers); 1 reader "
                     "does not match: durability; nothing was written");
    right.remove(misfit);
    EXPECT_FALSE(logged("samples had arrived and were not read"));
    left.remove(writer);

    // However many readers there are.
    writer = left.writer("crowd", "wait_for_readers=17");
    std::vector<QEL_FerrionStreamReader *> crowd(17);
    std::generate(crowd.begin(), crowd.end(), [&] { return right.reader("crowd"); });
    EXPECT_EQ(write(left, writer, births), 3) << left.error();
    left.remove(writer);
    for (QEL_FerrionStreamReader *each : crowd) {
        right.remove(each);
    }
}

// A late reader gets what a durable writer keeps: by default the last sample of each instance.
TEST(DdsAdapter, ADurableWriterKeepsAsMuchAsItIsAsked)
{
    Host left(25, NEAR);
    Host right(25, NEAR);
    const std::set<std::string> two = {"a=3 @102", "a=4 @103", "b=2 @101"};
    const std::pair<const char *, std::set<std::string>> cases[] = {
        {"", {"a=4 @103", "b=2 @101"}},
        {"; durable_depth=2", two},
        {"; history=keep_last; depth=2", two},
        {"; durable_depth=all", {"a=1 @100", "a=3 @102", "a=4 @103", "b=2 @101"}}};
    const std::string durable = "durability=transient_local";
    for (const auto &[setting, kept] : cases) {
        QEL_FerrionStreamWriter *writer = left.writer("kept", durable + setting);
        ASSERT_NE(writer, nullptr) << left.error();
        EXPECT_EQ(write(left, writer,
                        {{"a", 1, ALIVE, 100},
                         {"b", 2, ALIVE, 101},
                         {"a", 3, ALIVE, 102},
                         {"a", 4, ALIVE, 103}}),
                  4);
        QEL_FerrionStreamReader *reader = right.reader("kept", durable + "; batch=2");
        EXPECT_EQ(readSet(right, reader, kept.size()), kept);
        right.remove(reader);
        left.remove(writer);
        EXPECT_EQ(logged("durable_depth is all"), kept.size() == 4);
    }
    // A peer may keep as many as it likes.
    for (const auto &[depth, text] : {std::pair("5000", "keep 5000 samples of each instance for"),
                                      std::pair("all", "keep every sample for")}) {
        left.remove(left.writer("kept", durable + "; ~durable_depth=" + depth));
        EXPECT_TRUE(logged(text + std::string(" late readers; this writer keeps 1000 of each "
                                              "instance (durable_depth)")));
    }
    // Without a key there is one instance, which never ends.
    const DDS_TypeCode *const plain = typeFromIdl("struct Plain { string id; long n; };", "Plain");
    left.stream.typeRepresentation = right.stream.typeRepresentation =
        const_cast<DDS_TypeCode *>(plain);
    QEL_FerrionStreamWriter *writer = left.writer("plain", durable + "; timestamps=now");
    EXPECT_TRUE(logged("its type has no key, so readers that come later get the last sample only"));
    EXPECT_EQ(g_level, 2U);
    EXPECT_EQ(write(left, writer, {births[0], births[1], ends[0]}), 3) << left.error();
    QEL_FerrionStreamReader *reader = right.reader("plain", durable);
    EXPECT_TRUE(eventually([&] {
        return right.read<DDS_DynamicData>(reader, [](auto &sample, auto &info) {
            int32_t n = 0;
            DDS_DynamicData_get_long(&sample, "n", &n);
            EXPECT_TRUE(n == 2 && info.source_timestamp.sec > 1000) << n;
        }) == 1;
    }));
    right.remove(reader);
    left.remove(writer);
}

// A read ends with the sample that brings it to `batch_bytes`.
TEST(DdsAdapter, ABatchIsBoundedInBytes)
{
    Host left(26, NEAR);
    Host right(26, NEAR);
    QEL_FerrionStreamReader *reader = right.reader("large", "batch_bytes=2000");
    QEL_FerrionStreamWriter *writer = left.writer("large", "wait_for_readers=1");
    // Of about 500 bytes each, then one beyond the bound; all are there before the first read.
    const std::string small(480, 'a');
    const std::string large(9000, 'b');
    std::vector<Sent> all(6, {small.c_str(), 1, ALIVE, 100});
    all.push_back({large.c_str(), 1, ALIVE, 100});
    all.push_back({small.c_str(), 1, ALIVE, 100});
    ASSERT_EQ(write(left, writer, all), 8) << left.error();
    std::vector<int> counts;
    const auto none = [](auto &, auto &) {};
    while (counts.empty() || counts.back() > 0) {
        counts.push_back(right.read<DDS_DynamicData>(reader, none));
    }
    // Samples come in the order of their instances.
    EXPECT_EQ(counts, (std::vector<int>{5, 3, 0}));

    // A record that held a large sample does not keep its memory for small ones.
    const std::string huge(2'000'000, 'c');
    std::vector<int64_t> kept;
    for (const std::string &id : {huge, small}) {
        ASSERT_EQ(write(left, writer, {{id.c_str(), 1, ALIVE, 100}}), 1);
        EXPECT_TRUE(eventually([&] { return right.read<DDS_DynamicData>(reader, none) == 1; }));
        kept.push_back(heapUsage().bytes);
    }
    EXPECT_LT(kept[1], kept[0] - 1'500'000);
    right.remove(reader);
    left.remove(writer);
}

// The reader is killed while it holds up a write: what it had got nobody knows, so all of it goes
// to the next one.
TEST(DdsAdapter, AWriteThatLosesItsReadersIsWrittenAgain)
{
    Host left(27, NEAR);
    Host right(27, NEAR);
    QEL_FerrionStreamWriter *writer = left.writer("fatal", "wait_for_readers=1");
    const std::string large(1000, 'a');
    std::vector<Sent> all;
    for (int i = 0; i < 1000; ++i) {
        all.push_back({large.c_str(), i, ALIVE, i});
    }
    int written = -1;
    std::thread writing([&] { written = write(left, writer, all); });
    {
        const Peer peer("27", true);
        peer.send("kfatal");
    }
    QEL_FerrionStreamReader *reader = right.reader("fatal", "batch=2");
    EXPECT_EQ(readSet(right, reader, 1000).size(), 1000U);
    writing.join();
    EXPECT_EQ(written, 1000) << left.error();
    right.remove(reader);
    left.remove(writer);
}

TEST(DdsAdapter, ASlowReaderCostsTheRestOfAWriteAndLingerReports)
{
    Host host(22);
    const Peer peer("22");
    peer.send("rslow");
    QEL_FerrionStreamWriter *writer =
        host.writer("slow", "wait_for_readers=1; write_timeout=1s; linger=50ms");
    // Together more than the domain keeps in memory for a reader that takes nothing.
    const std::string large(100'000, 'a');
    const int written = write(host, writer, {1000, {large.c_str(), 1, ALIVE, 100}});
    EXPECT_TRUE(written > 0 && written < 1000) << written;
    host.expectError(std::to_string(written) + " of 1000 samples were written; sample " +
                     std::to_string(written) + ": slow readers");
    host.remove(writer);
    host.expectError(" samples are not acknowledged by all of 1 readers after 50ms");

    // A host that stops waits for neither. (What a write is asked before it begins holds for it.)
    writer = host.writer("slow", "wait_for_readers=1; write_timeout=1h; linger=1h");
    std::thread stopping([&] {
        FerryAdapter_dds_create_stop_by(
            host.plugin,
            std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count() +
                3'000'000'000);
    });
    EXPECT_LT(write(host, writer, {1000, {large.c_str(), 1, ALIVE, 100}}), 1000);
    EXPECT_NE(host.error(), "");
    stopping.join();
    host.remove(writer);
    host.expectError("of 1 readers after the host's stop");
    writer = host.writer("slow", "wait_for_readers=2; wait_timeout=1h");
    EXPECT_EQ(write(host, writer, births), 0);
    host.expectError("after the host's stop there are ");
    host.remove(writer);
}

TEST(DdsAdapter, ANoticeIsToldOnce)
{
    Host left(23, NEAR);
    Host right(23, NEAR);
    QEL_FerrionStreamReader *reader = right.reader("q", "durability=transient_local");
    // Partitions keep apart on purpose: of the first writer there is nothing to report.
    QEL_FerrionStreamWriter *apart =
        left.writer("q", "durability=transient_local; partitions=elsewhere");
    QEL_FerrionStreamWriter *writer = left.writer("q");
    const auto none = [](auto &, auto &) {};
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(eventually([&] {
        EXPECT_EQ(right.read<DDS_DynamicData>(reader, none), 0);
        return !right.error().empty();
    }));
    EXPECT_EQ(right.error(), "reader of stream \"q\": 1 times a writer did not match: durability");
    // The next one has to wait, for ten seconds or for the end.
    QEL_FerrionStreamWriter *other = left.writer("q");
    EXPECT_FALSE(within(std::chrono::seconds(1), [&] {
        EXPECT_EQ(right.read<DDS_DynamicData>(reader, none), 0);
        return !right.error().empty() &&
               std::chrono::steady_clock::now() - begin < std::chrono::seconds(9);
    }));
    left.remove(writer);
    left.remove(other);
    right.remove(reader);
    right.expectError("1 times a writer did not match: durability");

    // When there is none but such ones the log says so.
    reader = right.reader("q", "partitions=here");
    const std::chrono::seconds twoLooks(25);
    EXPECT_TRUE(within(twoLooks, [&] {
        EXPECT_EQ(right.read<DDS_DynamicData>(reader, none), 0);
        write(left, apart, births);
        return logged("reader of stream \"q\": 1 writer does not match: partition \"elsewhere\"");
    }));
    right.expectError("");
    EXPECT_TRUE(within(twoLooks, [&] {
        write(left, apart, births);
        return logged("writer of stream \"q\": 1 reader does not match: partition \"here\"");
    }));
    left.remove(apart);
    right.remove(reader);
}

namespace {

// What is announced of a stream, as text: "-" when it has gone, name, partitions, properties.
std::string changeOf(const QEL_FerrionStreamInfo &stream)
{
    std::string text = std::string(stream.disposed != 0 ? "-" : "") + stream.streamName;
    for (int32_t i = 0; i < stream.partition.length; ++i) {
        text += std::string(" ") + stream.partition.buffer[i];
    }
    const auto *all = FerryAdapter_dds_create_stream_properties(nullptr, &stream);
    for (int32_t i = 0; stream.disposed == 0 && i < all->count; ++i) {
        text += std::string(" ") + all->properties[i].value;
    }
    return text;
}

// Has the peer do something, and expects that the next announcement is this.
void expectNext(Host &host, QEL_FerrionStreamReader *discovery, const Peer &peer,
                const std::string &command, const std::string &expected)
{
    peer.send(command);
    std::string reported;
    ASSERT_TRUE(eventually([&] {
        host.read<QEL_FerrionStreamInfo>(discovery, [&](auto &stream, auto &info) {
            reported += changeOf(stream);
            EXPECT_EQ(info.instance_state, stream.disposed != 0 ? 2 : 1);
            EXPECT_EQ(stream.typeRepresentation, readingType());
        });
        return !reported.empty();
    })) << command;
    EXPECT_EQ(reported, expected) << command;
}

} // namespace

TEST(DdsAdapter, StreamsOfOtherProcessesComeChangeAndGo)
{
    Host host(24);
    QEL_FerrionStreamReader *inputs =
        host.table().get_pub_discovery_reader(host.connection, host.fresh());
    ASSERT_NE(inputs, nullptr) << host.error();
    EXPECT_EQ(inputs, host.table().get_pub_discovery_reader(host.connection, host.fresh()));
    QEL_FerrionStreamWriter *own = host.writer("own"); // which is not announced
    const Peer peer("24");
    const std::string weak = " best_effort volatile shared ";
    // The peer's writers are best effort: a reliable reader would not match them. One that takes
    // over what they offer waits for the first of them.
    Host early(24, "", "type_timeout=20s");
    QEL_FerrionStreamReader *reader = nullptr;
    std::thread making([&] { reader = early.reader("peer", "reliability=auto; partitions=one"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // Too little hides a fault only.
    expectNext(host, inputs, peer, "+one", "peer one" + weak + "one");
    EXPECT_EQ(host.signalled, inputs);
    making.join();
    peer.send("!one");
    EXPECT_EQ(readSet(early, reader, 1), (std::set<std::string>{"a=4 @100"}));
    early.remove(reader);
    expectNext(host, inputs, peer, "+one,two", "peer one two" + weak + "one,two");
    // The reader of the one stream gets nothing of the other, although that is in its partition.
    char one[] = "one";
    char *partitions[] = {one};
    host.stream.partition = {partitions, 1, 1};
    reader = host.reader("peer", "~direction=input; ~reliability=best_effort; ~partitions=one");
    host.stream.partition = {};
    peer.send("!one,two");
    peer.send("!one");
    EXPECT_EQ(readSet(host, reader, 1), (std::set<std::string>{"a=4 @100"}));
    host.remove(reader);
    expectNext(host, inputs, peer, "-one", "-peer one");
    // When all is known nobody waits.
    Host late(24, "", "type_timeout=1ms");
    EXPECT_TRUE(eventually([&] {
        return late.read<QEL_FerrionStreamInfo>(
                   late.table().get_pub_discovery_reader(late.connection, late.fresh()),
                   [](auto &, auto &) {}) > 0;
    }));
    for (const char *settings : {"reliability=auto; partitions=t*",
                                 "~direction=output; ~reliability=reliable; partitions=t*"}) {
        reader = late.reader("peer", settings);
        peer.send("!one,two");
        EXPECT_EQ(readSet(late, reader, 1), (std::set<std::string>{"a=8 @100"}));
        late.remove(reader);
    }
    // Without a listener there is nobody to signal to.
    const Properties domain("domain=24");
    QEL_FerrionConnection *deaf =
        host.table().create_connection(host.plugin, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, &domain.raw, host.fresh());
    EXPECT_NE(host.table().get_pub_discovery_reader(deaf, host.fresh()), nullptr);
    host.table().delete_connection(host.plugin, deaf, host.fresh());
    // What two have in common changes when the better one stays alone and when the weak one comes.
    peer.send("*one,two");
    expectNext(host, inputs, peer, "-one,two",
               "peer one two reliable transient_local exclusive 1h one,two 7 "
               "7200000250us 5");
    expectNext(host, inputs, peer, "+one,two", "peer one two" + weak + "one,two");
    peer.send("-*one,two");
    expectNext(host, inputs, peer, "-one,two", "-peer one two");
    QEL_FerrionStreamReader *outputs =
        host.table().get_sub_discovery_reader(host.connection, host.fresh());
    expectNext(host, outputs, peer, "Rask", "ask  reliable volatile exclusive 1m");
    peer.send("?plain");
    expectOneLoan(host, inputs);
    EXPECT_TRUE(logged("topic \"plain\" is announced without a type: the peer announces no type"));
    host.remove(own);
}

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
