// What the library does not export: property lookup, per-sample arrays, the class path option,
// global references; and property lists coming back from Java.
#include <gtest/gtest.h>

#include "JNICommon.h"
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

TEST(Common, TheClassPathOptionIsMadeOfEntriesAndEnvironment)
{
    listen();
    FERRYLog_setBitmaps(0xFFFFF, 0x3);
    const StringList none = {};
    const StringList one = {"a.jar"};
    const StringList two = {"a.jar", "b.jar"};
    const StringList three = {"a", "b", "c"};
    const struct {
        const DDS_StringSeq *entries;
        const char *environment;
        const char *option;
    } cases[] = {
        {&one, nullptr, "-Djava.class.path="},
        {&one, "/x", "-Djava.class.path=/x:"},
        {&two, nullptr, "-Djava.class.path=a.jar:b.jar"},
        {&two, "/x", "-Djava.class.path=/x:a.jar:b.jar"},
        {&three, "/x", "-Djava.class.path=a:b:c"},
        {&two, "", "-Djava.class.path=:a.jar:b.jar"},
    };
    for (const auto &[entries, environment, option] : cases) {
        environment != nullptr ? setenv("CLASSPATH", environment, 1) : unsetenv("CLASSPATH");
        char *made = FERRYJNICommon_generateClassPathProperty(entries);
        EXPECT_STREQ(made, option);
        DDS_String_free(made);
    }
    EXPECT_EQ(transcript(), "");
    EXPECT_EQ(FERRYJNICommon_generateClassPathProperty(&none), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNICommon_generateClassPathProperty:No class path defined");
    heap.fail("char", 1);
    EXPECT_EQ(FERRYJNICommon_generateClassPathProperty(&three), nullptr);
    EXPECT_EQ(transcript(), "\nFERRYJNICommon_generateClassPathProperty:!create class path string");
}

/// Grows and fails to grow one kind of array.
template<class Element, class Resize>
void checkArray(Resize resize, const std::string &context, const std::string &elementType,
                const char *text)
{
    SCOPED_TRACE(context);
    listen();
    const int64_t blocks = heapBlocks();
    Element **four = resize(nullptr, 0, 4);
    const std::vector<Element *> kept(four, four + 4);
    const int64_t blocksEach = (heapBlocks() - blocks - 1) / 4;
    Element **eight = resize(four, 4, 8);
    EXPECT_EQ(std::vector<Element *>(eight, eight + 4), kept);
    const std::set<Element *> different(eight, eight + 8);
    EXPECT_TRUE(different.size() == 8 && different.count(nullptr) == 0);
    EXPECT_EQ(heapBlocks(), blocks + 1 + 8 * blocksEach);
    heap.fail(elementType + " *", 1);
    EXPECT_EQ(resize(eight, 8, 9), nullptr);
    EXPECT_EQ(transcript(), "\n" + context + ":!allocate array of 9 elements of 8 bytes");
    heap.fail(elementType, 2);
    EXPECT_EQ(resize(eight, 8, 10), nullptr);
    EXPECT_EQ(transcript(), "\n" + context + ":!create " + text);
    // Abandoned: the new array and the one element made.
    EXPECT_EQ(heapBlocks(), blocks + 2 + 9 * blocksEach);
}

TEST(Common, ArraysKeepTheirElementsAndStandWhenTheyCannotGrow)
{
    checkArray<QEL_FerrionStreamInfo>(FERRYJNICommon_resizeStreamInfoArray,
                                      "FERRYJNICommon_resizeStreamInfoArray",
                                      "struct QEL_FerrionStreamInfo", "sample info");
    checkArray<DDS_SampleInfo>(FERRYJNICommon_resizeSampleInfoArray,
                               "FERRYJNICommon_resizeSampleInfoArray", "struct DDS_SampleInfo",
                               "sample info");
    const auto resizeData = [](DDS_DynamicData **old, int32_t from, int32_t to) {
        return FERRYJNICommon_resizeDynamicDataArray(old, from, to, sampleType());
    };
    checkArray<DDS_DynamicData>(resizeData, "FERRYJNICommon_resizeDynamicDataArray",
                                "struct DDS_DynamicData", "dynamic data sample");
}

TEST(Common, GlobalReferencesReplaceLocalOnesAndAreDeletedOnce)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    const size_t references = jni.globals.size();
    jobject slot = env->NewStringUTF("text");
    jobject reference = FERRYJNICommon_newGlobalRefReplacingLocalRef(env, &slot);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(jni.globals.size(), references + 1);
    FERRYJNICommon_deleteGlobalRef(env, &reference);
    EXPECT_EQ(reference, nullptr);
    FERRYJNICommon_deleteGlobalRef(env, &reference);
    FERRYJNICommon_deleteGlobalRef(env, nullptr);
    EXPECT_EQ(jni.globals.size(), references);
}

/// Converts a java.util.Properties to a native list and tells what came of it.
std::string nativeProperties(FERRYJNIGlobal *global, jobject java)
{
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    QEL_FerrionEnvironment environment = {};
    const int64_t blocks = heapBlocks();
    QEL_FerrionProperties *made =
        FERRYJNIStreamInfo_createNativeProperties(global, env, java, &environment);
    std::string text = made == nullptr ? "null" : std::to_string(made->count);
    for (int32_t i = 0; made != nullptr && i < made->count; ++i) {
        const auto orNull = [](const char *string) { return string != nullptr ? string : "null"; };
        text += std::string(" ") + orNull(made->properties[i].name) + "=" +
                orNull(made->properties[i].value);
    }
    text += made != nullptr && made->count == 0 && made->properties != nullptr ? " AN ARRAY" : "";
    text += environment.errorFlag != 0 ? std::string(" !") + environment.message : "";
    FERRYJNIStreamInfo_freeNativeProperties(made);
    text += env->ExceptionCheck() != JNI_FALSE || jni.frames != 0 || jni.charsHeld != 0 ? " PENDING"
                                                                                        : "";
    return text + (heapBlocks() != blocks ? " BLOCKS LEFT" : "");
}

jobject javaProperties(FERRYJNIGlobal *global, const char *list)
{
    QEL_FerrionEnvironment environment = {};
    const Properties pairs(list);
    return FERRYJNIStreamInfo_createJavaProperties(global, FERRYJNIGlobal_getEnv(global), &pairs,
                                                   &environment);
}

TEST(Common, NamesThatComeFromDefaultsOnlyDoNotRunPastTheArray)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    jmethodID constructor =
        env->GetMethodID(global->propertiesClass, "<init>", "(Ljava/util/Properties;)V");
    jobject defaults = javaProperties(global, "{a=1, a2=2, a3=3}");
    jobject java = env->NewObject(global->propertiesClass, constructor, defaults);
    EXPECT_EQ(nativeProperties(global, java), "0");
    env->CallObjectMethod(java, global->propertiesSetProperty, env->NewStringUTF("a"),
                          env->NewStringUTF("4"));
    EXPECT_EQ(nativeProperties(global, java).substr(0, 3), "1 a");
    EXPECT_EQ(nativeProperties(global, java).find("LEFT"), std::string::npos);
    QEL_FerrionEnvironment environment = {};
    const QEL_FerrionProperties negative = {nullptr, -3};
    java = FERRYJNIStreamInfo_createJavaProperties(global, env, &negative, &environment);
    EXPECT_EQ(env->CallIntMethod(java, global->propertiesSize), 0);
}

TEST(Common, PropertiesFromJavaAreCopiedAsFarAsTheyCanBeHad)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    const struct {
        const char *list;
        const char *fault;
        const char *outcome;
    } cases[] = {
        {"{}", "heap 0 none", "0"},
        {"{a=1, b=2}", "heap 0 none", "2 b=2 a=1"},
        {"{a=~}", "heap 0 none", "1 a="},
        {"{a=1, b=2}", "heap 1 struct QEL_FerrionProperties",
         "null !error creating JNI connection"},
        {"{a=1, b=2}", "heap 1 struct QEL_FerrionNameValue", "0 !get type code object"},
        {"{a=1, b=2}", "jni CallIntMethodV 1 throws", "0 !get type code object"},
        {"{a=1, b=2}", "jni CallObjectMethodV 1 throws",
         "2 null=null null=null !get type code object"},
        {"{a=1, b=2}", "jni CallObjectMethodV 1 returns", "2 null=null null=null"},
        {"{a=1, b=2}", "jni CallBooleanMethodV 2 throws", "2 b=2 null=null !get type code object"},
        {"{a=1, b=2}", "jni CallObjectMethodV 2 throws", "2 b=2 a=1 !get type code object"},
        {"{a=1, b=2}", "jni CallObjectMethodV 3 throws", "2 b=null a=1 !get type code object"},
        {"{a=1, b=2}", "jni CallObjectMethodV 3 returns", "2 b=null a=1"},
        {"{a=1, b=2}", "jni GetStringUTFChars 1 returns",
         "2 null=2 a=1 !create sample info native to java"},
        {"{a=1, b=2}", "jni GetStringUTFChars 2 returns",
         "2 b=null a=1 !create sample info native to java"},
        {"{a=1, b=2}", "heap 1 char", "2 null=2 a=1"},
    };
    Host host(global);
    for (const auto &[list, fault, outcome] : cases) {
        jobject java = javaProperties(global, list);
        host.execute(std::string("! ") + fault);
        EXPECT_EQ(nativeProperties(global, java), outcome) << fault;
    }
    FERRYJNIStreamInfo_freeNativeProperties(nullptr);
}

} // namespace
