// A host that works on several threads for as long as it is told, and what the process holds
// meanwhile: ./dev soak. Every error text is an expected one, every sample is compared in Java.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
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

using Line = std::vector<double>;

/// What a line tells. `bound` is by how much that may rise in the time that is judged; what has
/// none must never be more than at first.
struct Column {
    const char *name;
    double unit;
    double bound;
};
constexpr double MiB = 1048576, inf = 1e300;
constexpr Column columns[] = {{"seconds", 1, inf},   {"operations", 1, inf}, {"samples", 1, inf},
                              {"references", 1, 0},  {"weak", 1, 0},         {"threads", 1, 0},
                              {"descriptors", 1, 0}, {"heap", MiB, 1},       {"non-heap", MiB, 2},
                              {"resident", MiB, 2},  {"blocks", 1, 0}};

FERRYJNIGlobal *vm = nullptr;
QEL_FerrionStreamInfo stream = {};
std::string leak;
std::atomic<int64_t> operations{0}, samplesPassed{0};
/// What lives on by contract: the object of every connection, the class of every adapter, and what
/// belongs to sessions and readers whose creation failed.
std::atomic<int64_t> keptReferences{0}, keptBlocks{0};
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

/// The environment of one operation, which must tell this text.
struct Says : QEL_FerrionEnvironment {
    explicit Says(const char *text = "") : QEL_FerrionEnvironment{}, expected(text)
    {
        jniGlobal = vm;
        className = "com/qel/ferrion/soak/Soak";
        ++operations;
    }
    ~Says()
    {
        require(std::strcmp(message, expected) == 0,
                std::string("\"") + message + "\" instead of \"" + expected + "\"");
    }
    operator QEL_FerrionEnvironment *()
    {
        return this;
    }
    const char *expected;
};

struct Settings : QEL_FerrionProperties {
    explicit Settings(const char *act, int32_t number = 1)
        : QEL_FerrionProperties{pairs, 3}, texts{act, std::to_string(number)}
    {
        static char names[][40] = {"act", "count", FERRYJNI_PROPERTY_INITIAL_SAMPLES};
        for (size_t i = 0; i < 3; ++i) {
            pairs[i] = {names[i], texts[i == 0 ? 0 : 1].data()};
        }
    }
    std::string texts[2];
    QEL_FerrionNameValue pairs[3];
};

/// A thread that comes, works with Java and goes.
template<class Work> std::thread attached(Work work)
{
    return std::thread([work] {
        require(FERRYJNIGlobal_attachCurrentThread(vm) != nullptr, "a thread cannot attach");
        work();
        FERRYJNIGlobal_detachCurrentThread(vm);
    });
}

/// A session with a reader and a writer, on the connection of another or one of its own.
struct Route {
    explicit Route(const Route *other = nullptr)
        : isOwner(other == nullptr),
          adapter(isOwner ? FERRYJNIAdapter_create(&settings, Says()) : other->adapter),
          table(adapter->operations)
    {
        QEL_FerrionStreamReaderListener ears[3];
        for (size_t i = 0; i < 3; ++i) {
            ears[i] = {&signals[i], [](QEL_FerrionStreamReader *, void *data) {
                           ++*static_cast<std::atomic<int> *>(data);
                       }};
        }
        connection = isOwner ? table.create_connection(adapter, "soak", nullptr, &ears[1], &ears[0],
                                                       nullptr, nullptr, &settings, Says())
                             : other->connection;
        session = table.create_session(connection, &settings, Says());
        reader =
            table.create_stream_reader(connection, session, &stream, &settings, &ears[2], Says());
        writer = table.create_stream_writer(connection, session, &stream, &settings, Says());
    }
    ~Route()
    {
        table.delete_stream_writer(connection, writer, Says());
        table.delete_stream_reader(connection, reader, Says());
        table.delete_session(connection, session, Says());
        if (isOwner) {
            table.delete_connection(adapter, connection, Says());
            table.delete_adapter(adapter, Says());
            keptReferences += 2;
        }
    }
    void update(const char *act, int32_t count, const char *text)
    {
        const Settings changed(act, count);
        if (isOwner) {
            table.connection_update(connection, &changed, Says(text));
        }
        table.session_update(session, &changed, Says(text));
        const bool done[] = {table.stream_reader_update(reader, &changed, Says(text)) != 0,
                             table.stream_writer_update(writer, &changed, Says(text)) != 0};
        require(done[0] == done[1] && done[0] == (*text == '\0'), "an update failed, or did not");
    }
    /// Waits for a signal, reads, writes, and returns how many there were.
    int32_t pass(QEL_FerrionStreamReader *from, std::atomic<int> &signal, const char *readText = "",
                 const char *writeText = "")
    {
        for (int left = 60000; signal.exchange(0) == 0; --left) {
            require(left > 0, "no signal");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        void **samples = nullptr;
        DDS_SampleInfo **infos = nullptr;
        int32_t count = 0;
        table.read(from, &samples, &infos, &count, Says(readText));
        if (from == reader) {
            const int32_t written = table.write(writer, samples, infos, count, Says(writeText));
            require(written == (*writeText == '\0' ? count : 0), "a write of another size");
        }
        table.return_loan(from, samples, infos, count, Says());
        samplesPassed += count;
        return count;
    }
    void carry(int32_t count, const char *act = "", const char *readText = "",
               const char *writeText = "")
    {
        update(act, count, "");
        const int32_t passed = pass(reader, signals[2], readText, writeText);
        require(passed == count, "a read of another size");
        for (size_t side = 0; side < 2 && isOwner; ++side) {
            auto *discovery = side == 0 ? table.get_pub_discovery_reader(connection, Says())
                                        : table.get_sub_discovery_reader(connection, Says());
            int32_t seen = 0;
            while (seen < 40) {
                seen += pass(discovery, signals[side]);
            }
            require(seen == 40, "too many announcements");
        }
    }
    const Settings settings{""};
    const bool isOwner;
    QEL_FerrionAdapterPlugin *const adapter;
    const QEL_FerrionAdapterOperations &table;
    std::atomic<int> signals[3] = {};
    QEL_FerrionConnection *connection;
    QEL_FerrionSession *session;
    QEL_FerrionStreamReader *reader;
    QEL_FerrionStreamWriter *writer;
};

/// Creations that fail, in two ways, and what the contract leaves of them.
void failToCreate(const Route &on)
{
    const QEL_FerrionAdapterOperations &table = on.table;
    for (const char *act : {"throw", "null"}) {
        const Settings how(act);
        const bool throws = *act == 't';
        const char *text = throws ? "exception" : "null connection object";
        auto *connection = table.create_connection(
            on.adapter, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &how,
            Says(throws ? "exception creating connection" : text));
        table.delete_connection(on.adapter, connection, Says());
        table.create_session(on.connection, &how, Says(text));
        table.create_stream_reader(on.connection, on.session, &stream, &how, nullptr, Says(text));
        auto *writer =
            table.create_stream_writer(on.connection, on.session, &stream, &how, Says(text));
        table.delete_stream_writer(on.connection, writer, Says());
        // The session's record; the reader's record, listener, four arrays and one sample (three
        // blocks) with its information. References: its listener and two lists.
        keptBlocks += 1 + 10;
        keptReferences += 3;
    }
    const Settings how("throw");
    FERRYJNIAdapter_create(&how, Says("exception"));
    ++keptReferences;
}

void plantLeak()
{
    static std::atomic<void *> last;
    if (leak == "references") {
        JNIEnv *env = FERRYJNIGlobal_getEnv(vm);
        env->NewGlobalRef(env->FindClass("java/lang/Object"));
    } else if (leak == "blocks") {
        QELOsapiHeap_reallocateMemoryInternal(nullptr, 1, 0, "soak", 0, "char");
    } else if (leak == "resident") {
        last = std::memset(std::malloc(100000), 1, 100000);
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

Line measure(double seconds, const Line &before)
{
    JNIEnv *env = FERRYJNIGlobal_getEnv(vm);
    env->PushLocalFrame(8);
    jclass soak = env->FindClass("com/qel/ferrion/soak/Soak");
    auto *java = static_cast<jdoubleArray>(env->CallStaticObjectMethod(
        soak, env->GetStaticMethodID(soak, "measure", "(DDD)[D"),
        before[3] + static_cast<double>(keptReferences), before[4], before[5]));
    require(env->ExceptionCheck() == JNI_FALSE, "Java cannot measure");
    QELOsapiHeapUsage heap = {};
    QELOsapiHeap_getUsage(&heap);
    Line line(std::size(columns));
    env->GetDoubleArrayRegion(java, 0, 7, &line[3]);
    env->PopLocalFrame(nullptr);
    line[0] = seconds;
    line[1] = static_cast<double>(operations);
    line[2] = static_cast<double>(samplesPassed);
    line[9] *= static_cast<double>(sysconf(_SC_PAGESIZE));
    line[3] -= static_cast<double>(keptReferences);
    line[10] = static_cast<double>(heap.blocks - keptBlocks);
    for (size_t i = 0; i < line.size(); ++i) {
        line[i] /= columns[i].unit;
        std::printf("%*.*f", static_cast<int>(std::strlen(columns[i].name)) + 2,
                    i == 0 || columns[i].unit > 1 ? 2 : 0, line[i]);
    }
    std::printf("\n");
    std::fflush(stdout);
    return line;
}

/// Prints a verdict on each column and returns how many are not flat. What a column rises by is
/// told by the straight line that fits it best.
int judge(const std::vector<Line> &lines, double slack)
{
    int leaks = 0;
    for (size_t i = 3; i < std::size(columns); ++i) {
        const Column &column = columns[i];
        double least = inf, most = -inf, n = 0, x = 0, y = 0, xx = 0, xy = 0;
        for (const Line &line : lines) {
            least = std::min(least, line[i]);
            most = std::max(most, line[i]);
            n += 1;
            x += line[0];
            y += line[i];
            xx += line[0] * line[0];
            xy += line[0] * line[i];
        }
        const double slope = (n * xy - x * y) / (n * xx - x * x);
        const double rise = slope * (lines.back()[0] - lines.front()[0]);
        const double bound = column.bound > 0 ? column.bound + slack : 0;
        const bool flat = bound > 0 ? rise <= bound : most <= lines.front()[i];
        std::printf("%s: %s, first %.2f, last %.2f, from %.2f to %.2f, rises by %.3f of %.0f\n",
                    flat ? "flat" : "NOT FLAT", column.name, lines.front()[i], lines.back()[i],
                    least, most, rise, bound);
        leaks += flat ? 0 : 1;
    }
    return leaks;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Works as a host does, and tells whether what the process holds stays the same");
    double minutes = 60, interval = 10, warmUp = 60, slack = 0;
    int64_t rest = 40;
    app.add_option("--minutes", minutes);
    app.add_option("--interval", interval, "seconds between lines");
    app.add_option("--warm-up", warmUp, "seconds not judged, if a tenth of the time is not more");
    app.add_option("--pause", rest, "milliseconds that a worker sleeps after a cycle");
    app.add_option("--slack", slack, "MiB more to rise by: short runs see the VM compile");
    app.add_option("--leak", leak)
        ->check(CLI::IsMember({"references", "blocks", "resident", "threads"}));
    CLI11_PARSE(app, argc, argv);
    DDS_StringSeq classPath = {}, options = {};
    for (const char *jar : {SOAK_JARS}) {
        DDS_StringSeq_append(&classPath, jar);
    }
    // A heap of one size that is there from the beginning, and no compiler threads that come and
    // go.
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
    std::printf("\n");
    for (const Column &column : columns) {
        std::printf("  %s", column.name);
    }
    std::printf(" (MiB; references and blocks without what lives on by contract)\n");
    std::vector<Line> judged;
    {
        const Route own;
        std::vector<std::thread> workers;
        for (int i = 0; i < 4; ++i) {
            workers.push_back(attached([rest] { work(std::chrono::milliseconds(rest)); }));
        }
        const auto begin = std::chrono::steady_clock::now();
        for (Line line(std::size(columns), inf); !over;) {
            std::this_thread::sleep_for(std::chrono::duration<double>(interval));
            measuring = true;
            const std::unique_lock<std::shared_mutex> lock(working);
            failToCreate(own);
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
            line = measure(time.count(), line);
            if (line[0] > std::max(warmUp, minutes * 6)) {
                judged.push_back(line);
            }
            over = line[0] >= minutes * 60 && judged.size() > 2;
            measuring = false;
        }
        for (std::thread &worker : workers) {
            worker.join();
        }
    }
    const int leaks = judge(judged, slack);
    // Waits for every thread that Java knows: none may have been forgotten.
    FERRYJNIGlobal_destroy(vm);
    return leaks == 0 ? 0 : 1;
}
