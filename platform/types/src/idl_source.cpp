// See idl_source.h.
#include "idl_source.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

#include "idl_repeats.h"
#include "idl_scan.h"
#include "idl_words.h"
#include "qddscdr/error_text.h"

namespace qddsc {

using qddscdr::setError;

namespace {

/// Whether a complaint of the parser is about one definition: one that it does not carry, or that
/// asks for what cannot be. Others are about the text: a mistake in its grammar, an unknown name.
/// An unknown name with a module is of another file, which others do not ask to be included.
bool isAboutDefinition(std::string_view text)
{
    static constexpr std::string_view unknown = "Scoped name '";
    if (text.substr(0, unknown.size()) == unknown) {
        return text.find("::") != std::string_view::npos ||
               text.substr(unknown.size(), 9) == "TypeCode'";
    }
    static constexpr std::string_view parts[] = {"@",
                                                 "xtensib",
                                                 "epresentation",
                                                 "overflow",
                                                 "expand on keys",
                                                 "resolve to an enumerator",
                                                 "Cannot evaluate",
                                                 "switch type",
                                                 "case label"};
    return std::any_of(std::begin(parts), std::end(parts), [&](std::string_view part) {
        return text.find(part) != std::string_view::npos;
    });
}

} // namespace

bool IdlSource::prepare(DDS_ErrorText *error)
{
    IdlComplaint complaint;
    const bool isCopied = IdlCopier(copy_).copyAll(text_.text().c_str(), complaint);
    findLines();
    if (!isCopied) {
        explain(error, complaint.line, complaint.column, complaint.what.c_str());
        return false;
    }
    outline_ = outlineOf(copy_.text);
    completeNames();
    if (!dropRepeated(error) || !checkEnds(error)) {
        return false;
    }
    textLeftOuts_.find();
    blankDropped(copy_.text, outline_);
    return true;
}

void IdlSource::findLines()
{
    lines_ = {0};
    for (size_t at = copy_.text.find('\n'); at != std::string::npos;
         at = copy_.text.find('\n', at + 1)) {
        lines_.push_back(at + 1);
    }
}

/// The parser takes "m::A", used beside the module m, for another declaration of m, so names with
/// modules get all of theirs.
void IdlSource::completeNames()
{
    if (outline_.modules.empty()) {
        return;
    }
    const IdlNames names(copy_.text, outline_);
    std::vector<IdlCopy::Insertion> insertions;
    size_t bytes = 0;
    for (size_t i = 0; i < outline_.definitions.size(); ++i) {
        for (const IdlNames::Use &use : names.usesOf(i, true)) {
            if (!use.isAbsolute) {
                insertions.push_back({use.at, "::" + use.scope});
                bytes += insertions.back().words.size();
            }
            if (bytes > mostCompletion) {
                return; // modules with names without measure: the parser has to do
            }
        }
    }
    if (!insertions.empty()) {
        copy_.insert(insertions);
        findLines();
        outline_ = outlineOf(copy_.text);
    }
}

bool IdlSource::leaveOut(const QIdlProblem &problem)
{
    if (problem.line == 0 || ++complaints_ > mostComplaints) {
        return false;
    }
    const size_t at = offsetOf(problem.line, problem.column);
    const IdlDefinition *const definition = textLeftOuts_.around(at);
    // Two enums of a module with an enumerator of the same name are fine for other compilers.
    const bool isAbout = isAboutDefinition(problem.text) ||
                         (definition != nullptr && definition->keyword == "enum" &&
                          std::strstr(problem.text, "collides") != nullptr);
    if (definition == nullptr || !isAbout) {
        return false;
    }
    textLeftOuts_.dropAround(at, problem.text);
    blankDropped(copy_.text, outline_);
    return true;
}

std::vector<IdlLeftOut> IdlSource::leftOuts() const
{
    std::vector<IdlLeftOut> all;
    for (const IdlTextLeftOuts::LeftOut &each : textLeftOuts_.all()) {
        const IdlDefinition &definition = outline_.definitions[each.definition];
        const auto [line, column] = spotOf(each.at);
        IdlLeftOut leftOut{nameOf(definition),
                           place(line, column),
                           each.why,
                           each.cause,
                           definition.keyword == "struct",
                           uint64_t{line} << 32 | column};
        all.push_back(leftOut);
        for (size_t i = 1; definition.keyword == "typedef" && i < definition.names.size(); ++i) {
            leftOut.name = definition.scope + definition.names[i];
            all.push_back(leftOut);
        }
    }
    std::sort(all.begin(), all.end(),
              [](const IdlLeftOut &a, const IdlLeftOut &b) { return a.order < b.order; });
    return all;
}

bool IdlSource::dropRepeated(DDS_ErrorText *error)
{
    std::map<size_t, std::string> hidden;
    for (const IdlCopy::Default &each : copy_.defaults) {
        hidden[each.offset] = each.arguments;
    }
    IdlConflict conflict;
    if (dropRepeats(copy_.text, outline_, hidden, conflict)) {
        return true;
    }
    explainAt(error, conflict.second,
              fmt::format("\"{}\" is defined in another way at {}", conflict.name,
                          place(spotOf(conflict.first).first)));
    return false;
}

/// What the parser is not to see has to end where it seems to: what follows would go with it.
bool IdlSource::checkEnds(DDS_ErrorText *error) const
{
    for (const IdlDefinition &each : outline_.definitions) {
        const bool isKnown = isUncarriedDefinition(each.keyword) || each.keyword == "struct" ||
                             each.keyword == "union" || each.keyword == "enum" ||
                             each.keyword == "bitmask";
        if (isKnown && each.strayAt != IdlDefinition::none) {
            const char *const at = copy_.text.c_str() + each.strayAt;
            explainAt(error, each.strayAt,
                      fmt::format("syntax error at \"{}\"", idlTokenAt(at).text()));
            return false;
        }
    }
    if (outline_.unfinishedAt != IdlDefinition::none) {
        IdlToken token = idlTokenAt(copy_.text.c_str() + outline_.unfinishedAt);
        while (token.is("abstract") || token.is("local") || token.is("custom")) {
            token = idlTokenAt(token.at + token.length);
        }
        if (isUncarriedDefinition(token.text())) {
            explainAt(error, outline_.unfinishedAt,
                      fmt::format("the definition of this {} has no end", token.text()));
            return false;
        }
    }
    return true;
}

/// Line and column, counted from 1.
std::pair<uint32_t, uint32_t> IdlSource::spotOf(size_t offset) const
{
    const auto behind = std::upper_bound(lines_.begin(), lines_.end(), offset);
    return {static_cast<uint32_t>(behind - lines_.begin()),
            static_cast<uint32_t>(offset - *std::prev(behind) + 1)};
}

/// Of the end of the line or text for a place behind it.
size_t IdlSource::offsetOf(uint32_t line, uint32_t column) const
{
    if (line == 0 || line > lines_.size()) {
        return copy_.text.size();
    }
    const size_t end = line < lines_.size() ? lines_[line] - 1 : copy_.text.size();
    return std::min(lines_[line - 1] + std::max<uint32_t>(column, 1) - 1, end);
}

/// The word or sign at a position, as far as the line reaches.
std::string IdlSource::wordAt(uint32_t line, uint32_t column) const
{
    const char *const at = copy_.text.c_str() + offsetOf(line, column);
    if (column == 0 || *at == '\n' || *at == '\0') {
        return "";
    }
    return std::string(at, std::max<size_t>(wordLength(at), 1));
}

const IdlCopy::Default *IdlSource::defaultAround(uint32_t line, uint32_t column) const
{
    const size_t at = offsetOf(line, column);
    const auto behind = std::upper_bound(
        copy_.defaults.begin(), copy_.defaults.end(), at,
        [](size_t place, const IdlCopy::Default &each) { return place < each.offset; });
    if (behind == copy_.defaults.begin()) {
        return nullptr;
    }
    const IdlCopy::Default &last = *std::prev(behind);
    return at < last.end ? &last : nullptr;
}

std::vector<std::string> IdlSource::notes() const
{
    std::vector<std::string> notes;
    for (const IdlCopy::Passed &each : copy_.passed) {
        notes.push_back(each.count == 1
                            ? fmt::format("{}: @{} has no effect", place(each.line), each.name)
                            : fmt::format("{}: @{} has no effect, here and {} times more",
                                          place(each.line), each.name, each.count - 1));
    }
    return notes;
}

std::string IdlSource::place(uint32_t line, uint32_t column) const
{
    const size_t at = offsetOf(line, column);
    const auto inFront = [this](size_t offset) {
        return std::lower_bound(copy_.inserted.begin(), copy_.inserted.end(), offset);
    };
    const size_t start = line == 0 || line > lines_.size() ? at : lines_[line - 1];
    column -= static_cast<uint32_t>(inFront(at) - inFront(start));
    return fmt::format("{}:{}", place(line), column);
}

void IdlSource::explain(DDS_ErrorText *error, uint32_t line, uint32_t column,
                        const char *what) const
{
    setError(error, "%s: %s", place(line, column).c_str(), what);
}

void IdlSource::explainAt(DDS_ErrorText *error, size_t offset, const std::string &what) const
{
    const auto [line, column] = spotOf(offset);
    explain(error, line, column, what.c_str());
}

void IdlSource::explain(DDS_ErrorText *error, const QIdlProblem &problem) const
{
    if (problem.line == 0) {
        setError(error, "%s: %s", text_.sourceName(0).c_str(), problem.text);
        return;
    }
    const std::string word = wordAt(problem.line, problem.column);
    std::string what = problem.text;
    if (isUncarriedType(word) || isUncarriedDefinition(word)) {
        what = fmt::format("{} is not supported", word);
    } else if (what == "syntax error") {
        what = word.empty() ? "syntax error at the end of the line or text"
                            : fmt::format("syntax error at \"{}\"", word);
    }
    explain(error, problem.line, problem.column, what.c_str());
}

} // namespace qddsc
