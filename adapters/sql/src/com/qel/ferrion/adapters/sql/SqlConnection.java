package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.DiscoveryConnectionBase;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import com.qel.ferrion.kit.WriterBase;

/**
 * A database, to which nothing connects before it is used. Owns the watching thread, which lives
 * from the first reader, or from the start where tables are announced, until the connection ends.
 */
final class SqlConnection extends DiscoveryConnectionBase {
    private final Database database;
    /** The watching thread's own way to the database. */
    private final Link look;
    private final Watch watch;

    SqlConnection(String name, Settings settings) throws AdapterException {
        database = new Database(settings);
        look = new Link(database, Database.Use.READ, settings.owner());
        watch = new Watch("sql-watch-" + (name == null ? "" : name), Link.LOG, Link::text);
    }

    @Override
    protected void opened() {
        if (settings().get(SqlDiscovery.DISCOVER)) {
            SqlDiscovery discovery = new SqlDiscovery(database, getInputStreamDiscoveryReader(),
                    getOutputStreamDiscoveryReader());
            watch.every(settings().get(SqlDiscovery.PERIOD), () -> discovery.look(look));
        }
    }

    private static TypeCode typeOf(Stream stream) throws AdapterException {
        if (stream.type() == null || stream.type().resolve().kind() != Kind.STRUCT) {
            throw new AdapterException("stream '" + stream.name()
                    + "': its type is no known struct");
        }
        return stream.type();
    }

    @Override
    protected ReaderBase openReader(Stream stream) throws AdapterException {
        SqlStreamReader reader = new SqlStreamReader(database, stream, typeOf(stream));
        reader.start(watch, look);
        return reader;
    }

    @Override
    protected WriterBase openWriter(Stream stream) throws AdapterException {
        return new SqlStreamWriter(database, stream, typeOf(stream));
    }

    @Override
    protected void release() {
        if (watch.stop(look::abort)) {
            look.close();
        }
    }

    @Override
    public String toString() {
        return "tables in " + database;
    }
}
