package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.kit.RejectedSampleException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Random;
import java.util.TreeSet;
import java.util.concurrent.Executors;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.stream.Collectors;
import org.junit.Rule;
import org.junit.Test;

/** What stands in tables after writes, also after writes of samples that the database rejects. */
public class WriteTest {
    private static final TypeCode ROW =
            TypeCode.fromIdl("struct Row { @key long id; long v; };", null);

    @Rule public final Rig rig = new Rig();

    private static DynamicData row(int id, int v) {
        DynamicData data = new DynamicData(ROW, null);
        data.setInt("id", id);
        data.setInt("v", v);
        return data;
    }

    /** Bad samples anywhere in a batch: what is in front of each is written when it is named. */
    @Test
    public void badSamplesCostNoOther() throws Exception {
        Path file = rig.folder.getRoot().toPath().resolve("rejected.jsonl");
        Random random = new Random(7);
        rig.sql("DROP TABLE IF EXISTS checked", "DROP TABLE IF EXISTS allowed",
                "CREATE TABLE allowed (v INT PRIMARY KEY)");
        for (int v = 100; v < 150; v++) {
            rig.sql("INSERT INTO allowed VALUES (" + v + ")");
        }
        for (int round = 0; round < 24; round++) {
            // What a server may leave until the commit must be found like all else.
            String check = rig.server && round % 2 == 1
                    ? "REFERENCES allowed DEFERRABLE INITIALLY DEFERRED" : "CHECK (v <> 13)";
            rig.sql("DROP TABLE IF EXISTS checked", "CREATE TABLE checked (id INT PRIMARY KEY, v "
                    + "INT " + check + ")");
            Files.deleteIfExists(file);
            int size = round < 3 ? round + 1 : 1 + random.nextInt(40);
            List<DynamicData> batch = new ArrayList<>();
            TreeSet<Integer> good = new TreeSet<>();
            int bad = 0;
            for (int id = 0; id < size; id++) {
                boolean spoilt = round == 0 || random.nextInt(1 + round % 8) == 1;
                batch.add(row(id, spoilt ? 13 : id + 100));
                bad += spoilt ? 1 : 0;
                if (!spoilt) {
                    good.add(id);
                }
            }
            StreamWriter writer = rig.writer("checked", ROW, "reject_file", file.toString());
            assertEquals(good.size(), Rig.writeAll(writer, batch));
            rig.connection.deleteStreamWriter(writer);
            assertEquals(good.stream().map(String::valueOf).collect(Collectors.joining("; ")),
                    rig.rows("SELECT id FROM checked ORDER BY id"));
            assertEquals(bad, Files.exists(file) ? Files.lines(file)
                    .filter(line -> line.matches(
                            "\\{\"rejected\":\"checked\",.*\"v\":\"13\"\\}\\}")).count() : 0);
        }
    }

    private static void set(DynamicData data, String member, Object value) {
        if (value instanceof String text) {
            data.setString(member, text);
        } else if (value instanceof Boolean truth) {
            data.setBoolean(member, truth);
        } else if (value instanceof Character character) {
            data.setChar(member, character);
        } else if (value instanceof Double number) {
            data.setDouble(member, number);
        } else {
            data.setLong(member, (Long) value);
        }
    }

    /** Every kind of member, at its limits, there and back through a table that was made for it. */
    @Test
    public void allValuesComeBackAsTheyWere() throws Exception {
        TypeCode type = TypeCode.fromIdl("enum E { A, B }; struct In { float f; char c; };"
                + "struct All { @key long id; int8 a; octet b; short c; unsigned short d;"
                + "unsigned long e; long long f; unsigned long long g; double h; boolean i; E j;"
                + "string k; In l; sequence<octet> m; octet n[3]; };", null);
        rig.sql("DROP TABLE IF EXISTS everything");
        List<DynamicData> batch = new ArrayList<>();
        String[] members = "a b c d e f g h i j k l.f l.c n[1]".split(" ");
        Object[][] values = {
            {-128L, 255L, -32768L, 65535L, 0xFFFFFFFFL, Long.MIN_VALUE, Long.MAX_VALUE,
                Double.MIN_VALUE, true, 1L, "\"'\\;ü\uD83D\uDE00", (double) 3.4e38f, 'ÿ', 0L},
            {127L, 0L, 32767L, 0L, 0L, Long.MAX_VALUE, 0L, Double.NaN, false, 0L, "", Double.NaN,
                '\0', 1L},
            {1L, 1L, 1L, 1L, 1L, 1L, -1L, 0.1, true, 1L, "x", (double) 0.1f, 'x', 2L},
        };
        for (int id = 0; id < values.length; id++) {
            DynamicData data = new DynamicData(type, null);
            data.setInt("id", id);
            data.setLength("m", id);
            if (id > 0) {
                data.setInt("m[" + (id - 1) + "]", 200 + id);
            }
            for (int i = 0; i < members.length; i++) {
                set(data, members[i], values[id][i]);
            }
            batch.add(data);
        }
        StreamWriter writer = rig.writer("everything", type, "create", "true", "mode", "upsert");
        // SQLite has no integer as large as the last row's.
        int taken = rig.server ? 3 : 2;
        assertEquals(taken, Rig.writeAll(writer, batch));
        assertEquals("1", rig.rows("SELECT id FROM everything WHERE h IS NULL AND l_f IS NULL"));
        assertEquals(batch.subList(0, taken), rig.read(rig.reader("everything", type), false));
        assertEquals(List.of(), rig.errors);
        TypeCode announced = (TypeCode) rig.announced("everything", "discover", "true").stream()
                .filter(each -> each.getStreamName().equals("everything")).findFirst().get()
                .getTypeInfo().getTypeRepresentation();
        assertTrue(announced.toIdl(), announced.member("id").key());
        assertEquals(taken, rig.read(rig.reader("everything", announced), false).size());
        assertEquals(List.of(), rig.errors);
    }

    /** More than a batch has by default; none of what a host could not convert, or reports. */
    @Test
    public void whatIsNoSampleIsTakenAndLeftOut() throws Exception {
        rig.sql("DROP TABLE IF EXISTS odd", "CREATE TABLE odd (id INT, v INT)");
        StreamWriter writer = rig.writer("odd", ROW);
        List<Object> many = new ArrayList<>(Collections.nCopies(1025, row(4, 4)));
        many.set(7, null);
        assertEquals(7, assertThrows(RejectedSampleException.class,
                () -> writer.write(many, null)).taken());
        many.remove(7);
        assertEquals(1024, writer.write(many, null));
        SampleInfo gone = new SampleInfo();
        gone.valid_data = false;
        assertEquals(2, writer.write(many.subList(0, 2), Arrays.asList(gone, null)));
        assertEquals(1, writer.write(many.subList(0, 1), Arrays.asList(gone)));
        assertEquals(2, writer.write(many.subList(0, 2), Arrays.asList("no info")));
        assertEquals("1034", rig.rows("SELECT count(*) FROM odd WHERE id = 4"));
    }

    @Test
    public void aLockedTableIsWaitedFor() throws Exception {
        rig.sql("DROP TABLE IF EXISTS locked", "CREATE TABLE locked (id INT, v INT)");
        String lock = rig.server ? "BEGIN; LOCK TABLE locked" : "BEGIN IMMEDIATE";
        rig.use(rig.server ? "driver.options" : "driver.busy_timeout",
                rig.server ? "-c lock_timeout=20" : "20");
        StreamWriter writer = rig.writer("locked", ROW, "retry_for", "20s");
        rig.sql(lock);
        var later = Executors.newSingleThreadScheduledExecutor();
        AtomicBoolean released = new AtomicBoolean();
        var release = later.schedule(() -> {
            released.set(true);
            rig.sql("COMMIT");
            return null;
        }, 500, TimeUnit.MILLISECONDS);
        assertEquals(2, Rig.write(writer, List.of(row(1, 1), row(2, 2)), List.of()));
        assertTrue(released.get());
        release.get();
        later.shutdown();
        assertEquals("1 1; 2 2", rig.rows("SELECT id, v FROM locked ORDER BY id"));
    }
}
