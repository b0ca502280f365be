#include "config/load.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include <yaml-cpp/eventhandler.h>

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

/// Where the root of each document begins.
class Roots : public YAML::EventHandler {
public:
    const std::vector<YAML::Mark> &marks() const
    {
        return marks_;
    }

    void OnDocumentStart(const YAML::Mark & /*mark*/) override
    {
        atRoot_ = true;
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark &mark, YAML::anchor_t /*anchor*/) override
    {
        note(mark);
    }
    void OnAlias(const YAML::Mark &mark, YAML::anchor_t /*anchor*/) override
    {
        note(mark);
    }
    void OnScalar(const YAML::Mark &mark, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                  const std::string & /*value*/) override
    {
        note(mark);
    }
    void OnSequenceStart(const YAML::Mark &mark, const std::string & /*tag*/,
                         YAML::anchor_t /*anchor*/, YAML::EmitterStyle::value /*style*/) override
    {
        note(mark);
    }
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark &mark, const std::string & /*tag*/, YAML::anchor_t /*anchor*/,
                    YAML::EmitterStyle::value /*style*/) override
    {
        note(mark);
    }
    void OnMapEnd() override {}

private:
    void note(const YAML::Mark &mark)
    {
        if (atRoot_) {
            marks_.push_back(mark);
        }
        atRoot_ = false;
    }

    std::vector<YAML::Mark> marks_;
    bool atRoot_ = false;
};

/// Whether the text is one document. Of a sign that begins nothing, such as a ',' by itself, the
/// parser makes one empty document after the other, without end: LoadAll must not be used.
bool checkDocuments(const std::string &text, Diagnostics &diagnostics)
{
    std::istringstream stream(text);
    YAML::Parser parser(stream);
    Roots roots;
    const std::vector<YAML::Mark> &marks = roots.marks();
    while (marks.size() < 3 && parser.HandleNextDocument(roots)) {
    }
    if (marks.size() < 2) {
        return true;
    }
    const bool stuck = marks.back().pos == marks[marks.size() - 2].pos;
    diagnostics.add(placeOf(marks[1]), stuck ? "not valid YAML: nothing can begin here"
                                             : "a second document: one file, one document");
    return false;
}

std::optional<YAML::Node> parse(const std::string &text, Diagnostics &diagnostics)
{
    try {
        return checkDocuments(text, diagnostics) ? std::make_optional(YAML::Load(text))
                                                 : std::nullopt;
    } catch (const YAML::Exception &error) {
        diagnostics.add(placeOf(error.mark), "not valid YAML: {}", error.msg);
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
    configuration.file = file;
    const bool anyRoute = !configuration.routes.empty() || !configuration.discovery.empty();
    if (needs == Needs::routes && !anyRoute && diagnostics.empty()) {
        diagnostics.add({}, "the configuration file must specify at least one route or discovery");
    }
    if (needs == Needs::connections && configuration.connections.empty() && diagnostics.empty()) {
        diagnostics.add({}, "the configuration file must specify at least one connection");
    }
    return configuration;
}

std::vector<std::string> jarsIn(const fs::path &directory)
{
    std::vector<std::string> jars;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error)) {
        if (entry.path().extension() == ".jar") {
            jars.push_back(entry.path().string());
        }
    }
    std::sort(jars.begin(), jars.end());
    return jars;
}

} // namespace ferry
