// What full readers would otherwise bring to a standstill; see reader.h.
#include "reader.h"

#include <algorithm>

namespace qddsdomain {

namespace {

// Readers with a limit. The mutex is taken before that of a reader.
struct Limited {
    std::mutex mutex;
    std::vector<DDS_DataReader *> readers;
};
Limited &limited()
{
    static auto *all = new Limited; // readers may be deleted while statics go
    return *all;
}

// Beyond what is free only as much as has been handed on since, and a little, as the message that
// is waited for must come in the end: so a reader that is read slowly holds about as much as
// before.
void absorb(DDS_DataReader &reader)
{
    constexpr uint64_t FREE = 8 << 20; // bytes
    constexpr uint64_t LITTLE = 128;   // samples
    const std::lock_guard<std::mutex> guard(reader.mutex);
    uint64_t budget = reader.aheadBytes < FREE ? static_cast<uint64_t>(reader.maxSamples)
                                               : reader.aheadHanded + LITTLE;
    reader.aheadHanded = 0;
    while (budget > 0 && reader.aheadBytes < MOST_AHEAD) {
        auto block = std::make_unique<Block>();
        if (fetch(reader, *block, static_cast<uint32_t>(std::min<uint64_t>(budget, Block::SIZE))) <=
            0) {
            return;
        }
        budget -= block->count;
        reader.aheadBytes += bytesOf(*block);
        reader.ahead.push_back(std::move(block));
    }
}

} // namespace

void enlist(DDS_DataReader &reader)
{
    Limited &all = limited();
    const std::lock_guard<std::mutex> guard(all.mutex);
    all.readers.push_back(&reader);
}

void delist(DDS_DataReader &reader)
{
    Limited &all = limited();
    const std::lock_guard<std::mutex> guard(all.mutex);
    all.readers.erase(std::remove(all.readers.begin(), all.readers.end(), &reader),
                      all.readers.end());
}

void relieve(int32_t domain, const DDS_DataReader *except)
{
    Limited &all = limited();
    const std::lock_guard<std::mutex> guard(all.mutex);
    for (DDS_DataReader *reader : all.readers) {
        if (reader != except && reader->domain == domain &&
            reader->full.load(std::memory_order_relaxed)) {
            absorb(*reader);
        }
    }
}

uint64_t bytesOf(const Block &block)
{
    uint64_t bytes = 0;
    for (uint32_t i = 0; i < block.count; ++i) {
        bytes += look(block.messages[i]).length + sizeof(Block) / Block::SIZE;
    }
    return bytes;
}

void drain(DDS_DataReader &self)
{
    // The engine tries again every 10 ms to put a sample into a full reader. What comes later than
    // that was let in before the door was closed, and there is room for it.
    constexpr int QUIET_TRIES = 5;
    constexpr uint64_t IN_FLIGHT = 16; // samples that threads of the engine may have in hand
    const auto room = static_cast<uint64_t>(self.maxSamples);
    uint64_t total = 0;
    for (int quiet = 0; quiet < QUIET_TRIES;) {
        Block block;
        const dds_return_t count = fetch(self, block, Block::SIZE);
        total += block.count;
        if (count > 0) {
            quiet = 0;
            continue;
        }
        if (count < 0 || room == 0 || (total < room && room > IN_FLIGHT)) {
            return; // nobody can be waiting
        }
        ++quiet;
        dds_sleepfor(DDS_MSECS(10));
    }
}

} // namespace qddsdomain
