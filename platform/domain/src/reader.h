// A reader and what it has taken from the engine but not yet handed on. The owner's thread takes,
// threads of the engine count and wake.
#ifndef QDDSDOMAIN_SRC_READER_H
#define QDDSDOMAIN_SRC_READER_H

#include "endpoint.h"

#include <array>
#include <cstring>
#include <deque>
#include <mutex>
#include <set>
#include <unordered_map>

#include "engine_entities.h"
#include "qddsdomain/reader.h"

namespace qddsdomain {

using Guid = std::array<uint8_t, 16>;

/// A writer of another process.
using WriterId = QDomainWriterId;
struct ById {
    bool operator()(const WriterId &left, const WriterId &right) const
    {
        return std::memcmp(&left, &right, sizeof left) < 0;
    }
};

/// The writers behind the engine's handles. A sample names its writer by a handle that means
/// nothing once the writer has gone, so what is known is kept while samples may still come.
class Writers {
public:
    /// Has only those count that are in just these partitions; empty lets all of them.
    void keepTo(std::set<std::string> partitions)
    {
        only = std::move(partitions);
    }
    /// From the engine's threads: writers have come or gone.
    void changed()
    {
        stale.store(true, std::memory_order_release);
    }
    /// Null for a writer that went before the first take after it had come.
    const Guid *find(dds_entity_t reader, dds_instance_handle_t handle);
    /// Whether what it writes is wanted; so it is of one that nothing is known of.
    bool counts(dds_entity_t reader, dds_instance_handle_t handle);
    /// Learns about new ones while they can be asked for.
    void refresh(dds_entity_t reader);

private:
    struct Writer {
        Guid guid;
        bool counts;
    };
    const Writer *lookUp(dds_entity_t reader, dds_instance_handle_t handle);
    const Writer *learn(dds_entity_t reader, dds_instance_handle_t handle);

    std::set<std::string> only;
    std::atomic<bool> stale{false};
    std::unordered_map<dds_instance_handle_t, Writer> known;
    dds_instance_handle_t lastHandle = 0;
    const Writer *last = nullptr; // elements of the map stay where they are
};

/// The time-based filter, which the engine announces to peers but leaves to them.
class TimeFilter {
public:
    int64_t separation = 0; // nanoseconds; 0 lets everything through

    bool passes(const dds_sample_info_t &info)
    {
        if (separation == 0 || !info.valid_data) {
            return true;
        }
        const auto [there, isNew] = last.emplace(info.instance_handle, info.source_timestamp);
        const int64_t passed = info.source_timestamp - there->second;
        const bool late = isNew || passed < 0 || passed >= separation;
        if (late) {
            there->second = info.source_timestamp;
        }
        return late;
    }
    /// Once its end is reported, and not with the samples that wait when it ends.
    void forget(dds_instance_handle_t instance)
    {
        last.erase(instance);
    }

private:
    std::unordered_map<dds_instance_handle_t, dds_time_t> last; // of each living instance
};

/// Messages taken from the engine.
struct Block {
    static constexpr uint32_t capacity = 256;

    std::array<ddsi_serdata *, capacity> messages;
    std::array<dds_sample_info_t, capacity> infos;
    /// Whether the end of its instance has to be reported behind a sample.
    std::array<bool, capacity> endsBehind;
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

/// Members go in reverse: the engine's reader first.
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
    uint64_t reportedMalformed = 0;
    int32_t maxSamples = 0;
    qddsdomain::TimeFilter timeFilter;

    qddsdomain::Writers writers;
    /// Being handed on; of the owner's thread. None while nothing comes: many readers wait, and
    /// each would hold 18 KiB.
    std::unique_ptr<qddsdomain::Block> block;
    qddsdomain::Bytes key, plain;

    /// Taking from the engine, and what was taken to make room there (see enlist).
    std::mutex mutex;
    std::deque<std::unique_ptr<qddsdomain::Block>> ahead;
    uint64_t aheadBytes = 0;
    std::set<qddsdomain::WriterId, qddsdomain::ById> held; // writers that wait for this reader
    uint64_t inFlight = 0;         // samples taken ahead since they were held
    std::atomic<bool> full{false}; // the engine waits for room

    dds_entity_t participant = 0; // not owned
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

/// While a reliable reader is full the engine's receiving thread waits for room in it, and does
/// nothing else: no other reader of the domain gets samples, no writer its acknowledgements, and
/// other processes seem to have gone. So one thread of this process takes what full readers hold
/// out of their way, to be handed on first when they are next read. A reader gives up mostAhead.
/// Beyond that its writers in other processes are held: the engine passes over what they send, they
/// send it again later, and wait.
constexpr uint64_t mostAhead = 32 << 20; // bytes
/// At which its writers may go on: what is left lasts until they have noticed.
constexpr uint64_t resumeAhead = mostAhead / 2;
uint64_t bytesOf(const Block &block);
/// Samples that it still holds; ends of instances are none.
uint64_t samplesOf(const Block &block);
/// Reliable readers with a limit. The first one starts the thread: throws std::system_error when
/// there is none to be had. Once delist returns the thread knows nothing of the reader.
void enlist(DDS_DataReader &reader);
void delist(DDS_DataReader &reader);
/// A reader is full, or one whose writers are held has handed samples on. Any thread; it only
/// marks.
void callRelief();

/// Empties a reader that is about to be deleted and lets nothing more in: as long as the receiving
/// thread waits, the engine cannot delete the reader. Returns how many samples that were.
uint64_t drain(DDS_DataReader &self);

/// Takes up to `wanted` messages from the engine, with the reader's mutex held. The engine's code.
dds_return_t fetch(DDS_DataReader &self, Block &block, uint32_t wanted);

/// See DDS_DataReader_take.
int32_t takeSamples(DDS_DataReader &self, DDS_DynamicData *const *samples,
                    DDS_SampleInfo *const *infos, int32_t maximum, int64_t *room,
                    DDS_ErrorText *error);

} // namespace qddsdomain

#endif
