// The bridge's library, loaded only when a configuration has Java adapters: it needs a Java VM's
// library, which a machine without Java does not have.
#ifndef FERRY_PROCESS_JAVA_BRIDGE_H
#define FERRY_PROCESS_JAVA_BRIDGE_H

#include <filesystem>
#include <string>
#include <vector>

#include "ferryjni/ferryjni.h"
#include "ferryjni/log.h"

namespace ferry {

/// The functions that the relay calls, under their own names without prefix.
struct JavaBridge {
    decltype(&FERRYJNIGlobal_new) newGlobal = nullptr;
    decltype(&FERRYJNIGlobal_destroy) destroy = nullptr;
    decltype(&FERRYJNIGlobal_getEnv) getEnv = nullptr;
    decltype(&FERRYJNIGlobal_attachCurrentThread) attachCurrentThread = nullptr;
    decltype(&FERRYJNIGlobal_detachCurrentThread) detachCurrentThread = nullptr;
    decltype(&FERRYJNIAdapter_create) createAdapter = nullptr;
    decltype(&FERRYLog_setBitmaps) setBitmaps = nullptr;
    /// The VM's own, of the library that the bridge needs.
    decltype(&JNI_CreateJavaVM) createVm = nullptr;

    /// Loads the library, which stays loaded; a Java VM's library has to be in the process. Returns
    /// the loader's reason on failure, else "".
    std::string load(const std::filesystem::path &library);

    /// Starts a VM, whose messages go into the log, on the calling thread, and has the bridge adopt
    /// it: the bridge itself could not start one with a hook for its messages. Null after logging
    /// why.
    FERRYJNIGlobal *start(const std::vector<std::string> &options, std::uint32_t logMask) const;

    /// Has the static method `byte[] answer(byte[])` of a class of the relay's own jar answer. The
    /// calling thread is attached. When that fails the answer says so, and the log has Java's own
    /// text.
    std::string ask(const FERRYJNIGlobal *global, const char *className,
                    const std::string &question) const;
};

} // namespace ferry

#endif
