package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNull;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.kit.harness.TestHost;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import java.util.TreeMap;
import java.util.concurrent.Semaphore;
import java.util.concurrent.TimeUnit;
import org.junit.Rule;
import org.junit.Test;

/** Streams found in a directory, and properties of connections. */
public class DiscoveryTest {
    @Rule public final Host host = new Host();
    private final Semaphore signals = new Semaphore(0);

    private Map<String, StreamInfo> news(StreamReader reader) throws Exception {
        Map<String, StreamInfo> found = new TreeMap<>();
        List<Object> samples = new ArrayList<>();
        reader.read(samples, new ArrayList<>());
        samples.forEach(info -> found.put(((StreamInfo) info).getStreamName(), (StreamInfo) info));
        reader.returnLoan(samples, new ArrayList<>());
        return found;
    }

    private Map<String, StreamInfo> awaitNews(StreamReader reader) throws Exception {
        assertTrue("no signal", signals.tryAcquire(10, TimeUnit.SECONDS));
        return news(reader);
    }

    @Test
    public void filesAppearWithTheirTypesAndVanish() throws Exception {
        host.put("a.idl", "module m { struct First { long x; }; struct Last { long y; }; };");
        host.put("a.csv", "y\n1\n");
        host.put("bad.idl", "struct {");
        host.put("bad.jsonl", "");
        host.put("notes.txt", "");
        host.put("rejects.jsonl", "{\"rejected\":\"a.csv\",\"line\":2}\n");
        FileAdapter adapter = new FileAdapter(null);
        Properties properties = new Properties();
        properties.setProperty("directory", host.path("").toString());
        properties.setProperty("poll_ms", "20");
        DiscoveryConnection connection = (DiscoveryConnection) adapter.createConnection("files",
                null, null, source -> signals.release(), properties);
        StreamReader reader = connection.getInputStreamDiscoveryReader();
        assertSame(reader, connection.getInputStreamDiscoveryReader());
        Map<String, StreamInfo> first = news(reader);
        assertEquals("[a.csv, bad.jsonl]", first.keySet().toString());
        assertEquals("m::Last", first.get("a.csv").getTypeInfo().getTypeName());
        assertTrue(first.get("a.csv").getTypeInfo().getTypeRepresentation() instanceof TypeCode);
        assertNull(first.get("bad.jsonl").getTypeInfo().getTypeRepresentation());
        assertTrue(host.logged.toString(), host.logged.get(0).contains("bad.jsonl"));

        signals.drainPermits();
        host.put("c.jsonl", "");
        Map<String, StreamInfo> second = awaitNews(reader);
        assertEquals("[c.jsonl]", second.keySet().toString());
        Files.delete(host.path("a.csv"));
        StreamInfo gone = awaitNews(reader).get("a.csv");
        assertTrue(gone.isDisposed());
        host.put("a.csv", "y\n");
        assertEquals("m::Last", awaitNews(reader).get("a.csv").getTypeInfo().getTypeName());
        assertTrue(news(connection.getOutputStreamDiscoveryReader()).isEmpty());
        adapter.deleteConnection(connection);
    }

    @Test
    public void aConnectionMayGiveOneTypeForAllFiles() throws Exception {
        host.put("types.idl", "struct One { long x; }; struct Two { long y; };");
        host.put("x.csv", "x\n");
        TestHost.Link other = host.connect("directory", host.path("").toString(), "type_idl",
                host.path("types.idl").toString(), "type_name", "One");
        assertEquals("One", other.announced().get("x.csv").getTypeInfo().getTypeName());
    }

    @Test
    public void connectionsNeedAFolder() throws Exception {
        String file = host.put("file", "").toString();
        String text = assertThrows(AdapterException.class, () -> host.connect("directory", file))
                .getMessage();
        assertTrue(text, text.contains("is not a directory"));
        host.connect("directory", "/tmp", "qel.ferrion.jni.initial_samples", "16");
    }
}
