// What full readers would otherwise bring to a standstill; see reader.h.
#include "reader.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <thread>

namespace qddsdomain {

namespace {

/// How long the engine waits before it tries a full reader again: the owner's time to take.
constexpr std::chrono::milliseconds patience{10};
/// Samples that threads of the engine may have in hand when a reader's writers are held, in its
/// queues of 128 and 256. They must get in before those threads can do anything else.
constexpr uint64_t mostInFlight = 512;

std::vector<WriterId> remoteWriters(const DDS_DataReader &reader)
{
    return engine::allOf<WriterId>([&](WriterId *to, size_t room) {
        return static_cast<int64_t>(
            qddsdomain_remote_writers(reader.entity.get(), reader.topic.type, to, room));
    });
}

/// With the reader's mutex held. What it gives up is bounded by what it has room for, so that other
/// readers are served.
void absorb(DDS_DataReader &reader)
{
    for (auto budget = static_cast<uint64_t>(reader.maxSamples); budget > 0;) {
        const bool beyond = reader.aheadBytes >= mostAhead;
        const uint64_t most = beyond ? mostInFlight - reader.inFlight : Block::capacity;
        const auto wanted =
            static_cast<uint32_t>(std::min<uint64_t>({most, budget, Block::capacity}));
        auto block = std::make_unique<Block>();
        if (wanted == 0 || fetch(reader, *block, wanted) <= 0) {
            return;
        }
        budget -= block->count;
        reader.inFlight += beyond ? block->count : 0;
        reader.aheadBytes += bytesOf(*block);
        reader.ahead.push_back(std::move(block));
    }
}

class Relief {
public:
    void enlist(DDS_DataReader &reader);
    void delist(DDS_DataReader &reader);
    void call();

private:
    void run();
    bool waitForCall();
    void look(DDS_DataReader &reader);
    void hold(DDS_DataReader &reader);
    void releaseReader(DDS_DataReader &reader);

    /// Threads of the engine lock this one while they hold locks of theirs; nothing is done under
    /// it.
    std::mutex signal;
    std::condition_variable changed;
    bool called = false;
    bool stopping = false;

    std::mutex lifecycle; // starting and ending the thread; the first one to be taken
    std::thread thread;

    std::mutex members; // taken before a reader's mutex and the engine's locks
    std::vector<DDS_DataReader *> readers;
    std::map<WriterId, size_t, ById> holders; // how many readers each held writer waits for
};

void Relief::enlist(DDS_DataReader &reader)
{
    const std::lock_guard<std::mutex> alone(lifecycle);
    if (!thread.joinable()) {
        stopping = false;
        thread = std::thread(&Relief::run, this);
    }
    const std::lock_guard<std::mutex> guard(members);
    readers.push_back(&reader);
}

void Relief::delist(DDS_DataReader &reader)
{
    const std::lock_guard<std::mutex> alone(lifecycle);
    {
        const std::lock_guard<std::mutex> guard(members);
        const auto found = std::find(readers.begin(), readers.end(), &reader);
        if (found != readers.end()) {
            readers.erase(found);
            const std::lock_guard<std::mutex> own(reader.mutex);
            releaseReader(reader);
        }
        if (!readers.empty() || !thread.joinable()) {
            return;
        }
    }
    {
        const std::lock_guard<std::mutex> guard(signal);
        stopping = true;
        changed.notify_one();
    }
    thread.join();
}

void Relief::call()
{
    const std::lock_guard<std::mutex> guard(signal);
    called = true;
    changed.notify_one();
}

bool Relief::waitForCall()
{
    std::unique_lock<std::mutex> lock(signal);
    changed.wait(lock, [this] { return called || stopping; });
    (void)changed.wait_for(lock, patience, [this] { return stopping; });
    called = false;
    return !stopping;
}

void Relief::run()
{
    while (waitForCall()) {
        const std::lock_guard<std::mutex> guard(members);
        for (DDS_DataReader *reader : readers) {
            try {
                look(*reader);
            } catch (const std::bad_alloc &) {
                call(); // again, as the receiving thread waits as well
            }
        }
    }
}

void Relief::look(DDS_DataReader &reader)
{
    const std::lock_guard<std::mutex> guard(reader.mutex);
    if (reader.aheadBytes <= resumeAhead) {
        releaseReader(reader);
    }
    if (!reader.full.load(std::memory_order_relaxed)) {
        return;
    }
    if (reader.aheadBytes >= mostAhead) {
        hold(reader);
    }
    absorb(reader);
}

/// A writer that has come since, or has come back, is one more whose samples may be in hand.
void Relief::hold(DDS_DataReader &reader)
{
    for (const WriterId &id : remoteWriters(reader)) {
        if (reader.held.insert(id).second) {
            ++holders[id];
        }
        if (qddsdomain_hold(reader.topic.type, &id, 1) != 0) {
            reader.inFlight = 0;
        }
    }
}

void Relief::releaseReader(DDS_DataReader &reader)
{
    for (const WriterId &id : reader.held) {
        const auto found = holders.find(id);
        if (--found->second == 0) {
            holders.erase(found);
            (void)qddsdomain_hold(reader.topic.type, &id, 0);
        }
    }
    reader.held.clear();
    reader.inFlight = 0;
}

Relief &relief()
{
    static auto *one = new Relief; // readers may be deleted while statics go
    return *one;
}

} // namespace

void enlist(DDS_DataReader &reader)
{
    relief().enlist(reader);
}

void delist(DDS_DataReader &reader)
{
    relief().delist(reader);
}

void callRelief()
{
    relief().call();
}

uint64_t samplesOf(const Block &block)
{
    const auto *const end = block.infos.data() + block.count;
    return static_cast<uint64_t>(
        std::count_if(block.infos.data() + block.next, end,
                      [](const dds_sample_info_t &info) { return info.valid_data; }));
}

uint64_t bytesOf(const Block &block)
{
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < block.count; ++i) {
        bytes += look(block.messages[i]).length + sizeof(Block) / Block::capacity;
    }
    return bytes;
}

uint64_t drain(DDS_DataReader &self)
{
    // The engine tries again every 10 ms to put a sample into a full reader. What comes later than
    // that was let in before the door was closed, and there is room for it.
    constexpr int quietTries = 5;
    constexpr uint64_t inFlightMark = 16; // samples that threads of the engine may have in hand
    // The ends of a million instances may be there: nobody waits for room behind these.
    const dds_time_t end = dds_time() + DDS_SECS(1);
    const auto room = static_cast<uint64_t>(self.maxSamples);
    uint64_t total = 0;
    uint64_t samples = 0;
    for (int quiet = 0; quiet < quietTries && dds_time() < end;) {
        Block block;
        const dds_return_t count =
            dds_takecdr(self.entity.get(), block.messages.data(), Block::capacity,
                        block.infos.data(), engine::anyState);
        block.count = count > 0 ? static_cast<uint32_t>(count) : 0;
        total += block.count;
        samples += samplesOf(block);
        if (count > 0) {
            quiet = 0;
            continue;
        }
        if (count < 0 || room == 0 || (total < room && room > inFlightMark)) {
            break; // nobody can be waiting
        }
        ++quiet;
        dds_sleepfor(DDS_MSECS(10));
    }
    return samples;
}

} // namespace qddsdomain
