// How samples get from the engine into the caller's records; see reader.h. The owner's thread.
#include "reader.h"

#include <algorithm>
#include <cstring>

#include "qddscdr/error_text.h"

namespace qddsdomain {

namespace {

using qddscdr::setError;

constexpr int64_t nanosecondsPerSecond = 1000000000;
constexpr size_t writersKept = 64; // beside twice those that are matched

void setHandle(DDS_InstanceHandle_t &handle, const std::array<uint8_t, 16> *bytes)
{
    constexpr std::array<uint8_t, 16> none{};
    handle.length = 16;
    handle.isValid = bytes != nullptr ? 1 : 0;
    std::memcpy(handle.keyHash, (bytes != nullptr ? *bytes : none).data(), none.size());
}

DDS_Time_t timeOf(dds_time_t time)
{
    if (time < 0) {
        return {-1, 0};
    }
    return {static_cast<int32_t>(time / nanosecondsPerSecond),
            static_cast<uint32_t>(time % nanosecondsPerSecond)};
}

int32_t instanceState(dds_instance_state_t state)
{
    switch (state) {
    case DDS_IST_NOT_ALIVE_DISPOSED:
        return DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
    case DDS_IST_NOT_ALIVE_NO_WRITERS:
        return DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE;
    default:
        return DDS_ALIVE_INSTANCE_STATE;
    }
}

void setInfo(DDS_SampleInfo &info, const dds_sample_info_t &from, const KeyHash *instance,
             const Guid *writer)
{
    info.sample_state = DDS_NOT_READ_SAMPLE_STATE; // a sample is taken once
    info.view_state = from.view_state == DDS_VST_NEW ? DDS_NEW_VIEW_STATE : DDS_NOT_NEW_VIEW_STATE;
    info.instance_state = instanceState(from.instance_state);
    info.valid_data = from.valid_data ? 1 : 0;
    info.source_timestamp = timeOf(from.source_timestamp);
    info.reception_timestamp = {-1, 0};
    setHandle(info.instance_handle, instance);
    setHandle(info.publication_handle, writer);
    info.disposed_generation_count = static_cast<int32_t>(from.disposed_generation_count);
    info.no_writers_generation_count = static_cast<int32_t>(from.no_writers_generation_count);
    info.sample_rank = static_cast<int32_t>(from.sample_rank);
    info.generation_rank = static_cast<int32_t>(from.generation_rank);
    info.absolute_generation_rank = static_cast<int32_t>(from.absolute_generation_rank);
    info.publication_sequence_number = {0, 0};
}

uint32_t generation(const dds_sample_info_t &info)
{
    return info.disposed_generation_count + info.no_writers_generation_count;
}

/// The engine gives a sample without data only when no sample of the instance was waiting as it
/// ended; else the end shows in the state of those samples, which say that they have data. A caller
/// who hands samples on would lose the end, so it is reported behind the last one. Whether it is
/// the last one, the instance itself can say: what is still there of the same generation comes
/// later.
bool endsBehind(dds_entity_t reader, const dds_sample_info_t &info)
{
    ddsi_serdata *rest = nullptr;
    dds_sample_info_t restInfo;
    const dds_return_t count =
        dds_readcdr_instance(reader, &rest, 1, &restInfo, info.instance_handle, engine::anyState);
    if (count <= 0) {
        return true;
    }
    release(rest);
    return generation(restInfo) != generation(info);
}

/// False with the error filled when the engine rejects.
bool load(DDS_DataReader &self, uint32_t wanted, DDS_ErrorText *error)
{
    const std::lock_guard<std::mutex> guard(self.mutex);
    if (!self.ahead.empty()) {
        self.block = std::move(self.ahead.front());
        self.ahead.pop_front();
        self.aheadBytes -= bytesOf(*self.block);
        if (!self.held.empty() && self.aheadBytes <= resumeAhead) {
            callRelief();
        }
        return true;
    }
    // A thread's readers look for samples one after the other, and most find none.
    thread_local std::unique_ptr<Block> spare;
    if (self.block == nullptr) {
        self.block = spare != nullptr ? std::move(spare) : std::unique_ptr<Block>(new Block);
    }
    const dds_return_t count = fetch(self, *self.block, std::min(wanted, Block::capacity));
    if (count <= 0) {
        spare = std::move(self.block);
    }
    if (count < 0) {
        setError(error, "the engine does not hand over samples: %s", dds_strretcode(count));
    }
    return count >= 0;
}

/// The message as the content of a sequence of octets; its state is its own, not the instance's.
bool handOpaque(DDS_DataReader &self, const Message &message, dds_sample_info_t from,
                DDS_DynamicData *sample, DDS_SampleInfo &info)
{
    const auto size = static_cast<uint32_t>(message.payloadSize);
    uint8_t *room = DDS_DynamicData_loan_cdr(sample, sizeof size + size);
    if (room == nullptr) {
        return false;
    }
    std::memcpy(room, &size, sizeof size);
    std::memcpy(room + sizeof size, message.payload, size);
    from.valid_data = !message.isEnd;
    from.instance_state = message.disposes ? DDS_IST_NOT_ALIVE_DISPOSED
                          : message.isEnd  ? DDS_IST_NOT_ALIVE_NO_WRITERS
                                           : DDS_IST_ALIVE;
    setInfo(info, from, nullptr, self.writers.find(self.entity.get(), from.publication_handle));
    return true;
}

/// Fills one record from the block's current position; false when the sample has no room in it.
bool hand(DDS_DataReader &self, DDS_DynamicData *sample, DDS_SampleInfo &info)
{
    const Block &block = *self.block;
    dds_sample_info_t from = block.infos[block.next];
    from.valid_data = from.valid_data && !block.atEnd;
    const Message message = look(block.messages[block.next]);
    if (self.wire->opaque() != nullptr) {
        return handOpaque(self, message, from, sample, info);
    }
    const uint8_t *plain = message.plain;
    size_t length = message.length;
    if (!from.valid_data) {
        self.timeFilter.forget(from.instance_handle);
        self.key.assign(message.key, message.key + message.keyLength);
        (void)self.wire->sampleOf(self.key, self.plain); // keys were checked as they came
        plain = self.plain.data();
        length = self.plain.size();
    }
    uint8_t *room = DDS_DynamicData_loan_cdr(sample, length);
    if (room == nullptr) {
        return false;
    }
    std::memcpy(room, plain, length);
    setInfo(info, from, message.hash,
            self.writers.find(self.entity.get(), from.publication_handle));
    return true;
}

void advance(Block &block)
{
    if (!block.atEnd && block.endsBehind[block.next]) {
        block.atEnd = true;
        return;
    }
    block.atEnd = false;
    release(block.messages[block.next]);
    ++block.next;
}

/// Of a type without key there is one instance, whose state says nothing but that writers left.
bool isWanted(DDS_DataReader &self)
{
    const Block &block = *self.block;
    const dds_sample_info_t &info = block.infos[block.next];
    return (info.valid_data || self.wire->keyType() != nullptr) &&
           self.writers.counts(self.entity.get(), info.publication_handle) &&
           (block.atEnd || self.timeFilter.passes(info));
}

} // namespace

const Writers::Writer *Writers::learn(dds_entity_t reader, dds_instance_handle_t handle)
{
    dds_builtintopic_endpoint_t *endpoint = dds_get_matched_publication_data(reader, handle);
    if (endpoint == nullptr) {
        return nullptr;
    }
    Writer writer{{}, only.empty() || partitionsOf(endpoint->qos) == only};
    std::memcpy(writer.guid.data(), endpoint->key.v, writer.guid.size());
    dds_builtintopic_free_endpoint(endpoint);
    return &known.emplace(handle, writer).first->second;
}

const Guid *Writers::find(dds_entity_t reader, dds_instance_handle_t handle)
{
    const Writer *writer = lookUp(reader, handle);
    return writer == nullptr ? nullptr : &writer->guid;
}

bool Writers::counts(dds_entity_t reader, dds_instance_handle_t handle)
{
    const Writer *writer = only.empty() ? nullptr : lookUp(reader, handle);
    return writer == nullptr || writer->counts;
}

const Writers::Writer *Writers::lookUp(dds_entity_t reader, dds_instance_handle_t handle)
{
    if (last != nullptr && handle == lastHandle) {
        return last;
    }
    const auto found = known.find(handle);
    lastHandle = handle;
    last = found != known.end() ? &found->second : learn(reader, handle);
    return last;
}

void Writers::refresh(dds_entity_t reader)
{
    if (!stale.exchange(false, std::memory_order_acquire)) {
        return;
    }
    const auto matched = engine::allOf<dds_instance_handle_t>(
        [&](auto *to, size_t room) { return dds_get_matched_publications(reader, to, room); });
    for (const dds_instance_handle_t handle : matched) {
        if (known.find(handle) == known.end()) {
            (void)learn(reader, handle);
        }
    }
    if (known.size() <= 2 * matched.size() + writersKept) {
        return;
    }
    last = nullptr;
    for (auto it = known.begin(); it != known.end();) {
        const bool here = std::find(matched.begin(), matched.end(), it->first) != matched.end();
        it = here ? std::next(it) : known.erase(it);
    }
}

dds_return_t fetch(DDS_DataReader &self, Block &block, uint32_t wanted)
{
    block.next = 0;
    block.count = 0;
    block.atEnd = false;
    self.full.store(false, std::memory_order_relaxed);
    const dds_return_t count = dds_takecdr(self.entity.get(), block.messages.data(), wanted,
                                           block.infos.data(), engine::anyState);
    block.count = count > 0 ? static_cast<uint32_t>(count) : 0;
    const bool keyed = self.wire->keyType() != nullptr;
    for (uint32_t i = 0; i < block.count; ++i) {
        const dds_sample_info_t &info = block.infos[i];
        const bool last =
            i + 1 == block.count || block.infos[i + 1].instance_handle != info.instance_handle;
        block.endsBehind[i] = keyed && last && info.valid_data &&
                              info.instance_state != DDS_IST_ALIVE &&
                              endsBehind(self.entity.get(), info);
    }
    return count;
}

int32_t takeSamples(DDS_DataReader &self, DDS_DynamicData *const *samples,
                    DDS_SampleInfo *const *infos, int32_t maximum, int64_t *room,
                    DDS_ErrorText *error)
{
    for (int32_t i = 0; i < maximum; ++i) {
        if (DDS_TypeCode_resolve(DDS_DynamicData_get_type(samples[i])) != &self.wire->type()) {
            setError(error, "sample %d is not of the reader's type %s", i,
                     DDS_TypeCode_get_name(&self.wire->type()));
            return -1;
        }
    }
    self.writers.refresh(self.entity.get());
    bool drained = false;
    int32_t count = 0;
    while (count < maximum && (room == nullptr || *room > 0)) {
        if (self.block == nullptr || self.block->next == self.block->count) {
            if (drained) {
                break;
            }
            if (!load(self, static_cast<uint32_t>(maximum - count), error)) {
                return count > 0 ? count : -1;
            }
            drained = self.block == nullptr;
            continue;
        }
        if (isWanted(self)) {
            if (!hand(self, samples[count], *infos[count])) {
                if (count > 0) {
                    break; // reported when it is the first one
                }
                setError(error, "a received sample does not fit into the record: memory is short, "
                                "or its limit is below the sample's size");
                self.lostEver.fetch_add(1, std::memory_order_relaxed);
                advance(*self.block);
                return -1;
            }
            if (room != nullptr) {
                size_t length = 0;
                (void)DDS_DynamicData_get_cdr(samples[count], &length);
                *room -= static_cast<int64_t>(length);
            }
            ++count;
            self.taken.fetch_add(1, std::memory_order_relaxed);
        }
        advance(*self.block);
    }
    return count;
}

} // namespace qddsdomain
