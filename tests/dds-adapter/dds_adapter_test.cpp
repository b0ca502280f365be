// Samples, ends of instances and what becomes of them when readers are slow, late or gone. Peers
// are other connections of this process, or this program again as another process.
#include <algorithm>
#include <cstring>
#include <thread>

#include "crossing.h"

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
