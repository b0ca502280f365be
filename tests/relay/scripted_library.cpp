// The scripted plug-in in the shape that users give theirs: a shared library with an entry point.
#include "scripted_plugin.h"

extern "C" QEL_FerrionAdapterPlugin *scripted_create(const QEL_FerrionProperties *,
                                                     QEL_FerrionEnvironment *);

extern "C" const QEL_FerrionProperties *
scripted_create_stream_properties(QEL_FerrionStreamReader *, const QEL_FerrionStreamInfo *);

extern "C" [[gnu::visibility("default")]] QEL_FerrionAdapterPlugin *
scripted_create(const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment)
{
    return scripted::createAdapter(properties, environment);
}

extern "C" void scripted_create_stop_by(QEL_FerrionAdapterPlugin *, int64_t);

extern "C" [[gnu::visibility("default")]] void
scripted_create_stop_by(QEL_FerrionAdapterPlugin *plugin, int64_t deadline)
{
    scripted::stopBy(plugin, deadline);
}

extern "C" [[gnu::visibility("default")]] const QEL_FerrionProperties *
scripted_create_stream_properties(QEL_FerrionStreamReader *reader,
                                  const QEL_FerrionStreamInfo *lent)
{
    return scripted::streamProperties(reader, lent);
}
