// A host that works through the operation table; see harness.h.
#include <sstream>
#include <thread>
#include <utility>

#include "JNIStreamReader.h"
#include "harness.h"

namespace bridge {
namespace {

/// "a b c", or the ends of many.
template<class Element, class Text> std::string listOf(Element *elements, int32_t count, Text text)
{
    if (elements == nullptr) {
        return "null";
    }
    const auto at = [&](int32_t i) { return elements[i] != nullptr ? text(elements[i]) : "-"; };
    if (count > 4) {
        return at(0) + ".." + at(count - 1);
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

std::string streamText(const void *sample)
{
    const auto *info = static_cast<const QEL_FerrionStreamInfo *>(sample);
    const auto orNull = [](const char *text) {
        return std::string(text != nullptr ? text : "null");
    };
    return orNull(info->streamName) + ":" + orNull(info->typeName) + ":" +
           std::to_string(info->typeRepresentationKind) +
           (info->typeRepresentation != nullptr ? ":type:" : ":null:") +
           std::to_string(info->disposed);
}

std::string recordOrNull(const void *record)
{
    return record != nullptr ? " record" : " null";
}

/// The objects in the order in which they are made.
constexpr const char *kinds[] = {"adapter", "connection", "session", "reader", "writer"};

} // namespace

Properties::Properties(const std::string &text) : QEL_FerrionProperties{}
{
    std::istringstream entries(text.substr(1, text.size() - 2));
    for (std::string entry; std::getline(entries >> std::ws, entry, ',');) {
        const size_t equals = entry.find('=');
        strings_.push_back(entry.substr(0, equals));
        strings_.push_back(entry.substr(equals + 1));
    }
    for (size_t i = 0; i < strings_.size(); i += 2) {
        const auto orNull = [this](size_t at) {
            return strings_[at] == "~" ? nullptr : strings_[at].data();
        };
        pairs_.push_back({orNull(i), orNull(i + 1)});
    }
    properties = pairs_.data();
    count = static_cast<int32_t>(pairs_.size());
}

Host::Host(FERRYJNIGlobal *global)
    : global_(global), ears_{{this, "reader"}, {this, "pub"}, {this, "sub"}}
{
    environment.jniGlobal = global;
    for (int i = 0; i < 3; ++i) {
        listeners_[i] = {&ears_[i], [](QEL_FerrionStreamReader *from, void *data) {
                             const auto *ear = static_cast<const Ear *>(data);
                             note(std::string("signal to ") + ear->name + " by " +
                                  ear->host->nameOf(from));
                         }};
    }
    streamInfo_.streamName = streamName_.data();
    streamInfo_.typeName = typeName_.data();
    streamInfo_.typeRepresentation = const_cast<DDS_TypeCode *>(sampleType());
    callStage("reset", "()V", {});
    transcript();
}

QEL_FerrionStreamReader *Host::readerOf(const std::string &which) const
{
    return which == "pub" ? pub : (which == "sub" ? sub : reader);
}

std::string Host::nameOf(const QEL_FerrionStreamReader *someReader) const
{
    if (someReader == nullptr) {
        return "null";
    }
    return someReader == pub   ? "pub"
           : someReader == sub ? "sub"
                               : (someReader == reader ? "reader" : "one being made");
}

void Host::execute(const std::string &line)
{
    note(line);
    const size_t brace = line.find('{');
    std::istringstream stream(line.substr(0, brace));
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    if (words[0] == "!") {
        prepare(words);
        return;
    }
    const Properties properties(brace != std::string::npos ? line.substr(brace) : "{}");
    const auto call = [&] { operate(words, brace != std::string::npos ? &properties : nullptr); };
    if (words[0] == "@") {
        std::thread(call).join();
    } else {
        call();
    }
}

void Host::prepare(const Words &words)
{
    jvalue first = {};
    jvalue second = {};
    if (words[1] == "jni") {
        jni.fail(words[2], std::stoi(words[3]), words[4]);
    } else if (words[1] == "heap") {
        heap.fail(words[3] + (words.size() > 4 ? " " + words[4] : "") +
                      (words.size() > 5 ? " " + words[5] : ""),
                  std::stoi(words[2]));
    } else if (words[1] == "signal") {
        first.i = std::stoi(words[2]);
        second.i = std::stoi(words[3]);
        callStage("signal", "(II)V", {first, second});
    } else if (words[1] == "stream") {
        streamInfo_.typeRepresentationKind = std::stoi(words[2]);
        streamInfo_.disposed = std::stoi(words[3]);
        streamInfo_.streamName = words[4] == "~" ? nullptr : streamName_.data();
        streamInfo_.typeName = words[5] == "~" ? nullptr : typeName_.data();
    } else {
        std::string action;
        for (size_t i = 2; i < words.size(); ++i) {
            action += (i == 2 ? "" : " ") + words[i];
        }
        play(words[1], action);
    }
}

void Host::operate(const Words &words, const QEL_FerrionProperties *properties)
{
    environment.errorFlag = 0;
    environment.errorCode = 0;
    environment.message[0] = '\0';
    std::string line = "<" + perform(words, properties);
    if (environment.errorFlag != 0 || environment.message[0] != '\0') {
        line += std::string(" !") + environment.message;
    }
    JNIEnv *env = FERRYJNIGlobal_getEnv(global_);
    if (env != nullptr && env->ExceptionCheck() != JNI_FALSE) {
        env->ExceptionClear();
        line += " EXCEPTION PENDING";
    }
    note(line + (jni.frames != 0 ? " FRAMES OPEN" : "") +
         (jni.charsHeld != 0 ? " CHARS HELD" : ""));
}

std::string Host::perform(const Words &words, const QEL_FerrionProperties *properties)
{
    const std::string &what = words[1];
    const std::string argument = words.size() > 2 ? words[2] : "";
    QEL_FerrionEnvironment *env = &environment;
    const auto nameAt = [&words](size_t i) {
        return words.size() > i ? words[i].c_str() : nullptr;
    };
    if (what == "create_adapter") {
        const std::string name = "com/qel/ferrion/test/" +
                                 (argument.empty() ? std::string("ScriptedAdapter") : argument);
        environment.className = name.c_str();
        adapter = FERRYJNIAdapter_create(properties, env);
        operations_ = adapter != nullptr ? adapter->operations : operations_;
        return recordOrNull(adapter);
    } else if (what == "create_connection") {
        connection = operations_.create_connection(adapter, nameAt(2), nameAt(3), &listeners_[2],
                                                   &listeners_[1], this, this, properties, env);
        return recordOrNull(connection);
    } else if (what == "to_string") {
        const char *text = operations_.connection_to_string(connection);
        const bool same = text == operations_.connection_to_string(connection);
        return std::string(" ") + (text != nullptr ? text : "null") + (same ? "" : " CHANGED");
    } else if (what == "create_session") {
        session = operations_.create_session(connection, properties, env);
        return recordOrNull(session);
    } else if (what == "create_reader") {
        // Copied by the bridge, so it may go.
        const QEL_FerrionStreamReaderListener listener = listeners_[0];
        reader = operations_.create_stream_reader(connection, session, &streamInfo_, properties,
                                                  &listener, env);
        return recordOrNull(reader);
    } else if (what == "create_writer") {
        writer =
            operations_.create_stream_writer(connection, session, &streamInfo_, properties, env);
        return recordOrNull(writer);
    } else if (what == "get_pub") {
        pub = operations_.get_pub_discovery_reader(connection, env);
        return recordOrNull(pub);
    } else if (what == "get_sub") {
        sub = operations_.get_sub_discovery_reader(connection, env);
        return recordOrNull(sub);
    } else if (what == "update_connection") {
        operations_.connection_update(connection, properties, env);
    } else if (what == "update_session") {
        operations_.session_update(session, properties, env);
    } else if (what == "update_reader") {
        return " " + std::to_string(operations_.stream_reader_update(reader, properties, env));
    } else if (what == "update_writer") {
        return " " + std::to_string(operations_.stream_writer_update(writer, properties, env));
    } else if (what == "read") {
        return read(argument);
    } else if (what == "return_loan") {
        operations_.return_loan(readerOf(argument), samples_, infos_, count_, env);
        // Stream infos have given up their names and types.
        return argument.empty() ? "" : " " + listOf(samples_, count_, streamText);
    } else if (what == "write" || what == "write_without_infos") {
        return write(words, what == "write");
    } else if (what == "delete_reader") {
        operations_.delete_stream_reader(connection, std::exchange(reader, nullptr), env);
    } else if (what == "delete_writer") {
        operations_.delete_stream_writer(connection, std::exchange(writer, nullptr), env);
    } else if (what == "delete_session") {
        operations_.delete_session(connection, std::exchange(session, nullptr), env);
    } else if (what == "delete_connection") {
        operations_.delete_connection(adapter, std::exchange(connection, nullptr), env);
    } else if (what == "delete_adapter") {
        return " " +
               std::to_string(operations_.delete_adapter(std::exchange(adapter, nullptr), env));
    } else {
        return " NO SUCH OPERATION";
    }
    return "";
}

std::string Host::read(const std::string &which)
{
    count_ = -1;
    operations_.read(readerOf(which), &samples_, &infos_, &count_, &environment);
    if (count_ == -1) {
        return " untouched";
    }
    const int32_t capacity = static_cast<FERRYJNIStreamReader *>(readerOf(which))->capacity;
    return " " + std::to_string(count_) + " of " + std::to_string(capacity) + " " +
           listOf(samples_, count_, which.empty() ? sampleText : streamText) + " " +
           listOf(infos_, count_, [](const DDS_SampleInfo *info) {
               return "i" + std::to_string(info->instance_state);
           });
}

std::string Host::write(const Words &words, bool withInfos)
{
    std::vector<void *> samples;
    std::vector<DDS_SampleInfo *> infos;
    const auto add = [&samples, &infos](int32_t id) {
        DDS_DynamicData *sample = DDS_DynamicData_new(sampleType(), nullptr);
        DDS_DynamicData_set_long(sample, "id", id);
        samples.push_back(sample);
        infos.push_back(new DDS_SampleInfo{});
        infos.back()->instance_state = static_cast<int32_t>(infos.size());
    };
    for (size_t i = 2; i < words.size(); ++i) {
        // "7" is a sample, "*7" are seven, "~" is none.
        if (words[i] == "~") {
            samples.push_back(nullptr);
            infos.push_back(nullptr);
        } else if (words[i][0] == '*') {
            for (int32_t id = 0; id < std::stoi(words[i].substr(1)); ++id) {
                add(id);
            }
        } else {
            add(std::stoi(words[i]));
        }
    }
    const int32_t total =
        operations_.write(writer, samples.data(), withInfos ? infos.data() : nullptr,
                          static_cast<int32_t>(samples.size()), &environment);
    for (size_t i = 0; i < samples.size(); ++i) {
        DDS_DynamicData_delete(static_cast<DDS_DynamicData *>(samples[i]));
        delete infos[i];
    }
    return " " + std::to_string(total);
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
    const void *objects[] = {adapter, connection, session, reader, writer};
    for (int i = 4; i >= 0; --i) {
        if (objects[i] != nullptr) {
            execute(std::string("> delete_") + kinds[i]);
        }
    }
}

} // namespace bridge
