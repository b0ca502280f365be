#include "engine/loan.h"

#include <algorithm>

#include "qddsc/dynamic_data.h"

namespace ferry {
namespace {

std::uint64_t bytesOf(const void *sample)
{
    std::size_t length = 0;
    DDS_DynamicData_get_cdr(static_cast<const DDS_DynamicData *>(sample), &length);
    return length;
}

} // namespace

Loan measured(Loan loan)
{
    for (std::int32_t i = 0; i < loan.count; ++i) {
        loan.bytes += bytesOf(loan.samples[i]);
        loan.ends += loan.isEnd(i) ? 1 : 0;
    }
    return loan;
}

Loan slice(const StreamSettings &output, const Loan &loan, std::int32_t from, std::int32_t limit)
{
    const std::int32_t most = std::min({output.maxSamplesPerWrite, limit, loan.count - from});
    Loan slice{loan.samples + from, loan.infos == nullptr ? nullptr : loan.infos + from, most};
    if (loan.bytes <= output.batchBytes && loan.ends == 0) {
        return slice; // nothing to be found by looking at every sample
    }
    for (slice.count = 0; slice.count < most && slice.bytes < output.batchBytes; ++slice.count) {
        slice.bytes += bytesOf(slice.samples[slice.count]);
        slice.ends += slice.isEnd(slice.count) ? 1 : 0;
    }
    return slice;
}

} // namespace ferry
