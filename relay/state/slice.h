// Samples between an append and their delivery: as the bytes that are kept, and as records again.
//
// The bytes are explicit fields, little endian, so that a file of them can be carried to any
// machine. Of a sample there is its information, as far as it differs from that of the sample
// before it in the row (all zero for the first), then the length of its CDR, then the CDR.
#ifndef FERRY_STATE_SLICE_H
#define FERRY_STATE_SLICE_H

#include <cstdint>
#include <vector>

#include "qddsc/sample_info.h"

namespace ferry {

/// Samples as the plug-in interface hands them over: `DDS_DynamicData` and their information. Both
/// `infos` and any of its elements may be null; no sample is null.
struct SampleList {
    void *const *samples = nullptr;
    DDS_SampleInfo *const *infos = nullptr;
    std::int32_t count = 0;
    /// Whether a sample that comes again has the publication_handle and the
    /// publication_sequence_number that it had before.
    bool numbered = false;
};

/// Samples that are kept together, as bytes of a larger buffer.
struct SliceRow {
    std::int32_t count = 0;
    std::size_t from = 0;
    std::size_t length = 0;
};

/// Lays samples out as rows: in their order, as many to a row as `maxSamples` allows, a row ending
/// with the sample that makes it `maxBytes`. What `bytes` and `rows` had goes; their memory stays.
void layOut(const SampleList &samples, std::int32_t maxSamples, std::uint64_t maxBytes,
            std::vector<std::uint8_t> &bytes, std::vector<SliceRow> &rows);

/// The oldest samples that are kept, as records. It is used again, so that nothing is
/// allocated once it has had its largest content.
class StoredSlice {
public:
    struct Sample {
        const std::uint8_t *cdr = nullptr;
        std::size_t length = 0;
    };

    void clear();
    /// Where the bytes of a further row go: behind those that are there.
    std::uint8_t *grow(std::size_t length);
    /// Reads the rows' last bytes, from `from` on, as samples whose numbers begin at `first`. False
    /// if they are no samples; then nothing of them stays.
    bool decode(std::size_t from, std::int64_t first, std::int32_t count);

    std::int32_t count() const
    {
        return static_cast<std::int32_t>(infos_.size());
    }
    std::size_t size() const
    {
        return bytes_.size();
    }
    /// Valid until the slice is next changed.
    Sample sample(std::int32_t index) const;
    /// With the sample's number in `publication_sequence_number`. Of a sample that came without any
    /// information it says that there is data and no more. The caller may change it.
    DDS_SampleInfo &info(std::int32_t index)
    {
        return infos_[static_cast<std::size_t>(index)];
    }

private:
    struct Extent {
        std::size_t from;
        std::size_t length;
    };
    void drop(std::size_t bytes, std::size_t samples);

    std::vector<std::uint8_t> bytes_;
    std::vector<Extent> extents_;
    std::vector<DDS_SampleInfo> infos_;
};

} // namespace ferry

#endif
