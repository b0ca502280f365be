// A discovery reader: the streams of one direction, as `QEL_FerrionStreamInfo`.
#ifndef FERRYADAPTER_DDS_DISCOVERY_READER_H
#define FERRYADAPTER_DDS_DISCOVERY_READER_H

#include <atomic>
#include <memory>
#include <vector>

#include "discovery_watch.h"
#include "reader.h"

namespace ferrydds {

class DiscoveryReader final : public Reader {
public:
    /// `isRos`: streams and types are announced by the names that ROS shows. `listener` may be
    /// null.
    DiscoveryReader(Direction direction, bool isRos,
                    const QEL_FerrionStreamReaderListener *listener);
    ~DiscoveryReader() override;

    /// The host has asked for the reader: from now on it is signalled.
    void bind(DiscoveryWatch &watch);
    /// Any thread; signals the host that there may be something, once the reader is bound.
    void signal();

    Loan read(QEL_FerrionEnvironment *environment) override;
    void returnLoan() override;
    void update(const QEL_FerrionProperties *properties) override;

    /// What the endpoints of a stream that this reader has lent run with; valid as long as the
    /// loan.
    static const QEL_FerrionProperties *propertiesOf(const QEL_FerrionStreamInfo &lent);

private:
    /// One lent element.
    class Lent;

    const Direction direction_;
    const bool isRos_;
    const QEL_FerrionStreamReaderListener listener_;
    std::atomic<DiscoveryWatch *> watch_{nullptr};
    std::vector<std::unique_ptr<Lent>> loan_;
    std::vector<void *> streams_;
    std::vector<DDS_SampleInfo *> infos_;
};

} // namespace ferrydds

#endif
