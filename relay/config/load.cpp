#include "config/load.h"

#include <fstream>
#include <iterator>

#include "config/loader.h"
#include "config/text.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

std::optional<std::string> readFile(const std::string &file, Diagnostics &diagnostics)
{
    std::error_code ignored;
    std::ifstream stream(file, std::ios::binary);
    if (!stream || fs::is_directory(file, ignored)) {
        diagnostics.add({}, "cannot be read");
        return std::nullopt;
    }
    std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    const std::size_t invalid = findInvalidUtf8(text);
    if (invalid != std::string::npos) {
        Place place{1, 1};
        for (std::size_t i = 0; i < invalid; ++i) {
            place =
                text[i] == '\n' ? Place{place.line + 1, 1} : Place{place.line, place.column + 1};
        }
        diagnostics.add(place, "the file is not valid UTF-8 here");
        return std::nullopt;
    }
    return text;
}

std::optional<YAML::Node> parse(const std::string &text, Diagnostics &diagnostics)
{
    try {
        const std::vector<YAML::Node> documents = YAML::LoadAll(text);
        if (documents.size() > 1) {
            diagnostics.add(placeOf(documents[1]), "a second document: one file, one document");
            return std::nullopt;
        }
        return documents.empty() ? YAML::Node() : documents[0];
    } catch (const YAML::Exception &error) {
        const Place place =
            error.mark.is_null() ? Place{} : Place{error.mark.line + 1, error.mark.column + 1};
        diagnostics.add(place, "not valid YAML: " + error.msg);
        return std::nullopt;
    }
}

} // namespace

std::optional<Configuration> loadConfiguration(const std::string &file, Diagnostics &diagnostics,
                                               Needs needs)
{
    const std::optional<std::string> text = readFile(file, diagnostics);
    if (!text) {
        return std::nullopt;
    }
    const std::optional<YAML::Node> root = parse(*text, diagnostics);
    if (!root) {
        return std::nullopt;
    }
    Loader loader(diagnostics, *text, fs::absolute(file));
    Configuration configuration = loader.load(*root);
    const bool anyRoute = !configuration.routes.empty() || !configuration.discovery.empty();
    if (needs == Needs::routes && !anyRoute && diagnostics.empty()) {
        diagnostics.add({}, "the configuration file must specify at least one route or discovery");
    }
    if (needs == Needs::connections && configuration.connections.empty() && diagnostics.empty()) {
        diagnostics.add({}, "the configuration file must specify at least one connection");
    }
    if (!diagnostics.empty()) {
        return std::nullopt;
    }
    return configuration;
}

} // namespace ferry
