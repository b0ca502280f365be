package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.internal.OsLock;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.kit.Sample;
import com.qel.ferrion.kit.harness.TestHost;
import java.io.IOException;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Properties;
import java.util.Random;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.Rule;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** What stands in files after writes, also after writes that failed. */
public class WriteTest {
    private static final String ROW = "{\"id\":1,\"text\":\"a\",\"value\":1.0}\n";

    @Rule public final Host host = new Host();

    @Test
    public void aDisposalCountsAsTakenAndAMissingSampleDoesNot() throws Exception {
        SampleInfo gone = new SampleInfo();
        gone.valid_data = false;
        TestHost.Writer writer = host.writer("n.jsonl", Host.POINT);
        List<Sample> samples = Stream.of(new SampleInfo(), new SampleInfo(), gone, gone)
                .map(info -> new Sample(Host.point(1, "a", 1), info)).toList();
        assertEquals(4, writer.write(samples));
        host.inject(TestHost.Fault.MISSING_SAMPLES);
        assertEquals("the first of each write", 0, writer.write(samples.subList(0, 2)));
        assertEquals(2, writer.takeRejected().size());
        host.inject(TestHost.Fault.NO_INFOS);
        assertEquals(4, writer.write(samples));
        assertEquals(ROW.repeat(2 + 4), host.text("n.jsonl"));
    }

    /** The count is that of the samples in front of it, and they are in the file. */
    @Test
    public void aSampleThatCannotBeWrittenCostsNoOther() throws Exception {
        DynamicData other = new DynamicData(TypeCode.fromIdl("struct Other { string s; };", null),
                null);
        for (String name : new String[] {"o.jsonl", "o.csv"}) {
            TestHost.Writer writer = host.writer(name, Host.POINT);
            assertEquals(3, host.write(writer, Host.point(1, "a", 1), Host.point(2, "b", 2),
                    other, Host.point(3, "c", 3)));
            assertEquals(List.of(other),
                    writer.takeRejected().stream().map(Sample::data).toList());
            writer.delete();
            assertEquals(List.of(1, 2, 3),
                    Host.ids(host.readAll(host.reader(name, Host.POINT))));
        }
    }

    /** Most texts pass the CSV library by: what it would quote must not. */
    @Test
    public void cellsAreQuotedAsTheCsvLibraryDoes() throws Exception {
        TypeCode two = TypeCode.fromIdl("struct Two { string a; string b; };", null);
        String pieces = "a Z09é漢;\"\n\r\t#!'+-.,~";
        Random random = new Random(3);
        StringBuilder expected = new StringBuilder("a;b\n");
        List<DynamicData> rows = new ArrayList<>();
        for (int i = 0; i < 5000; i++) {
            String[] cells = new String[2];
            for (int j = 0; j < 2; j++) {
                cells[j] = random.ints(random.nextInt(4), 0, pieces.length())
                        .mapToObj(each -> pieces.substring(each, each + 1))
                        .collect(Collectors.joining());
            }
            CsvDecoder.format(';').printRecord(expected, (Object[]) cells);
            DynamicData row = new DynamicData(two, null);
            row.setString("a", cells[0]);
            row.setString("b", cells[1]);
            rows.add(row);
        }
        TestHost.Writer writer = host.writer("two.csv", two, "delimiter", ";");
        host.write(writer, rows.toArray(new DynamicData[0]));
        writer.delete();
        assertEquals(expected.toString(), host.text("two.csv"));
    }

    @Test
    public void aRowOfOneEmptyCellIsStillARow() throws Exception {
        TypeCode one = TypeCode.fromIdl("struct One { double only; };", null);
        DynamicData nothing = new DynamicData(one, null);
        nothing.setDouble("only", Double.NaN);
        TestHost.Writer writer = host.writer("one.csv", one);
        host.write(writer, nothing, nothing);
        writer.delete();
        assertEquals(List.of(nothing, nothing), host.readAll(host.reader("one.csv", one)));
    }

    private static String withoutHeader(String table) {
        assertTrue(table, table.startsWith("id,text,value\n"));
        return table.substring(table.indexOf('\n') + 1);
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
            Host.limitFileSize("65536");
            try {
                String failure = host.rejection(writer, batch);
                assertTrue(failure, failure.contains(name + ": cannot be written"));
                assertEquals(before, host.text(name));
                assertFalse(Files.exists(host.path(name + ".2")));
            } finally {
                Host.limitFileSize("unlimited");
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

    private void rejected(String text, ThrowingRunnable creation) {
        String message = assertThrows(text, AdapterException.class, creation).getMessage();
        assertTrue(message, message.contains(text));
    }

    /** As a host does that has one route: it writes before it gives the loan back. */
    @Test
    public void aRouteDoesNotAppendToWhatItReads() throws Exception {
        host.put("f.csv", "id,text,value\n1,a,1\n");
        Files.createLink(host.path("g.csv"), host.path("f.csv"));
        Properties properties = new Properties();
        properties.setProperty("directory", host.path("").toString());
        FileAdapter adapter = new FileAdapter(null);
        Connection connection = adapter.createConnection("c", null, null, null, properties);
        TypeInfo type = new TypeInfo("Point", Host.POINT);
        StreamReader reader = connection.createStreamReader(null,
                new StreamInfo("f.csv", type, false), null, null);
        StreamWriter circle = connection.createStreamWriter(null,
                new StreamInfo("g.csv", type, false), null);
        StreamWriter other = connection.createStreamWriter(null,
                new StreamInfo("h.csv", type, false), null);
        List<Object> samples = new ArrayList<>();
        List<Object> infos = new ArrayList<>();
        reader.read(samples, infos);
        rejected("what the reader of stream \"f.csv\" reads", () -> circle.write(samples, infos));
        assertEquals(1, other.write(samples, infos));
        reader.returnLoan(samples, infos);
        assertEquals("another route may", 1, circle.write(samples, infos));
        adapter.deleteConnection(connection);
    }

    /** Each process, and each class loader, asks the operating system in the end. */
    @Test
    public void whatSomebodyElseWritesIsLeftAlone() throws Exception {
        TestHost.Writer late = host.writer("late.csv", Host.POINT);
        host.put("held.csv", "id,text,value\n");
        host.put("late.csv", "");
        try (OsLock held = OsLock.tryLock(host.path("held.csv"), false);
                OsLock second = OsLock.tryLock(host.path("late.csv"), false)) {
            assertEquals(null, OsLock.tryLock(host.path("held.csv"), false));
            Files.readString(host.path("held.csv"));
            rejected("written by another process", () -> host.writer("held.csv", Host.POINT));
            assertTrue(host.rejection(late).contains("written by another process"));
            assertTrue(held.isOf(host.path("held.csv")) && second.isOf(host.path("late.csv"))
                    && !held.isOf(host.path("late.csv")));
        }
        assertEquals(1, host.write(late, Host.point(1, "a", 1)));
        assertEquals(null, OsLock.tryLock(host.path("late.csv"), false));
        TestHost.Writer rotating = host.writer("held.csv", Host.POINT, "rotate_bytes", "20");
        host.write(rotating, Host.point(1, "a", 1), Host.point(2, "b", 2));
        assertEquals(null, OsLock.tryLock(host.path("held.csv"), false));
        OsLock.tryLock(host.path("held.csv.1"), false).close();
        rotating.delete();
        OsLock.tryLock(host.path("held.csv"), false).close();
        String none = assertThrows(IOException.class,
                () -> OsLock.tryLock(host.path("none"), false)).getMessage();
        assertTrue(none, none.endsWith("none: no such file or directory"));
    }
}
