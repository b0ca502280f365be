// What the bridge is measured against: the Java calls that a read, a return and a write cannot do
// without, in the bridge's order, written by hand for one adapter. It checks for exceptions as JNI
// demands, but can report them to nobody: it gives up.
#ifndef BENCH_BRIDGE_REFERENCE_H
#define BENCH_BRIDGE_REFERENCE_H

#include "JNIGlobal.h"
#include "JNIStreamReader.h"
#include "JNIStreamWriter.h"

namespace bench {

/// Reads a batch into the native samples of `reader` and gives it back to Java. Uses the record's
/// Java objects and arrays, which must be large enough. Returns the number of samples.
int32_t readAndReturn(const FERRYJNIGlobal *global, FERRYJNIStreamReader *reader);

/// Writes a batch that fits into one Java call; returns what Java says that it wrote.
int32_t write(const FERRYJNIGlobal *global, FERRYJNIStreamWriter *writer, void *const *samples,
              DDS_SampleInfo *const *infos, int32_t count);

} // namespace bench

#endif
