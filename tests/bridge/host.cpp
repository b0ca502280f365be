// A host that works through the operation table; see harness.h.
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include "JNIProperties.h"
#include "harness.h"

namespace bridge {
namespace {

/// "a b c", or the ends of many.
template<class Element, class Text> std::string listOf(Element *elements, int32_t count, Text text)
{
    const auto at = [&](int32_t i) { return elements[i] != nullptr ? text(elements[i]) : "-"; };
    if (elements == nullptr || count > 4) {
        return elements == nullptr ? "null" : at(0) + ".." + at(count - 1);
    }
    std::string line = "[";
    for (int32_t i = 0; i < count; ++i) {
        line += (i == 0 ? "" : " ") + at(i);
    }
    return line + "]";
}

std::string sampleText(const void *sample)
{
    int32_t id = -1;
    DDS_DynamicData_get_long(static_cast<const DDS_DynamicData *>(sample), "id", &id);
    return "#" + std::to_string(id);
}

std::string infoText(const DDS_SampleInfo *info)
{
    return "i" + std::to_string(info->instance_state);
}

std::string streamText(const void *sample)
{
    const auto *info = static_cast<const QEL_FerrionStreamInfo *>(sample);
    const auto orNull = [](const char *text) { return text != nullptr ? text : "null"; };
    return orNull(info->streamName) + std::string(":") + orNull(info->typeName) + ":" +
           std::to_string(info->typeRepresentationKind) +
           (info->typeRepresentation != nullptr ? ":type:" : ":null:") +
           std::to_string(info->disposed);
}

std::string recordOrNull(const void *record)
{
    return record != nullptr ? " record" : " null";
}

std::string number(int32_t result)
{
    return " " + std::to_string(result);
}

/// The objects in the order in which they are made.
constexpr const char *kinds[] = {"adapter", "connection", "session", "reader", "writer"};

} // namespace

Properties::Properties(const std::string &text) : QEL_FerrionProperties{}
{
    std::istringstream entries(text.substr(1, text.size() - 2));
    for (std::string entry; std::getline(entries >> std::ws, entry, ',');) {
        const size_t equals = entry.find('=');
        strings.push_back(entry.substr(0, equals));
        strings.push_back(entry.substr(equals + 1));
    }
    const auto orNull = [](std::string &string) { return string == "~" ? nullptr : string.data(); };
    for (size_t i = 0; i < strings.size(); i += 2) {
        pairs.push_back({orNull(strings[i]), orNull(strings[i + 1])});
    }
    properties = pairs.data();
    count = static_cast<int32_t>(pairs.size());
}

Host::Host(FERRYJNIGlobal *global)
    : global_(global), listenerData_{{this, "reader"}, {this, "pub"}, {this, "sub"}}
{
    environment_.jniGlobal = global;
    for (int i = 0; i < 3; ++i) {
        listeners_[i] = {&listenerData_[i], [](QEL_FerrionStreamReader *from, void *data) {
                             const auto *own = static_cast<const ListenerData *>(data);
                             note(std::string("signal to ") + own->name + " by " +
                                  own->host->nameOf(from));
                         }};
    }
    streamInfo_.streamName = streamName_.data();
    streamInfo_.typeName = typeName_.data();
    streamInfo_.typeRepresentation = const_cast<DDS_TypeCode *>(sampleType());
    act("reset");
    transcript();
}

Host::~Host()
{
    deleteAll();
}

QEL_FerrionStreamReader *Host::readerOf(const std::string &which) const
{
    return which == "pub" ? pub_ : (which == "sub" ? sub_ : reader_);
}

std::string Host::nameOf(const QEL_FerrionStreamReader *someReader) const
{
    const std::string name = someReader == pub_ ? "pub" : (someReader == sub_ ? "sub" : "reader");
    return someReader == nullptr ? "null"
                                 : (someReader == readerOf(name) ? name : "one being made");
}

const void *Host::objectOf(const Words &words) const
{
    const size_t underscore = words[1].find('_');
    const std::string verb = words[1].substr(0, underscore);
    const std::string kind = words[1].substr(underscore + 1);
    const void *parents[] = {this, adapter, connection_, session_, session_};
    const void *objects[] = {adapter, connection_, session_, reader_.load(), writer_};
    for (int i = 0; i < 5; ++i) {
        if (kind == kinds[i]) {
            return verb == "create" ? parents[i] : objects[i];
        }
    }
    if (verb == "read" || verb == "return") {
        return readerOf(words.size() > 2 ? words[2] : "");
    }
    return verb == "write" ? static_cast<const void *>(writer_)
                           : (verb == "native" ? static_cast<const void *>(this) : connection_);
}

void Host::execute(const std::string &line)
{
    const size_t brace = line.find('{');
    std::istringstream stream(line.substr(0, brace));
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    if (words[0] != "!" && objectOf(words) == nullptr) {
        return;
    }
    note(line);
    if (words[0] == "!") {
        prepare(line, words);
        return;
    }
    const Properties properties(brace != std::string::npos ? line.substr(brace) : "{}");
    const auto *given = brace != std::string::npos ? &properties : nullptr;
    if (words[0] == "@") {
        std::thread([&] { operate(words, given); }).join();
    } else {
        operate(words, given);
    }
    jni.inspect();
}

void Host::prepare(const std::string &line, const Words &words)
{
    if ((words[1] == "jni" || words[1] == "heap") && fault.isPending()) {
        note("THE FAULT BEFORE DID NOT OCCUR");
    }
    if (words[1] == "jni") {
        fault = {"jni", words[2], std::stoul(words[3])};
        fault.failure = words[4] == "throws" ? Fault::throws : Fault::returns;
    } else if (words[1] == "heap") {
        const std::string type = line.substr(line.find(words[2]) + words[2].size() + 1);
        fault = {"heap", type, std::stoul(words[2])};
    } else if (words[1] == "stream") {
        streamInfo_.typeRepresentationKind = std::stoi(words[2]);
        streamInfo_.disposed = std::stoi(words[3]);
        streamInfo_.streamName = words[4] == "~" ? nullptr : streamName_.data();
        streamInfo_.typeName = words[5] == "~" ? nullptr : typeName_.data();
    } else if (words[1] == "log") {
        FERRYLog_setBitmaps(0xFFFFF, static_cast<uint32_t>(std::stoul(words[2], nullptr, 16)));
    } else {
        act(line.substr(2));
    }
}

void Host::operate(const Words &words, const QEL_FerrionProperties *properties)
{
    environment_.errorFlag = 0;
    environment_.errorCode = 0;
    environment_.message[0] = '\0';
    std::string line = "<" + perform(words, properties);
    if (environment_.errorFlag != 0 || environment_.message[0] != '\0') {
        line += std::string(" !") + environment_.message;
    }
    note(line);
}

std::string Host::perform(const Words &words, const QEL_FerrionProperties *properties)
{
    const std::string &what = words[1];
    const std::string argument = words.size() > 2 ? words[2] : "";
    const auto wordOrNull = [&words](size_t i) {
        return words.size() > i ? words[i].c_str() : nullptr;
    };
    const QEL_FerrionAdapterOperations &ops = operations_;
    QEL_FerrionEnvironment *env = &environment_;
    if (what == "create_adapter") {
        const std::string name =
            "com/qel/ferrion/test/" + (argument.empty() ? "ScriptedAdapter" : argument);
        env->className = name.c_str();
        adapter = FERRYJNIAdapter_create(properties, env);
        operations_ = adapter != nullptr ? adapter->operations : operations_;
        return recordOrNull(adapter);
    } else if (what == "create_connection") {
        connection_ = ops.create_connection(adapter, wordOrNull(2), wordOrNull(3), &listeners_[2],
                                            &listeners_[1], this, this, properties, env);
        return recordOrNull(connection_);
    } else if (what == "to_string") {
        const char *text = ops.connection_to_string(connection_);
        const bool same = text == ops.connection_to_string(connection_);
        return std::string(" ") + (text != nullptr ? text : "null") + (same ? "" : " CHANGED");
    } else if (what == "create_session") {
        return recordOrNull(session_ = ops.create_session(connection_, properties, env));
    } else if (what == "create_reader") {
        // Copied by the bridge, so it may go.
        const QEL_FerrionStreamReaderListener listener = listeners_[0];
        return recordOrNull(
            reader_ = ops.create_stream_reader(connection_, session_, &streamInfo_, properties,
                                               argument == "deaf" ? nullptr : &listener, env));
    } else if (what == "create_writer") {
        return recordOrNull(writer_ = ops.create_stream_writer(connection_, session_, &streamInfo_,
                                                               properties, env));
    } else if (what == "get_pub") {
        return recordOrNull(pub_ = ops.get_pub_discovery_reader(connection_, env));
    } else if (what == "get_sub") {
        return recordOrNull(sub_ = ops.get_sub_discovery_reader(connection_, env));
    } else if (what == "update_connection") {
        ops.connection_update(connection_, properties, env);
    } else if (what == "update_session") {
        ops.session_update(session_, properties, env);
    } else if (what == "update_reader") {
        return number(ops.stream_reader_update(reader_, properties, env));
    } else if (what == "update_writer") {
        return number(ops.stream_writer_update(writer_, properties, env));
    } else if (what == "read") {
        return read(argument);
    } else if (what == "return_loan") {
        ops.return_loan(readerOf(argument), samples_, infos_, count_, env);
        // Stream infos have given up their names and types.
        return argument.empty() ? "" : " " + listOf(samples_, count_, streamText);
    } else if (what == "write" || what == "write_without_infos") {
        return write(words, what == "write");
    } else if (what == "delete_reader") {
        ops.delete_stream_reader(connection_, reader_.exchange(nullptr), env);
    } else if (what == "delete_writer") {
        ops.delete_stream_writer(connection_, std::exchange(writer_, nullptr), env);
    } else if (what == "delete_session") {
        ops.delete_session(connection_, std::exchange(session_, nullptr), env);
    } else if (what == "delete_connection") {
        pub_ = sub_ = nullptr;
        ops.delete_connection(adapter, std::exchange(connection_, nullptr), env);
    } else if (what == "delete_adapter") {
        return number(ops.delete_adapter(std::exchange(adapter, nullptr), env));
    } else if (what == "native_properties") {
        return nativeProperties(properties);
    }
    return "";
}

std::string Host::nativeProperties(const QEL_FerrionProperties *properties)
{
    fault.paused = true;
    JNIEnv *env = FERRYJNIGlobal_getEnv(global_);
    jobject java = FERRYJNIStreamInfo_createJavaProperties(global_, env, properties, &environment_);
    fault.paused = false;
    QEL_FerrionProperties *made =
        FERRYJNIStreamInfo_createNativeProperties(global_, env, java, &environment_);
    env->DeleteLocalRef(java);
    std::string text = made != nullptr ? number(made->count) : " null";
    for (int32_t i = 0; made != nullptr && i < made->count; ++i) {
        const auto orNull = [](const char *string) { return string != nullptr ? string : "null"; };
        text += std::string(" ") + orNull(made->properties[i].name) + "=" +
                orNull(made->properties[i].value);
    }
    text += made != nullptr && made->count == 0 && made->properties != nullptr ? " AN ARRAY" : "";
    FERRYJNIStreamInfo_freeNativeProperties(made);
    return text;
}

std::string Host::read(const std::string &which)
{
    void **const untouched = reinterpret_cast<void **>(this);
    samples_ = untouched;
    infos_ = reinterpret_cast<DDS_SampleInfo **>(untouched);
    count_ = -1;
    operations_.read(readerOf(which), &samples_, &infos_, &count_, &environment_);
    if (samples_ == untouched) {
        samples_ = nullptr;
        infos_ = nullptr;
        return " untouched";
    }
    const int32_t capacity = static_cast<FERRYJNIStreamReader *>(readerOf(which))->capacity;
    return number(count_) + " of" + number(capacity) + " " +
           listOf(samples_, count_, which.empty() ? sampleText : streamText) + " " +
           listOf(infos_, count_, infoText);
}

std::string Host::write(const Words &words, bool withInfos)
{
    std::vector<void *> samples;
    std::vector<DDS_SampleInfo *> infos;
    fault.paused = true;
    for (size_t i = 2; i < words.size(); ++i) {
        // "7" is a sample, "*7" are seven, "~" is none.
        const bool many = words[i][0] == '*';
        const int32_t number = words[i] == "~" ? -1 : std::stoi(words[i].substr(many ? 1 : 0));
        for (int32_t id = many ? 0 : number; id < (many ? number : number + 1); ++id) {
            samples.push_back(id < 0 ? nullptr : DDS_DynamicData_new(sampleType(), nullptr));
            infos.push_back(id < 0 ? nullptr : new DDS_SampleInfo{});
            if (id >= 0) {
                DDS_DynamicData_set_long(static_cast<DDS_DynamicData *>(samples.back()), "id", id);
                infos.back()->instance_state = static_cast<int32_t>(infos.size());
            }
        }
    }
    fault.paused = false;
    const int32_t total =
        operations_.write(writer_, samples.data(), withInfos ? infos.data() : nullptr,
                          static_cast<int32_t>(samples.size()), &environment_);
    for (size_t i = 0; i < samples.size(); ++i) {
        DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(samples[i]));
        delete infos[i];
    }
    return bridge::number(total);
}

void Host::given(const std::string &last)
{
    for (const char *kind : kinds) {
        execute(std::string("> create_") + kind);
        if (kind == last) {
            break;
        }
    }
    transcript();
}

void Host::deleteAll()
{
    for (int i = 4; i >= 0; --i) {
        execute(std::string("> delete_") + kinds[i]);
    }
}

std::vector<Case> readCases(const std::string &file)
{
    std::ifstream stream(BRIDGE_CASES_DIR "/" + file + ".cases");
    std::vector<Case> cases;
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind("== ", 0) == 0) {
            cases.push_back({line.substr(3), "", {}});
        } else if (line.rfind("given ", 0) == 0) {
            cases.back().given = line.substr(6);
        } else if (!line.empty() && line[0] != '#') {
            cases.back().lines.push_back(line);
        }
    }
    return cases;
}

bool isCommand(const std::string &line)
{
    return line[0] == '>' || line[0] == '@' || line[0] == '!';
}

} // namespace bridge
