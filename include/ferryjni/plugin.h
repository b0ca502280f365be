/* The adapter plug-in interface: the record and operation table that a plug-in hands its host.
 *
 * Environments are passed last and are never null. native_adapter.h says in one place what an
 * author of a plug-in has to know: slots, ownership, threads, loans and errors. */
#ifndef FERRYJNI_PLUGIN_H
#define FERRYJNI_PLUGIN_H

#include <stdint.h>

#include "ferryjni/environment.h"
#include "ferryjni/properties.h"
#include "ferryjni/stream_info.h"

/* Objects of a plug-in, opaque to the host. C++ sees them as empty bases, so that a plug-in written
 * in C++ derives its records from them and needs no cast that the compiler cannot check. */
#ifdef __cplusplus
struct QEL_FerrionConnection {};
struct QEL_FerrionSession {};
struct QEL_FerrionStreamReader {};
struct QEL_FerrionStreamWriter {};
#else
typedef struct QEL_FerrionConnection QEL_FerrionConnection;
typedef struct QEL_FerrionSession QEL_FerrionSession;
typedef struct QEL_FerrionStreamReader QEL_FerrionStreamReader;
typedef struct QEL_FerrionStreamWriter QEL_FerrionStreamWriter;
#endif

FERRYJNI_BEGIN

struct DDS_SampleInfo;

struct QEL_FerrionAdapterPlugin;

/** Called when a reader has data: with the reader as its create call returned it (or will return
 * it: the signal may come before), and the listener's data. Runs on any thread of the plug-in; it
 * must not call back into the reader and must not block. */
typedef void (*QEL_FerrionOnDataAvailableFn)(QEL_FerrionStreamReader *reader, void *listenerData);

/** Two words, copied when a reader or connection is created. */
typedef struct QEL_FerrionStreamReaderListener {
    void *listenerData;
    QEL_FerrionOnDataAvailableFn onDataAvailable;
} QEL_FerrionStreamReaderListener;

/** Deletes the plug-in record. Every connection must have been deleted before. Nonzero is success.
 */
typedef int32_t (*QEL_FerrionAdapter_DeleteFn)(struct QEL_FerrionAdapterPlugin *adapter,
                                               QEL_FerrionEnvironment *environment);

/** Creates a connection. The two names are the plug-in's to interpret and may be null. The
 * listeners are those of the discovery readers, the subscription side (output streams) first.
 * Properties may be null; nothing passed is kept. The two reserved words are not looked at. */
typedef QEL_FerrionConnection *(*QEL_FerrionAdapter_CreateConnectionFn)(
    struct QEL_FerrionAdapterPlugin *adapter, const char *firstName, const char *secondName,
    const QEL_FerrionStreamReaderListener *subscriptionListener,
    const QEL_FerrionStreamReaderListener *publicationListener, void *reserved1, void *reserved2,
    const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment);

/** Deletes a connection, also an incomplete one, with its discovery readers. */
typedef void (*QEL_FerrionAdapter_DeleteConnectionFn)(struct QEL_FerrionAdapterPlugin *adapter,
                                                      QEL_FerrionConnection *connection,
                                                      QEL_FerrionEnvironment *environment);

typedef QEL_FerrionSession *(*QEL_FerrionConnection_CreateSessionFn)(
    QEL_FerrionConnection *connection, const QEL_FerrionProperties *properties,
    QEL_FerrionEnvironment *environment);

typedef void (*QEL_FerrionConnection_DeleteSessionFn)(QEL_FerrionConnection *connection,
                                                      QEL_FerrionSession *session,
                                                      QEL_FerrionEnvironment *environment);

/** Creates a reader of the stream `streamInfo`. Its type representation must outlive the reader;
 * nothing else passed is kept. */
typedef QEL_FerrionStreamReader *(*QEL_FerrionConnection_CreateStreamReaderFn)(
    QEL_FerrionConnection *connection, QEL_FerrionSession *session,
    const QEL_FerrionStreamInfo *streamInfo, const QEL_FerrionProperties *properties,
    const QEL_FerrionStreamReaderListener *listener, QEL_FerrionEnvironment *environment);

typedef void (*QEL_FerrionConnection_DeleteStreamReaderFn)(QEL_FerrionConnection *connection,
                                                           QEL_FerrionStreamReader *reader,
                                                           QEL_FerrionEnvironment *environment);

typedef QEL_FerrionStreamWriter *(*QEL_FerrionConnection_CreateStreamWriterFn)(
    QEL_FerrionConnection *connection, QEL_FerrionSession *session,
    const QEL_FerrionStreamInfo *streamInfo, const QEL_FerrionProperties *properties,
    QEL_FerrionEnvironment *environment);

typedef void (*QEL_FerrionConnection_DeleteStreamWriterFn)(QEL_FerrionConnection *connection,
                                                           QEL_FerrionStreamWriter *writer,
                                                           QEL_FerrionEnvironment *environment);

/** A discovery reader of the connection, whose samples are `QEL_FerrionStreamInfo`; null when the
 * connection has none, which is no error. The connection keeps owning it. Streams of one name in
 * different partitions are different streams. A record that says that a stream has gone names its
 * partitions; without any it stands for all streams of its name. */
typedef QEL_FerrionStreamReader *(*QEL_FerrionConnection_GetDiscoveryReaderFn)(
    QEL_FerrionConnection *connection, QEL_FerrionEnvironment *environment);

/** A text for people; owned by the connection, the same pointer each time, may be null. */
typedef const char *(*QEL_FerrionConnection_ToStringFn)(QEL_FerrionConnection *connection);

typedef void (*QEL_FerrionConnection_UpdateFn)(QEL_FerrionConnection *connection,
                                               const QEL_FerrionProperties *properties,
                                               QEL_FerrionEnvironment *environment);

typedef void (*QEL_FerrionSession_UpdateFn)(QEL_FerrionSession *session,
                                            const QEL_FerrionProperties *properties,
                                            QEL_FerrionEnvironment *environment);

/**
 * Reads what is there, without waiting. The host may read the two arrays until it returns the loan,
 * which it must do before it reads again, also after an empty or failed read.
 *
 * @param samples receives `DDS_DynamicData *` (a discovery reader: `QEL_FerrionStreamInfo *`); an
 *                element is null where a sample could not be had. Null when there are none.
 * @param infos   receives the samples' information, or null when the adapter gave none.
 * @param count   receives the number of elements. After some failures the three are left untouched,
 *                so clear them before the call.
 */
typedef void (*QEL_FerrionStreamReader_ReadFn)(QEL_FerrionStreamReader *reader, void ***samples,
                                               struct DDS_SampleInfo ***infos, int32_t *count,
                                               QEL_FerrionEnvironment *environment);

/** Gives back what the last read lent. */
typedef void (*QEL_FerrionStreamReader_ReturnLoanFn)(QEL_FerrionStreamReader *reader,
                                                     void **samples, struct DDS_SampleInfo **infos,
                                                     int32_t count,
                                                     QEL_FerrionEnvironment *environment);

/** Nonzero on success. */
typedef int32_t (*QEL_FerrionStreamReader_UpdateFn)(QEL_FerrionStreamReader *reader,
                                                    const QEL_FerrionProperties *properties,
                                                    QEL_FerrionEnvironment *environment);

/** Writes `count` samples; `infos` may be null, and so may any element. Returns how many the
 * adapter says that it wrote. Nothing passed is kept. */
typedef int32_t (*QEL_FerrionStreamWriter_WriteFn)(QEL_FerrionStreamWriter *writer,
                                                   void *const *samples,
                                                   struct DDS_SampleInfo *const *infos,
                                                   int32_t count,
                                                   QEL_FerrionEnvironment *environment);

/** Nonzero on success. */
typedef int32_t (*QEL_FerrionStreamWriter_UpdateFn)(QEL_FerrionStreamWriter *writer,
                                                    const QEL_FerrionProperties *properties,
                                                    QEL_FerrionEnvironment *environment);

/** A slot that no plug-in of this interface version fills. */
typedef void (*QEL_FerrionReservedFn)(void);

/** The 23 operations, by slot number; native_adapter.h says which of them are compulsory. */
typedef struct QEL_FerrionAdapterOperations {
    /* 0 */ QEL_FerrionAdapter_DeleteFn delete_adapter;
    /* 1 */ QEL_FerrionAdapter_CreateConnectionFn create_connection;
    /* 2 */ QEL_FerrionAdapter_DeleteConnectionFn delete_connection;
    /* 3 */ QEL_FerrionConnection_CreateSessionFn create_session;
    /* 4 */ QEL_FerrionConnection_DeleteSessionFn delete_session;
    /* 5 */ QEL_FerrionConnection_CreateStreamReaderFn create_stream_reader;
    /* 6 */ QEL_FerrionConnection_DeleteStreamReaderFn delete_stream_reader;
    /* 7 */ QEL_FerrionConnection_CreateStreamWriterFn create_stream_writer;
    /* 8 */ QEL_FerrionConnection_DeleteStreamWriterFn delete_stream_writer;
    /* 9 */ QEL_FerrionConnection_GetDiscoveryReaderFn get_pub_discovery_reader;
    /* 10 */ QEL_FerrionConnection_GetDiscoveryReaderFn get_sub_discovery_reader;
    /* 11 */ QEL_FerrionReservedFn reserved11;
    /* 12 */ QEL_FerrionReservedFn reserved12;
    /* 13 */ QEL_FerrionConnection_ToStringFn connection_to_string;
    /* 14 */ QEL_FerrionConnection_UpdateFn connection_update;
    /* 15 */ QEL_FerrionReservedFn reserved15;
    /* 16 */ QEL_FerrionSession_UpdateFn session_update;
    /* 17 */ QEL_FerrionStreamReader_ReadFn read;
    /* 18 */ QEL_FerrionStreamReader_ReturnLoanFn return_loan;
    /* 19 */ QEL_FerrionStreamReader_UpdateFn stream_reader_update;
    /* 20 */ QEL_FerrionStreamWriter_WriteFn write;
    /* 21 */ QEL_FerrionStreamWriter_UpdateFn stream_writer_update;
    /* 22 */ QEL_FerrionReservedFn reserved22;
} QEL_FerrionAdapterOperations;

/** Four numbers of a plug-in's version. */
typedef struct QEL_FerrionPluginVersion {
    int32_t major;
    int32_t minor;
    int32_t release;
    int32_t revision;
} QEL_FerrionPluginVersion;

/** Magic number of a valid plug-in record. */
#define QEL_FERRION_PLUGIN_MAGIC 7654321

/** Version of this interface, an initializer of a QEL_FerrionPluginVersion. */
#define QEL_FERRION_PLUGIN_API_VERSION                                                             \
    {                                                                                              \
        5, 3, 0, 0                                                                                 \
    }

/** What a plug-in's entry point returns; a plug-in's own state follows it. */
typedef struct QEL_FerrionAdapterPlugin {
    /** QEL_FERRION_PLUGIN_MAGIC. */
    int32_t magic;
    /** QEL_FERRION_PLUGIN_API_VERSION. */
    QEL_FerrionPluginVersion apiVersion;
    /** The adapter's own version. */
    QEL_FerrionPluginVersion adapterVersion;
    QEL_FerrionAdapterOperations operations;
} QEL_FerrionAdapterPlugin;

/** A plug-in's entry point; `properties` may be null. Null is failure. */
typedef QEL_FerrionAdapterPlugin *(*QEL_FerrionAdapterPlugin_CreateFn)(
    const QEL_FerrionProperties *properties, QEL_FerrionEnvironment *environment);

/* Optional functions of a native plug-in. Beside its entry point E its library may export them as
 * E_<name>, with C linkage. The host looks them up by name; it does without those that are missing.
 * ferryjni/settings.h has one more, E_settings, and ferryjni/delivery.h another, E_delivery. */

/**
 * E_stop_by: the host has been asked to stop. From now on every call that waits returns by the
 * deadline, those that wait already too: writes that wait for readers or for room, deletions that
 * linger. Such a call reports what it could not do. Calls that do not wait go on as before.
 *
 * The host may call this function from any thread, at any time between the creation and the
 * deletion of the plug-in, beside any other call. The function returns at once.
 *
 * @param plugin   what E returned.
 * @param deadline nanoseconds of CLOCK_MONOTONIC. The host may call again; the earliest deadline
 *                 holds.
 */
typedef void (*QEL_FerrionAdapterPlugin_StopByFn)(QEL_FerrionAdapterPlugin *plugin,
                                                  int64_t deadline);

/**
 * E_stream_properties: what the endpoints of an announced stream run with, as properties that the
 * plug-in names. The host hands them to the reader and the writers of a route that it makes for the
 * stream, in their property lists, as "qel.ferrion.announced.NAME"; there
 * "qel.ferrion.announced.direction" is "input" for a stream that can be read and "output" for one
 * that somebody wants to have written. The host compares them by their texts: a stream that is
 * announced with others has changed.
 *
 * The host calls the function between a read of a discovery reader and the return of its loan, on
 * the thread of that read.
 *
 * @param reader the discovery reader.
 * @param lent   an element of its loan, of a stream that is there.
 * @return valid until the loan is returned; null is an empty list.
 */
typedef const QEL_FerrionProperties *(*QEL_FerrionAdapterPlugin_StreamPropertiesFn)(
    QEL_FerrionStreamReader *reader, const QEL_FerrionStreamInfo *lent);

FERRYJNI_END

#endif
