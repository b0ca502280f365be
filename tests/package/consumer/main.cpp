// A host of its own: starts the VM with the installed jars through the installed library.
#include <ferryjni/ferryjni.h>
#include <ferryjni/log.h>
#include <qddsc/string.h>

#include <cstdio>
#include <string>

int main()
{
    DDS_StringSeq classPath = {};
    DDS_StringSeq options = {};
    const std::string jars = JAVA_DIR;
    const std::string option =
        "-Djava.class.path=" + jars + "/qdds.jar:" + jars + "/ferrion-adapter.jar";
    DDS_StringSeq_append(&options, option.c_str());
    FERRYJNIGlobal *global =
        FERRYJNIGlobal_new(&classPath, &options, FERRYLOG_BIT_ERROR, FERRYJNI_DESTROY_IF_CREATED);
    DDS_StringSeq_finalize(&options);
    if (global == nullptr) {
        return 1;
    }
    FERRYJNIGlobal_destroy(global);
    std::puts("consumer: the VM was started and ended through the installed package");
    return 0;
}
