#include "connection.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "error.h"

namespace ferrydds {
namespace {

std::string describe(const Settings &settings)
{
    const std::string multicast = settings.text(Setting::multicast);
    return fmt::format("domain {} on {}{}", settings.text(Setting::domain),
                       settings.text(Setting::interfaces),
                       multicast == "all" ? "" : fmt::format(", multicast {}", multicast));
}

/// What the properties say of the files of a secured participant. Lives as long as its settings are
/// used.
class Security {
public:
    explicit Security(const Settings &settings)
    {
        for (std::size_t i = 0; i < count; ++i) {
            texts_[i] = settings.text(static_cast<Setting::Index>(Setting::identityCa + i));
        }
        std::string &authority = text(Setting::permissionsCa);
        authority = authority.empty() ? text(Setting::identityCa) : authority;
        files_ = {text(Setting::identityCa).c_str(), text(Setting::certificate).c_str(),
                  text(Setting::key).c_str(),        text(Setting::password).c_str(),
                  text(Setting::governance).c_str(), authority.c_str(),
                  text(Setting::permissions).c_str()};
    }
    /// Null if the participant is not secured.
    const DDS_SecuritySettings *files() const
    {
        const bool any = std::any_of(texts_.begin(), texts_.end(),
                                     [](const std::string &text) { return !text.empty(); });
        return any ? &files_ : nullptr;
    }

private:
    static constexpr std::size_t count = Setting::permissions - Setting::identityCa + 1;

    std::string &text(Setting::Index setting)
    {
        return texts_[setting - Setting::identityCa];
    }

    std::array<std::string, count> texts_;
    DDS_SecuritySettings files_{};
};

Participant join(const Settings &settings)
{
    const std::string interfaces = settings.text(Setting::interfaces);
    const std::string peers = settings.text(Setting::peers);
    const std::string xml = settings.text(Setting::engineXml);
    const std::string name = settings.text(Setting::name);
    DDS_ParticipantSettings participant{};
    participant.domainId = static_cast<std::int32_t>(settings.number(Setting::domain));
    participant.interfaces = interfaces == "loopback" ? nullptr : interfaces.c_str();
    // Its words are in the order of these numbers.
    participant.multicast = static_cast<std::int32_t>(settings.number(Setting::multicast));
    participant.peers = peers.c_str();
    participant.transport = static_cast<std::int32_t>(settings.number(Setting::transport));
    participant.port = static_cast<std::int32_t>(settings.number(Setting::port));
    participant.xml = xml.empty() ? nullptr : xml.c_str();
    participant.name = name.empty() ? nullptr : name.c_str();
    const Security security(settings);
    participant.security = security.files();
    DDS_ErrorText error{};
    DDS_DomainParticipant *made = DDS_DomainParticipant_new(&participant, &error);
    if (made == nullptr) {
        throw Failure(fmt::format("{}: {}: {}", settings.owner(), describe(settings), error.text));
    }
    return {made, DDS_DomainParticipant_delete};
}

} // namespace

Connection::Connection(Stop &stop, const QEL_FerrionStreamReaderListener *subscriptionListener,
                       const QEL_FerrionStreamReaderListener *publicationListener,
                       const QEL_FerrionProperties *properties)
    : stop_(stop), settings_(settingTable, FERRY_SETTING_OF_CONNECTION, "connection", properties),
      text_(describe(settings_)), participant_(join(settings_)),
      outputs_(Direction::output, settings_.is(Setting::naming, "ros2"), subscriptionListener),
      inputs_(Direction::input, settings_.is(Setting::naming, "ros2"), publicationListener),
      watch_(participant_, static_cast<DiscoveryWatch::Opaque>(settings_.number(Setting::opaque)),
             std::chrono::nanoseconds(settings_.number(Setting::typeTimeout)), [this] {
                 outputs_.signal();
                 inputs_.signal();
             })
{
}

Reader *Connection::discoveryReader(Direction direction)
{
    DiscoveryReader &reader = direction == Direction::input ? inputs_ : outputs_;
    reader.bind(watch_);
    watch_.start();
    return &reader;
}

} // namespace ferrydds
