// The platform's samples: their way between Java and native memory beside a helper that only copies
// bytes, members by path beside the bytes at known places, and CDR beside the engine's generated
// code. Prints JSON, one object a line; run.py makes tables of it.
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>

#include <CLI/CLI.hpp>

#include "engine.h"
#include "host.h"

namespace {

using namespace bench;

/// Does a number of operations.
using Work = std::function<void(int operations)>;

/// Many short calls: a VM compiles a loop that runs for the first time in another way than a method
/// that is called again.
constexpr int warmUpBlocks = 500;
constexpr int warmUpOperations = 1000;
constexpr double blockNanoseconds = 2e6;

double block(const Work &work, int operations)
{
    const double begin = threadTime();
    work(operations);
    return (threadTime() - begin) / operations;
}

/// Ours and the reference in turn, which stands among them twice, as in bench/bridge.
void compare(const char *name, const std::string &payload, int rounds, const Work &ours,
             const Work &reference)
{
    const Work *variants[] = {&ours, &reference, &reference};
    double slowest = 0;
    for (const Work *work : variants) {
        for (int i = 1; i < warmUpBlocks; ++i) {
            block(*work, warmUpOperations);
        }
        slowest = std::max(slowest, block(*work, warmUpOperations));
    }
    const int operations = std::max(100, static_cast<int>(blockNanoseconds / slowest));
    std::vector<double> times[3];
    std::vector<double> ratio;
    std::vector<double> twins;
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < 3; ++i) {
            const int which = (round + i) % 3;
            times[which].push_back(block(*variants[which], operations));
        }
        ratio.push_back(2 * times[0].back() / (times[1].back() + times[2].back()));
        twins.push_back(times[1].back() / times[2].back());
    }
    printf("{\"name\": \"%s\", \"payload\": \"%s\", \"ratio\": %.4f, \"twins\": %.4f, "
           "\"ns\": %.1f, \"reference_ns\": %.1f}\n",
           name, payload.c_str(), median(ratio), median(twins), median(times[0]), median(times[1]));
    fflush(stdout);
}

void must(bool good, const char *what)
{
    if (!good) {
        fail(what);
    }
}

extern "C" void JNICALL put(JNIEnv *env, jclass, jlong address, jbyteArray bytes, jint size)
{
    env->GetByteArrayRegion(bytes, 0, size, reinterpret_cast<jbyte *>(address));
}

extern "C" void JNICALL get(JNIEnv *env, jclass, jlong address, jbyteArray bytes, jint size)
{
    env->SetByteArrayRegion(bytes, 0, size, reinterpret_cast<const jbyte *>(address));
}

/// The Java side: class Samples and an object of it.
class Java {
public:
    Java(JNIEnv *env, const Payload &payload) : env_(env)
    {
        type_ = env->FindClass("com/qel/ferrion/bench/bridge/Samples");
        char signature[] = "(J[BI)V";
        char names[][4] = {"put", "get"};
        const JNINativeMethod natives[] = {{names[0], signature, reinterpret_cast<void *>(put)},
                                           {names[1], signature, reinterpret_cast<void *>(get)}};
        must(env->RegisterNatives(type_, natives, 2) == 0, "RegisterNatives");
        const char *three = "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)V";
        samples_ = env->NewObject(type_, env->GetMethodID(type_, "<init>", three),
                                  env->NewStringUTF(Payload::idl().c_str()),
                                  env->NewStringUTF(payload.typeName.c_str()),
                                  env->NewStringUTF(payload.content().c_str()));
        looked();
        data_ = env->CallObjectMethod(
            samples_, env->GetMethodID(type_, "data", "()Lcom/qel/dds/dynamicdata/DynamicData;"));
        looked();
    }

    /// A helper of the platform, called as the bridge calls it.
    Work helper(jclass type, jmethodID method, const void *native)
    {
        return calls(type, method, data_, native);
    }
    /// Its like here, which only copies.
    Work copy(const char *name, const void *bytes)
    {
        return calls(
            type_,
            env_->GetStaticMethodID(type_, name, "(Lcom/qel/ferrion/bench/bridge/Samples;J)V"),
            samples_, bytes);
    }
    Work loop(const char *name)
    {
        const jmethodID method = env_->GetMethodID(type_, name, "(I)J");
        return [=](int operations) {
            env_->CallLongMethod(samples_, method, operations);
            looked();
        };
    }

private:
    Work calls(jclass type, jmethodID method, jobject object, const void *address)
    {
        jvalue object_;
        jvalue address_;
        object_.l = object;
        address_.j = static_cast<jlong>(reinterpret_cast<intptr_t>(address));
        return [=](int operations) {
            const jvalue arguments[] = {object_, address_};
            for (int i = 0; i < operations; ++i) {
                env_->CallStaticVoidMethodA(type, method, arguments);
                looked();
            }
        };
    }
    void looked() const
    {
        if (env_->ExceptionCheck() != JNI_FALSE) {
            env_->ExceptionDescribe();
            fail("Java threw");
        }
    }

    JNIEnv *env_;
    jclass type_;
    jobject samples_;
    jobject data_;
};

/// The members that change, by their paths.
class Members {
public:
    explicit Members(const Payload &payload)
    {
        for (int i = 0; i < 12 && payload.typeName == "Nested"; ++i) {
            values_.push_back("readings[" + std::to_string(i) + "].value");
        }
    }
    void set(DDS_DynamicData *data, int64_t number) const
    {
        DDS_DynamicData_set_longlong(data, "number", number);
        for (const std::string &path : values_) {
            DDS_DynamicData_set_double(data, path.c_str(), static_cast<double>(number));
        }
    }
    double get(const DDS_DynamicData *data) const
    {
        int64_t number = 0;
        DDS_DynamicData_get_longlong(data, "number", &number);
        double sum = static_cast<double>(number);
        for (const std::string &path : values_) {
            double value = 0;
            DDS_DynamicData_get_double(data, path.c_str(), &value);
            sum += value;
        }
        return sum;
    }

private:
    std::vector<std::string> values_;
};

void measure(const Vm &vm, const std::string &name, int rounds)
{
    const Payload payload(name);
    JNIEnv *env = FERRYJNIGlobal_getEnv(vm.global);
    Java java(env, payload);
    const FERRYJNIGlobal &global = *vm.global;
    DDS_DynamicData *native = DDS_DynamicData_new(payload.type, nullptr);
    std::vector<uint8_t> bytes(payload.size);
    const jclass helper = global.dynamicDataHelperClass;
    compare("push", name, rounds,
            java.helper(helper, global.dynamicDataHelperPushToNativeI, native),
            java.copy("push", bytes.data()));
    size_t size = 0;
    const uint8_t *pushed = DDS_DynamicData_get_cdr(native, &size);
    must(size == payload.size && memcmp(pushed, bytes.data(), size) == 0, "samples differ");
    compare("pull", name, rounds,
            java.helper(helper, global.dynamicDataHelperPullFromNativeI, native),
            java.copy("pull", bytes.data()));
    if (name == "64") {
        compare("members in Java", name, rounds, java.loop("byPath"), java.loop("byHand"));
    }

    EngineType engine(name, bytes.data(), bytes.size());
    const Members members(payload);
    std::vector<uint8_t> written;
    int64_t number = 0;
    const Work set = [&](int operations) {
        for (int i = 0; i < operations; ++i) {
            members.set(native, ++number);
            size_t length = 0;
            const uint8_t *cdr = DDS_DynamicData_get_cdr(native, &length);
            written.assign(cdr, cdr + length);
        }
    };
    compare("set and CDR", name, rounds, set, [&](int operations) {
        for (int i = 0; i < operations; ++i) {
            engine.write(++number, written);
        }
    });
    const size_t theirs = engine.write(7, written);
    members.set(native, 7);
    const uint8_t *ours = DDS_DynamicData_get_cdr(native, &size);
    must(theirs >= size && memcmp(ours, written.data(), size) == 0, "the engine's CDR differs");
    volatile double sum = 0;
    const Work read = [&](int operations) {
        for (int i = 0; i < operations; ++i) {
            must(DDS_DynamicData_set_cdr(native, bytes.data(), bytes.size(), nullptr) ==
                     DDS_RETCODE_OK,
                 "set_cdr");
            sum = members.get(native);
        }
    };
    compare("CDR and get", name, rounds, read, [&](int operations) {
        for (int i = 0; i < operations; ++i) {
            sum = engine.read();
        }
    });
    DDS_DynamicData_delete(native);
}

} // namespace

int main(int argc, char **argv)
{
    int rounds = 200;
    CLI::App app("The platform's samples beside the least that does the same");
    app.add_option("--rounds", rounds);
    CLI11_PARSE(app, argc, argv);
    const Vm vm({});
    std::thread([&] {
        FERRYJNIGlobal_attachCurrentThread(vm.global);
        for (const char *name : {"64", "1024", "nested"}) {
            measure(vm, name, rounds);
        }
        FERRYJNIGlobal_detachCurrentThread(vm.global);
    }).join();
    return 0;
}
