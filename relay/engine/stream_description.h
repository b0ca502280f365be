// What a plug-in is given of the stream that it makes a reader or writer for.
#ifndef FERRY_ENGINE_STREAM_DESCRIPTION_H
#define FERRY_ENGINE_STREAM_DESCRIPTION_H

#include <string>
#include <vector>

#include "config/configuration.h"
#include "ferryjni/stream_info.h"

namespace ferry {

/// The stream as a plug-in sees it, for as long as a call takes: plug-ins copy what they keep of
/// the names.
class StreamDescription {
public:
    StreamDescription(const RouteSettings &route, const StreamSettings &stream)
        : streamName_(stream.stream), typeName_(route.typeName), partitions_(stream.partitions)
    {
        for (std::string &partition : partitions_) {
            partitionTexts_.push_back(partition.data());
        }
        info_.streamName = streamName_.data();
        info_.typeName = typeName_.data();
        info_.typeRepresentationKind = QEL_FERRION_TYPE_REPRESENTATION_TYPECODE;
        info_.typeRepresentation = const_cast<DDS_TypeCode *>(route.type);
        if (!partitionTexts_.empty()) {
            const auto count = static_cast<std::int32_t>(partitionTexts_.size());
            info_.partition = {partitionTexts_.data(), count, count};
        }
    }
    StreamDescription(const StreamDescription &) = delete;
    StreamDescription &operator=(const StreamDescription &) = delete;

    const QEL_FerrionStreamInfo *get() const
    {
        return &info_;
    }

private:
    std::string streamName_;
    std::string typeName_;
    std::vector<std::string> partitions_;
    std::vector<char *> partitionTexts_;
    QEL_FerrionStreamInfo info_{};
};

} // namespace ferry

#endif
