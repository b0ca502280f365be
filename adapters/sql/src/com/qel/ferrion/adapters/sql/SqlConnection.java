package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.Settings;
import java.util.HashSet;
import java.util.Properties;
import java.util.Set;

/**
 * A database and the readers and writers of tables in it. Owns the watching thread, which lives
 * from the first reader, or the first look at discovery, until the connection is deleted.
 */
final class SqlConnection implements DiscoveryConnection {
    private final Settings settings;
    private final Database database;
    private final Watch watch;
    private final SqlDiscovery discovery;
    private final Set<SqlStreamReader> readers = new HashSet<>();
    private final Set<SqlStreamWriter> writers = new HashSet<>();

    SqlConnection(String name, StreamReaderListener outputListener,
            StreamReaderListener inputListener, Properties properties) throws AdapterException {
        String owner = name == null ? "sql connection" : "connection '" + name + "'";
        settings = SqlAdapter.SETTINGS.of(Role.CONNECTION).parse(owner, properties);
        database = new Database(settings);
        watch = new Watch("sql-watch-" + (name == null ? "" : name),
                new Link(database, Database.Use.READ, owner));
        discovery = new SqlDiscovery(settings, database, outputListener, inputListener);
    }

    /** A session has nothing to hold: readers and writers have connections of their own. */
    @Override
    public Session createSession(Properties properties) throws AdapterException {
        Settings none = SqlAdapter.SETTINGS.of(Role.SESSION).parse("session", properties);
        return new Session() {
            @Override
            public void update(Properties updated) throws AdapterException {
                none.updated(updated);
            }
        };
    }

    @Override
    public void deleteSession(Session session) {
        // It holds nothing.
    }

    private static TypeCode typeOf(StreamInfo stream) throws AdapterException {
        Object type = stream.getTypeInfo() == null ? null
                : stream.getTypeInfo().getTypeRepresentation();
        if (!(type instanceof TypeCode) || ((TypeCode) type).resolve().kind() != Kind.STRUCT) {
            throw new AdapterException("stream '" + stream.getStreamName()
                    + "': its type is no known struct");
        }
        return (TypeCode) type;
    }

    @Override
    public synchronized StreamReader createStreamReader(Session session, StreamInfo stream,
            Properties properties, StreamReaderListener listener) throws AdapterException {
        SqlStreamReader reader = new SqlStreamReader(database, watch, stream, typeOf(stream),
                properties, listener);
        readers.add(reader);
        reader.start();
        return reader;
    }

    @Override
    public synchronized void deleteStreamReader(StreamReader reader) {
        if (readers.remove(reader)) {
            SqlStreamReader ours = (SqlStreamReader) reader;
            ours.close();
            ours.release();
        }
    }

    @Override
    public synchronized StreamWriter createStreamWriter(Session session, StreamInfo stream,
            Properties properties) throws AdapterException {
        SqlStreamWriter writer = new SqlStreamWriter(database, stream, typeOf(stream),
                properties);
        writers.add(writer);
        return writer;
    }

    @Override
    public synchronized void deleteStreamWriter(StreamWriter writer) {
        if (writers.remove(writer)) {
            ((SqlStreamWriter) writer).close();
        }
    }

    /** Announces tables and views; with {@code discover: false}, nothing. */
    @Override
    public synchronized StreamReader getInputStreamDiscoveryReader() {
        discovery.begin(watch);
        return discovery.inputs();
    }

    /** Announces tables; with {@code discover: false}, nothing. */
    @Override
    public synchronized StreamReader getOutputStreamDiscoveryReader() {
        discovery.begin(watch);
        return discovery.outputs();
    }

    @Override
    public void update(Properties properties) throws AdapterException {
        settings.updated(properties);
    }

    /** Ends the watching thread and closes what the host has left open. */
    synchronized void close() {
        watch.stop();
        for (SqlStreamReader reader : readers.toArray(new SqlStreamReader[0])) {
            deleteStreamReader(reader);
        }
        for (SqlStreamWriter writer : writers.toArray(new SqlStreamWriter[0])) {
            deleteStreamWriter(writer);
        }
        discovery.end();
    }

    @Override
    public String toString() {
        return "tables in " + database;
    }
}
