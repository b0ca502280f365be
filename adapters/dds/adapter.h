// The plug-in's entry points.
#ifndef FERRYADAPTER_DDS_ADAPTER_H
#define FERRYADAPTER_DDS_ADAPTER_H

#include "ferryjni/delivery.h"
#include "ferryjni/export.h"
#include "ferryjni/plugin.h"
#include "ferryjni/settings.h"

FERRYJNI_BEGIN

/* The entry point and its optional functions, see ferryjni/plugin.h. */

/** Makes the DDS adapter; it has no properties of its own. Null with an error on failure. */
FERRYJNI_API QEL_FerrionAdapterPlugin *
FerryAdapter_dds_create(const QEL_FerrionProperties *properties,
                        QEL_FerrionEnvironment *environment) FERRYJNI_NOEXCEPT;

FERRYJNI_API const FERRY_SettingTable *FerryAdapter_dds_create_settings(void) FERRYJNI_NOEXCEPT;

FERRYJNI_API uint32_t FerryAdapter_dds_create_delivery(
    uint32_t role, const QEL_FerrionProperties *properties) FERRYJNI_NOEXCEPT;

FERRYJNI_API void FerryAdapter_dds_create_stop_by(QEL_FerrionAdapterPlugin *plugin,
                                                  int64_t deadline) FERRYJNI_NOEXCEPT;

/** What an announced stream's endpoints run with, see QEL_FerrionAdapterPlugin_StreamPropertiesFn.
 */
FERRYJNI_API const QEL_FerrionProperties *
FerryAdapter_dds_create_stream_properties(QEL_FerrionStreamReader *reader,
                                          const QEL_FerrionStreamInfo *lent) FERRYJNI_NOEXCEPT;

FERRYJNI_END

#endif
