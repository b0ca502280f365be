// See wire_sink.h.
#include "wire_sink.h"

#include <algorithm>
#include <limits>

#include "type_code.h"

namespace qddsdomain {

namespace {

constexpr uint64_t MAX_SAMPLE = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());

} // namespace

uint8_t *Sink::place(uint32_t alignment, uint64_t size)
{
    const uint64_t begin = qddsc::alignUp(position_, alignment);
    if (start_ + begin + size > end_ && !grow(begin + size)) {
        return nullptr;
    }
    uint8_t *padding = at(position_);
    for (uint8_t *const value = at(begin); padding < value; ++padding) {
        *padding = 0;
    }
    position_ = begin + size;
    return at(begin);
}

bool Sink::grow(uint64_t needed)
{
    if (growing_ == nullptr || needed > MAX_SAMPLE) {
        return false;
    }
    growing_->resize(std::max<size_t>(start_ + needed, 2 * end_));
    bytes_ = growing_->data();
    end_ = growing_->size();
    return true;
}

void Sink::finish()
{
    growing_->resize(start_ + position_);
}

} // namespace qddsdomain
