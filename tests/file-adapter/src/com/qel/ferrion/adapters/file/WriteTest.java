package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.Sample;
import com.qel.ferrion.kit.harness.TestHost;
import java.nio.file.Files;
import java.util.Arrays;
import java.util.List;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.Rule;
import org.junit.Test;

/** What stands in files after writes, also after writes that failed. */
public class WriteTest {
    private static final String ROW = "{\"id\":1,\"text\":\"a\",\"value\":1.0}\n";

    @Rule public final Host host = new Host();

    @Test
    public void modesDecideWhatHappensToAnEarlierFile() throws Exception {
        for (String mode : new String[] {"append", "overwrite", "create"}) {
            host.put("m.jsonl", "old\n");
            TestHost.Writer writer = host.writer("m.jsonl", Host.POINT, "mode", mode);
            assertEquals("making a writer touches nothing", "old\n", host.text("m.jsonl"));
            if (mode.equals("create")) {
                assertTrue(host.refusal(writer).contains("m.jsonl: exists, and mode is 'create'"));
                assertEquals("old\n", host.text("m.jsonl"));
                Files.delete(host.path("m.jsonl"));
            }
            host.write(writer, Host.point(1, "a", 1));
            host.write(writer, Host.point(1, "a", 1));
            writer.delete();
            assertEquals((mode.equals("append") ? "old\n" : "") + ROW + ROW, host.text("m.jsonl"));
        }
    }

    @Test
    public void appendingGoesOnWhereTheLastRecordEnds() throws Exception {
        host.put("a.jsonl", "{\"id\":0}");
        host.write(host.writer("a.jsonl", Host.POINT), Host.point(1, "a", 1));
        assertEquals("{\"id\":0}\n" + ROW, host.text("a.jsonl"));

        host.put("a.csv", "id,text,value\r\n1,\"a\nb\",1");
        TestHost.Writer table = host.writer("a.csv", Host.POINT);
        host.write(table, Host.point(2, "", Double.NaN));
        host.write(table, Host.point(3, "", 3));
        assertEquals("id,text,value\r\n1,\"a\nb\",1\n2,,\n3,,3.0\n", host.text("a.csv"));

        host.put("b.csv", "id,value\n1,1\n");
        assertTrue(host.refusal(host.writer("b.csv", Host.POINT)).contains("its header is not"));
        host.put("c.csv", "id,text,value\n1,\"a\nb");
        assertTrue(host.refusal(host.writer("c.csv", Host.POINT)).contains("c.csv:2: quote is not"));
        assertEquals("id,text,value\n1,\"a\nb", host.text("c.csv"));
    }

    @Test
    public void aDisposalCountsAsTakenAndAMissingSampleDoesNot() throws Exception {
        SampleInfo gone = new SampleInfo();
        gone.valid_data = false;
        TestHost.Writer writer = host.writer("n.jsonl", Host.POINT);
        List<Sample> samples = Stream.of(new SampleInfo(), new SampleInfo(), gone, gone)
                .map(info -> new Sample(Host.point(1, "a", 1), info)).toList();
        assertEquals(4, writer.write(samples));
        host.inject(TestHost.Fault.MISSING_SAMPLES);
        assertEquals(2, writer.write(samples));
        host.inject(TestHost.Fault.NO_INFOS);
        assertEquals(4, writer.write(samples));
        assertEquals(ROW.repeat(2 + 1 + 4), host.text("n.jsonl"));
    }

    @Test
    public void aSampleThatCannotBeWrittenCostsNoOther() throws Exception {
        DynamicData other = new DynamicData(TypeCode.fromIdl("struct Other { string s; };", null),
                null);
        for (String name : new String[] {"o.jsonl", "o.csv"}) {
            TestHost.Writer writer = host.writer(name, Host.POINT);
            assertEquals(2, host.write(writer, Host.point(1, "a", 1), other,
                    Host.point(2, "b", 2)));
            List<DynamicData> rows = host.readAll(host.reader(name, Host.POINT));
            assertEquals(List.of(Host.point(1, "a", 1), Host.point(2, "b", 2)), rows);
        }
    }

    @Test
    public void aRowOfOneEmptyCellIsStillARow() throws Exception {
        TypeCode one = TypeCode.fromIdl("struct One { double only; };", null);
        DynamicData nothing = new DynamicData(one, null);
        nothing.setDouble("only", Double.NaN);
        host.write(host.writer("one.csv", one), nothing, nothing);
        assertEquals(List.of(nothing, nothing), host.readAll(host.reader("one.csv", one)));
    }

    @Test
    public void filesRotateBetweenRecordsAndLoseNone() throws Exception {
        host.put("r.csv.4", "earlier");
        TestHost.Writer writer = host.writer("r.csv", Host.POINT, "rotate_bytes", "60");
        int id = 100;
        for (int batch = 0; batch < 4; batch++) {
            host.write(writer, Host.point(id++, "a\nb", 1), Host.point(id++, "", 2),
                    Host.point(id++, "c", 3));
        }
        host.write(writer, Host.point(id++, "x".repeat(100), 1));
        writer.update("rotate_bytes", "0");
        assertTrue(assertThrows(AdapterException.class, () -> writer.update("rotate_bytes", "9",
                "mode", "create")).getMessage().contains("'mode' cannot"));
        host.write(writer, Host.point(id++, "y".repeat(100), 1));
        writer.delete();

        assertEquals("earlier", host.text("r.csv.4"));
        int files = 5;
        for (; Files.exists(host.path("r.csv." + files)); files++) {
            assertTrue(Files.size(host.path("r.csv." + files)) <= 60);
        }
        assertTrue("rotated " + files, files >= 8);
        assertEquals(IntStream.range(100, id).boxed().toList(), idsOf("r.csv", 5));
    }

    private static String withoutHeader(String table) {
        assertTrue(table, table.startsWith("id,text,value\n"));
        return table.substring(table.indexOf('\n') + 1);
    }

    @Test
    public void aFullDiskNamesTheFile() throws Exception {
        Files.createSymbolicLink(host.path("full.jsonl"), java.nio.file.Path.of("/dev/full"));
        String text = host.refusal(host.writer("full.jsonl", Host.POINT));
        assertTrue(text, text.contains("full.jsonl: cannot be written"));
        assertTrue(text, text.contains("No space left"));
    }

    @Test
    public void aFailedBatchLeavesNothingAndCanBeWrittenAgain() throws Exception {
        for (String rotate : new String[] {"0", "20000"}) {
            String name = "l" + rotate + ".csv";
            TestHost.Writer writer = host.writer(name, Host.POINT, "rotate_bytes", rotate);
            for (int id = 1; id <= 30; id++) {
                host.write(writer, Host.point(id, "z".repeat(1000), 1));
            }
            String before = host.text(name);
            assertEquals(!rotate.equals("0"), Files.exists(host.path(name + ".1")));
            // One record alone is larger than a file may grow, behind some that fit.
            DynamicData[] batch = new DynamicData[40];
            Arrays.setAll(batch, i -> Host.point(31 + i, "x".repeat(i < 39 ? 1000 : 90000), 1));
            limitFileSize("65536");
            try {
                String failure = host.refusal(writer, batch);
                assertTrue(failure, failure.contains(name + ": cannot be written"));
                assertEquals(before, host.text(name));
                assertFalse(Files.exists(host.path(name + ".2")));
            } finally {
                limitFileSize("unlimited");
            }
            assertEquals(40, host.write(writer, batch));
            writer.delete();
            assertEquals(IntStream.rangeClosed(1, 70).boxed().toList(), idsOf(name, 1));
        }
    }

    /** Ids in a table and the files rotated away from it from a number on, oldest first. */
    private List<Integer> idsOf(String name, int first) throws Exception {
        StringBuilder all = new StringBuilder("id,text,value\n");
        for (int i = first; Files.exists(host.path(name + "." + i)); i++) {
            all.append(withoutHeader(host.text(name + "." + i)));
        }
        host.put("joined.csv", all + withoutHeader(host.text(name)));
        return Host.ids(host.readAll(host.reader("joined.csv", Host.POINT)));
    }

    private static void limitFileSize(String bytes) throws Exception {
        Process process = new ProcessBuilder("prlimit", "--pid",
                Long.toString(ProcessHandle.current().pid()), "--fsize=" + bytes + ":unlimited")
                .inheritIO().start();
        assertEquals(0, process.waitFor());
    }

    @Test
    public void aFileHasOneWriter() throws Exception {
        TestHost.Writer first = host.writer("w.csv", Host.POINT);
        assertTrue(assertThrows(AdapterException.class, () -> host.writer("other", Host.POINT,
                "file", "w.csv")).getMessage().contains("another writer"));
        first.delete();
        host.writer("other", Host.POINT, "file", "w.csv");
    }
}
