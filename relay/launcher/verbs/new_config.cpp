// `ferry new config`: a type and a configuration that runs, for a file of data.
#include <fstream>
#include <iostream>
#include <sstream>

#include <fmt/format.h>

#include "launcher/complain.h"
#include "launcher/data_shape.h"
#include "launcher/verb.h"
#include "process/exit_code.h"
#include "qddsc/string.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

/// In double quotes, as YAML has them.
std::string quoted(const std::string &text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// "weather-data" makes WeatherData.
std::string typeNameFor(const std::string &stem)
{
    std::string name;
    bool starts = true;
    for (const char c : stem) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) {
            starts = true;
        } else {
            name += starts ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
            starts = false;
        }
    }
    return name.empty() || std::isalpha(static_cast<unsigned char>(name[0])) == 0 ? "T" + name
                                                                                  : name;
}

class NewConfigVerb : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("FILE", file_, "A file of rows (CSV) or of JSON lines")->required();
        command.add_option("NAME", name_, "What the new files are called (default: like FILE)");
    }

    int run() override
    {
        const fs::path name = name_.empty() ? fs::path(file_).stem() : fs::path(name_);
        try {
            const DataFile data = lookAt(file_);
            const std::string type = typeNameFor(name.filename().string());
            const std::unique_ptr<char, void (*)(char *)> idl(
                DDS_TypeCode_to_idl(data.shape.type(type)), DDS_String_free);
            return write(name, idl.get(), configuration(data, name, type));
        } catch (const std::exception &reason) {
            complain(fmt::format("ferry: {}", reason.what()));
            return exitUsage;
        }
    }

private:
    std::string configuration(const DataFile &data, const fs::path &name,
                              const std::string &type) const
    {
        const fs::path file = fs::absolute(file_).lexically_normal();
        const std::string extension = file.extension().string();
        std::vector<std::string> properties;
        if (extension != (data.isJson ? ".jsonl" : ".csv")) {
            properties.push_back(fmt::format("format: {}", data.isJson ? "jsonl" : "csv"));
        }
        if (!data.isJson && data.delimiter != ',') {
            properties.push_back(fmt::format(
                "delimiter: {}",
                data.delimiter == '\t' ? "tab" : quoted(std::string(1, data.delimiter))));
        }
        for (const auto &[member, column] : data.columns) {
            properties.push_back(fmt::format("columns.{}: {}", member, quoted(column)));
        }
        std::string text;
        for (const std::string &property : properties) {
            text += fmt::format("        {}\n", property);
        }
        return fmt::format(
            "types: [{{file: {}}}]\n"
            "adapters: {{files: {{class: file}}}}\n"
            "connections:\n"
            "  here: {{adapter: files, properties: {{directory: {}}}}}\n"
            "  out: {{adapter: files, properties: {{directory: .}}}}\n"
            "routes:\n"
            "  copy:\n"
            "    type: {}\n"
            "    input:\n"
            "      connection: here\n"
            "      stream: {}\n"
            "{}{}"
            "    outputs:\n"
            "      - {{connection: out, stream: {}, properties: {{mode: overwrite}}}}\n",
            quoted(name.filename().string() + ".idl"), quoted(file.parent_path().string()), type,
            quoted(file.filename().string()), text.empty() ? "" : "      properties:\n", text,
            quoted(name.filename().string() + ".out.jsonl"));
    }

    /// Both files, or none if one of them is there.
    static int write(const fs::path &name, const std::string &idl, const std::string &yaml)
    {
        const fs::path idlFile = name.string() + ".idl";
        const fs::path yamlFile = name.string() + ".yaml";
        for (const fs::path &file : {idlFile, yamlFile}) {
            if (fs::exists(fs::symlink_status(file))) {
                complain(
                    fmt::format("ferry: {} is there already; nothing was made", file.string()));
                return exitUsage;
            }
        }
        std::ofstream(idlFile) << idl;
        std::ofstream(yamlFile) << yaml;
        if (fs::file_size(idlFile) != idl.size() || fs::file_size(yamlFile) != yaml.size()) {
            complain(fmt::format("ferry: cannot write {}", yamlFile.string()));
            return exitErrors;
        }
        std::cout << fmt::format("{}\n{}\nnext: ferry run {} --until-idle\n", idlFile.string(),
                                 yamlFile.string(), yamlFile.string());
        return exitOk;
    }

    std::string file_;
    std::string name_;
};

const RegisteredVerb<NewConfigVerb>
    registered("new config", "Make a type and a configuration that runs, for a file of data");

} // namespace
} // namespace ferry
