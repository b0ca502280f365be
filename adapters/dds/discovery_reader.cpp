#include "discovery_reader.h"

#include "error.h"
#include "settings.h"

namespace ferrydds {
namespace {

char *copyOf(const std::string &text)
{
    char *copy = DDS_String_dup(text.c_str());
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

/// A stream without a type can still be used by a host that knows the type by its name, so this is
/// no error.
void warnOfMissingType(const StreamNews &news)
{
    warn("FerryAdapter_dds_discovery",
         "topic '" + news.topic + "' is announced without a type: " + news.typeProblem);
}

} // namespace

class DiscoveryReader::Lent {
public:
    explicit Lent(const StreamNews &news)
    {
        partition_.reserve(news.partitions.size());
        try {
            stream.disposed = news.disposed ? 1 : 0;
            stream.streamName = copyOf(news.topic);
            stream.typeName = copyOf(news.typeName);
            stream.typeRepresentationKind = QEL_FERRION_TYPE_REPRESENTATION_TYPECODE;
            stream.typeRepresentation = const_cast<DDS_TypeCode *>(news.type);
            for (const std::string &name : news.partitions) {
                partition_.push_back(copyOf(name));
            }
        } catch (...) {
            release();
            throw;
        }
        const auto length = static_cast<std::int32_t>(partition_.size());
        stream.partition = {partition_.empty() ? nullptr : partition_.data(), length, length};
        info.valid_data = 1;
        info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
        info.view_state = news.isNew ? DDS_NEW_VIEW_STATE : DDS_NOT_NEW_VIEW_STATE;
        info.instance_state =
            news.disposed ? DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE : DDS_ALIVE_INSTANCE_STATE;
        info.source_timestamp = {-1, 0};
        info.reception_timestamp = {-1, 0};
    }
    ~Lent()
    {
        release();
    }
    Lent(const Lent &) = delete;
    Lent &operator=(const Lent &) = delete;

    QEL_FerrionStreamInfo stream{};
    DDS_SampleInfo info{};

private:
    void release()
    {
        DDS_String_free(stream.streamName);
        DDS_String_free(stream.typeName);
        for (char *name : partition_) {
            DDS_String_free(name);
        }
    }

    std::vector<char *> partition_;
};

DiscoveryReader::DiscoveryReader(Direction direction,
                                 const QEL_FerrionStreamReaderListener *listener)
    : direction_(direction),
      listener_(listener == nullptr ? QEL_FerrionStreamReaderListener{} : *listener)
{
}

DiscoveryReader::~DiscoveryReader() = default;

void DiscoveryReader::bind(DiscoveryWatch &watch)
{
    if (watch_.exchange(&watch) == nullptr) {
        // Of what the watch has found before nobody was told.
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
    for (const StreamNews &news : watch_.load()->takeNews(direction_)) {
        if (news.type == nullptr && !news.disposed && !news.typeProblem.empty()) {
            warnOfMissingType(news);
        }
        loan_.push_back(std::make_unique<Lent>(news));
        streams_.push_back(&loan_.back()->stream);
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

void DiscoveryReader::update(const QEL_FerrionProperties *properties)
{
    const Settings none(nowhere, "discovery reader", properties);
}

} // namespace ferrydds
