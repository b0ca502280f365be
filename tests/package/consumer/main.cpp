// A host of its own: starts the VM with the installed jars through the installed library.
#include <ferryjni/ferryjni.h>
#include <ferryjni/log.h>
#include <qddsc/string.h>

#include <cstdio>

int main()
{
    DDS_StringSeq classPath = {};
    DDS_StringSeq options = {};
    DDS_StringSeq_append(&options, "-Djava.class.path=" JAVA_DIR "/qdds.jar:" JAVA_DIR
                                   "/ferrion-adapter.jar");
    FERRYJNIGlobal *global = FERRYJNIGlobal_new(&classPath, &options, FERRYLOG_BIT_ERROR,
                                                FERRYJNI_DESTROY_IF_CREATED);
    DDS_StringSeq_finalize(&options);
    if (global == nullptr) {
        return 1;
    }
    FERRYJNIGlobal_destroy(global);
    std::puts("consumer: the VM was started and ended through the installed package");
    return 0;
}
