package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertNull;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.SamplePool;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.sql.SQLException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.CountDownLatch;
import org.junit.Rule;
import org.junit.Test;

/** Large rows, tables that change, locks, wrong settings, names: what databases have in store. */
public class TroubleTest {
    private static final TypeCode ROW =
            TypeCode.fromIdl("struct Row { @key long id; string v; };", null);

    @Rule public final Rig rig = new Rig();

    private static DynamicData row(int id, String v) {
        DynamicData data = new DynamicData(ROW, null);
        data.setInt("id", id);
        data.setString("v", v);
        return data;
    }

    /** 300 kB are reached by every third row; without a key, by those of the same number too. */
    @Test
    public void aReadEndsByItsBytes() throws Exception {
        rig.sql("DROP TABLE IF EXISTS large", "CREATE TABLE large (id INT PRIMARY KEY, v TEXT, t "
                + "INT, b " + (rig.server ? "BYTEA)" : "BLOB)"));
        StreamWriter writer = rig.writer("large", ROW);
        List<DynamicData> rows = new ArrayList<>();
        for (int id = 0; id < 150; id++) {
            rows.add(row(id, "ü".repeat(60_000)));
        }
        assertEquals(150, Rig.write(writer, rows, List.of())); // More than a driver may keep.
        rig.sql("UPDATE large SET t = id / 4, b = " + (rig.server ? "convert_to(v, 'UTF8')"
                : "CAST(v AS BLOB)"));
        for (String[] way : new String[][] {
            {"table", "large", "id", rig.server ? "300000" : "150000", "string v"},
            {"table", "large", "id", "300000", "sequence<octet> b"},
            {"query", "SELECT * FROM large", "t", "300000", "string v"}}) {
            StreamReader reader = rig.reader("s", TypeCode.fromIdl("struct Row { long id; "
                    + way[4] + "; };", null), way[0], way[1], "order_by", way[2], "batch_bytes",
                    way[3]);
            int size = way[2].equals("id") ? 3 : 4;
            for (int id = 0; id < 150; id += size) {
                assertEquals(Math.min(size, 150 - id), rig.read(reader, false).size());
            }
            assertEquals(List.of(), rig.errors);
        }
    }

    /** No name of a column becomes a text, and reading goes on when the table is as it was. */
    @Test
    public void aChangedTableIsReported() throws Exception {
        rig.sql("DROP TABLE IF EXISTS changing",
                "CREATE TABLE changing (id INTEGER PRIMARY KEY, v TEXT)",
                "INSERT INTO changing VALUES (1, 'a'), (2, 'b'), (3, 'c'), (4, 'd'), (5, 'e')");
        StreamReader reader = rig.reader("changing", ROW, "batch", "1");
        StreamWriter writer = rig.writer("changing", ROW, "mode", "upsert", "on_dispose", "delete",
                "retry_for", "1ms");
        assertEquals(1, Rig.write(writer, List.of(row(3, "c")), List.of()));
        assertEquals("a", rig.read(reader, false).get(0).getString("v"));
        for (String column : new String[] {"v", "id"}) {
            rig.sql("ALTER TABLE changing RENAME COLUMN " + column + " TO other");
            for (DynamicData ahead : rig.read(reader, false)) { // Of before, if it was quick.
                assertEquals(ahead.getInt("id"), ahead.getString("v").charAt(0) - 'a' + 1);
            }
            for (int i = 0; i < 3; i++) {
                assertEquals(List.of(), rig.read(reader, false));
            }
            assertTrue(rig.errors.toString(), rig.errors.get(rig.errors.size() - 1)
                    .contains("\"changing\" has changed: " + (column.equals("v")
                            ? "it no longer has a column for member \"v\", which was \"v\""
                            : "its rows are in the order of other instead of id")));
            rig.errors.clear();
            DynamicData sample = row(6, "f");
            List<DynamicData> ends = column.equals("v") ? List.of() : List.of(sample);
            assertThrows(AdapterException.class, () -> Rig.write(writer, List.of(sample), ends));
            String text = assertThrows(AdapterException.class,
                    () -> Rig.write(writer, List.of(sample), List.of())).getMessage();
            assertTrue(text, text.contains("no column \"" + column + "\" for member"));
            rig.sql("ALTER TABLE changing RENAME COLUMN other TO " + column);
            assertEquals(1, rig.read(reader, false).size());
            assertEquals(1, Rig.write(writer, List.of(row(3, "c")), List.of()));
        }
        rig.sql("DROP TABLE changing", "CREATE TABLE changing (id INTEGER PRIMARY KEY, v TEXT, "
                + "more INT NOT NULL)");
        assertEquals(0, Rig.writeAll(writer, List.of(row(1, "a"), row(2, "b"))));
    }

    /** Six readers and their watch over two connections, of which one at a time may be in use. */
    @Test
    public void connectionsAreShared() throws Exception {
        rig.use("connections", "2");
        List<StreamReader> readers = new ArrayList<>();
        for (int i = 0; i < 6; i++) {
            rig.sql("DROP TABLE IF EXISTS shared" + i, "CREATE TABLE shared" + i
                    + " (id INT PRIMARY KEY, v TEXT)",
                    "INSERT INTO shared" + i + " VALUES (1, 'a')");
            readers.add(rig.reader("shared" + i, ROW));
        }
        for (int i = 0; i < 6; i++) {
            assertEquals(1, rig.readUntil(readers.get(i), 1).size());
            assertEquals(1, Rig.write(rig.writer("shared" + i, ROW), List.of(row(2, "b")),
                    List.of()));
        }
        // The server's end of a closed connection takes its time.
        int open = 3;
        for (int look = 0; rig.server && open > 2; look++) {
            assertTrue(open + " connections", look < 100);
            Thread.sleep(50);
            open = Integer.parseInt(rig.rows("SELECT count(*) FROM pg_stat_activity WHERE "
                    + "application_name = 'ferry'"));
        }
    }

    /** Who finds none free waits for one; who finds no database hears of it with all others. */
    @Test(timeout = 60_000)
    public void aPoolLendsNoMoreThanItHas() throws Exception {
        Pool pool = new Pool(database("url", rig.url), 1);
        Link link = pool.take(Database.Use.READ, false);
        assertEquals("all 1 connections have been in use for 1 s; property \"connections\" allows "
                + "more", rejection(pool));
        pool.giveBack(link, null);
        assertSame(link, pool.take(Database.Use.READ, false));
        pool.giveBack(link, null);
        Link other = pool.take(Database.Use.WRITE, false);
        assertTrue("its place was needed", link.connection.isClosed());
        pool.giveBack(other, new SQLException("x", "08006"));
        assertTrue(other.connection.isClosed());
        Link last = pool.take(Database.Use.READ, false);
        pool.end();
        pool.giveBack(last, null);
        assertTrue(last.connection.isClosed());
        assertEquals("the connection has ended", rejection(pool));
        // Below a file there are no folders, so nobody can make it.
        Database down = database("url", "jdbc:sqlite:" + rig.folder.newFile() + "/none.db");
        Pool none = new Pool(down, 1);
        assertEquals(Duration.ZERO, none.away());
        String first = rejection(none);
        for (int i = 0; i < 3; i++) {
            assertEquals(first, rejection(none));
            Thread.sleep(60); // The first pause is over, or not: both are to work.
        }
        assertTrue(none.away().toString(), none.away().toMillis() >= 180);
        // Of a read's patience that time is gone; a write has all of its own.
        for (Database.Use use : List.of(Database.Use.READ, Database.Use.WRITE)) {
            boolean reads = use == Database.Use.READ;
            int[] failures = {0};
            assertThrows(AdapterException.class, () -> new Access(none, down, use, "it", "table")
                    .run(Link::server, reads ? none.away() : Duration.ofHours(1),
                            failure -> ++failures[0] == 2));
            assertEquals(reads ? 1 : 2, failures[0]);
        }
    }

    private static Database database(String... url) throws Exception {
        return new Database(SqlAdapter.SETTINGS.of(Role.CONNECTION).parse("c", Rig.properties(
                url[0], url[1], "network_timeout", "1s")));
    }

    private static String rejection(Pool pool) {
        return assertThrows(SQLException.class, () -> pool.take(Database.Use.READ, false))
                .getMessage();
    }

    @Test
    public void noCauseShowsASecret() {
        SQLException failure = new SQLException("x", new IllegalStateException(
                "jdbc:a://me:hidden@h/ ?sslpassword=hidden&b, PWD: 'hidden'"));
        failure.setNextException(new SQLException("password=hidden; no", "28000", failure));
        assertEquals("password=***; no", Secrets.text(failure));
        StringWriter all = new StringWriter();
        Secrets.cause(failure).printStackTrace(new PrintWriter(all, true));
        assertFalse(all.toString(), all.toString().contains("hidden"));
        assertEquals("java.lang.Error: x; //***@h", Secrets.text(new Error("x\n //me@h")));
    }

    @Test(timeout = 60_000)
    public void tablesComeChangeAndGo() throws Exception {
        rig.sql("DROP VIEW IF EXISTS seen", "DROP TABLE IF EXISTS coming",
                "CREATE TABLE coming (id INT PRIMARY KEY)",
                "CREATE VIEW seen AS SELECT * FROM coming");
        DiscoveryConnection other = rig.connect("discover", "true", "discover_period", "100ms");
        StreamReader inputs = other.getInputStreamDiscoveryReader();
        StreamReader outputs = other.getOutputStreamDiscoveryReader();
        await(inputs, "seen: seen");
        rig.sql("ALTER TABLE coming ADD COLUMN v INT");
        Object changed = await(inputs, "coming: coming").stream()
                .filter(each -> each.toString().startsWith("coming")).findFirst().get();
        assertEquals(2, ((TypeCode) ((StreamInfo) changed).getTypeInfo().getTypeRepresentation())
                .members().size());
        rig.sql("DROP VIEW seen", "DROP TABLE coming");
        await(inputs, "seen: seen, disposed");
        assertFalse(await(outputs, "coming: coming, disposed").toString().contains("seen"));
        rig.delete(other);
    }

    /** Announcements from the first on, or the next, up to the one that is wanted. */
    private static List<Object> await(StreamReader reader, String last) throws Exception {
        List<Object> found = new ArrayList<>();
        while (found.stream().noneMatch(each -> each.toString().equals(last))) {
            Thread.sleep(5);
            reader.read(found, new ArrayList<>());
        }
        return found;
    }

    /** What a transaction that is still open puts in front of others is read, in its order. */
    @Test
    public void lateCommitsAreWaitedFor() throws Exception {
        rig.sql("DROP TABLE IF EXISTS late", "CREATE TABLE late (id INT PRIMARY KEY, v TEXT)",
                "INSERT INTO late VALUES (5, 'five')");
        Query query = query("late");
        Link link = new Link(Database.Use.READ, rig.direct(), Dialect.of(rig.url));
        Horizon horizon = new Horizon(1);
        assertTrue(horizon.hidesAll());
        horizon.look(query, link, null);
        rig.sql("INSERT INTO late VALUES (3, 'three'), (7, 'seven')");
        horizon.look(query, link, null);
        List<Object> end = horizon.end();
        assertTrue("3 has come in front", query.hasMore(link, null, end));
        assertTrue("7 is too young", query.hasMore(link, end, null));
        assertFalse(query.hasMore(link, end, end));
    }

    /** What was fetched beforehand serves whom it was fetched for, or nobody. */
    @Test
    public void aBatchIsFetchedBeforehandWhereThatPays() throws Exception {
        rig.sql("DROP TABLE IF EXISTS ahead", "CREATE TABLE ahead (id INT PRIMARY KEY)");
        Query query = query("ahead");
        Settings settings = readerSettings();
        Watch watch = new Watch("ahead", Access.LOG, Throwable::toString);
        List<Object> position = List.of(1L);
        int[] fetched = {0};
        ReadAhead ahead = new ReadAhead(new SamplePool(ROW));
        Callable<Batch> fetch = () -> {
            fetched[0]++;
            return new Batch(null, query, ahead.pool(), false, false);
        };
        Batch found = null;
        for (int i = 0; i < 100 && found == null; i++) { // One that took a second is too old.
            ahead.begin(watch, position, settings, fetch);
            found = ahead.take(position, settings);
        }
        assertEquals(0, found.count());
        assertNull(ahead.take(position, settings));
        Thread host = Thread.currentThread();
        CountDownLatch begun = new CountDownLatch(1);
        CountDownLatch interrupted = new CountDownLatch(1);
        ahead.begin(watch, position, settings, () -> {
            begun.countDown();
            interrupted.await();
            while (host.isInterrupted()) {
                Thread.sleep(1); // Until the host waits.
            }
            return fetch.call();
        });
        begun.await();
        host.interrupt();
        interrupted.countDown();
        ahead.take(position, settings);
        assertTrue("an interrupt waits, too", Thread.interrupted());
        ahead.begin(watch, position, settings, fetch);
        assertNull("behind other rows", ahead.take(List.of(2L), settings));
        ahead.begin(watch, position, settings, fetch);
        assertNull("with other settings", ahead.take(position, readerSettings()));
        ahead.begin(watch, position, settings, fetch);
        Thread.sleep(1100);
        ahead.returned();
        assertNull("too old", ahead.take(position, settings));
        int before = fetched[0];
        ahead.begin(watch, position, settings, fetch);
        assertNull("the host is slow", ahead.take(position, settings));
        assertEquals(before, fetched[0]);
        ahead.returned();
        ahead.begin(watch, position, settings, () -> {
            throw new OutOfMemoryError("planted");
        });
        assertNull(ahead.take(position, settings));
        ahead.begin(watch, position, settings, fetch);
        assertNull("memory is scarce", ahead.take(position, settings));
        assertEquals(before, fetched[0]);
        CountDownLatch busy = new CountDownLatch(1);
        watch.once(busy::await);
        ReadAhead other = new ReadAhead(new SamplePool(ROW));
        other.begin(watch, position, settings, fetch);
        other.cancel();
        busy.countDown();
        CountDownLatch done = new CountDownLatch(1);
        watch.once(done::countDown);
        done.await();
        assertEquals("for nobody", before, fetched[0]);
        assertTrue(watch.stop(() -> { }));
    }

    /** The look for more goes by the index, however the server plans it. */
    @Test
    public void aLookForMoreReadsNoTable() throws Exception {
        rig.sql("DROP TABLE IF EXISTS polled",
                "CREATE TABLE polled (id INT PRIMARY KEY, t INT NOT NULL)",
                "INSERT INTO polled WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                + "WHERE i < 20000) SELECT i, i % 7 FROM n");
        String look = query("polled").look(List.of(1L), null);
        if (rig.server) {
            rig.sql("ANALYZE polled", "SET plan_cache_mode = force_generic_plan",
                    "PREPARE look AS " + look.replaceFirst("\\?", "\\$1"));
        }
        String plan = rig.rows(rig.server ? "EXPLAIN EXECUTE look(20000)"
                : "EXPLAIN QUERY PLAN " + look.replace("?", "1"));
        assertTrue(plan, plan.contains(rig.server ? "Index Only Scan" : "SEARCH t USING"));
        assertFalse(plan, plan.contains("Seq Scan") || plan.contains("Sort"));
    }

    private Query query(String table) throws Exception {
        TypeCode id = TypeCode.fromIdl("struct Id { long id; };", null);
        return Query.of(Table.find(rig.direct(), null, table), Dialect.of(rig.url), id,
                readerSettings());
    }

    private static Settings readerSettings() throws Exception {
        return SqlAdapter.SETTINGS.of(Role.READER).parse("reader", Rig.properties());
    }
}
