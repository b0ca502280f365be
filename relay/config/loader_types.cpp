#include "config/loader_types.h"

#include <sstream>

#include "config/keys.h"
#include "qddsc/type_code.h"
#include "settings/suggestion.h"

namespace ferry {
namespace {

bool isStruct(const DDS_TypeCode *type)
{
    return DDS_TypeCode_get_kind(DDS_TypeCode_resolve(type)) == DDS_TK_STRUCT;
}

/// A line of a text, counted from 0; empty behind the last.
std::string lineAt(const std::string &text, int number)
{
    std::istringstream lines(text);
    std::string line;
    for (int i = 0; i <= number; ++i) {
        line.clear();
        std::getline(lines, line);
    }
    return line;
}

} // namespace

TypeLoader::TypeLoader(const std::string &text) : text_(text), library_(DDS_TypeLibrary_new()) {}

void TypeLoader::read(const Entry &types)
{
    const Diagnostics &diagnostics = types.diagnostics();
    const std::size_t before = diagnostics.count();
    for (const Entry &entry : types.elements("\"- file: ...\" or \"- idl: ...\"", 0)) {
        readType(Section(entry, keys::ofType));
    }
    broken_ = diagnostics.count() > before;
}

/// Where the files are that the section's IDL includes. Text in the configuration itself finds
/// those beside the configuration.
void TypeLoader::readIncludes(const Section &section)
{
    std::vector<std::string> folders;
    for (const auto &[text, place] : section["include"].javaTexts()) {
        const std::filesystem::path folder = section.document().absolute(text);
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error)) {
            section.diagnostics().add(place, "{}: there is no folder {}", section["include"].path(),
                                      folder.string());
        }
        folders.push_back(folder.string());
    }
    if (section.has("idl")) {
        folders.push_back(section.document().directory.string());
    }
    std::vector<const char *> names;
    for (const std::string &folder : folders) {
        names.push_back(folder.c_str());
    }
    DDS_TypeLibrary_set_include_path(library_.get(), names.data(),
                                     static_cast<std::uint32_t>(names.size()));
}

void TypeLoader::readType(const Section &section)
{
    readIncludes(section);
    if (section.has("file") == section.has("idl")) {
        section.complain("{} must have either \"file\" or \"idl\"");
    } else if (const auto text = section["idl"].text()) {
        addInline(section["idl"], *text);
    } else if (section.has("file")) {
        DDS_ErrorText error{};
        std::filesystem::path file;
        section.read("file", file);
        if (!file.empty() &&
            DDS_TypeLibrary_add_idl_file(library_.get(), file.c_str(), &error) == 0) {
            section.diagnostics().addForeign(section["file"].place(), error.text);
        }
    }
}

/// A block text keeps its lines, so empty lines in front of it make the compiler's line numbers
/// those of the configuration file. (Columns start where the block's indentation ends.)
void TypeLoader::addInline(const Entry &idl, const std::string &text)
{
    const Place place = idl.place();
    Diagnostics &diagnostics = idl.diagnostics();
    const std::string first = text.substr(0, text.find('\n'));
    const std::string next = lineAt(text_, place.line);
    const bool isBlock =
        next.size() > first.size() && next.substr(next.size() - first.size()) == first;
    const std::string padded =
        std::string(isBlock ? static_cast<std::size_t>(place.line) : 0, '\n') + text;
    DDS_ErrorText error{};
    if (DDS_TypeLibrary_add_idl_text(library_.get(), padded.c_str(), diagnostics.file().c_str(),
                                     &error) == 0) {
        diagnostics.addForeign(place, error.text);
    }
}

const DDS_TypeCode *TypeLoader::find(const Entry &entry, const std::string &name) const
{
    if (name.empty() || broken_) {
        return nullptr;
    }
    const DDS_TypeCode *const type = DDS_TypeLibrary_find(library_.get(), name.c_str());
    DDS_ErrorText why{};
    if (type == nullptr &&
        DDS_TypeLibrary_explain_left_out(library_.get(), name.c_str(), &why) != 0) {
        entry.complain("{}: the type \"{}\" cannot be carried: {}", name, why.text);
    } else if (type == nullptr) {
        std::vector<std::string> names;
        for (const DDS_TypeCode *known : all()) {
            names.emplace_back(DDS_TypeCode_get_name(known));
        }
        entry.complain("{}: there is no type \"{}\"{}", name, suggestion(name, names));
    } else if (!isStruct(type)) {
        entry.complain("{}: \"{}\" is not a struct", name);
    }
    return type;
}

std::vector<std::string> TypeLoader::notes() const
{
    std::vector<std::string> notes;
    const char *note = nullptr;
    while ((note = DDS_TypeLibrary_get_note(library_.get(),
                                            static_cast<std::uint32_t>(notes.size()))) != nullptr) {
        notes.emplace_back(note);
    }
    return notes;
}

std::map<std::string, const DDS_TypeCode *> TypeLoader::structs() const
{
    std::map<std::string, const DDS_TypeCode *> structs;
    for (const DDS_TypeCode *type : all()) {
        if (isStruct(type)) {
            structs.emplace(DDS_TypeCode_get_name(type), type);
        }
    }
    return structs;
}

std::vector<const DDS_TypeCode *> TypeLoader::all() const
{
    std::vector<const DDS_TypeCode *> types(DDS_TypeLibrary_get_count(library_.get()));
    for (std::uint32_t i = 0; i < types.size(); ++i) {
        types[i] = DDS_TypeLibrary_get_at(library_.get(), i);
    }
    return types;
}

} // namespace ferry
