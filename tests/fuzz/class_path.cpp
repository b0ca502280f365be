// The class path option. A line of the input that begins with '=' is the variable CLASSPATH, any
// other an entry.
#include "../bridge/harness.h"
#include "JNICommon.h"
#include "target.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    bridge::listen();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(data, data + size);
    std::replace(text.begin(), text.end(), '\0', '0');
    const int64_t blocks = bridge::heapBlocks();
    {
        bridge::StringList entries = {};
        std::string path;
        std::string variable;
        for (const std::string &line : split(text, '\n')) {
            if (line[0] == '=') {
                variable = line.substr(1);
            } else {
                path += (entries.length > 0 ? ":" : "") + line;
                DDS_StringSeq_append(&entries, line.c_str());
            }
        }
        setenv("CLASSPATH", variable.c_str(), 1);
        // A list of one entry loses it; one of up to two comes behind the variable.
        path = (entries.length < 3 ? variable + ":" : "") + (entries.length > 1 ? path : "");
        char *option = FERRYJNICommon_generateClassPathProperty(&entries);
        REQUIRE(entries.length > 0 ? option == "-Djava.class.path=" + path : option == nullptr);
        DDS_String_free(option);
    }
    REQUIRE(bridge::heapBlocks() == blocks && bridge::transcript().size() < 100);
    return 0;
}
