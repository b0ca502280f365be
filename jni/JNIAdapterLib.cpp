// The exported entry point of the plug-in.
#include "JNIAdapter.h"

QEL_FerrionAdapterPlugin *FERRYJNIAdapter_create(const QEL_FerrionProperties *properties,
                                                 QEL_FerrionEnvironment *environment) noexcept
{
    FERRYJNIAdapter *adapter = FERRYJNIAdapter_new(properties, environment);
    return adapter != nullptr ? &adapter->plugin : nullptr;
}
