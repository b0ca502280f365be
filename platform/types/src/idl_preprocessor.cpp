#include "idl_preprocessor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include <fmt/format.h>

#include "idl_scan.h"
#include "qddscdr/error_text.h"

namespace qddsc {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostBytes = 64U << 20;
constexpr std::size_t mostFiles = 10000;
constexpr std::size_t deepest = 64;

/// Whether a block comment is open behind the line.
bool opensComment(const std::string &line, bool inComment)
{
    const char *at = line.c_str();
    while (*at != '\0') {
        if (inComment) {
            const char *const end = std::strstr(at, "*/");
            if (end == nullptr) {
                return true;
            }
            at = end + 2;
            inComment = false;
            continue;
        }
        if (at[0] == '/' && at[1] == '*') {
            inComment = true;
            at += 2;
            continue;
        }
        const std::size_t quoted = quotedLength(at);
        at += quoted > 0 ? quoted : 1;
    }
    return inComment;
}

/// The rest of a line behind the blanks in front.
std::string behindBlanks(const std::string &text)
{
    return text.substr(std::min(text.size(), text.find_first_not_of(" \t\r")));
}

std::vector<std::string> words(const std::string &text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

/// A carriage return by itself ends lines and comments for the parser, so it has to do so here.
std::string withPlainLines(std::string text)
{
    if (text.rfind("\xEF\xBB\xBF", 0) == 0) {
        text.erase(0, 3);
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n') ? '\n' : text[i];
    }
    return text;
}

/// A line without its end; moves behind that.
std::string takeLine(const std::string &text, std::size_t &from)
{
    const std::size_t end = std::min(text.find('\n', from), text.size());
    std::string line = text.substr(from, end - from);
    from = end + 1;
    return line;
}

} // namespace

std::string readIdlFile(const fs::path &file)
{
    std::error_code error;
    if (fs::is_directory(file, error)) {
        throw IdlFault("cannot be opened: Is a directory");
    }
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in) {
        throw IdlFault(
            fmt::format("cannot be opened: {}", std::strerror(errno != 0 ? errno : EIO)));
    }
    if (text.find('\0') != std::string::npos) {
        throw IdlFault("is no text: it has NUL characters");
    }
    return text;
}

IdlPreprocessor::IdlPreprocessor(const std::vector<fs::path> &folders)
{
    for (const fs::path &folder : folders) {
        std::error_code error;
        folders_.push_back(fs::weakly_canonical(folder, error));
    }
}

bool IdlPreprocessor::join(const std::string &text, const std::string &name, const fs::path &file,
                           IdlText &joined, DDS_ErrorText *error)
{
    joined_ = &joined;
    allowed_ = folders_;
    Source source{joined.addSource(name), {}, nullptr};
    source_ = &source;
    try {
        if (!file.empty()) {
            std::error_code ignored;
            source.file = fs::weakly_canonical(file, ignored);
            allowed_.push_back(source.file.parent_path());
            files_.insert(source.file);
        }
        add(text, source);
    } catch (const IdlFault &fault) {
        qddscdr::setError(error, "%s:%u:1: %s", joined.sourceName(place_.source).c_str(),
                          place_.line, fault.what());
        return false;
    }
    return true;
}

/// Lines that count go to the parser. A directive may go on in the next line.
void IdlPreprocessor::add(const std::string &text, Source &source)
{
    const std::size_t outer = branches_.size();
    const std::string plain = withPlainLines(text);
    bool inComment = false;
    count(plain.size());
    for (std::size_t from = 0; from < plain.size();) {
        place_ = {source.number, ++source.line};
        std::string line = takeLine(plain, from);
        if (inComment || behindBlanks(line).rfind('#', 0) != 0) {
            addCode(line, inComment);
            continue;
        }
        while (from < plain.size() && !line.empty() && line.back() == '\\') {
            line.back() = ' ';
            line += takeLine(plain, from);
            ++source.line;
        }
        obey(behindBlanks(behindBlanks(line).substr(1)), source);
        inComment = opensComment(line, false);
        if (inComment && isActive()) {
            joined_->addLine("/*", source.number, source.line);
        }
    }
    if (branches_.size() > outer) {
        place_ = {source.number, branches_.back().line};
        throw IdlFault("the condition has no #endif");
    }
}

void IdlPreprocessor::addCode(const std::string &line, bool &inComment)
{
    if (isActive()) {
        const std::string whole = macros_.expand(line, inComment);
        count(whole.size() - std::min(whole.size(), line.size()));
        joined_->addLine(whole, place_.source, place_.line);
    }
    inComment = opensComment(line, inComment);
}

bool IdlPreprocessor::isActive() const
{
    return std::all_of(branches_.begin(), branches_.end(),
                       [](const Branch &branch) { return branch.active; });
}

/// `line` is what stands behind the "#".
void IdlPreprocessor::obey(const std::string &line, Source &source)
{
    const std::string word(line.c_str(), wordLength(line.c_str()));
    const std::string rest = line.substr(word.size());
    if (obeyCondition(word, rest) || !isActive() || word.empty()) {
        return;
    }
    if (word == "include") {
        include(rest, source);
    } else if (word == "define") {
        macros_.define(rest);
    } else if (word == "undef") {
        const std::vector<std::string> names = words(rest);
        macros_.undefine(names.empty() ? "" : names[0]);
    } else if (word == "pragma") {
        obeyPragma(rest);
    } else if (word == "error") {
        throw IdlFault("#error" + rest);
    } else if (word != "warning" && word != "line" && word != "ident" &&
               std::isdigit(static_cast<unsigned char>(word[0])) == 0) {
        throw IdlFault(fmt::format("#{} is no preprocessor line", word));
    }
}

/// Conditions count in lines that do not, too, so that their ends are found.
bool IdlPreprocessor::obeyCondition(const std::string &word, const std::string &rest)
{
    if (word == "if" || word == "ifdef" || word == "ifndef") {
        const bool outer = isActive();
        const bool holds = outer && isTrue(word, rest);
        branches_.push_back({holds, holds || !outer, false, place_.line});
        return true;
    }
    if (word != "elif" && word != "else" && word != "endif") {
        return false;
    }
    if (branches_.size() <= source_->outerBranches) {
        throw IdlFault(fmt::format("#{} without #if", word));
    }
    Branch &branch = branches_.back();
    if (word == "endif") {
        branches_.pop_back();
        return true;
    }
    if (branch.sawElse) {
        throw IdlFault(fmt::format("#{} behind #else", word));
    }
    branch.sawElse = word == "else";
    branch.active = !branch.taken && (branch.sawElse || isTrue(word, rest));
    branch.taken = branch.taken || branch.active;
    return true;
}

bool IdlPreprocessor::isTrue(const std::string &word, const std::string &rest) const
{
    if (word == "if" || word == "elif") {
        return macros_.isTrue(rest);
    }
    const char *const at = skipBlanks(rest.c_str());
    const std::string name(at, wordLength(at));
    if (name.empty()) {
        throw IdlFault(fmt::format("#{} needs a name", word));
    }
    return macros_.isDefined(name) == (word == "ifdef");
}

void IdlPreprocessor::include(const std::string &rest, Source &source)
{
    const std::string text = behindBlanks(macros_.expand(rest));
    const char close = text.empty() ? '\0' : text[0] == '"' ? '"' : text[0] == '<' ? '>' : '\0';
    const std::size_t end = close == '\0' ? std::string::npos : text.find(close, 1);
    if (end == std::string::npos || end == 1) {
        throw IdlFault("#include needs a file, in quotes or angle brackets");
    }
    const std::string name = text.substr(1, end - 1);
    const fs::path file = find(name, source);
    checkCycle(name, file, source);
    if (!files_.insert(file).second) {
        return;
    }
    if (files_.size() > mostFiles || source.depth == deepest) {
        throw IdlFault(files_.size() > mostFiles
                           ? "more than 10000 files are included"
                           : "files include each other deeper than 64 levels");
    }
    std::string content;
    try {
        content = readIdlFile(file);
    } catch (const IdlFault &fault) {
        throw IdlFault(fmt::format("{}: {}", file.string(), fault.what()));
    }
    Source inner{joined_->addSource(file.string()), file, &source};
    inner.depth = source.depth + 1;
    inner.outerBranches = branches_.size();
    source_ = &inner;
    add(content, inner);
    source_ = &source;
}

/// Beside the file that includes it, or else in the first folder that has it.
fs::path IdlPreprocessor::find(const std::string &name, const Source &source) const
{
    std::vector<fs::path> places = folders_;
    if (!source.file.empty()) {
        places.insert(places.begin(), source.file.parent_path());
    }
    std::error_code error;
    bool isOutside = false;
    for (const fs::path &place : places) {
        fs::path file = fs::weakly_canonical(place / name, error);
        if (!error && isAllowed(file) && fs::is_regular_file(file, error)) {
            return file;
        }
        isOutside = isOutside || (!error && !isAllowed(file));
    }
    std::string where;
    for (const fs::path &place : places) {
        where += (where.empty() ? "" : ", ") + place.string();
    }
    throw IdlFault(
        isOutside
            ? fmt::format("#include \"{}\" leaves the folders that may be read: {}", name, where)
            : fmt::format("there is no file \"{}\" to include in: {}", name,
                          where.empty() ? "no folder was given" : where));
}

/// Links are followed before this looks.
bool IdlPreprocessor::isAllowed(const fs::path &file) const
{
    return std::any_of(allowed_.begin(), allowed_.end(), [&](const fs::path &folder) {
        return std::mismatch(folder.begin(), folder.end(), file.begin(), file.end()).first ==
               folder.end();
    });
}

void IdlPreprocessor::checkCycle(const std::string &name, const fs::path &file,
                                 const Source &source)
{
    for (const Source *each = &source; each != nullptr; each = each->includedBy) {
        if (each->file == file) {
            throw IdlFault(
                fmt::format("#include \"{}\": the file is being included already", name));
        }
    }
}

/// Other pragmas are for other programs.
void IdlPreprocessor::obeyPragma(const std::string &rest)
{
    const std::vector<std::string> all = words(rest);
    if (all.size() < 2 || (all[0] != "keylist" && all[0] != "DCPS_DATA_KEY")) {
        return;
    }
    IdlKeyList list;
    const std::string text = rest.substr(rest.find(all[0]) + all[0].size());
    // DCPS_DATA_KEY quotes what it names.
    std::string plain = text.substr(0, std::min(text.find("//"), text.find("/*")));
    plain.erase(std::remove(plain.begin(), plain.end(), '"'), plain.end());
    std::replace(plain.begin(), plain.end(), ',', ' ');
    list.members = words(plain);
    list.type = list.members.empty() ? "" : list.members[0];
    if (list.type.empty()) {
        throw IdlFault(fmt::format("#pragma {} needs a type", all[0]));
    }
    list.members.erase(list.members.begin());
    const std::size_t dot = list.type.find('.');
    if (list.members.empty() && dot != std::string::npos) { // "Type.member"
        list.members.push_back(list.type.substr(dot + 1));
        list.type.erase(dot);
    }
    list.place = fmt::format("{}:{}", joined_->sourceName(place_.source), place_.line);
    list.line = joined_->lines();
    joined_->keyLists.push_back(list);
}

void IdlPreprocessor::count(std::size_t bytes)
{
    bytes_ += bytes;
    if (bytes_ > mostBytes) {
        throw IdlFault("the text with all that it includes is longer than 64 MiB");
    }
}

} // namespace qddsc
