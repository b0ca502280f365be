#include "engine/guarantee.h"

#include <fmt/format.h>

#include "ferryjni/delivery.h"
#include "ferryjni/settings.h"

namespace ferry {
namespace {

/// The output leaves out samples whose numbers it has, and a store gives the numbers.
bool knowsNumbers(const StreamSettings &output, std::uint32_t bits)
{
    return output.own && output.own->stored && (bits & FERRY_DELIVERY_ONCE) != 0;
}

/// Why an output may lose samples that it was to have; "" if it does not.
std::string lossOf(const Configuration &configuration, const RouteSettings &route,
                   const StreamSettings &output, bool repeats)
{
    const std::string label =
        fmt::format("{}/{}", configuration.connections[output.connection].name, output.stream);
    if (route.onError == OnError::carryOn) {
        return fmt::format("with \"on_error: continue\" what output {} does not take is lost",
                           label);
    }
    if (output.own && output.own->whenFull != WhenFull::block) {
        return fmt::format("the store of output {} drops samples when it is full", label);
    }
    if (!repeats && !output.own) {
        return fmt::format("the input cannot repeat, and output {} has no store", label);
    }
    return "";
}

} // namespace

std::string guaranteeOf(const Configuration &configuration, const RouteSettings &route,
                        const DeliveryOf &delivery)
{
    const std::uint32_t input = delivery(route.input, FERRY_SETTING_OF_READER);
    const bool repeats = (input & FERRY_DELIVERY_REPEATS) != 0;
    bool once = true;
    bool numbered = false;
    bool anyRequired = false;
    for (const StreamSettings &output : route.outputs) {
        if (output.own && !output.own->stored) {
            continue;
        }
        anyRequired = true;
        const std::string loss = lossOf(configuration, route, output, repeats);
        if (!loss.empty()) {
            return fmt::format("at most once: {}", loss);
        }
        const std::uint32_t bits = delivery(output, FERRY_SETTING_OF_WRITER);
        const bool idempotent = (bits & FERRY_DELIVERY_IDEMPOTENT) != 0;
        once = once && (idempotent || knowsNumbers(output, bits));
        numbered = numbered || !idempotent;
    }
    if (!anyRequired) {
        return "at most once: no output is required";
    }
    const char *const word = once ? "exactly once" : "at least once";
    if (!repeats) {
        return fmt::format("{} from the store on: the input cannot repeat", word);
    }
    // What comes again before it is stored gets new numbers, unless the store can tell.
    const bool told = (input & FERRY_DELIVERY_NUMBERS) != 0;
    return once && numbered && !told ? fmt::format("{} from the store on", word) : word;
}

} // namespace ferry
