// What the adapter announces of the streams of other processes.
#include <thread>

#include "crossing.h"

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
    // Of a type that is not known the host gets an opaque one, unless it wants none.
    peer.send("?plain");
    Host never(24, "", "opaque=never");
    const auto next = [](Host &from) {
        const DDS_TypeCode *type = readingType();
        QEL_FerrionStreamReader *streams =
            from.table().get_pub_discovery_reader(from.connection, from.fresh());
        EXPECT_TRUE(eventually([&] {
            from.read<QEL_FerrionStreamInfo>(streams, [&](auto &stream, auto &) {
                type = std::string(stream.streamName) == "plain"
                           ? static_cast<const DDS_TypeCode *>(stream.typeRepresentation)
                           : type;
            });
            return type != readingType();
        }));
        return type;
    };
    const DDS_TypeCode *const plain = next(host);
    ASSERT_NE(plain, nullptr);
    EXPECT_NE(DDS_TypeCode_get_opaque(plain), nullptr);
    EXPECT_EQ(next(never), nullptr);
    EXPECT_TRUE(logged("topic \"plain\" is announced without a type: the peer announces no type"));
    host.remove(own);
}
