// What the tests of the bridge share: a real VM started as a host starts it, a host that works
// through the operation table, doubles in front of the JNI function table and of the middleware
// heap that count and fail on demand, and one transcript of all that happens.
#ifndef BRIDGE_HARNESS_H
#define BRIDGE_HARNESS_H

#include <jni.h>

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

/// In front of the JNI functions of the main thread; sees the calls of the bridge only.
struct JniDouble {
    /// What comes of a call that fails: its null value, with or without an exception.
    enum Failure { returns, throws };
    void hook(JNIEnv *env);
    /// Makes the `nth` call of a function from now on fail, once. "lookup" is FindClass,
    /// Get...ID and GetStaticObjectField together.
    void fail(const std::string &function, int nth, Failure failure);
    /// Whether that call has come, if there is one.
    bool hasFailed = true;
    /// Global references that the bridge holds, in the order in which it made them, and those that
    /// it has deleted, in that order.
    std::vector<const void *> globals;
    std::vector<const void *> deleted;
    /// Lookups as "class member signature", and what each found: the global reference where the
    /// bridge has made one of it.
    std::vector<std::string> lookups;
    std::vector<const void *> found;
    /// Local frames that are open, strings whose characters are held.
    int frames = 0;
    int charsHeld = 0;
    /// Local references made in the frame opened last and not deleted.
    int localsMade = 0;
};
extern JniDouble jni;

/// The middleware heap's double. Each kind of allocation is kept as "role tag".
struct HeapDouble {
    /// Makes the `nth` allocation for `type` from now on fail, once.
    void fail(const std::string &type, int nth);
    /// Takes note of an allocation; true when it is the one to fail.
    bool arrives(const char *role, uint32_t tag, const char *type);
    bool hasFailed = true;
    std::set<std::string> allocations;
    std::string failingType;
    int left = 0;
};
extern HeapDouble heap;
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

/// A host of one adapter with at most one object of a kind at a time, which works through the
/// operation table as the lines of a script say. What comes of it stands in the transcript.
class Host {
public:
    /// Also clears the script of the Java side and the transcript.
    explicit Host(FERRYJNIGlobal *global);

    /// Executes a line: "> operation arguments {properties}" calls the plug-in with a clear
    /// environment ("@ " in place of "> " on a thread that is not attached); "! method action"
    /// tells a scripted method what to do; "! jni function n returns|throws" and "! heap n type"
    /// make the n-th call from now on fail; "! signal listener reader" has Java signal, "! stream
    /// kind disposed name type" says which stream readers and writers are made for.
    void execute(const std::string &line);
    /// Makes everything up to `last`, of adapter, connection, session, reader and writer.
    void given(const std::string &last);
    /// Deletes whatever there is.
    void deleteAll();

    QEL_FerrionAdapterPlugin *adapter = nullptr;

private:
    using Words = std::vector<std::string>;
    struct Ear {
        Host *host;
        const char *name;
    };
    void operate(const Words &words, const QEL_FerrionProperties *properties);
    std::string perform(const Words &words, const QEL_FerrionProperties *properties);
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
    QEL_FerrionStreamReader *reader_ = nullptr;
    QEL_FerrionStreamWriter *writer_ = nullptr;
    QEL_FerrionStreamReader *pub_ = nullptr;
    QEL_FerrionStreamReader *sub_ = nullptr;
    Ear ears_[3];
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
