package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.kit.harness.TestHost;
import java.nio.file.Files;
import java.nio.file.StandardOpenOption;
import java.time.Duration;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;

/** Files that grow, are cut back, are replaced, or come later than their reader. */
public class FollowTest {
    private static final String HEADER = "id,text,value\n";

    @Rule public final Host host = new Host();

    private void append(String name, String content) throws Exception {
        Files.writeString(host.path(name), content, StandardOpenOption.APPEND);
    }

    private TestHost.Reader follow(String name) throws Exception {
        return host.reader(name, Host.POINT, "follow", "true");
    }

    /** Leaves no signal under way: what comes next is news. */
    private void settle(TestHost.Reader reader) throws Exception {
        do {
            assertEquals(List.of(), host.read(reader));
        } while (reader.awaitSignal(Duration.ofMillis(100)));
    }

    /** Looks some times in vain. */
    private void settleOnce(TestHost.Reader reader) throws Exception {
        for (int i = 0; i < 3; i++) {
            assertTrue(reader.awaitSignal(Duration.ofSeconds(10)));
            assertEquals(List.of(), host.read(reader));
        }
    }

    @Test
    public void anUnfinishedRowWaitsForItsEnd() throws Exception {
        host.put("f.csv", HEADER + "1,a,1\n2,\"two\nli");
        TestHost.Reader reader = host.reader("f.csv", Host.POINT, "follow", "true",
                "quote_wait_ms", "0");
        assertEquals(List.of(1), Host.ids(host.await(reader, 1)));
        settle(reader);
        append("f.csv", "nes\",1");
        settle(reader);
        append("f.csv", "5\n3,c,");
        List<DynamicData> rows = host.await(reader, 1);
        assertEquals(List.of(Host.point(2, "two\nlines", 15)), rows);
        append("f.csv", "x\n");
        host.await(reader, 1).forEach(row -> assertFalse(true));
        assertEquals(1, host.errors.size());
        assertTrue(host.errors.get(0), host.errors.get(0).contains("f.csv:5: value: 'x'"));
    }

    @Test
    public void aFileThatIsCutBackIsReadAgainFromItsStart() throws Exception {
        host.put("f.csv", HEADER + "1,a,1\n2,b,2\n");
        TestHost.Reader reader = follow("f.csv");
        assertEquals(List.of(1, 2), Host.ids(host.await(reader, 2)));
        settle(reader);
        host.put("f.csv", "text,id\nz,7\n");
        List<DynamicData> rows = host.await(reader, 1);
        assertEquals(List.of(Host.point(7, "z", 0)), rows);
        assertTrue(host.logged.toString(), host.logged.get(0).contains("was cut back to 12 bytes"));
    }

    @Test
    public void aReplacedFileIsReadToItsEndBeforeItsSuccessor() throws Exception {
        host.put("f.jsonl", "{\"id\":1}\n");
        TestHost.Reader reader = host.reader("f.jsonl", Host.POINT, "follow", "true", "linger_ms",
                "3600000");
        assertEquals(List.of(1), Host.ids(host.await(reader, 1)));
        Files.move(host.path("f.jsonl"), host.path("f.jsonl.1"));
        host.put("f.jsonl", "{\"id\":4}\n{\"id\":5}\n");
        settleOnce(reader);
        append("f.jsonl.1", "{\"id\":2}\n{\"id\":3}");
        assertEquals(List.of(2), Host.ids(host.await(reader, 1)));
        settleOnce(reader);
        reader.update("linger_ms", "0");
        assertEquals(List.of(3, 4, 5), Host.ids(host.await(reader, 3)));
        append("f.jsonl", "{\"id\":6}\n");
        assertEquals(List.of(6), Host.ids(host.await(reader, 1)));
        assertTrue(host.logged.toString(), host.logged.get(0).contains("another file now"));
        assertEquals(List.of(), host.errors);
    }

    @Test
    public void aQuoteThatIsNeverClosedHoldsUpTheRowsBehindItForSomeTimeOnly() throws Exception {
        host.put("f.csv", HEADER + "1,\"open,1\n2,b,2\n3,\"open, too,1\n4,d,4\n");
        TestHost.Reader reader = host.reader("f.csv", Host.POINT, "follow", "true",
                "quote_wait_ms", "300");
        assertEquals(List.of(2), Host.ids(host.await(reader, 1)));
        assertTrue(host.errors.remove(0).contains("f.csv:2: text after a closing quote"));
        assertEquals(List.of(4), Host.ids(host.await(reader, 1)));
        assertTrue(host.errors.toString(),
                host.errors.get(0).contains("f.csv:4: quote is not closed in time"));
    }

    @Test
    public void aFileMayComeLaterThanItsReader() throws Exception {
        TestHost.Reader reader = follow("late.csv");
        settle(reader);
        host.put("late.csv", "id,te");
        settle(reader);
        append("late.csv", "xt,value\n1,a,1\n");
        assertEquals(List.of(1), Host.ids(host.await(reader, 1)));
    }

    @Test
    public void aLaterHeaderThatDoesNotFitStopsTheReader() throws Exception {
        TestHost.Reader reader = follow("late.csv");
        host.put("late.csv", "id,texd\n1,a\n");
        host.await(reader, 1).forEach(row -> assertFalse(true));
        assertEquals(1, host.errors.size());
        assertTrue(host.errors.get(0), host.errors.get(0).contains("column 2 'texd'")
                && host.errors.get(0).contains("reading stops here"));
    }

    @Test
    public void noSignalComesAfterAReaderIsDeletedAndThreadsEnd() throws Exception {
        host.put("f.jsonl", "{\"id\":1}\n");
        TestHost.Reader reader = follow("f.jsonl");
        host.await(reader, 1);
        assertTrue(watchers() == 1);
        reader.delete();
        append("f.jsonl", "{\"id\":2}\n");
        Thread.sleep(200); // in which the host would notice a signal
        host.connection.delete();
        assertEquals(0, watchers());
    }

    private static long watchers() {
        return Thread.getAllStackTraces().keySet().stream()
                .filter(thread -> thread.getName().equals("file-watch-files") && thread.isDaemon())
                .count();
    }
}
