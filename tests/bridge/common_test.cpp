// What the library does not export: property lookup and the class path option; property lists with
// defaults; and the support functions without memory.
#include <gtest/gtest.h>
#include <malloc.h>

#include <iterator>
#include <memory>
#include <sstream>

#include "JNICommon.h"
#include "ferryjni/route.h"
#include "ferryjni/stream_info.h"
#include "ferryjni/types.h"
#include "harness.h"

using namespace bridge;

namespace {

TEST(Common, TheFirstPairOfANameCounts)
{
    const Properties list("{~=2, a=3, a=4, n=~}");
    EXPECT_EQ(FERRYJNICommon_lookup_property(&list, "a"), list.properties[1].value);
    EXPECT_EQ(FERRYJNICommon_lookup_property(&list, "A"), nullptr);
    EXPECT_EQ(FERRYJNICommon_lookup_property(&list, "n"), nullptr);
    EXPECT_EQ(FERRYJNICommon_lookup_property(&list, nullptr), nullptr);
}

TEST(Common, TheClassPathOptionIsLeftOutWithoutEntries)
{
    listen();
    FERRYLog_setBitmaps(0xFFFFF, 0x3);
    const StringList none = {};
    const StringList one = {"a.jar"};
    unsetenv("CLASSPATH");
    char *made = FERRYJNICommon_generateClassPathProperty(&one);
    EXPECT_STREQ(made, "-Djava.class.path=");
    DDS_String_free(made);
    setenv("CLASSPATH", "e.jar", 1);
    const StringList two = {"a.jar", "b.jar"};
    const StringList three = {"a.jar", "b.jar", "c.jar"};
    for (const auto &[entries, expected] :
         {std::pair{&two, "e.jar:a.jar:b.jar"}, {&three, "a.jar:b.jar:c.jar"}}) {
        made = FERRYJNICommon_generateClassPathProperty(entries);
        EXPECT_STREQ(made, (std::string("-Djava.class.path=") + expected).c_str());
        DDS_String_free(made);
    }
    EXPECT_EQ(transcript(), "");
    EXPECT_EQ(FERRYJNICommon_generateClassPathProperty(&none), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNICommon_generateClassPathProperty:No class path defined");
    fault = {"heap", "char", 1};
    EXPECT_EQ(FERRYJNICommon_generateClassPathProperty(&one), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNICommon_generateClassPathProperty:!create class path string");
}

TEST(Common, NamesThatComeFromDefaultsOnlyDoNotRunPastTheArray)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    QEL_FerrionEnvironment environment = {};
    const Properties pairs("{a=1, a2=2, a3=3}");
    jobject defaults = FERRYJNIStreamInfo_createJavaProperties(global, env, &pairs, &environment);
    jmethodID constructor =
        env->GetMethodID(global->propertiesClass, "<init>", "(Ljava/util/Properties;)V");
    jobject java = env->NewObject(global->propertiesClass, constructor, defaults);
    const int64_t blocks = heapBlocks();
    QEL_FerrionProperties *none =
        FERRYJNIStreamInfo_createNativeProperties(global, env, java, &environment);
    EXPECT_TRUE(none->count == 0 && none->properties == nullptr);
    env->CallObjectMethod(java, global->propertiesSetProperty, env->NewStringUTF("a"),
                          env->NewStringUTF("4"));
    QEL_FerrionProperties *one =
        FERRYJNIStreamInfo_createNativeProperties(global, env, java, &environment);
    EXPECT_TRUE(one->count == 1 && one->properties[0].name[0] == 'a');
    FERRYJNIStreamInfo_freeNativeProperties(none);
    FERRYJNIStreamInfo_freeNativeProperties(one);
    FERRYJNIStreamInfo_freeNativeProperties(nullptr);
    EXPECT_EQ(heapBlocks(), blocks);
    const QEL_FerrionProperties negative = {nullptr, -3};
    java = FERRYJNIStreamInfo_createJavaProperties(global, env, &negative, &environment);
    EXPECT_EQ(env->CallIntMethod(java, global->propertiesSize), 0);
    FERRYJNICommon_deleteGlobalRef(env, nullptr);
    FERRYJNICommon_deleteGlobalRef(env, &(java = nullptr));
}

/// A host that makes records of the support functions and goes on with what it gets.
class RecordHost {
public:
    void execute(const std::string &command)
    {
        std::istringstream stream(command);
        std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
        const std::string &what = words[1];
        const bool isPartition = what == "partition" || what == "finalize";
        if (isPartition && info_ == nullptr) {
            return;
        }
        note(command);
        const void *made = this;
        if (what == "new_discovered") {
            made = info_ = QEL_FerrionStreamInfo_new_discoveredI("A", "T", 0, this);
        } else if (what == "new_disposed") {
            made = gone_ = QEL_FerrionStreamInfo_new_disposedI("A");
        } else if (what == "new_event") {
            made = event_ = QEL_FerrionRouteEvent_newI(&route_);
        } else if (what == "partition") {
            std::vector<char *> pointers;
            for (size_t i = 2; i < words.size(); ++i) {
                pointers.push_back(words[i].data());
            }
            const auto count = static_cast<int32_t>(pointers.size());
            const QEL_FerrionStringSeq source = {pointers.data(), count, count};
            made = QEL_FerrionStringSeq_copy(&info_->partition, &source);
        } else if (what == "finalize") {
            QEL_FerrionStreamInfo_finalize(info_);
            QEL_FerrionStreamInfo_finalize(info_);
        } else {
            QEL_FerrionStreamInfo_deleteI(info_);
            QEL_FerrionStreamInfo_deleteI(gone_);
            QEL_FerrionRouteEvent_deleteI(event_);
        }
        note(std::string("< ") + (made != nullptr ? "record" : "null") +
             (isPartition ? partition() : ""));
    }

private:
    std::string partition() const
    {
        const QEL_FerrionStringSeq &all = info_->partition;
        std::string text = " " + std::to_string(all.length) + " of " + std::to_string(all.maximum);
        for (int32_t i = 0; all.buffer != nullptr && i < all.maximum; ++i) {
            text += std::string(" ") + (all.buffer[i] != nullptr ? all.buffer[i] : "-");
        }
        return text;
    }

    QEL_FerrionRoute route_ = {};
    QEL_FerrionStreamInfo *info_ = nullptr;
    QEL_FerrionStreamInfo *gone_ = nullptr;
    QEL_FerrionRouteEvent *event_ = nullptr;
};

TEST(Sweeps, OfTheCHeapComesOutAsReviewed)
{
    mallopt(M_PERTURB, 0x5A); // fresh memory is never zero
    const std::vector<std::string> scenario = {
        "> new_discovered", "> new_disposed", "> partition a bb", "> partition c longer third",
        "> partition x",    "> partition",    "> new_event",      "> finalize",
        "> delete"};
    RecordHost once;
    for (const std::string &command : scenario) {
        once.execute(command);
    }
    // Copies grow, but never shrink.
    EXPECT_EQ(transcript(), "\n> new_discovered\n< record\n> new_disposed\n< record"
                            "\n> partition a bb\n< record 2 of 2 a bb"
                            "\n> partition c longer third\n< record 3 of 3 c longer third"
                            "\n> partition x\n< record 1 of 3 x longer third"
                            "\n> partition\n< record 0 of 3 x longer third"
                            "\n> new_event\n< record\n> finalize\n< record 0 of 3"
                            "\n> delete\n< record");
    const auto begin = []() -> std::function<void(const std::string &)> {
        return [host = std::make_shared<RecordHost>()](const auto &line) { host->execute(line); };
    };
    sweep("libc", scenario, begin, "libc");
}

} // namespace

// Stand between the support functions and the C library. Visible, since libraries that refer to the
// originals count as referring to these.
#pragma GCC visibility push(default)
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
void __wrap_free(void *block);

void *__wrap_malloc(size_t size)
{
    void *block = fault.arrives("libc", "malloc") ? nullptr : __real_malloc(size);
    libcBlocks += block != nullptr ? 1 : 0;
    return block;
}

void *__wrap_calloc(size_t count, size_t size)
{
    void *block = fault.arrives("libc", "calloc") ? nullptr : __real_calloc(count, size);
    libcBlocks += block != nullptr ? 1 : 0;
    return block;
}

void *__wrap_realloc(void *block, size_t size)
{
    void *grown = fault.arrives("libc", "realloc") ? nullptr : __real_realloc(block, size);
    libcBlocks += grown != nullptr && block == nullptr ? 1 : 0;
    return grown;
}

void __wrap_free(void *block)
{
    libcBlocks -= block != nullptr ? 1 : 0;
    __real_free(block);
}
}
#pragma GCC visibility pop
