// What one read lends: samples, until the loan is returned to its reader.
#ifndef FERRY_ENGINE_LOAN_H
#define FERRY_ENGINE_LOAN_H

#include <cstdint>

#include "config/configuration.h"
#include "qddsc/sample_info.h"

namespace ferry {

struct Loan {
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    std::int32_t count = 0;
    /// Of its samples, those that are the end of an instance.
    std::int32_t ends = 0;
    /// Of its samples together.
    std::uint64_t bytes = 0;

    bool isEnd(std::int32_t index) const
    {
        return infos != nullptr && infos[index] != nullptr && infos[index]->valid_data == 0;
    }
};

/// The loan with its ends and bytes counted.
Loan measured(Loan loan);

/// The part of a measured loan that goes into one write: from the sample `from` to the one that
/// makes it as many samples, or as many bytes, as the output is to get at a time; `limit` samples
/// at the most.
Loan slice(const StreamSettings &output, const Loan &loan, std::int32_t from, std::int32_t limit);

} // namespace ferry

#endif
