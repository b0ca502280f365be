#include "state/slice.h"

#include <array>
#include <cstring>

#include "qddsc/dynamic_data.h"

namespace ferry {
namespace {

/// The information's fields, but for the number, which follows from the row.
constexpr std::size_t wordCount = 25;
using Words = std::array<std::uint32_t, wordCount>;
/// In the mask of fields: the sample came without information.
constexpr std::uint32_t noInfo = 1U << 31;

/// Visits every field of the information as a word, in the order in which they are kept.
template<class Info, class Visit> void eachWord(Info &info, Visit &&visit)
{
    visit(info.sample_state);
    visit(info.view_state);
    visit(info.instance_state);
    visit(info.valid_data);
    visit(info.source_timestamp.sec);
    visit(info.source_timestamp.nanosec);
    visit(info.reception_timestamp.sec);
    visit(info.reception_timestamp.nanosec);
    for (auto *handle : {&info.instance_handle, &info.publication_handle}) {
        for (std::size_t i = 0; i < sizeof handle->keyHash; i += 4) {
            visit(*handle, i);
        }
        visit(handle->length);
        visit(handle->isValid);
    }
    visit(info.disposed_generation_count);
    visit(info.no_writers_generation_count);
    visit(info.sample_rank);
    visit(info.generation_rank);
    visit(info.absolute_generation_rank);
}

std::uint32_t wordAt(const std::uint8_t *bytes)
{
    return bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
           std::uint32_t{bytes[3]} << 24;
}

void putWord(std::uint8_t *bytes, std::uint32_t word)
{
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(word >> (8 * i));
    }
}

struct Collect {
    Words words{};
    std::size_t count = 0;

    void operator()(std::int32_t field)
    {
        words[count++] = static_cast<std::uint32_t>(field);
    }
    void operator()(std::uint32_t field)
    {
        words[count++] = field;
    }
    void operator()(const DDS_InstanceHandle_t &handle, std::size_t at)
    {
        words[count++] = wordAt(handle.keyHash + at);
    }
};

struct Spread {
    const Words &words;
    std::size_t count = 0;

    void operator()(std::int32_t &field)
    {
        field = static_cast<std::int32_t>(words[count++]);
    }
    void operator()(std::uint32_t &field)
    {
        field = words[count++];
    }
    void operator()(DDS_InstanceHandle_t &handle, std::size_t at)
    {
        putWord(handle.keyHash + at, words[count++]);
    }
};

Words wordsOf(const DDS_SampleInfo &info)
{
    Collect collect;
    eachWord(info, collect);
    return collect.words;
}

DDS_SampleInfo plainInfo()
{
    DDS_SampleInfo info{};
    info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
    info.view_state = DDS_NOT_NEW_VIEW_STATE;
    info.instance_state = DDS_ALIVE_INSTANCE_STATE;
    info.valid_data = 1;
    info.source_timestamp = {-1, 0};
    info.reception_timestamp = {-1, 0};
    return info;
}

DDS_SequenceNumber_t sequenceNumber(std::int64_t number)
{
    return {static_cast<std::int32_t>(number >> 32), static_cast<std::uint32_t>(number)};
}

/// Takes words and bytes off the front; everything after a first shortage is one.
class Input {
public:
    Input(const std::uint8_t *at, std::size_t length) : at_(at), left_(length) {}

    std::uint32_t word()
    {
        const std::uint8_t *const from = take(4);
        return from == nullptr ? 0 : wordAt(from);
    }
    const std::uint8_t *take(std::size_t length)
    {
        if (bad_ || length > left_) {
            bad_ = true;
            return nullptr;
        }
        left_ -= length;
        at_ += length;
        return at_ - length;
    }
    bool bad() const
    {
        return bad_;
    }
    bool finished() const
    {
        return !bad_ && left_ == 0;
    }

private:
    const std::uint8_t *at_;
    std::size_t left_;
    bool bad_ = false;
};

/// The information of the next sample; `before` is that of the last one that had any.
DDS_SampleInfo decodeInfo(Input &input, Words &before)
{
    const std::uint32_t mask = input.word();
    if ((mask & noInfo) != 0) {
        return plainInfo();
    }
    for (std::size_t i = 0; i < wordCount; ++i) {
        if ((mask >> i & 1) != 0) {
            before[i] = input.word();
        }
    }
    DDS_SampleInfo info{};
    eachWord(info, Spread{before});
    return info;
}

/// `before` is the information of the sample before, and then of this one.
void encode(const void *sample, const DDS_SampleInfo *info, DDS_SampleInfo &before,
            std::vector<std::uint8_t> &bytes)
{
    std::uint8_t head[4 * (wordCount + 2)];
    std::uint8_t *end = head + 4;
    std::uint32_t mask = noInfo;
    if (info != nullptr) {
        mask = 0;
        const Words words = wordsOf(*info);
        const Words known = wordsOf(before);
        for (std::size_t i = 0; i < wordCount; ++i) {
            if (words[i] != known[i]) {
                mask |= 1U << i;
                putWord(end, words[i]);
                end += 4;
            }
        }
        before = *info;
    }
    putWord(head, mask);
    std::size_t length = 0;
    const std::uint8_t *const cdr =
        DDS_DynamicData_get_cdr(static_cast<const DDS_DynamicData *>(sample), &length);
    putWord(end, static_cast<std::uint32_t>(length));
    end += 4;
    bytes.insert(bytes.end(), head, end);
    bytes.insert(bytes.end(), cdr, cdr + length);
}

} // namespace

void layOut(const SampleList &samples, std::int32_t maxSamples, std::uint64_t maxBytes,
            std::vector<std::uint8_t> &bytes, std::vector<SliceRow> &rows)
{
    bytes.clear();
    rows.clear();
    DDS_SampleInfo before{};
    for (std::int32_t i = 0; i < samples.count; ++i) {
        if (rows.empty() || rows.back().count >= maxSamples || rows.back().length >= maxBytes) {
            rows.push_back({0, bytes.size(), 0});
            before = {};
        }
        encode(samples.samples[i], samples.infos == nullptr ? nullptr : samples.infos[i], before,
               bytes);
        ++rows.back().count;
        rows.back().length = bytes.size() - rows.back().from;
    }
}

void StoredSlice::clear()
{
    bytes_.clear();
    extents_.clear();
    infos_.clear();
}

std::uint8_t *StoredSlice::grow(std::size_t length)
{
    bytes_.resize(bytes_.size() + length);
    return bytes_.data() + bytes_.size() - length;
}

bool StoredSlice::decode(std::size_t from, std::int64_t first, std::int32_t count)
{
    const std::size_t samples = infos_.size();
    Input input(bytes_.data() + from, bytes_.size() - from);
    Words before{};
    for (std::int32_t i = 0; i < count; ++i) {
        infos_.push_back(decodeInfo(input, before));
        infos_.back().publication_sequence_number = sequenceNumber(first + i);
        const std::size_t length = input.word();
        const std::uint8_t *const cdr = input.take(length);
        if (cdr == nullptr) {
            break;
        }
        extents_.push_back({static_cast<std::size_t>(cdr - bytes_.data()), length});
    }
    if (!input.finished()) {
        drop(from, samples);
    }
    return input.finished();
}

void StoredSlice::drop(std::size_t bytes, std::size_t samples)
{
    bytes_.resize(bytes);
    extents_.resize(samples);
    infos_.resize(samples);
}

StoredSlice::Sample StoredSlice::sample(std::int32_t index) const
{
    const Extent &extent = extents_[static_cast<std::size_t>(index)];
    return {bytes_.data() + extent.from, extent.length};
}

} // namespace ferry
