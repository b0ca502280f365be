// `ferry new config`: a type and a configuration that runs, for a file of data, a topic or a table.
#include <fstream>
#include <iostream>
#include <sstream>

#include <fmt/format.h>

#include "launcher/complain.h"
#include "launcher/data_shape.h"
#include "launcher/stream_source.h"
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

/// Lines of a mapping in YAML.
std::string linesOf(const Properties &properties, const char *indent)
{
    std::string text;
    for (const auto &[name, value] : properties) {
        text += fmt::format("{}{}: {}\n", indent, name, quoted(value));
    }
    return text;
}

/// What the configuration is made of. Properties are written as they are.
struct Contents {
    fs::path name;
    std::string type;
    std::string adapters;
    /// Properties of the connection that is read.
    Properties connection;
    std::string adapter;
    std::string stream;
    Properties reader;
};

std::string textOf(const Contents &contents)
{
    const std::string reader = linesOf(contents.reader, "        ");
    return fmt::format("types: [{{file: {}}}]\n"
                       "adapters:\n"
                       "{}"
                       "connections:\n"
                       "  here:\n"
                       "    adapter: {}\n"
                       "    properties:\n"
                       "{}"
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
                       quoted(contents.name.filename().string() + ".idl"), contents.adapters,
                       contents.adapter, linesOf(contents.connection, "      "), contents.type,
                       quoted(contents.stream), reader.empty() ? "" : "      properties:\n", reader,
                       quoted(contents.name.filename().string() + ".out.jsonl"));
}

/// IDL of a type. Throws std::runtime_error for one that IDL cannot express.
std::string idlOf(const DDS_TypeCode *type)
{
    const std::unique_ptr<char, void (*)(char *)> idl(DDS_TypeCode_to_idl(type), DDS_String_free);
    const std::unique_ptr<DDS_TypeLibrary, void (*)(DDS_TypeLibrary *)> library(
        DDS_TypeLibrary_new(), DDS_TypeLibrary_delete);
    DDS_ErrorText why{};
    if (idl == nullptr ||
        DDS_TypeLibrary_add_idl_text(library.get(), idl.get(), "its IDL", &why) == 0 ||
        DDS_TypeLibrary_explain_left_out(library.get(), DDS_TypeCode_get_name(type), &why) != 0) {
        throw std::runtime_error(fmt::format("the type cannot be written as IDL: {}", why.text));
    }
    return idl.get();
}

class NewConfigVerb : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("FILE", first_,
                           "A file of rows (CSV) or of JSON lines; with --topic or --table not "
                           "there");
        command.add_option("NAME", second_,
                           "What the new files are called (default: like FILE, topic or table)");
        CLI::Option *const topic =
            command.add_option("--topic", topic_, "A topic of a DDS domain in place of FILE");
        command.add_option("--domain", domain_, "With --topic: the DDS domain (default 0)")
            ->check(CLI::Range(0, 230))
            ->needs(topic);
        command
            .add_option("--table", table_,
                        "A table of a database in place of FILE: its JDBC URL and its name")
            ->excludes(topic);
        command
            .add_option("--set", settings_,
                        "With --topic or --table: a property of the connection, NAME=VALUE; may be "
                        "repeated")
            ->allow_extra_args(false);
        command.add_option("--wait", wait_,
                           "With --topic or --table: seconds to wait for it (default 3)");
        addJavaHome(command, javaHome_);
    }

    void complete() override
    {
        const bool looks = !topic_.empty() || !table_.first.empty();
        if (!looks && first_.empty()) {
            throw CLI::RequiredError("FILE, --topic or --table");
        }
        if (looks && !second_.empty()) {
            throw CLI::ParseError("--topic and --table go with one NAME", exitUsage);
        }
        if (!wait_.empty()) {
            patience_ = secondsOf("--wait", wait_, 0, 3600);
        }
        properties_ = propertiesIn(settings_);
    }

    int run() override
    {
        try {
            return topic_.empty() && table_.first.empty() ? ofFile() : ofStream();
        } catch (const std::exception &reason) {
            complain(fmt::format("ferry: {}", reason.what()));
            return exitUsage;
        }
    }

private:
    int ofFile()
    {
        const fs::path file = fs::absolute(first_).lexically_normal();
        const DataFile data = lookAt(first_);
        Contents contents;
        contents.name = second_.empty() ? fs::path(first_).stem() : fs::path(second_);
        contents.type = typeNameFor(contents.name.filename().string());
        contents.adapters = "  files: {class: file}\n";
        contents.adapter = "files";
        contents.connection = {{"directory", file.parent_path().string()}};
        contents.stream = file.filename().string();
        contents.reader = readerOf(data, file.extension().string());
        return write(contents.name, idlOf(data.shape.type(contents.type)), textOf(contents));
    }

    static Properties readerOf(const DataFile &data, const std::string &extension)
    {
        Properties properties;
        if (extension != (data.isJson ? ".jsonl" : ".csv")) {
            properties.emplace_back("format", data.isJson ? "jsonl" : "csv");
        }
        if (!data.isJson && data.delimiter != ',') {
            properties.emplace_back(
                "delimiter", data.delimiter == '\t' ? "tab" : std::string(1, data.delimiter));
        }
        for (const auto &[member, column] : data.columns) {
            properties.emplace_back("columns." + member, column);
        }
        return properties;
    }

    int ofStream()
    {
        const StreamSource source = topic_.empty() ? ofTable() : ofTopic();
        AnnouncedStream found;
        const int code = findStream(source, patience_, javaHome_, found);
        if (code != exitOk) {
            return code;
        }
        Contents contents;
        contents.name = first_.empty() ? fs::path(fileNameFor(source.stream)) : fs::path(first_);
        contents.type = DDS_TypeCode_get_name(found.type);
        contents.adapters =
            fmt::format("  {}: {{{}: {}}}\n  files: {{class: file}}\n", source.adapter,
                        source.isJava ? "class" : "plugin", source.adapter);
        contents.adapter = source.adapter;
        contents.connection = source.properties;
        contents.stream = source.stream;
        contents.reader = source.ofReader;
        // The topic's type may go by another name than its own; names with slashes are not its own.
        if (!source.isJava && found.typeName != contents.type &&
            found.typeName.find('/') == std::string::npos) {
            contents.reader.emplace_back("type_name", found.typeName);
        }
        if (found.partitions != std::vector<std::string>{""} && !source.isJava) {
            contents.reader.emplace_back("partitions",
                                         fmt::format("{}", fmt::join(found.partitions, ",")));
        }
        return write(contents.name, idlOf(found.type), textOf(contents));
    }

    StreamSource ofTopic() const
    {
        StreamSource source;
        source.adapter = "dds";
        source.noun = fmt::format("topic of domain {}", domain_);
        source.properties = {{"domain", std::to_string(domain_)}};
        source.properties.insert(source.properties.end(), properties_.begin(), properties_.end());
        // As reliable as its writers are.
        source.ofReader = {{"reliability", "auto"}, {"durability", "auto"}};
        source.stream = topic_;
        return source;
    }

    StreamSource ofTable() const
    {
        StreamSource source;
        source.adapter = "sql";
        source.isJava = true;
        source.noun = "table";
        source.properties = {{"url", table_.first}};
        source.properties.insert(source.properties.end(), properties_.begin(), properties_.end());
        source.forLooking = {{"discover", "true"}};
        // A member is never without a value.
        source.ofReader = {{"nulls", "default"}};
        source.stream = table_.second;
        return source;
    }

    /// "rt/chatter" makes chatter.
    static std::string fileNameFor(const std::string &stream)
    {
        std::string name = stream.substr(stream.rfind('/') + 1);
        std::replace_if(
            name.begin(), name.end(),
            [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; }, '_');
        return name.empty() ? "stream" : name;
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

    std::string first_;
    std::string second_;
    std::string topic_;
    int domain_ = 0;
    std::pair<std::string, std::string> table_;
    std::vector<std::string> settings_;
    Properties properties_;
    std::string wait_;
    std::chrono::milliseconds patience_{3000};
    fs::path javaHome_;
};

const RegisteredVerb<NewConfigVerb>
    registered("new config", "Make a type and a configuration that runs, for a file of data, a "
                             "topic or a table");

} // namespace
} // namespace ferry
