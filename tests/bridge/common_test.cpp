// What the library does not export: property lookup and the class path option; property lists with
// defaults; and the support functions without memory.
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <sstream>

#include "JNICommon.h"
#include "ferryjni/route.h"
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

// What is made of entries and CLASSPATH is tested in tests/fuzz.
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
        note(command);
        std::string result;
        if (command == "> new_discovered") {
            result = recordOrNull(info_ = QEL_FerrionStreamInfo_new_discoveredI("A", "T", 0, this));
        } else if (command == "> new_disposed") {
            result = recordOrNull(gone_ = QEL_FerrionStreamInfo_new_disposedI("A"));
        } else if (command == "> new_event") {
            result = recordOrNull(event_ = QEL_FerrionRouteEvent_newI(&route_));
        } else if (command == "> delete") {
            QEL_FerrionStreamInfo_deleteI(info_);
            QEL_FerrionStreamInfo_deleteI(gone_);
            QEL_FerrionRouteEvent_deleteI(event_);
        } else if (info_ != nullptr) {
            result = copyPartition(command);
        } else {
            transcript();
            return;
        }
        note("<" + result);
    }

private:
    static std::string recordOrNull(const void *record)
    {
        return record != nullptr ? " record" : " null";
    }
    std::string copyPartition(const std::string &command)
    {
        std::istringstream stream(command.substr(sizeof("> partition")));
        std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
        std::vector<char *> pointers;
        for (std::string &word : words) {
            pointers.push_back(word.data());
        }
        const auto count = static_cast<int32_t>(words.size());
        const QEL_FerrionStringSeq source = {pointers.data(), count, count};
        QEL_FerrionStringSeq &partition = info_->partition;
        std::string text = recordOrNull(QEL_FerrionStringSeq_copy(&partition, &source));
        text += " " + std::to_string(partition.length) + " of " + std::to_string(partition.maximum);
        for (int32_t i = 0; i < partition.maximum; ++i) {
            text += std::string(" ") + (partition.buffer[i] != nullptr ? partition.buffer[i] : "-");
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
    sweep("libc",
          {"> new_discovered", "> new_disposed", "> partition a bb", "> partition c longer third",
           "> new_event", "> delete"},
          []() -> std::function<void(const std::string &)> {
              return [host = std::make_shared<RecordHost>()](const std::string &command) {
                  host->execute(command);
              };
          });
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
