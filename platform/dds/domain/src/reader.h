// A reader and what it has taken from the engine but not yet handed on. The owner's thread takes,
// threads of the engine count and wake.
#ifndef QDDSDOMAIN_SRC_READER_H
#define QDDSDOMAIN_SRC_READER_H

#include "endpoint.h"

#include <array>
#include <unordered_map>

#include "qddsdomain/reader.h"

namespace qddsdomain {

using Guid = std::array<uint8_t, 16>;

// The writers behind the engine's handles. A sample names its writer by a handle that means nothing
// once the writer has gone, so what is known is kept while samples may still come.
class Writers {
public:
    // From the engine's threads: writers have come or gone.
    void changed()
    {
        stale.store(true, std::memory_order_release);
    }
    // Null for a writer that went before the first take after it had come.
    const Guid *find(dds_entity_t reader, dds_instance_handle_t handle);
    // Learns about new ones while they can be asked for.
    void refresh(dds_entity_t reader);

private:
    const Guid *learn(dds_entity_t reader, dds_instance_handle_t handle);

    std::atomic<bool> stale{false};
    std::unordered_map<dds_instance_handle_t, Guid> known;
    dds_instance_handle_t lastHandle = 0;
    const Guid *last = nullptr; // elements of the map stay where they are
};

// Messages taken from the engine.
struct Block {
    static constexpr uint32_t SIZE = 256;

    std::array<ddsi_serdata *, SIZE> messages;
    std::array<dds_sample_info_t, SIZE> infos;
    // Whether the end of its instance has to be told behind a sample.
    std::array<bool, SIZE> endsBehind;
    uint32_t count = 0;
    uint32_t next = 0;
    bool atEnd = false; // of `next` the sample has been handed on, the end has not

    Block() = default;
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    ~Block()
    {
        for (; next < count; ++next) {
            release(messages[next]);
        }
    }
};

} // namespace qddsdomain

// Members go in reverse: the engine's reader first.
struct DDS_DataReader {
    const qddsdomain::WireType *wire = nullptr;
    DDS_OnDataFn onData = nullptr;
    void *argument = nullptr;
    bool reliable = false;
    bool exclusive = false;

    qddsdomain::Event incompatible, lost, rejected, deadlineMissed;
    std::atomic<uint64_t> lostEver{0};
    std::atomic<uint64_t> taken{0};
    std::atomic<uint32_t> matched{0};
    uint64_t refusedBefore = 0; // by other readers of the topic, earlier
    uint64_t refusedTold = 0;

    qddsdomain::Writers writers;
    qddsdomain::Block block;
    qddsdomain::Bytes key, plain;
    qddsdomain::Topic topic;
    qddsdomain::engine::Entity subscriber;
    qddsdomain::engine::Entity entity;

    ~DDS_DataReader();
    DDS_DataReader() = default;
    DDS_DataReader(const DDS_DataReader &) = delete;
    DDS_DataReader &operator=(const DDS_DataReader &) = delete;

    void wake() const
    {
        if (onData != nullptr) {
            onData(argument);
        }
    }
};

namespace qddsdomain {

// See DDS_DataReader_take.
int32_t takeSamples(DDS_DataReader &self, DDS_DynamicData *const *samples,
                    DDS_SampleInfo *const *infos, int32_t maximum, DDS_ErrorText *error);

} // namespace qddsdomain

#endif
