package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import java.util.ArrayList;
import java.util.List;
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
}
