// A host of the stub adapter, as small as one can be: it stops the program where anything fails.
#ifndef BENCH_BRIDGE_HOST_H
#define BENCH_BRIDGE_HOST_H

#include <memory>
#include <string>
#include <vector>

#include "JNIGlobal.h"
#include "JNIStreamReader.h"
#include "JNIStreamWriter.h"
#include "ferryjni/ferryjni.h"
#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"

namespace bench {

/// Prints what went wrong and ends the program: a figure must not come of it.
[[noreturn]] void fail(const std::string &what);

/// Ends the program unless the last operation left the environment clear.
void check(const QEL_FerrionEnvironment &environment, const char *operation);

/// CPU time of this thread, in nanoseconds: another process on the core does not count.
double threadTime();
double median(std::vector<double> values);

/// One of the three types that are measured, by name: "64", "1024" or "nested"; with the sample
/// that all are copies of.
class Payload {
public:
    explicit Payload(const std::string &name);
    ~Payload();
    Payload(const Payload &) = delete;
    Payload &operator=(const Payload &) = delete;

    /// Of all types.
    static std::string idl();
    /// The sample's bytes in hexadecimal.
    std::string content() const;

    std::string typeName;
    const DDS_TypeCode *type;
    DDS_DynamicData *sample;
    size_t size; ///< bytes of the sample
};

/// The VM with the bridge, started as a host starts it. The thread that makes it stays attached.
class Vm {
public:
    /// Options beyond the fixed ones, for example "-Xmx64m".
    explicit Vm(const std::vector<std::string> &options);
    ~Vm();
    Vm(const Vm &) = delete;
    Vm &operator=(const Vm &) = delete;

    FERRYJNIGlobal *global;
};

/// What Vm starts; ends the program when it does not.
FERRYJNIGlobal *startVm(const std::vector<std::string> &options);

/// The options of Vm, for who starts one by hand.
std::vector<std::string> vmOptions(const std::vector<std::string> &more);

/// A connection with a session, in which readers and writers are made.
class Host {
public:
    Host(const Vm &vm, const Payload &payload);
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    /// A reader that lends `batch` samples at each read, new objects each time when `fresh`. Its
    /// arrays have room for `room` of them at first, for all when that is 0.
    FERRYJNIStreamReader *makeReader(int32_t batch, bool fresh = false, int32_t room = 0);
    FERRYJNIStreamWriter *makeWriter(int32_t batch);
    void remove(FERRYJNIStreamReader *reader);
    void remove(FERRYJNIStreamWriter *writer);

    /// Reads a batch and returns it; the number of the last sample through `last`.
    int32_t readAndReturn(FERRYJNIStreamReader *reader, void **last);

    const QEL_FerrionAdapterOperations &operations() const
    {
        return adapter_->operations;
    }
    QEL_FerrionEnvironment environment = {};

private:
    QEL_FerrionStreamInfo streamInfo_ = {};
    std::string content_;
    QEL_FerrionAdapterPlugin *adapter_;
    QEL_FerrionConnection *connection_;
    QEL_FerrionSession *session_;
};

/// A batch of native samples as a host has them to write: numbered from 0, valid.
class Batch {
public:
    Batch(const Payload &payload, int32_t count);
    ~Batch();
    Batch(const Batch &) = delete;
    Batch &operator=(const Batch &) = delete;

    std::vector<void *> samples;
    std::vector<DDS_SampleInfo *> infos;

private:
    std::vector<DDS_SampleInfo> records_;
};

} // namespace bench

#endif
