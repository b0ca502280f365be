// What the adapter declares of its deliveries.
#include "adapter.h"
#include "error.h"
#include "settings.h"
#include "stream_qos.h"

namespace ferrydds {
namespace {

/// Whether a reader gets again what earlier readers had, as long as its writers keep that: a
/// connection cannot be asked here, so of an `auto` only what was announced counts.
bool repeats(const Settings &settings, const Announced &announced)
{
    const auto is = [&](Setting::Index setting, const char *word) {
        const bool open =
            settings.is(setting, "auto") || (announced.any() && !settings.given(setting));
        return open ? announced.ofWriters() && announced.find(nameOf(setting)) == word
                    : settings.is(setting, word);
    };
    const bool told = announced.ofWriters();
    return is(Setting::durability, "transient_local") && is(Setting::reliability, "reliable") &&
           settings.is(Setting::history, "keep_all") &&
           settings.number(Setting::timeBasedFilter) == 0 &&
           (!told || announced.find("durable_depth") == "all");
}

} // namespace
} // namespace ferrydds

std::uint32_t FerryAdapter_dds_create_delivery(std::uint32_t role,
                                               const QEL_FerrionProperties *properties) noexcept
{
    using namespace ferrydds;
    QEL_FerrionEnvironment ignored{};
    return guarded(&ignored, 0U, [&] {
        const Settings settings(settingTable, role | FERRY_SETTING_OF_SESSION, "", properties);
        if (role == FERRY_SETTING_OF_WRITER) {
            return FERRY_DELIVERY_COUNTS_PREFIX | FERRY_DELIVERY_OPAQUE;
        }
        return (repeats(settings, Announced(properties)) ? FERRY_DELIVERY_REPEATS : 0U) |
               FERRY_DELIVERY_OPAQUE;
    });
}
