package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.DiscoveryConnectionBase;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import com.qel.ferrion.kit.WriterBase;
import java.lang.System.Logger.Level;
import java.nio.file.Files;
import java.util.Collections;
import java.util.IdentityHashMap;
import java.util.Set;

/**
 * A database, to which nothing connects before it is used. Owns the watching thread, which lives
 * from the first reader, or from the start where tables are announced, until the connection ends.
 */
final class SqlConnection extends DiscoveryConnectionBase {
    private final Database database;
    private final Pool pool;
    /** The watching thread's way to the database. */
    private final Access look;
    private final Watch watch;
    /** The sessions that have readers or writers: a thread each. Used on the host's thread. */
    private final Set<Session> sessions = Collections.newSetFromMap(new IdentityHashMap<>());
    private boolean probed;

    SqlConnection(String name, Settings settings) throws AdapterException {
        database = new Database(settings);
        pool = new Pool(database, database.connections());
        look = new Access(pool, database, Database.Use.READ, settings.owner(), "its tables");
        watch = new Watch("sql-watch-" + (name == null ? "" : name), Access.LOG, Secrets::text);
    }

    @Override
    protected void opened() {
        if (settings().get(SqlDiscovery.DISCOVER)) {
            SqlDiscovery discovery = new SqlDiscovery(database, getInputStreamDiscoveryReader(),
                    getOutputStreamDiscoveryReader());
            watch.every(settings().get(SqlDiscovery.PERIOD), () -> discovery.look(look));
        }
    }

    /** A database that can be reached; a file that a writer may make is the writer's to try. */
    @Override
    protected void probe() throws AdapterException {
        probed = true;
        if (database.file() != null && Files.isDirectory(database.file())) {
            throw new AdapterException(settings().owner() + ": " + database + " is a directory");
        }
        if (database.missingFile() == null) {
            look.probe(link -> Table.list(link.connection, database.schema()));
        }
    }

    private static TypeCode typeOf(Stream stream) throws AdapterException {
        if (stream.type() == null || stream.type().resolve().kind() != Kind.STRUCT) {
            throw new AdapterException("stream \"" + stream.name()
                    + "\": its type is no known struct");
        }
        return stream.type();
    }

    @Override
    protected ReaderBase openReader(Stream stream) throws AdapterException {
        sessions.add(stream.session());
        SqlStreamReader reader = new SqlStreamReader(database, pool, stream, typeOf(stream));
        reader.start(watch, look);
        return reader;
    }

    @Override
    protected WriterBase openWriter(Stream stream) throws AdapterException {
        sessions.add(stream.session());
        return new SqlStreamWriter(database, pool, stream, typeOf(stream));
    }

    @Override
    protected void release() {
        if (probed && !sessions.isEmpty()) {
            Access.LOG.log(Level.INFO, settings().owner() + ": " + database + " gets up to "
                    + Math.min(pool.limit(), sessions.size() + 1)
                    + " connections at a time: one for each session that uses it, and one that "
                    + "looks for more rows; \"connections\" allows " + pool.limit());
        }
        watch.stop(pool::end);
        pool.end();
    }

    @Override
    public String toString() {
        return "tables in " + database;
    }
}
