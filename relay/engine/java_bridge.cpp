#include "engine/java_bridge.h"

#include <dlfcn.h>

namespace ferry {

std::string JavaBridge::load(const std::filesystem::path &library)
{
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    bool complete = handle != nullptr;
    const auto find = [&](auto &function, const char *name) {
        void *const symbol = complete ? dlsym(handle, name) : nullptr;
        function = reinterpret_cast<std::decay_t<decltype(function)>>(symbol);
        complete = symbol != nullptr;
    };
    find(newGlobal, "FERRYJNIGlobal_new");
    find(destroy, "FERRYJNIGlobal_destroy");
    find(attachCurrentThread, "FERRYJNIGlobal_attachCurrentThread");
    find(detachCurrentThread, "FERRYJNIGlobal_detachCurrentThread");
    find(createAdapter, "FERRYJNIAdapter_create");
    if (complete) {
        return "";
    }
    const char *const reason = dlerror();
    return reason == nullptr ? "unknown reason" : reason;
}

} // namespace ferry
