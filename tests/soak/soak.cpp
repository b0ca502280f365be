// A host that works on several threads for as long as it is asked, and what the process holds
// meanwhile: ./dev soak. Every error text is an expected one, every sample is compared in Java.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "ferryjni/ferryjni.h"
#include "ferryjni/stream_info.h"
#include "qddsc/string.h"
#include "qddsc/type_code.h"
#include "qddscore/heap.h"
#include "qddscore/log.h"

namespace {

/// What a line reports, and by how much that may rise while it is judged; what has no bound must
/// never be more than at first. MiB are calculated from bytes.
constexpr double MiB = 1048576, any = 1e300;
constexpr struct {
    const char *name;
    double unit;
    double bound;
} columns[] = {{"seconds", 1, any},  {"operations", 1, any}, {"samples", 1, any},
               {"blocks", 1, 0},     {"references", 1, 0},   {"weak", 1, 0},
               {"threads", 1, 0},    {"descriptors", 1, 0},  {"heap", MiB, 1},
               {"non-heap", MiB, 2}, {"resident", MiB, 2}};
using Line = std::vector<double>;

FERRYJNIGlobal *vm = nullptr;
QEL_FerrionStreamInfo stream = {};
std::string leak;
std::atomic<int64_t> operations{0}, samplesPassed{0};
/// What lives on by contract: the object of every connection and the class of every adapter.
std::atomic<int64_t> keptReferences{0};
/// Workers share it during a cycle; who measures has it alone.
std::shared_mutex working;
std::atomic<bool> measuring{false}, over{false};

void require(bool holds, const std::string &what)
{
    if (!holds) {
        std::printf("WRONG: %s\n", what.c_str());
        std::fflush(stdout);
        std::_Exit(1);
    }
}

/// The thread's environment for its next operation, which must hold this text: the next call looks.
QEL_FerrionEnvironment *says(const char *text = "")
{
    thread_local QEL_FerrionEnvironment environment = {};
    thread_local const char *expected = "";
    require(std::strcmp(environment.message, expected) == 0,
            std::string("\"") + environment.message + "\" instead of \"" + expected + "\"");
    environment = {0, 0, {}, nullptr, vm, "com/qel/ferrion/soak/Soak"};
    expected = text;
    ++operations;
    return &environment;
}

/// The thread's properties for its next operation.
const QEL_FerrionProperties *settings(const char *act = "", int32_t count = 1)
{
    static char names[][40] = {"act", "count", FERRYJNI_PROPERTY_INITIAL_SAMPLES};
    thread_local std::string texts[2];
    thread_local QEL_FerrionNameValue pairs[3];
    thread_local const QEL_FerrionProperties properties = {pairs, 3};
    texts[0] = act;
    texts[1] = std::to_string(count);
    for (size_t i = 0; i < 3; ++i) {
        pairs[i] = {names[i], texts[i == 0 ? 0 : 1].data()};
    }
    return &properties;
}

/// A thread that comes, works with Java and goes.
template<class Work> std::thread attached(Work work)
{
    return std::thread([work] {
        require(FERRYJNIGlobal_attachCurrentThread(vm) != nullptr, "a thread cannot attach");
        work();
        says();
        FERRYJNIGlobal_detachCurrentThread(vm);
    });
}

/// A session with a reader and a writer, on the connection of another or one of its own.
struct Route {
    explicit Route(const Route *other = nullptr)
        : isOwner(other == nullptr),
          adapter(isOwner ? FERRYJNIAdapter_create(settings(), says()) : other->adapter),
          table(adapter->operations)
    {
        QEL_FerrionStreamReaderListener ears[3];
        for (size_t i = 0; i < 3; ++i) {
            ears[i] = {&signals[i], [](QEL_FerrionStreamReader *, void *data) {
                           ++*static_cast<std::atomic<int> *>(data);
                       }};
        }
        connection = isOwner ? table.create_connection(adapter, "soak", nullptr, &ears[1], &ears[0],
                                                       nullptr, nullptr, settings(), says())
                             : other->connection;
        session = table.create_session(connection, settings(), says());
        reader =
            table.create_stream_reader(connection, session, &stream, settings(), &ears[2], says());
        writer = table.create_stream_writer(connection, session, &stream, settings(), says());
    }
    ~Route()
    {
        table.delete_stream_writer(connection, writer, says());
        table.delete_stream_reader(connection, reader, says());
        table.delete_session(connection, session, says());
        if (isOwner) {
            table.delete_connection(adapter, connection, says());
            table.delete_adapter(adapter, says());
            keptReferences += 2;
        }
    }
    void update(const char *act, int32_t count, const char *text)
    {
        if (isOwner) {
            table.connection_update(connection, settings(act, count), says(text));
        }
        table.session_update(session, settings(act, count), says(text));
        table.stream_reader_update(reader, settings(act, count), says(text));
        table.stream_writer_update(writer, settings(act, count), says(text));
    }
    /// Waits for a signal and reads: samples go to the writer, announcements come by and by.
    void pass(QEL_FerrionStreamReader *from, std::atomic<int> &signal, int32_t expected,
              const char *readText = "", const char *writeText = "")
    {
        for (int left = 60000; signal.exchange(0) == 0; --left) {
            require(left > 0, "no signal");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        void **samples = nullptr;
        DDS_SampleInfo **infos = nullptr;
        int32_t count = -1;
        table.read(from, &samples, &infos, &count, says(readText));
        require(count == expected, "a read of another size");
        int32_t written = 0;
        if (from == reader) {
            written = table.write(writer, samples, infos, count, says(writeText));
            samplesPassed += count;
        }
        for (int32_t i = 0; i < count && from != reader; ++i) {
            const auto *announced = static_cast<QEL_FerrionStreamInfo *>(samples[i]);
            require(announced->disposed == i % 2, "not what was announced");
        }
        table.return_loan(from, samples, infos, count, says());
        const bool isWritten = from == reader && *writeText == '\0';
        require(written == (isWritten ? count : 0), "a write of another size");
    }
    void carry(int32_t count, const char *act = "", const char *readText = "",
               const char *writeText = "")
    {
        update(act, count, "");
        pass(reader, signals[2], count, readText, writeText);
        for (size_t i = 0; i < 2 && isOwner; ++i) {
            auto *discovery = i == 0 ? table.get_pub_discovery_reader(connection, says())
                                     : table.get_sub_discovery_reader(connection, says());
            pass(discovery, signals[i], 32);
            pass(discovery, signals[i], 8);
        }
    }
    const bool isOwner;
    QEL_FerrionAdapterPlugin *const adapter;
    const QEL_FerrionAdapterOperations &table;
    std::atomic<int> signals[3] = {};
    QEL_FerrionConnection *connection;
    QEL_FerrionSession *session;
    QEL_FerrionStreamReader *reader;
    QEL_FerrionStreamWriter *writer;
};

void plantLeak()
{
    static std::atomic<void *> last;
    if (leak == "references") {
        JNIEnv *env = FERRYJNIGlobal_getEnv(vm);
        env->NewGlobalRef(env->FindClass("java/lang/Object"));
    } else if (leak == "blocks") {
        QELOsapiHeap_reallocateMemoryInternal(nullptr, 1, 0, "soak", 0, "char");
    } else if (leak == "resident") {
        last = std::memset(std::malloc(1000000), 1, 1000000);
    } else if (leak == "threads") {
        std::thread([] { pause(); }).detach();
    }
}

/// A route for the whole time, others that come and go, a thread that visits.
void work(std::chrono::milliseconds rest)
{
    std::shared_lock<std::shared_mutex> lock(working);
    Route lasting;
    for (int cycle = 0; !over; ++cycle) {
        for (const int32_t count : {1, 2500, 0, 33, 700, 129}) {
            lasting.carry(count);
        }
        lasting.carry(200, "odd", "create java type code");
        lasting.carry(201, "late", "exception", "write");
        lasting.update("throw", 1, "thrown");
        {
            Route passing(&lasting);
            passing.carry(40);
            attached([&passing] { passing.carry(300); }).join();
        }
        if (cycle % 50 == 0) {
            Route().carry(150);
        }
        plantLeak();
        lock.unlock();
        do {
            std::this_thread::sleep_for(rest);
        } while (measuring);
        lock.lock();
    }
}

Line measure(double seconds)
{
    JNIEnv *env = FERRYJNIGlobal_getEnv(vm);
    env->PushLocalFrame(8);
    jclass soak = env->FindClass("com/qel/ferrion/soak/Soak");
    jmethodID method = env->GetStaticMethodID(soak, "measure", "(D)[D");
    auto *java = static_cast<jdoubleArray>(
        env->CallStaticObjectMethod(soak, method, static_cast<double>(keptReferences)));
    require(env->ExceptionCheck() == JNI_FALSE, "Java cannot measure");
    QELOsapiHeapUsage heap = {};
    QELOsapiHeap_getUsage(&heap);
    Line line = {seconds, static_cast<double>(operations), static_cast<double>(samplesPassed),
                 static_cast<double>(heap.blocks)};
    line.resize(std::size(columns));
    env->GetDoubleArrayRegion(java, 0, 7, &line[4]);
    env->PopLocalFrame(nullptr);
    for (size_t i = 0; i < line.size(); ++i) {
        line[i] /= columns[i].unit;
        const int width = static_cast<int>(std::strlen(columns[i].name)) + 3;
        std::printf("%*.*f", width, columns[i].unit > 1 ? 2 : 0, line[i]);
    }
    std::printf("\n");
    std::fflush(stdout);
    return line;
}

/// Whether all columns are flat, after a verdict on each. What one rises by is taken for a straight
/// line's: twice what lies between the means of the first half and of the last.
bool judge(const std::vector<Line> &lines, double slack)
{
    bool all = true;
    const size_t half = lines.size() / 2;
    for (size_t i = 3; i < std::size(columns); ++i) {
        double least = any, most = 0, sums[2] = {};
        for (size_t at = 0; at < lines.size(); ++at) {
            least = std::min(least, lines[at][i]);
            most = std::max(most, lines[at][i]);
            sums[0] += at < half ? lines[at][i] : 0;
            sums[1] += at >= lines.size() - half ? lines[at][i] : 0;
        }
        const double rise = 2 * (sums[1] - sums[0]) / static_cast<double>(half);
        const double bound = columns[i].bound + (columns[i].bound > 0 ? slack : 0);
        const bool flat = bound > 0 ? rise <= bound : most <= lines.front()[i];
        std::printf("%s: %s, first %.2f, last %.2f, from %.2f to %.2f, rises by %.3f of %.0f\n",
                    flat ? "flat" : "NOT FLAT", columns[i].name, lines.front()[i], lines.back()[i],
                    least, most, rise, bound);
        all = all && flat;
    }
    return all;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Works as a host does, and reports whether what the process holds stays the same");
    double minutes = 60, interval = 10, warmUp = 60, slack = 0;
    int64_t rest = 40;
    app.add_option("--minutes", minutes);
    app.add_option("--interval", interval, "seconds between lines");
    app.add_option("--warm-up", warmUp, "seconds not judged, if a tenth of the time is not more");
    app.add_option("--pause", rest, "milliseconds that a worker sleeps after a cycle");
    app.add_option("--slack", slack, "MiB more to rise by: short runs see the VM compile");
    app.add_option("--leak", leak, "references, blocks, resident or threads");
    CLI11_PARSE(app, argc, argv);
    DDS_StringSeq classPath = {}, options = {};
    for (const char *jar : {SOAK_JARS}) {
        DDS_StringSeq_append(&classPath, jar);
    }
    // A heap of one size that is there from the beginning, and no compilers that come and go.
    for (const char *option :
         {"-Xms64m", "-Xmx64m", "-XX:+AlwaysPreTouch", "-XX:+UseSerialGC", "-Xrs",
          "-XX:-UseDynamicNumberOfCompilerThreads", "-Dqdds.library.path=" SOAK_LIBRARY_DIR}) {
        DDS_StringSeq_append(&options, option);
        std::printf("%s ", option);
    }
    // Neither the log nor the traces of what goes wrong on purpose.
    QELLog_setSink([](void *, const char *, size_t) {}, nullptr);
    require(std::freopen("/dev/null", "w", stderr) != nullptr, "no /dev/null");
    vm = FERRYJNIGlobal_new(&classPath, &options, 0x1, FERRYJNI_DESTROY_IF_CREATED);
    require(vm != nullptr, "no VM");
    DDS_TypeLibrary *types = DDS_TypeLibrary_new();
    DDS_TypeLibrary_add_idl_text(
        types, "struct S { long long id; string text; sequence<long> values; };", "", nullptr);
    QEL_FerrionStreamInfo_initialize(&stream, 0, "soak", "S", 0,
                                     const_cast<DDS_TypeCode *>(DDS_TypeLibrary_find(types, "S")));
    // The first attachment must be over before there are others.
    attached([] {}).join();
    std::printf("\nMiB; references without those that live on by contract\n");
    for (const auto &column : columns) {
        std::printf("   %s", column.name);
    }
    std::printf("\n");
    std::vector<Line> judged;
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; ++i) {
        workers.push_back(attached([rest] { work(std::chrono::milliseconds(rest)); }));
    }
    const auto begin = std::chrono::steady_clock::now();
    while (!over) {
        std::this_thread::sleep_for(std::chrono::duration<double>(interval));
        measuring = true;
        const std::unique_lock<std::shared_mutex> lock(working);
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        const Line line = measure(time.count());
        if (line[0] > std::max(warmUp, minutes * 6)) {
            judged.push_back(line);
        }
        over = line[0] >= minutes * 60 && judged.size() > 2;
        measuring = false;
    }
    for (std::thread &worker : workers) {
        worker.join();
    }
    const bool flat = judge(judged, slack);
    // Waits for every thread that Java knows; has one been forgotten the alarm ends the process.
    std::fflush(stdout);
    alarm(60);
    FERRYJNIGlobal_destroy(vm);
    return flat ? 0 : 1;
}
