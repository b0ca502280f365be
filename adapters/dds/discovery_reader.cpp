#include "discovery_reader.h"

#include <fmt/format.h>

#include "error.h"
#include "ros_names.h"
#include "settings.h"

namespace ferrydds {
namespace {

/// A stream without a type can still be used by a host that knows the type by its name, so this is
/// no error.
void warnOfMissingType(const StreamChange &change)
{
    warn("FerryAdapter_dds_discovery", fmt::format("topic \"{}\" is announced without a type: {}",
                                                   change.key.first, change.typeProblem));
}

} // namespace

/// The host gets the base class, whose texts are those of the change.
class DiscoveryReader::Lent : public QEL_FerrionStreamInfo {
public:
    explicit Lent(StreamChange change) : QEL_FerrionStreamInfo{}, change_(std::move(change))
    {
        disposed = change_.disposed ? 1 : 0;
        streamName = change_.key.first.data();
        typeName = change_.typeName.data();
        typeRepresentationKind = QEL_FERRION_TYPE_REPRESENTATION_TYPECODE;
        typeRepresentation = const_cast<DDS_TypeCode *>(change_.type);
        for (std::string &name : change_.key.second) {
            partitions_.push_back(name.data());
        }
        const auto length = static_cast<std::int32_t>(partitions_.size());
        partition = {partitions_.data(), length, length};
        for (auto &[name, value] : change_.properties) {
            pairs_.push_back({name.data(), value.data()});
        }
        properties = {pairs_.data(), static_cast<std::int32_t>(pairs_.size())};
        info.valid_data = 1;
        info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
        info.view_state = change_.isNew ? DDS_NEW_VIEW_STATE : DDS_NOT_NEW_VIEW_STATE;
        info.instance_state =
            change_.disposed ? DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE : DDS_ALIVE_INSTANCE_STATE;
        info.source_timestamp = {-1, 0};
        info.reception_timestamp = {-1, 0};
    }
    Lent(const Lent &) = delete;
    Lent &operator=(const Lent &) = delete;

    DDS_SampleInfo info{};
    QEL_FerrionProperties properties{};

private:
    StreamChange change_;
    std::vector<char *> partitions_;
    std::vector<QEL_FerrionNameValue> pairs_;
};

DiscoveryReader::DiscoveryReader(Direction direction, bool isRos,
                                 const QEL_FerrionStreamReaderListener *listener)
    : direction_(direction), isRos_(isRos),
      listener_(listener == nullptr ? QEL_FerrionStreamReaderListener{} : *listener)
{
}

DiscoveryReader::~DiscoveryReader() = default;

void DiscoveryReader::bind(DiscoveryWatch &watch)
{
    if (watch_.exchange(&watch) == nullptr) {
        // Nobody was signalled about what the watch found before.
        signal();
    }
}

void DiscoveryReader::signal()
{
    if (watch_.load() != nullptr && listener_.onDataAvailable != nullptr) {
        listener_.onDataAvailable(this, listener_.listenerData);
    }
}

Loan DiscoveryReader::read(QEL_FerrionEnvironment *)
{
    if (!loan_.empty()) {
        throw Failure("discovery reader: the last loan has not been returned");
    }
    for (StreamChange &change : watch_.load()->takeChanges(direction_)) {
        if (change.type == nullptr && !change.disposed && !change.typeProblem.empty()) {
            warnOfMissingType(change);
        }
        if (isRos_) {
            change.key.first = ros::streamOf(change.key.first);
            change.typeName = ros::shownTypeOf(change.typeName);
        }
        loan_.push_back(std::make_unique<Lent>(std::move(change)));
        streams_.push_back(static_cast<QEL_FerrionStreamInfo *>(loan_.back().get()));
        infos_.push_back(&loan_.back()->info);
    }
    if (loan_.empty()) {
        return {};
    }
    return {streams_.data(), infos_.data(), static_cast<std::int32_t>(loan_.size())};
}

void DiscoveryReader::returnLoan()
{
    streams_.clear();
    infos_.clear();
    loan_.clear();
}

const QEL_FerrionProperties *DiscoveryReader::propertiesOf(const QEL_FerrionStreamInfo &lent)
{
    return &static_cast<const Lent &>(lent).properties;
}

void DiscoveryReader::update(const QEL_FerrionProperties *properties)
{
    const Settings none(settingTable, 0, "discovery reader", properties);
}

} // namespace ferrydds
