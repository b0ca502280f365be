// The keys of a configuration file, declared like the settings of an adapter.
#ifndef FERRY_CONFIG_KEYS_H
#define FERRY_CONFIG_KEYS_H

#include <cstdint>
#include <vector>

#include "ferryjni/settings.h"

namespace ferry::keys {

/// Sections, as roles of the table.
constexpr std::uint32_t ofFile = 0x100;
constexpr std::uint32_t ofType = 0x200;
constexpr std::uint32_t ofJava = 0x400;
constexpr std::uint32_t ofLog = 0x800;
constexpr std::uint32_t ofAdapter = 0x1000;
constexpr std::uint32_t ofConnection = 0x2000;
constexpr std::uint32_t ofSession = 0x4000;
constexpr std::uint32_t ofRoute = 0x8000;
constexpr std::uint32_t ofInput = 0x10000;
constexpr std::uint32_t ofOutput = 0x20000;
constexpr std::uint32_t ofDiscovery = 0x40000;
constexpr std::uint32_t ofPatterns = 0x80000;
constexpr std::uint32_t ofRetry = 0x100000;
constexpr std::uint32_t ofRestart = 0x200000;
constexpr std::uint32_t ofStore = 0x400000;
constexpr std::uint32_t ofDeadLetters = 0x800000;
constexpr std::uint32_t ofRename = 0x1000000;
constexpr std::uint32_t ofQos = 0x2000000;
constexpr std::uint32_t ofHttp = 0x4000000;

struct SectionKind {
    /// One of the constants above.
    std::uint32_t keys;
    /// For people and programs.
    const char *name;
    /// The keys that hold such a section, or a list of them; separated by blanks.
    const char *holders;
    /// Whether those hold sections by names that the user chooses.
    bool byName;
};

extern const std::vector<SectionKind> sections;

extern const FERRY_SettingTable table;

/// The keys of one section, in the order of the table.
std::vector<FERRY_Setting> of(std::uint32_t role);

/// The host's own property of a writer, which the bridge reads, too.
extern const FERRY_Setting samplesPerWrite;

/// With as many bytes of samples a batch is full, however few they are.
constexpr std::int64_t defaultBatchBytes = 8LL << 20;
constexpr const char *defaultBatchText = "8MiB";

/// What waits in memory for an output that is not required.
constexpr std::uint64_t queueBytes = 64ULL << 20;

/// The samples of one write where nobody says: the bridge's own default, which the relay has to
/// know to cut its writes as the bridge would.
constexpr std::int32_t defaultSamplesPerWrite = 1024;

} // namespace ferry::keys

#endif
