// Configuration files of the relay: every mistake is reported with its place, or made into settings
// that the relay can rely on.
#include <fstream>

#include "config/load.h"
#include "config/text.h"
#include "target.h"

namespace {

std::filesystem::path folder;

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "ferry_fuzz_XXXXXX").string();
    folder = mkdtemp(pattern.data());
    std::ofstream(folder / "p.idl") << "module m { struct P { long x; }; };\n";
    std::atexit([] { std::filesystem::remove_all(folder); });
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(data, data + size);
    const std::string file = folder / "c.yaml";
    std::ofstream(file, std::ios::binary) << text;
    ferry::Diagnostics diagnostics(file);
    auto settings = ferry::loadConfiguration(file, diagnostics);
    REQUIRE(settings.has_value() || !diagnostics.empty());
    if (!diagnostics.empty()) {
        settings.reset();
    }
    for (const std::string &line : diagnostics.lines()) {
        // Of the file as a whole, of a place in it, or of an IDL file.
        const bool ofIt = line.rfind(file + ":", 0) == 0;
        const char *rest = line.c_str() + (ofIt ? file.size() + 1 : 0);
        REQUIRE(ofIt ? *rest == ' ' || isPlaceIn(text, rest) : line.find(": ") < line.size() - 2);
    }
    for (size_t i = 0; settings && i < settings->routes.size(); ++i) {
        const ferry::RouteSettings &route = settings->routes[i];
        REQUIRE(DDS_TypeCode_get_kind(DDS_TypeCode_resolve(route.type)) == DDS_TK_STRUCT);
        REQUIRE(settings->connections.at(route.input.connection).adapter <
                settings->adapters.size());
        REQUIRE(route.session < settings->sessions.size() && !route.outputs.empty());
        for (const auto &[name, value] : route.input.properties) {
            REQUIRE(ferry::rejectionForJava(name + " " + value).empty());
        }
    }
    return 0;
}
