package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Collectors;
import org.junit.Assert;
import org.junit.Rule;
import org.junit.Test;

/** Which rows come, in what order, and what becomes of those that are no samples. */
public class ReadTest {
    private static final TypeCode ROW = TypeCode.fromIdl("struct Row { long id; long t; };", null);

    @Rule public final Rig rig = new Rig();

    /**
     * Rows with ties of every length, read with batches of many sizes, by a host that dies once
     * behind every read there is: the rows of the read it died in come again, and no other, none is
     * left out, and all are in order. By a primary key, a row id, and with nothing to break ties.
     */
    @Test
    public void noRowIsLeftOutWhereverAHostDies() throws Exception {
        int rows = 10;
        rig.sql("DROP TABLE IF EXISTS keyed", "DROP TABLE IF EXISTS plain",
                "CREATE TABLE keyed (t INT NOT NULL, id INT PRIMARY KEY)",
                "CREATE TABLE plain (t INT NOT NULL, id INT)");
        for (int id = rows; id > 0; id--) {
            // 1, 2 2, 3 3 3, 4 4 4 4, ...: the number of the row's triangle.
            int t = (int) Math.ceil((Math.sqrt(8.0 * id + 1) - 1) / 2);
            rig.sql("INSERT INTO keyed VALUES (" + t + ", " + id + ")",
                    "INSERT INTO plain VALUES (" + t + ", " + id + ")");
        }
        List<String[]> ways = new ArrayList<>(List.of(
                new String[] {"table", "keyed", "order_by", "t"},
                new String[] {"query", "SELECT * FROM plain;", "order_by", "t"}));
        if (!rig.server) {
            ways.add(new String[] {"table", "plain", "order_by", "t"});
        }
        for (String[] way : ways) {
            for (int batch : new int[] {1, 2, 3, 4, 5, 10, 11}) {
                for (int death = 0; death <= rows / batch; death++) {
                    oneDeath(way, batch, death, rows);
                }
            }
        }
    }

    private void oneDeath(String[] way, int batch, int death, int rows) throws Exception {
        String file = rig.folder.getRoot() + "/" + way[1].hashCode() + "-" + batch + "-" + death;
        List<DynamicData> seen = new ArrayList<>();
        int repeated = 0;
        int reads = 0;
        List<DynamicData> last = List.of();
        do {
            StreamReader reader = rig.reader("s", ROW, way[0], way[1], way[2], way[3],
                    "batch", "" + batch, "position_file", file);
            boolean dies;
            do {
                dies = reads++ == death;
                last = rig.read(reader, dies);
                seen.addAll(last);
                repeated += dies ? last.size() : 0;
            } while (!dies && !last.isEmpty());
            rig.connection.deleteStreamReader(reader);
        } while (!last.isEmpty());
        String where = String.join(" ", way) + ", batch " + batch + ", death " + death;
        assertEquals(where, rows + repeated, seen.size());
        List<Integer> ids = seen.stream().map(each -> each.getInt("id"))
                .collect(Collectors.toList());
        assertEquals(where, rows, ids.stream().distinct().count());
        for (int i = 1, back = 0; i < seen.size(); i++) {
            back += seen.get(i).getInt("t") < seen.get(i - 1).getInt("t") ? 1 : 0;
            assertTrue(where, back <= 1);
        }
        assertEquals(List.of(), rig.errors);
    }

    @Test
    public void whatHasNoPlaceOrNoValueIsToldByItsKey() throws Exception {
        rig.sql("DROP TABLE IF EXISTS holes", "CREATE TABLE holes (id INT PRIMARY KEY, t INT)",
                "INSERT INTO holes VALUES (1, NULL), (2, 5), (3, NULL), (4, 1)");
        StreamReader reader = rig.reader("holes", ROW, "order_by", "t", "report", "0s");
        assertEquals(2, rig.read(reader, false).size());
        assertEquals("[2 rows of \"holes\" have NULL in t or id and are not read]",
                rig.errors.toString());
        rig.sql("INSERT INTO holes VALUES (5, NULL), (6, 7)");
        List<DynamicData> found = new ArrayList<>();
        for (int i = 0; i < 500 && (found.isEmpty() || rig.errors.size() < 2); i++) {
            Thread.sleep(10);
            found.addAll(rig.read(reader, false));
        }
        assertEquals(6, found.get(0).getInt("id"));
        assertTrue(rig.errors.get(1), rig.errors.get(1).startsWith("3 rows"));

        rig.errors.clear();
        StreamReader byKey = rig.reader("holes", ROW, "report", "0s");
        assertEquals(3, rig.read(byKey, false).size());
        assertEquals("\"holes\", row id=1: column 't': NULL, for which a long has no value",
                rig.errors.get(0).split("\n")[0]);
        assertEquals(6, rig.read(rig.reader("holes", ROW, "nulls", "default"), false).size());
        StreamReader stops = rig.reader("holes", ROW, "on_bad_row", "stop");
        assertEquals(0, rig.read(stops, false).size());
        stops.update(Rig.properties("on_bad_row", "skip", "batch", "2"));
        assertEquals(1, rig.read(stops, false).size());
    }

    @Test
    public void columnsBecomeMembersExactlyOrNotAtAll() throws Exception {
        String[][] cells = {
            {"BIGINT", "'9007199254740993'", "long long", "9007199254740993"},
            {"INT", "128", "int8", null}, {"INT", "-1", "unsigned long", null},
            {"TEXT", "'12'", "short", "12"}, {"TEXT", "'x'", "short", null},
            {"NUMERIC(20, 2)", "1.25", "double", "1.25"}, {"NUMERIC(9, 2)", "1.5", "long", null},
            {"DOUBLE PRECISION", "1e300", "float", null}, {"REAL", "NULL", "float", "NaN"},
            {"TEXT", "'1e3'", "double", "1000.0"}, {"TEXT", "'Zürich'", "string", "Zürich"},
            {"TEXT", "'abcd'", "string<3>", null}, {"TEXT", "'RED'", "Color", "RED"},
            {"INT", "1", "Color", "GREEN"}, {"TEXT", "'BLUE'", "Color", null},
            {"BOOLEAN", "TRUE", "boolean", "true"}, {"INT", "2", "boolean", null},
            {"TIMESTAMP", "'2026-01-02 03:04:05.678'", "long long", "1767323045678000"},
            {"TIMESTAMP", "'2026-01-02 03:04:05.678'", "string", "2026-01-02 03:04:05.678"},
        };
        for (String[] cell : cells) {
            rig.sql("DROP TABLE IF EXISTS cell", "CREATE TABLE cell (id INT PRIMARY KEY, v "
                    + cell[0] + ")", "INSERT INTO cell VALUES (1, " + cell[1] + ")");
            TypeCode type = TypeCode.fromIdl("enum Color { RED, GREEN }; struct Cell { " + cell[2]
                    + " v; };", null);
            rig.errors.clear();
            StreamReader reader = rig.reader("cell", type);
            List<DynamicData> found = rig.read(reader, false);
            rig.connection.deleteStreamReader(reader);
            String where = String.join(" ", cell);
            assertEquals(where + rig.errors, cell[3] == null ? 0 : 1, found.size());
            assertEquals(where, cell[3] == null ? 1 : 0, rig.errors.size());
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
        refused("is another reader's", "one", "position_file", file);
        rig.connection.deleteStreamReader(reader);
        refused("says 'position by id' instead of 'position by t, id'", "one", "position_file",
                file, "order_by", "t");
        refused("there is no table 'once'; did you mean 'one'?", "once");
        refused("has no column 'idd'; did you mean 'id'?", "one", "order_by", "idd");
        refused("has no primary key: property 'order_by'", "x", "query", "SELECT * FROM one");
    }

    private void refused(String why, String table, String... pairs) {
        String text = Assert.assertThrows(AdapterException.class,
                () -> rig.reader(table, ROW, pairs)).getMessage();
        assertTrue(text, text.contains(why));
    }
}
