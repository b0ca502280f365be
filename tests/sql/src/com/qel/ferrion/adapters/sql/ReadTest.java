package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.stream.Collectors;
import org.junit.Assert;
import org.junit.Rule;
import org.junit.Test;

/** Which rows come, in what order, and what becomes of those that are no samples. */
public class ReadTest {
    private static final TypeCode ROW = TypeCode.fromIdl("struct Row { long id; long t; };", null);
    private static final TypeCode ID = TypeCode.fromIdl("struct Id { long id; };", null);

    @Rule public final Rig rig = new Rig();
    private int files;
    private int repeated;

    /**
     * Rows with ties of every length, read with batches of many sizes, by a host that dies once
     * behind every read there is: the rows of the read it died in come again, and no other, none is
     * left out, and all are in order. By a primary key, and with nothing to break ties.
     */
    @Test
    public void noRowIsLeftOutWhereverAHostDies() throws Exception {
        int rows = 10;
        rig.sql("DROP TABLE IF EXISTS keyed", "DROP TABLE IF EXISTS plain",
                "CREATE TABLE keyed (t INT NOT NULL, id INT PRIMARY KEY)",
                "CREATE TABLE plain (t INT NOT NULL, id INT)");
        for (int id = rows; id > 0; id--) {
            // 1, 2 2, 3 3 3, 4 4 4 4: the number of the row's triangle.
            int t = (int) Math.ceil((Math.sqrt(8.0 * id + 1) - 1) / 2);
            rig.sql("INSERT INTO keyed VALUES (" + t + ", " + id + ")",
                    "INSERT INTO plain VALUES (" + t + ", " + id + ")");
        }
        String[][] ways =
                {{"table", "keyed"}, {"query", "SELECT * FROM plain;"}, {"table", "plain"}};
        for (String[] way : ways) {
            for (int batch : new int[] {1, 2, 3, 4, 5, 10, 11}) {
                for (int death = 0; death <= rows / batch; death++) {
                    String where = way[1] + ", batch " + batch + ", death " + death;
                    List<DynamicData> seen = drain(ROW, way, batch, death, false);
                    assertEquals(where, rows + repeated, seen.size());
                    assertEquals(where, rows, distinct(seen));
                    int back = 0;
                    for (int i = 1; i < seen.size(); i++) {
                        back += seen.get(i).getInt("t") < seen.get(i - 1).getInt("t") ? 1 : 0;
                    }
                    assertTrue(where, back <= 1);
                }
            }
        }
    }

    private static long distinct(List<DynamicData> samples) {
        return samples.stream().map(each -> each.getInt("id")).distinct().count();
    }

    /** Reads all there is; the host dies over one read, or comes anew for each. */
    private List<DynamicData> drain(TypeCode type, String[] way, int batch, int death,
            boolean anew) throws Exception {
        String file = rig.folder.getRoot() + "/" + ++files;
        List<DynamicData> seen = new ArrayList<>();
        List<DynamicData> last;
        int reads = 0;
        repeated = 0;
        do {
            StreamReader reader = rig.reader("s", type, way[0], way[1], "order_by", "t", "batch",
                    "" + batch, "position_file", file);
            boolean dies;
            do {
                dies = reads++ == death;
                last = rig.read(reader, dies);
                seen.addAll(last);
                repeated += dies ? last.size() : 0;
            } while (!dies && !anew && !last.isEmpty());
            rig.connection.deleteStreamReader(reader);
        } while (!last.isEmpty());
        assertEquals(List.of(), rig.errors);
        return seen;
    }

    /** Rows without a place in the order come last, also over restarts, and none comes twice. */
    @Test
    public void rowsWithoutAPlaceAreReadLast() throws Exception {
        for (String batch : new String[] {"1", "2", "100"}) {
            rig.sql("DROP TABLE IF EXISTS odd", "CREATE TABLE odd (id INT PRIMARY KEY, t INT)",
                    "INSERT INTO odd VALUES (1, NULL), (2, 5), (3, NULL), (4, 1), (5, NULL)");
            String[] properties = {"order_by", "t", "order_nulls", "last", "nulls", "default",
                "batch", batch, "position_file", rig.folder.getRoot() + "/p" + batch};
            StreamReader reader = rig.reader("odd", ROW, properties);
            assertEquals("[4, 2, 1, 3, 5]", ids(rig.readUntil(reader, 5)));
            rig.sql("INSERT INTO odd VALUES (6, NULL), (7, 5), (8, 9)");
            assertEquals(Set.of(6, 7, 8), rig.readUntil(reader, 3).stream()
                    .map(each -> each.getInt("id")).collect(Collectors.toSet()));
            rig.connection.deleteStreamReader(reader);
            rig.sql("INSERT INTO odd VALUES (9, NULL), (10, 10)");
            StreamReader second = rig.reader("odd", ROW, properties);
            assertEquals("[10, 9]", ids(rig.readUntil(second, 2)));
            assertEquals(0, rig.read(second, false).size());
            rig.connection.deleteStreamReader(second);
        }
        assertEquals(List.of(), rig.errors);
        rejected("property \"order_nulls\": the query has no primary key", "s", "query",
                "SELECT * FROM odd", "order_by", "t", "order_nulls", "last");
    }

    private static String ids(List<DynamicData> samples) {
        return samples.stream().map(each -> each.getInt("id")).toList().toString();
    }

    /** What was fetched beforehand is given up when rows or settings can have come in between. */
    @Test
    public void readingAheadHidesNothing() throws Exception {
        rig.sql("DROP TABLE IF EXISTS gaps", "CREATE TABLE gaps (id INT PRIMARY KEY, t INT)",
                "INSERT INTO gaps VALUES (10, 1), (20, 1), (30, 1), (40, NULL), (50, 1)");
        StreamReader reader = rig.reader("gaps", ROW, "batch", "1", "report", "0s");
        assertEquals(10, rig.read(reader, false).get(0).getInt("id"));
        Thread.sleep(1100);
        rig.sql("INSERT INTO gaps VALUES (15, 1)");
        for (int id : new int[] {15, 20}) {
            assertEquals(id, rig.read(reader, false).get(0).getInt("id"));
        }
        reader.update(Rig.properties("batch", "2", "poll", "10ms", "report", "0s"));
        assertEquals(1, rig.read(reader, false).size());
        assertEquals(1, rig.bad);
        assertEquals(50, rig.read(reader, false).get(0).getInt("id"));
    }

    /** A position goes through a file, and which ones are equal only the database knows. */
    @Test
    public void anyTypeCanBeTheOrder() throws Exception {
        List<String[]> orders = new ArrayList<>(List.of(
                new String[] {"TEXT", "'a'", "'A'", "'b c%'", "'é'"},
                new String[] {"DOUBLE PRECISION", "0.1", "0.30000000000000004", "-1e300", "0.0"},
                new String[] {"TIMESTAMP", "'2026-01-02 03:04:05.678901'", "'2026-01-02'"},
                new String[] {rig.server ? "BYTEA" : "BLOB", rig.server ? "'\\x00ff'" : "x'00ff'",
                    rig.server ? "'\\x'" : "x''"}));
        orders.add(rig.server ? new String[] {"NUMERIC", "1.0", "1.00", "1", "2"}
                : new String[] {"TEXT COLLATE NOCASE", "'a'", "'A'", "'b'"});
        for (String[] order : orders) {
            rig.sql("DROP TABLE IF EXISTS ordered",
                    "CREATE TABLE ordered (t " + order[0] + " NOT NULL, id INT PRIMARY KEY)");
            for (int id = 0; id < 2 * (order.length - 1); id++) {
                rig.sql("INSERT INTO ordered VALUES (" + order[1 + id / 2] + ", " + id + ")");
            }
            for (String way : new String[] {"table ordered", "query SELECT * FROM ordered"}) {
                assertEquals(order[0] + ", " + way, 2 * (order.length - 1),
                        distinct(drain(ID, way.split(" ", 2), 1, -1, true)));
            }
        }
    }

    @Test
    public void whatHasNoPlaceOrNoValueIsToldByItsKey() throws Exception {
        rig.sql("DROP TABLE IF EXISTS holes", "CREATE TABLE holes (id INT PRIMARY KEY, t INT)",
                "INSERT INTO holes VALUES (1, NULL), (2, 5), (3, NULL), (4, 1)");
        StreamReader reader = rig.reader("holes", ROW, "order_by", "t", "report", "0s",
                "count_nulls", "10ms");
        assertEquals(2, rig.read(reader, false).size());
        assertEquals("[2 rows of \"holes\" have NULL in t or id and are not read]",
                rig.errors.toString());
        assertEquals(2, rig.bad);
        rig.sql("INSERT INTO holes VALUES (5, NULL)");
        for (int i = 0; i < 500 && rig.errors.size() < 2; i++) {
            Thread.sleep(10);
            assertEquals(0, rig.read(reader, false).size());
        }
        assertTrue(rig.errors.get(1), rig.errors.get(1).startsWith("3 rows"));
        assertEquals(3, rig.bad);

        rig.errors.clear();
        StreamReader second = rig.reader("s", ROW, "query", "SELECT * FROM holes", "order_by",
                "id, t", "batch", "1");
        assertEquals(1, rig.read(second, false).size() * rig.read(second, false).size());
        assertEquals(0, rig.read(second, false).size());
        assertTrue(rig.errors.toString(), rig.errors.get(0).startsWith("3 rows"));

        rig.errors.clear();
        // The first is reported at once, the others together: here at the end of the rows.
        StreamReader byKey = rig.reader("holes", ROW, "batch", "1");
        rig.bad = 0;
        assertEquals(2, rig.readUntil(byKey, 2).size());
        assertEquals(0, rig.read(byKey, false).size() + rig.read(byKey, false).size());
        assertEquals(3, rig.bad);
        assertEquals("\"holes\", row id=1: t: NULL, for which a long has no value",
                rig.errors.get(0).split("\n")[0]);
        StreamReader filled = rig.reader("holes", ROW, "nulls", "default", "batch", "1");
        for (int t : new int[] {0, 5, 0, 1, 0}) {
            assertEquals(t, rig.read(filled, false).get(0).getInt("t"));
        }
        StreamReader stops = rig.reader("holes", ROW, "on_bad_row", "stop", "report", "1h",
                "poll", "1h");
        assertEquals(0, rig.read(stops, false).size());
        stops.update(Rig.properties("on_bad_row", "skip", "batch", "3", "poll", "10ms"));
        assertEquals(1, rig.read(stops, false).size());
        assertEquals(1, rig.read(stops, false).size());
        assertEquals(0, rig.read(stops, false).size());
        rig.sql("INSERT INTO holes VALUES (6, 100)");
        for (int i = 0; i < 500 && rig.read(stops, false).isEmpty(); i++) {
            assertTrue("not looked for", i < 499);
            Thread.sleep(10);
        }
        // What a row in the way follows is acknowledged, and no more: it comes once it is mended.
        rig.sql("INSERT INTO holes VALUES (7, 1), (8, NULL), (9, 2)");
        stops.update(Rig.properties("on_bad_row", "stop"));
        assertEquals(1, rig.read(stops, false).size());
        rig.sql("UPDATE holes SET t = 8 WHERE id = 8");
        stops.update(Rig.properties("on_bad_row", "skip"));
        assertEquals(8, rig.read(stops, false).get(0).getInt("t"));
    }

    @Test
    public void columnsBecomeMembersExactlyOrNotAtAll() throws Exception {
        String bytes = rig.server ? "BYTEA" : "BLOB";
        String ones = rig.server ? "'\\x0101'" : "x'0101'";
        String[][] cells = {
            {"BIGINT", "'9007199254740993'", "long long", "9007199254740993"},
            {"INT", "128", "int8", null}, {"INT", "-1", "unsigned long", null},
            {"NUMERIC(20, 0)", "18446744073709551616", "unsigned long long", null},
            {"TEXT", "'xy'", "char", null}, {"TEXT", "'x'", "char", "x"},
            {"TEXT", "'maybe'", "boolean", null}, {"BOOLEAN", "TRUE", "long", "1"},
            {bytes, ones, "sequence<octet>", "0101"}, {"TEXT", "''", "char", "\0"},
            {"NUMERIC(3, 1)", "-1", "unsigned long long", null}, {"TEXT", "'a'", "double", null},
            {"TEXT", "'12'", "short", "12"}, {"TEXT", "'x'", "short", null},
            {"NUMERIC(20, 2)", "1.25", "double", "1.25"}, {"NUMERIC(9, 2)", "1.5", "long", null},
            {"DOUBLE PRECISION", "1e300", "float", null}, {"REAL", "NULL", "float", "NaN"},
            {"TEXT", "'1e3'", "double", "1000.0"}, {"TEXT", "'Zürich'", "string", "Zürich"},
            {"TEXT", "'abcd'", "string<3>", null}, {"TEXT", "'RED'", "Color", "RED"},
            {"INT", "1", "Color", "GREEN"}, {"TEXT", "'BLUE'", "Color", null},
            {"BOOLEAN", "TRUE", "boolean", "true"}, {"INT", "2", "boolean", null},
            {"TIMESTAMP", "'2026-01-02 03:04:05.678'", "long long", "1767323045678000"},
            {"TIMESTAMP", "'2026-01-02 03:04:05.678'", "string", "2026-01-02 03:04:05.678"},
            {bytes, ones, "octet v[2]; long w", "0101"}, {bytes, ones, "octet v[3]; long w", null},
            {bytes, ones, "string", rig.server ? "\\x0101" : null}, {bytes, "NULL",
                "sequence<octet>", null}, {"BOOLEAN", "FALSE", "short", "0"},
            {"DATE", "'2026-01-02'", "string", "2026-01-02"}, {"DATE", "'2026-01-02'", "char",
                null}, {"NUMERIC(40, 0)", "1" + "0".repeat(30), "long", null},
            {"TEXT", "'" + "9".repeat(300) + "'", "long", null},
            {rig.server ? "TIMESTAMPTZ" : "DATETIME", "'2026-01-02T03:04:05+01:00'", "long long",
                "1767319445000000"},
        };
        for (String[] cell : cells) {
            rig.sql("DROP TABLE IF EXISTS cell", "CREATE TABLE cell (id INT PRIMARY KEY, v "
                    + cell[0] + ")", "INSERT INTO cell VALUES (1, " + cell[1] + ")");
            String members = cell[2].contains(";") ? cell[2] : cell[2] + " v";
            TypeCode type = TypeCode.fromIdl("enum Color { RED, GREEN }; struct Cell { " + members
                    + "; };", null);
            rig.errors.clear();
            StreamReader reader = rig.reader("cell", type);
            List<DynamicData> found = rig.read(reader, false);
            rig.connection.deleteStreamReader(reader);
            String where = String.join(" ", cell);
            assertEquals(where + rig.errors, cell[3] == null ? 0 : 1, found.size());
            assertEquals(where, cell[3] == null ? 1 : 0, rig.errors.size());
            assertTrue(where, cell[3] != null || rig.errors.get(0).matches(
                    "(?s)\"cell\", row id=1: v: .{3,260}"));
            if (cell[3] != null) {
                assertEquals(where, cell[3], Field.of(type).get(0).text(found.get(0)));
            }
        }
    }

    @Test
    public void aPositionHasOneOwnerAndOneOrder() throws Exception {
        rig.sql("DROP TABLE IF EXISTS one", "CREATE TABLE one (id INT PRIMARY KEY, t INT)",
                "INSERT INTO one VALUES (1, 2)");
        String file = rig.folder.getRoot() + "/p";
        StreamReader reader = rig.reader("one", ROW, "position_file", file);
        rig.read(reader, false);
        rejected("is another reader's", "one", "position_file", file);
        rig.connection.deleteStreamReader(reader);
        rejected("says \"position by id\" instead of \"position by t, id\"", "one", "position_file",
                file, "order_by", "t");
        String[][] damaged = {{"", "says \"\" instead of \"position by id\""},
            {"position by id\n", "damaged"}, {"position by id\nx1\n", "damaged"},
            {"position by id\n\n", "damaged"}, {"position by id\ni1\ni2\n", "damaged"}};
        for (String[] each : damaged) {
            Files.writeString(Path.of(file), each[0]);
            rejected(each[1], "one", "position_file", file);
        }
        rejected("a table or a query, not both", "s", "table", "one", "query", "SELECT 1");
        rejected("has no column for any member", "s", "query", "SELECT 1 AS other");
        rejected("there is no table \"once\"; did you mean \"one\"?", "once");
        rejected("has no column \"idd\"; did you mean \"id\"?", "one", "order_by", "idd");
        rejected("has no primary key: property \"order_by\"", "x", "query", "SELECT * FROM one");
        rig.sql("DROP TABLE IF EXISTS two", "CREATE TABLE two (id INT, rowid INT, t INT)");
        rejected(rig.server ? "has no primary key, and the server" : "row ids change with VACUUM",
                "two");
    }

    private void rejected(String why, String table, String... pairs) {
        String text = Assert.assertThrows(AdapterException.class,
                () -> rig.reader(table, ROW, pairs)).getMessage();
        assertTrue(text, text.contains(why));
    }
}
