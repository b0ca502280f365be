// See sink.h.
#include "qddscdr/sink.h"

#include <algorithm>

namespace qddscdr {

uint8_t *Sink::place(uint32_t alignment, uint64_t size)
{
    const uint64_t begin = alignUp(position_, alignment);
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
    if (growing_ == nullptr || needed > maxSample) {
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

} // namespace qddscdr
