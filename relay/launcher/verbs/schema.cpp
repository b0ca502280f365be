// `ferry schema`: the configuration file as JSON Schema, for editors.
#include <algorithm>
#include <iostream>

#include <nlohmann/json.hpp>

#include "config/keys.h"
#include "launcher/verb.h"
#include "process/exit_code.h"
#include "settings/value.h"

namespace ferry {
namespace {

using Json = nlohmann::ordered_json;

/// Of numbers with units: what the grammar of values takes.
constexpr const char *bytesPattern = "^[0-9]+(KiB|MiB|GiB)?$";
constexpr const char *durationPattern = "^[0-9]+(\\.[0-9]+)?(us|ms|s|m|h)$";

/// The section that a key holds; null for a key that holds none, and for free-form properties.
const keys::SectionKind *heldBy(const std::string &key)
{
    const auto found = std::find_if(
        keys::sections.begin(), keys::sections.end(), [&](const keys::SectionKind &section) {
            const auto holders = split(section.holders, ' ');
            return std::find(holders.begin(), holders.end(), key) != holders.end();
        });
    return found == keys::sections.end() ? nullptr : &*found;
}

Json ofHolder(const FERRY_Setting &key)
{
    const keys::SectionKind *const held = heldBy(key.name);
    const Json reference = held == nullptr ? Json{{"type", "string"}}
                                           : Json{{"$ref", std::string("#/$defs/") + held->name}};
    if (key.kind == FERRY_SETTING_LIST) {
        return {{"type", "array"}, {"items", reference}};
    }
    if (held == nullptr) {
        return {{"type", "object"}};
    }
    return held->byName ? Json{{"type", "object"}, {"additionalProperties", reference}} : reference;
}

Json ofValue(const FERRY_Setting &key)
{
    switch (key.kind) {
    case FERRY_SETTING_FLAG:
        return {{"type", "boolean"}};
    case FERRY_SETTING_CHOICE:
        return {{"enum", wordsOf(key)}};
    case FERRY_SETTING_WHOLE:
        return {{"type", "integer"}, {"minimum", key.low}, {"maximum", key.high}};
    case FERRY_SETTING_BYTES:
        return {{"anyOf", Json::array({{{"type", "integer"}, {"minimum", key.low}},
                                       {{"type", "string"}, {"pattern", bytesPattern}}})}};
    case FERRY_SETTING_DURATION:
        return {{"type", "string"}, {"pattern", durationPattern}};
    case FERRY_SETTING_SECTION:
    case FERRY_SETTING_LIST:
        return ofHolder(key);
    default:
        // A text may look like a number.
        return {{"type", Json::array({"string", "number", "boolean"})}};
    }
}

Json ofSection(std::uint32_t section)
{
    Json properties = Json::object();
    Json required = Json::array();
    for (const FERRY_Setting &key : keys::of(section)) {
        Json value = ofValue(key);
        value["description"] = key.help;
        if (key.fallback != nullptr) {
            value["default"] = key.fallback;
        }
        properties[key.name] = std::move(value);
        if ((key.flags & FERRY_SETTING_REQUIRED) != 0) {
            required.push_back(key.name);
        }
    }
    return {{"type", Json::array({"object", "null"})},
            {"properties", std::move(properties)},
            {"required", std::move(required)},
            {"additionalProperties", false}};
}

class Schema : public Verb {
public:
    void declare(CLI::App & /*command*/) override {}

    int run() override
    {
        Json definitions = Json::object();
        for (const keys::SectionKind &section : keys::sections) {
            definitions[section.name] = ofSection(section.keys);
        }
        Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                       {"title", "Configuration of ferry"}};
        schema.update(definitions["file"]);
        definitions.erase("file");
        schema["$defs"] = std::move(definitions);
        std::cout << schema.dump(1) << '\n';
        return exitOk;
    }
};

const RegisteredVerb<Schema>
    registered("schema", "Print the JSON Schema of configuration files, for editors");

} // namespace
} // namespace ferry
