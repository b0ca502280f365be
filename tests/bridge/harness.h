// What the tests of the bridge share: a real VM started as a host starts it, a host that works
// through the operation table, doubles in front of the JNI function table and of the middleware
// heap that count and fail on demand, and one transcript of all that happens.
#ifndef BRIDGE_HARNESS_H
#define BRIDGE_HARNESS_H

#include <jni.h>

#include <atomic>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "JNIStreamReader.h"
#include "ferryjni/ferryjni.h"
#include "ferryjni/log.h"
#include "qddsc/string.h"

namespace bridge {

/// Adds a line to the transcript. In it stand, in their order: what the host called ("> "), what
/// Java received, log lines, "(described)" for each exception printed, and what came of it ("< ").
void note(const std::string &line);
/// The transcript since the last call, each line after a newline.
std::string transcript();
/// Routes the log into the transcript.
void listen();

struct StringList : DDS_StringSeq {
    StringList(std::initializer_list<std::string> strings);
    ~StringList();
    StringList(const StringList &) = delete;
    StringList &operator=(const StringList &) = delete;
};

/// The options of the tests' VM: where the binding's natives are, and those of the environment.
void addVmOptions(StringList *options);
/// Starts a VM with the tests' class path on this thread and puts the doubles in place. The record
/// returned was made under their eyes; it logs at all levels that the bridge has.
FERRYJNIGlobal *startVm();

/// The call that fails. While there is none every call that could be the one is kept by its name.
struct Fault {
    /// How Java calls fail: with an error, null without one, or in the way of other VMs: with a
    /// checked exception, and with one also where HotSpot leaves none.
    enum Failure { throws, returns, otherVm };
    /// What is counted: "jni", "heap" or "libc".
    std::string kind;
    /// The only function or type that counts; empty for all.
    std::string name;
    size_t nth = 0;
    /// Not once, but from then on.
    bool forGood = false;
    Failure failure = throws;
    /// Counted so far: the Java method where there is one, else the function or type.
    std::vector<std::string> calls = {};
    /// While the host does what is not to fail.
    bool paused = false;

    /// Counts a call that can fail; true when it has to.
    bool arrives(const char *callKind, const std::string &callName, const std::string &label = "");
    /// Whether it was asked for and has not come.
    bool isPending() const;
};
extern Fault fault;

/// In front of the JNI functions of the main thread, and of GetEnv; sees the calls of the bridge
/// only. What no JNI call may do comes up in the transcript, in capitals.
struct JniDouble {
    void hook(JNIEnv *env);
    /// Global references that the bridge holds, in the order in which it made them, and those that
    /// it has deleted, in that order.
    std::vector<const void *> globals;
    std::vector<const void *> deleted;
    /// Lookups as "class member signature", and what each found: the global reference where the
    /// bridge has made one of it.
    std::vector<std::string> lookups;
    std::vector<const void *> found;
    /// Complains of frames left open, references left outside of them, strings held, exceptions.
    void inspect();
};
extern JniDouble jni;

/// Each kind of allocation from the middleware heap as "role tag".
extern std::set<std::string> allocations;
int64_t heapBlocks();

/// Has the scripted side act on a line (its Stage says which there are), unseen by the doubles.
void act(const std::string &line);

/// A property list from "{name=value, name=value}"; "~" stands for a null name or value.
struct Properties : QEL_FerrionProperties {
    explicit Properties(const std::string &text);
    std::vector<std::string> strings;
    std::vector<QEL_FerrionNameValue> pairs;
};

/// struct S { long id; string text; }
const DDS_TypeCode *sampleType();

/// A case of a file of cases: a title, what has been made before, and the lines.
struct Case {
    std::string title;
    std::string given;
    std::vector<std::string> lines;
};
std::vector<Case> readCases(const std::string &file);

/// Whether a line is one to execute.
bool isCommand(const std::string &line);

/// Plays the commands of a scenario once without a fault, and then with each call that can fail
/// failing, once and for good. `begin` gives who executes the lines of one run. What came of each
/// fault is held against cases/<file>.sweep, whose head says how to read it; where the variable
/// FERRY_SWEEP_WRITE is set the file is written anew instead, its comments kept.
void sweep(const std::string &kind, const std::vector<std::string> &scenario,
           const std::function<std::function<void(const std::string &)>()> &begin,
           const std::string &file);
/// Blocks from the C heap that the code under test holds, where a test counts them.
extern int64_t libcBlocks;

/// A host of one adapter with at most one object of a kind at a time, which works through the
/// operation table as the lines of a script say. What comes of it stands in the transcript.
class Host {
public:
    /// Also clears the script of the Java side and the transcript.
    explicit Host(FERRYJNIGlobal *global);
    Host(const Host &) = delete;
    ~Host();

    /// Executes a line, unless the object that it is about is not there: "> operation arguments
    /// {properties}" calls the plug-in with a clear environment ("@ " in place of "> " on a thread
    /// that is not attached); "! method action" sets what a scripted method does; "! jni function
    /// n returns|throws" and "! heap n type" make the n-th call from now on fail; "! signal
    /// listener reader" has Java signal, "! stream kind disposed name type" says which stream
    /// readers and writers are made for.
    void execute(const std::string &line);
    /// Makes everything up to `last`, of adapter, connection, session, reader and writer.
    void given(const std::string &last);
    /// Deletes whatever there is.
    void deleteAll();

    QEL_FerrionAdapterPlugin *adapter = nullptr;

private:
    using Words = std::vector<std::string>;
    struct ListenerData {
        Host *host;
        const char *name;
    };
    /// What an operation needs, or null.
    const void *objectOf(const Words &words) const;
    void operate(const Words &words, const QEL_FerrionProperties *properties);
    std::string perform(const Words &words, const QEL_FerrionProperties *properties);
    std::string nativeProperties(const QEL_FerrionProperties *properties);
    std::string read(const std::string &which);
    std::string write(const Words &words, bool withInfos);
    void prepare(const std::string &line, const Words &words);
    QEL_FerrionStreamReader *readerOf(const std::string &which) const;
    std::string nameOf(const QEL_FerrionStreamReader *someReader) const;

    FERRYJNIGlobal *global_;
    QEL_FerrionEnvironment environment_ = {};
    QEL_FerrionAdapterOperations operations_ = {};
    QEL_FerrionConnection *connection_ = nullptr;
    QEL_FerrionSession *session_ = nullptr;
    /// Also looked at by the threads that signal.
    std::atomic<QEL_FerrionStreamReader *> reader_ = nullptr;
    QEL_FerrionStreamWriter *writer_ = nullptr;
    std::atomic<QEL_FerrionStreamReader *> pub_ = nullptr;
    std::atomic<QEL_FerrionStreamReader *> sub_ = nullptr;
    ListenerData listenerData_[3];
    QEL_FerrionStreamReaderListener listeners_[3];
    QEL_FerrionStreamInfo streamInfo_ = {};
    std::string streamName_ = "stream";
    std::string typeName_ = "S";
    /// What the last read lent.
    void **samples_ = nullptr;
    DDS_SampleInfo **infos_ = nullptr;
    int32_t count_ = 0;
};

} // namespace bridge

#endif
