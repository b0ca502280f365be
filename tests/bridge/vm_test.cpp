// Starting, adopting and ending the Java VM. One process a test, as a process has one VM in its
// life.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "harness.h"

using namespace bridge;

namespace {

/// What creating a VM comes to; 1 has the VM's library decide.
jint createResult = 1;
jint listResult = JNI_OK;

const StringList classPath = {BRIDGE_ADAPTER_JAR, BRIDGE_BINDING_JAR, BRIDGE_TEST_JAR};

class Vm : public testing::TestWithParam<int32_t> {
protected:
    void SetUp() override
    {
        listen();
        addVmOptions(&options);
    }
    static int vmCount()
    {
        JavaVM *vm = nullptr;
        jsize count = 0;
        JNI_GetCreatedJavaVMs(&vm, 1, &count);
        return count;
    }
    StringList options = {};
};

const char *destroyed = "\nFERRYJNIGlobal_destroy:Destroying Java VM"
                        "\nFERRYJNIGlobal_destroy:Java VM destroyed";

TEST_F(Vm, StartsWithClassPathFirstAndListsItsOptions)
{
    std::string listing =
        "\nFERRYJNIGlobal_new:Creating JavaVM\nJavaVM options:\n"
        "   -Djava.class.path=" BRIDGE_ADAPTER_JAR ":" BRIDGE_BINDING_JAR ":" BRIDGE_TEST_JAR;
    for (int32_t i = 0; i < options.length; ++i) {
        listing += std::string("\n   ") + options.buffer[i];
    }
    FERRYLog_setBitmaps(0, 0);
    const int64_t blocks = heapBlocks();
    FERRYJNIGlobal *global = FERRYJNIGlobal_new(&classPath, &options, 0x41, 0);
    ASSERT_NE(global, nullptr);
    EXPECT_EQ(transcript(), listing);
    EXPECT_EQ(FERRYLog_g_submoduleMask, 0xFFFFFU);
    EXPECT_EQ(FERRYLog_g_instrumentationMask, 0x41U);
    EXPECT_EQ(heapBlocks(), blocks + 1);
    // On a thread without Java nothing at all is released.
    std::thread([global] { FERRYJNIGlobal_destroy(global); }).join();
    EXPECT_EQ(transcript(), "");
    EXPECT_EQ(heapBlocks(), blocks + 1);
    EXPECT_NE(FERRYJNIGlobal_getEnv(global), nullptr);
    FERRYJNIGlobal_destroy(global);
    EXPECT_EQ(transcript(), destroyed);
    EXPECT_EQ(heapBlocks(), blocks);
}

TEST_P(Vm, CreatedIsKeptUnderPolicyOneOnly)
{
    FERRYJNIGlobal *global = FERRYJNIGlobal_new(&classPath, &options, 0x41, GetParam());
    ASSERT_NE(global, nullptr);
    transcript();
    FERRYJNIGlobal_destroy(global);
    EXPECT_EQ(vmCount(), GetParam() == 1 ? 1 : 0);
    EXPECT_EQ(transcript(), GetParam() == 1 ? "" : destroyed);
}

TEST_P(Vm, AdoptedIsEndedUnderPolicyTwoOnly)
{
    FERRYJNIGlobal *first = FERRYJNIGlobal_new(&classPath, &options, 0x1, 1);
    ASSERT_NE(first, nullptr);
    FERRYJNIGlobal *second = FERRYJNIGlobal_new(&classPath, &options, 0x43, GetParam());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_new:A Java VM was already created in this process - "
                            "it will be reused");
    FERRYJNIGlobal_destroy(second);
    EXPECT_EQ(vmCount(), GetParam() == 2 ? 0 : 1);
    EXPECT_EQ(transcript(), GetParam() == 2 ? destroyed : "");
}

INSTANTIATE_TEST_SUITE_P(Policy, Vm, testing::Values(0, 1, 2, 7));

TEST_F(Vm, AnOptionItDoesNotKnowIsRejectedAndALaterStartSucceeds)
{
    StringList wrong = {"-Xnothing-like-this"};
    EXPECT_EQ(FERRYJNIGlobal_new(&classPath, &wrong, 0, 0), nullptr);
    EXPECT_EQ(transcript(), "");
    const int64_t blocks = heapBlocks();
    EXPECT_EQ(FERRYJNIGlobal_new(&classPath, &wrong, 0x1, 0), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_new: Error creating JavaVM (-1)");
    // The record stays behind, because there is no VM to reach the end of destroying with.
    EXPECT_EQ(heapBlocks(), blocks + 1);
    // The second VM of a process comes up with an empty class path whatever it is given.
    DDS_StringSeq_append(&options, "-Xbootclasspath/a:" BRIDGE_ADAPTER_JAR ":" BRIDGE_BINDING_JAR);
    EXPECT_NE(FERRYJNIGlobal_new(&classPath, &options, 0x1, 0), nullptr);
}

TEST_F(Vm, RejectedForWhateverReasonLeavesTheWayFree)
{
    const int64_t blocks = heapBlocks();
    const jint results[] = {JNI_ERR,    JNI_EDETACHED, JNI_EVERSION, JNI_ENOMEM,
                            JNI_EEXIST, JNI_EINVAL,    JNI_OK}; // the last without an environment
    for (const jint result : results) {
        createResult = result;
        EXPECT_EQ(FERRYJNIGlobal_new(&classPath, &options, 0x1, 2), nullptr);
        EXPECT_EQ(transcript(),
                  "\nFERRYJNIGlobal_new: Error creating JavaVM (" + std::to_string(result) + ")");
    }
    EXPECT_EQ(heapBlocks(), blocks + static_cast<int64_t>(std::size(results)));
    createResult = 1;
    // Whoever cannot tell which VMs there are has none to adopt.
    listResult = JNI_ERR;
    FERRYJNIGlobal *global = FERRYJNIGlobal_new(&classPath, &options, 0x41, 0);
    ASSERT_NE(global, nullptr);
    listResult = JNI_OK;
    transcript();
    FERRYJNIGlobal_destroy(global);
    FERRYJNIGlobal_destroy(nullptr);
    EXPECT_EQ(transcript(), destroyed);
}

// Nothing detaches a host's thread but the host.
TEST_F(Vm, NeverEndsWhenAThreadEndedAttached)
{
    FERRYJNIGlobal *global = FERRYJNIGlobal_new(&classPath, &options, 0x43, 0);
    ASSERT_NE(global, nullptr);
    std::thread([global] { FERRYJNIGlobal_attachCurrentThread(global); }).join();
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    // A collection, which stops and scans every thread, goes on.
    jclass system = env->FindClass("java/lang/System");
    env->CallStaticVoidMethod(system, env->GetStaticMethodID(system, "gc", "()V"));
    transcript();
    std::atomic<bool> ended = false;
    std::thread([&ended] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        EXPECT_FALSE(ended);
        EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_destroy:Destroying Java VM");
        // The way out that is left.
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }).detach();
    FERRYJNIGlobal_destroy(global);
    ended = true;
    std::this_thread::sleep_for(std::chrono::seconds(5));
}

TEST_F(Vm, WithoutMemoryNothingIsStarted)
{
    fault = {"heap", "struct FERRYJNIGlobal", 1};
    EXPECT_EQ(FERRYJNIGlobal_new(&classPath, &options, 0x1, 0), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_new:!error creating global");
    fault = {"heap", "JavaVMOption", 1};
    EXPECT_EQ(FERRYJNIGlobal_new(&classPath, &options, 0x41, 0), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_new:!error creating jvm option array");
    EXPECT_EQ(vmCount(), 0);
}

TEST_F(Vm, WithoutTheAdapterClassesItIsEndedAgain)
{
    const StringList none = {};
    const StringList one = {"-Xrs"};
    const int64_t blocks = heapBlocks();
    EXPECT_EQ(FERRYJNIGlobal_new(&none, &one, 0x43, 0), nullptr);
    EXPECT_EQ(transcript(),
              std::string("\nFERRYJNICommon_generateClassPathProperty:No class path defined"
                          "\nFERRYJNIGlobal_new:Creating JavaVM\nJavaVM options:\n   -Xrs"
                          "\nFERRYJNIGlobal_new:!error finding Adapter class") +
                  destroyed);
    EXPECT_EQ(vmCount(), 0);
    EXPECT_EQ(heapBlocks(), blocks);
    // A process has one in its life.
    EXPECT_EQ(FERRYJNIGlobal_new(&none, &none, 0x41, 0), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_new:Creating JavaVM"
                            "\nFERRYJNIGlobal_new: Error creating JavaVM (-1)");
}

TEST_F(Vm, IsNotAdoptedByAThreadThatIsNotAttached)
{
    FERRYJNIGlobal *first = FERRYJNIGlobal_new(&classPath, &options, 0x1, 0);
    ASSERT_NE(first, nullptr);
    std::thread([this] {
        EXPECT_EQ(FERRYJNIGlobal_new(&classPath, &options, 0x1, 2), nullptr);
    }).join();
    EXPECT_EQ(transcript(), "\nFERRYJNIGlobal_new:!error getting environment");
    EXPECT_EQ(vmCount(), 1);
}

TEST_F(Vm, ThePluginRecordIsAsHostsReadIt)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    Host host(global);
    host.execute("> create_adapter");
    ASSERT_NE(host.adapter, nullptr);
    std::vector<int32_t> numbers(9);
    memcpy(numbers.data(), host.adapter, 9 * sizeof(int32_t));
    EXPECT_EQ(numbers, (std::vector<int32_t>{7654321, 5, 3, 0, 0, 1, 2, 3, 4}));
    std::vector<void *> slots(23);
    memcpy(slots.data(), &host.adapter->operations, 23 * sizeof(void *));
    std::string filled;
    for (const void *slot : slots) {
        filled += slot != nullptr ? "x" : "-";
    }
    EXPECT_EQ(filled, "xxxxxxxxxxx--xx-xxxxxx-");
}

TEST_F(Vm, EveryBlockNamesItsRoleAndKind)
{
    FERRYJNIGlobal *global = startVm();
    allocations.clear();
    Host(global).given("writer");
    // The first two are the binding's own.
    const std::set<std::string> expected = {"DDS_DynamicData_new QDDA",
                                            "DDS_DynamicData_reserve QDDC",
                                            "DDS_String_alloc QDDB",
                                            "QELOsapiHeap_allocateArray QDDC",
                                            "QELOsapiHeap_allocateStructure QDDA",
                                            "QELOsapiHeap_reallocateArray QDDC"};
    EXPECT_EQ(allocations, expected);
}

} // namespace

// Stand in front of the VM's own.
jint JNI_CreateJavaVM(JavaVM **vm, void **env, void *arguments)
{
    static const auto real =
        reinterpret_cast<decltype(&JNI_CreateJavaVM)>(dlsym(RTLD_NEXT, "JNI_CreateJavaVM"));
    return createResult > 0 ? real(vm, env, arguments) : createResult;
}

jint JNI_GetCreatedJavaVMs(JavaVM **vm, jsize size, jsize *count)
{
    static const auto real = reinterpret_cast<decltype(&JNI_GetCreatedJavaVMs)>(
        dlsym(RTLD_NEXT, "JNI_GetCreatedJavaVMs"));
    return listResult == JNI_OK ? real(vm, size, count) : listResult;
}
