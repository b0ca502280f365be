// Property lists to Java and back. The input: names and values in turn, each ended by a NUL; "~"
// stands for null.
#include <map>

#include "../bridge/harness.h"
#include "config/text.h"
#include "target.h"

namespace {

using Texts = std::vector<std::string>;

FERRYJNIGlobal *global = nullptr;
JNIEnv *env = nullptr;

/// The list that comes back, which is what Java makes of this one: a later pair of a name takes the
/// place of an earlier one, and null is "".
Texts trip(Texts texts)
{
    std::vector<QEL_FerrionNameValue> pairs;
    std::map<std::string, std::string> expected;
    std::map<std::string, std::string> found;
    // Of bytes that are no UTF-8 the VM may make names that only look the same.
    bool isPlain = true;
    const auto at = [&](size_t i) { return texts[i] != "~" ? texts[i].data() : nullptr; };
    const auto textAt = [&](size_t i) { return at(i) != nullptr ? texts[i] : ""; };
    for (size_t i = 0; i + 1 < texts.size(); i += 2) {
        pairs.push_back({at(i), at(i + 1)});
        expected[textAt(i)] = textAt(i + 1);
        isPlain = isPlain && ferry::rejectionForJava(texts[i] + " " + texts[i + 1]).empty();
    }
    QEL_FerrionEnvironment environment = {};
    const QEL_FerrionProperties list = {pairs.data(), static_cast<int32_t>(pairs.size())};
    jobject java = FERRYJNIStreamInfo_createJavaProperties(global, env, &list, &environment);
    QEL_FerrionProperties *made =
        FERRYJNIStreamInfo_createNativeProperties(global, env, java, &environment);
    REQUIRE(environment.errorFlag == 0);
    env->DeleteLocalRef(java);
    Texts back;
    for (int32_t i = 0; i < made->count; ++i) {
        const QEL_FerrionNameValue &pair = made->properties[i];
        REQUIRE(pair.name != nullptr && pair.value != nullptr);
        REQUIRE(found.emplace(pair.name, pair.value).second || !isPlain);
        back.insert(back.end(), {pair.name, pair.value});
    }
    FERRYJNIStreamInfo_freeNativeProperties(made);
    REQUIRE(!isPlain || found == expected);
    return back;
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    global = bridge::startVm();
    REQUIRE(global != nullptr);
    env = FERRYJNIGlobal_getEnv(global);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const int64_t blocks = bridge::heapBlocks();
    const size_t references = bridge::jni.globals.size();
    // What Java has given out it takes back unchanged, whatever it once made of it.
    const Texts back = trip(split(std::string(data, data + size), '\0'));
    REQUIRE(trip(back).size() <= back.size());
    bridge::jni.inspect();
    REQUIRE(bridge::heapBlocks() == blocks && bridge::transcript().empty());
    REQUIRE(bridge::jni.globals.size() == references);
    return 0;
}
