/* Property lists: configuration as a host hands it to every adapter object. */
#ifndef FERRYJNI_PROPERTIES_H
#define FERRYJNI_PROPERTIES_H

#include <stdint.h>

/** One property. Strings are NUL-terminated modified UTF-8 (as JNI has it: no 4-byte sequences);
 * either may be null, which Java sees as "". */
typedef struct QEL_FerrionNameValue {
    char *name;
    char *value;
} QEL_FerrionNameValue;

/** A list of properties; where a name occurs twice, Java sees the later one. */
typedef struct QEL_FerrionProperties {
    /** `count` pairs; null when there are none. */
    QEL_FerrionNameValue *properties;
    /** 0 or less means none. */
    int32_t count;
} QEL_FerrionProperties;

/** Read by the bridge itself from a reader's or writer's properties: native samples (reader) or
 * Java samples (writer) made at creation. Decimal, above 0; 128 for a reader, at most 32 for a
 * writer when absent. */
#define FERRYJNI_PROPERTY_INITIAL_SAMPLES "qel.ferrion.jni.initial_samples"

/** Read by the bridge itself from a writer's properties: the most samples handed to Java in one
 * call. Decimal, above 0; 1024 when absent. */
#define FERRYJNI_PROPERTY_MAX_SAMPLES_PER_WRITE "qel.ferrion.jni.max_samples_per_write"

#endif
