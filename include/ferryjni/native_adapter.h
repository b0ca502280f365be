/* All that a native adapter needs: the plug-in interface and its support functions. Link
 * `ferryjni::plugin` (CMake) or `ferryjni-plugin` (pkg-config): a small static library that brings
 * no Java VM. examples/native-adapter is a whole adapter.
 *
 * Entry point. The library exports one function with C linkage, a
 * QEL_FerrionAdapterPlugin_CreateFn, that returns the plug-in's record: magic number, interface
 * version, its own version, operations.
 *
 * Slots. 0 to 4 are compulsory: `ferry` rejects a plug-in without one of them. A plug-in with
 * readers has 5, 17 and 18, also if only its discovery readers are read; one with writers has 7 and
 * 20. If another slot is null, the plug-in does not have the operation: a reader or writer without
 * a delete slot is dropped, a connection without a discovery getter announces nothing, an object
 * without an update slot keeps its properties. Reserved slots stay null.
 *
 * Ownership. The host owns what it creates until it deletes it through the same table, in reverse
 * order: readers and writers, sessions, connections, the plug-in. Nothing that is passed to a call
 * may be kept, but for type representations, which live as long as the process, and for the two
 * words of a listener, which are copied. Discovery readers belong to their connection.
 *
 * Loans. What `read` lends belongs to the reader. It stays unchanged until `return_loan`, which
 * follows every read, also an empty or failed one, before the next. `ferry` returns a loan after
 * its outputs took the samples, so a source may take the return as the acknowledgement. It deletes
 * a reader with the loan still out if they could not be delivered. A sample is a
 * `DDS_DynamicData *` of the stream's type; for a discovery reader it is a
 * `QEL_FerrionStreamInfo *`.
 *
 * Deliveries. The library may export a FERRY_DeliveryFn that says whether a reader lends again what
 * was not returned, and how the count of a write that fails or counts short is to be read.
 *
 * Threads. `ferry` has one control thread, which creates, deletes and reads discovery readers, and
 * one thread for each session, which reads, returns loans and writes. No reader or writer is called
 * by two threads at once. A connection may be: its readers are read while the control thread
 * creates another one. A plug-in may have threads of its own. All that they may do with the host is
 * to signal a listener, which neither blocks nor calls back. The library stays loaded until the
 * process ends.
 *
 * Errors. A call fails by recording an error in its environment, whatever it returns: the first one
 * stays. The environment is plain data, so that a plug-in, the bridge and the host may each write
 * it with a copy of these functions. No C++ exception may leave a slot. A constructor may return an
 * incomplete object and an error: the host deletes such a connection and drops any other object. */
#ifndef FERRYJNI_NATIVE_ADAPTER_H
#define FERRYJNI_NATIVE_ADAPTER_H

#include "ferryjni/delivery.h"
#include "ferryjni/environment.h"
#include "ferryjni/plugin.h"
#include "ferryjni/properties.h"
#include "ferryjni/stream_info.h"

#endif
