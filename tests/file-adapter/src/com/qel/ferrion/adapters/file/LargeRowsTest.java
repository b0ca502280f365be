package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.kit.harness.TestHost;
import java.io.RandomAccessFile;
import java.nio.file.Files;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;

/** Files for which a heap of 64 MB is small, with the settings that all begin with. */
public class LargeRowsTest {
    private static final TypeCode TYPE = TypeCode.fromIdl("struct Part { long n; string s; };"
            + "struct Wide { octet bytes[10000]; }; struct Large { long id; string text;"
            + "sequence<octet> data; sequence<Part> parts; sequence<Wide> wide; };", null);

    @Rule public final Host host = new Host();

    /** Fills one member, so that its row takes about so many bytes. */
    private static void fill(DynamicData data, int kind, int bytes) {
        switch (kind) {
        case 0:
            data.setString("text", "long, \"quoted\" ".repeat(bytes / 15));
            break;
        case 1:
            data.setLength("data", bytes / 4);
            data.setInt("data[" + (bytes / 4 - 1) + "]", 255);
            break;
        default:
            data.setLength("parts", bytes / 20_000);
            for (int i = 0; i < bytes / 20_000; i++) {
                data.setString("parts[" + i + "].s", "é\n".repeat(6_000));
            }
            break;
        }
    }

    private void copy(String from, String to) throws Exception {
        TestHost.Reader reader = host.reader(from, TYPE);
        TestHost.Writer writer = host.writer(to, TYPE);
        List<DynamicData> rows = host.read(reader);
        for (; !rows.isEmpty(); rows = host.read(reader)) {
            assertEquals(rows.size(), host.write(writer, rows.toArray(new DynamicData[0])));
        }
        assertEquals(List.of(), host.errors);
        writer.delete();
        reader.delete();
    }

    @Test
    public void rowsOfAnySizePassThroughASmallHeap() throws Exception {
        int rows = 0;
        TestHost.Writer writer = host.writer("first.csv", TYPE);
        DynamicData data = new DynamicData(TYPE, null);
        for (; rows < 400; rows++) {
            data.clear();
            data.setInt("id", rows);
            fill(data, rows % 10 == 9 ? 1 : rows % 2 * 2,
                    rows % 80 == 79 ? 2_000_000 : rows % 20 == 0 ? 10 : 120_000);
            assertEquals(1, host.write(writer, data));
        }
        writer.delete();
        copy("first.csv", "second.jsonl");
        copy("second.jsonl", "third.csv");
        assertEquals(-1, Files.mismatch(host.path("first.csv"), host.path("third.csv")));
    }

    @Test
    public void aRowThatNoHeapTakesIsABadRowAndTellsWhatHelps() throws Exception {
        host.put("f.jsonl", "{\"id\":1}\n{\"wide\":[" + "{},".repeat(10_000) + "{}]}\n{\"id\":3}");
        TestHost.Reader reader = host.reader("f.jsonl", TYPE);
        assertEquals(List.of(1, 3), Host.ids(host.readAll(reader)));
        assertEquals(1, host.errors.size());
        String text = host.errors.remove(0);
        assertTrue(text, text.contains("f.jsonl:2: a row of 30013 bytes") && text.contains("-Xmx"));
        try (RandomAccessFile file = new RandomAccessFile(host.path("g.jsonl").toFile(), "rw")) {
            file.setLength(200 << 20);
        }
        host.read(host.reader("g.jsonl", TYPE, "max_record_bytes", "1000000000"));
        text = host.errors.remove(0);
        assertTrue(text, text.contains("a row of more than ") && text.contains("-Xmx"));
    }
}
