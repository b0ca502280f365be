#include "stop.h"

#include <algorithm>

namespace ferrydds {

void Stop::by(std::int64_t deadline)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    deadline_ = std::min(deadline_, deadline);
    for (DDS_DataWriter *writer : writers_) {
        DDS_DataWriter_stop_by(writer, deadline_);
    }
}

bool Stop::begun() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return deadline_ != never;
}

void Stop::enlist(DDS_DataWriter &writer)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    writers_.push_back(&writer);
    if (deadline_ != never) {
        DDS_DataWriter_stop_by(&writer, deadline_);
    }
}

void Stop::delist(const DDS_DataWriter &writer)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    writers_.erase(std::remove(writers_.begin(), writers_.end(), &writer), writers_.end());
}

} // namespace ferrydds
