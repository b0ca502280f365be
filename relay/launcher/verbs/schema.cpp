// `ferry schema`: the configuration file as JSON Schema, for editors.
#include <iostream>
#include <map>

#include <nlohmann/json.hpp>

#include "config/keys.h"
#include "launcher/declarations.h"
#include "launcher/verb.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

using Json = nlohmann::ordered_json;

/// What a key that is no plain value holds.
enum class Shape { section, named, list };

struct Child {
    Shape shape;
    std::uint32_t section;
};

const std::map<std::string, Child> children = {
    {"types", {Shape::list, keys::ofType}},
    {"java", {Shape::section, keys::ofJava}},
    {"log", {Shape::section, keys::ofLog}},
    {"adapters", {Shape::named, keys::ofAdapter}},
    {"connections", {Shape::named, keys::ofConnection}},
    {"sessions", {Shape::named, keys::ofSession}},
    {"routes", {Shape::named, keys::ofRoute}},
    {"discovery", {Shape::named, keys::ofDiscovery}},
    {"input", {Shape::section, keys::ofInput}},
    {"outputs", {Shape::list, keys::ofOutput}},
    {"allow", {Shape::section, keys::ofPatterns}},
    {"deny", {Shape::section, keys::ofPatterns}},
};

/// Of numbers with units: what the grammar of values takes.
constexpr const char *bytesPattern = "^[0-9]+(KiB|MiB|GiB)?$";
constexpr const char *durationPattern = "^[0-9]+(\\.[0-9]+)?(us|ms|s|m|h)$";

Json referenceTo(std::uint32_t section)
{
    return {{"$ref", "#/$defs/" + roleNames(section).front()}};
}

Json ofChild(const Child &child)
{
    switch (child.shape) {
    case Shape::section:
        return referenceTo(child.section);
    case Shape::named:
        return {{"type", "object"}, {"additionalProperties", referenceTo(child.section)}};
    case Shape::list:
        break;
    }
    return {{"type", "array"}, {"items", referenceTo(child.section)}};
}

Json ofValue(const Declaration &key)
{
    const auto child = children.find(key.name);
    switch (key.kind) {
    case FERRY_SETTING_FLAG:
        return {{"type", "boolean"}};
    case FERRY_SETTING_CHOICE:
        return {{"enum", key.words}};
    case FERRY_SETTING_WHOLE:
        return {{"type", "integer"}, {"minimum", key.low}, {"maximum", key.high}};
    case FERRY_SETTING_BYTES:
        return {{"anyOf", Json::array({{{"type", "integer"}, {"minimum", key.low}},
                                       {{"type", "string"}, {"pattern", bytesPattern}}})}};
    case FERRY_SETTING_DURATION:
        return {{"type", "string"}, {"pattern", durationPattern}};
    case FERRY_SETTING_SECTION:
        return child == children.end() ? Json{{"type", "object"}} : ofChild(child->second);
    case FERRY_SETTING_LIST:
        return child == children.end() ? Json{{"type", "array"}, {"items", {{"type", "string"}}}}
                                       : ofChild(child->second);
    default:
        // A text may look like a number.
        return {{"type", Json::array({"string", "number", "boolean"})}};
    }
}

Json ofSection(std::uint32_t section)
{
    Json properties = Json::object();
    Json required = Json::array();
    for (const Declaration &key : declarationsOf(keys::table)) {
        if ((key.roles & section) == 0) {
            continue;
        }
        Json value = ofValue(key);
        value["description"] = key.help;
        if (key.fallback) {
            value["default"] = *key.fallback;
        }
        properties[key.name] = std::move(value);
        if (key.required) {
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
        for (std::uint32_t section = keys::ofType; section <= keys::ofPatterns; section <<= 1) {
            definitions[roleNames(section).front()] = ofSection(section);
        }
        Json schema = {{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                       {"title", "Configuration of ferry"}};
        schema.update(ofSection(keys::ofFile));
        schema["$defs"] = std::move(definitions);
        std::cout << schema.dump(1) << '\n';
        return exitOk;
    }
};

const RegisteredVerb<Schema>
    registered("schema", "Print the JSON Schema of configuration files, for editors");

} // namespace
} // namespace ferry
