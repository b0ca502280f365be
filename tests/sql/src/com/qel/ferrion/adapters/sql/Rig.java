package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.kit.BadSamplesException;
import com.qel.ferrion.kit.RejectedRecord;
import com.qel.ferrion.kit.RejectedSampleException;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.ResultSet;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import java.util.StringJoiner;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.Semaphore;
import java.util.concurrent.TimeUnit;
import org.junit.rules.ExternalResource;
import org.junit.rules.TemporaryFolder;

/**
 * Drives the adapter as a host does, over a new SQLite file, or over the server that the system
 * property {@code sql.url} names; there the tests' tables are made anew.
 */
final class Rig extends ExternalResource {
    final TemporaryFolder folder = new TemporaryFolder();
    final List<String> errors = new ArrayList<>();
    long bad;
    /** What the host is to set aside. */
    final List<RejectedRecord> records = new ArrayList<>();
    /** How many samples reported an instance's end. */
    long ends;
    boolean server;
    String url;
    DiscoveryConnection connection;
    private final Map<StreamReader, Semaphore> signals = new ConcurrentHashMap<>();
    private SqlAdapter adapter;
    private Connection direct;

    @Override
    protected void before() throws Throwable {
        folder.create();
        url = System.getProperty("sql.url");
        server = url != null;
        url = server ? url : "jdbc:sqlite:" + folder.getRoot() + "/test.db";
        direct = DriverManager.getConnection(url);
        adapter = new SqlAdapter(null);
        connection = connect();
    }

    @Override
    protected void after() {
        adapter.deleteConnection(connection);
        folder.delete();
    }

    DiscoveryConnection connect(String... more) throws AdapterException {
        Properties properties = properties(more);
        properties.setProperty("url", url);
        return (DiscoveryConnection) adapter.createConnection("test", null, null, null, properties);
    }

    void delete(DiscoveryConnection other) {
        adapter.deleteConnection(other);
    }

    /** Has another connection in place of the one before. */
    void use(String... more) throws AdapterException {
        adapter.deleteConnection(connection);
        connection = connect(more);
    }

    static Properties properties(String... pairs) {
        Properties properties = new Properties();
        for (int i = 0; i < pairs.length; i += 2) {
            properties.setProperty(pairs[i], pairs[i + 1]);
        }
        return properties;
    }

    Connection direct() {
        return direct;
    }

    void sql(String... statements) throws Exception {
        try (Statement statement = direct.createStatement()) {
            for (String each : statements) {
                statement.execute(each);
            }
        }
    }

    /** All rows of a query, cells by blanks, rows by semicolons. */
    String rows(String query) throws Exception {
        StringJoiner rows = new StringJoiner("; ");
        try (Statement statement = direct.createStatement();
                ResultSet row = statement.executeQuery(query)) {
            while (row.next()) {
                StringJoiner cells = new StringJoiner(" ");
                for (int i = 1; i <= row.getMetaData().getColumnCount(); i++) {
                    cells.add(String.valueOf(row.getString(i)));
                }
                rows.add(cells.toString());
            }
        }
        return rows.toString();
    }

    private static StreamInfo stream(String table, TypeCode type) {
        return new StreamInfo(table, new TypeInfo(type.name(), type), false);
    }

    StreamReader reader(String table, TypeCode type, String... pairs) throws AdapterException {
        Properties properties = properties(pairs);
        properties.putIfAbsent("position_file", "none");
        properties.putIfAbsent("poll", "10ms");
        return connection.createStreamReader(null, stream(table, type), properties,
                reader -> signalsOf(reader).release());
    }

    StreamWriter writer(String table, TypeCode type, String... pairs) throws AdapterException {
        return connection.createStreamWriter(null, stream(table, type), properties(pairs));
    }

    /** One read; what it threw goes to the errors. A host that dies does not return the loan. */
    List<DynamicData> read(StreamReader reader, boolean dies) throws AdapterException {
        List<Object> samples = new ArrayList<>();
        List<Object> infos = new ArrayList<>();
        try {
            reader.read(samples, infos);
        } catch (BadSamplesException e) {
            bad += e.count();
            records.addAll(e.records());
            errors.add(e.getMessage());
        } catch (AdapterException e) {
            errors.add(e.getMessage());
        }
        ends += infos.stream().filter(info -> !((SampleInfo) info).valid_data).count();
        List<DynamicData> copies = new ArrayList<>();
        for (Object sample : samples) {
            DynamicData copy = new DynamicData(((DynamicData) sample).type(), null);
            copy.copyFrom((DynamicData) sample);
            copies.add(copy);
        }
        if (!dies) {
            reader.returnLoan(samples, infos);
        }
        return copies;
    }

    private Semaphore signalsOf(StreamReader reader) {
        return signals.computeIfAbsent(reader, any -> new Semaphore(0));
    }

    /** Reads until there are so many samples, when signalled and never else. */
    List<DynamicData> readUntil(StreamReader reader, int count) throws Exception {
        List<DynamicData> found = new ArrayList<>();
        while (found.size() < count) {
            assertTrue("no signal", signalsOf(reader).tryAcquire(30, TimeUnit.SECONDS));
            signalsOf(reader).drainPermits();
            found.addAll(read(reader, false));
        }
        return found;
    }

    /** The streams that a connection which discovers has announced, as soon as one is there. */
    List<StreamInfo> announced(String until, String... properties) throws Exception {
        List<Object> found = new ArrayList<>();
        DiscoveryConnection other = connect(properties);
        StreamReader tables = other.getInputStreamDiscoveryReader();
        while (found.stream().noneMatch(each ->
                ((StreamInfo) each).getStreamName().equals(until))) {
            Thread.sleep(5);
            tables.read(found, new ArrayList<>());
        }
        delete(other);
        return found.stream().map(each -> (StreamInfo) each).toList();
    }

    /** Writes samples as a host does that sets bad ones aside. @return how many were taken */
    static int writeAll(StreamWriter writer, List<DynamicData> samples) throws AdapterException {
        return writeNumbered(writer, samples, 0);
    }

    /** The same with numbers, of which {@code first} is the first; 0 stands for none. */
    static int writeNumbered(StreamWriter writer, List<DynamicData> samples, int first)
            throws AdapterException {
        List<Object> infos = new ArrayList<>();
        for (int i = 0; i < samples.size(); i++) {
            SampleInfo info = new SampleInfo();
            info.publication_sequence_number = first == 0 ? 0 : first + i;
            infos.add(info);
        }
        int bad = 0;
        for (int from = 0; from < samples.size();) {
            try {
                from += writer.write(new ArrayList<>(samples.subList(from, samples.size())),
                        infos.subList(from, samples.size()));
            } catch (RejectedSampleException one) {
                from += one.taken() + 1;
                bad++;
            }
        }
        return samples.size() - bad;
    }

    /** Writes samples; one that is in {@code disposed} stands for its instance's end. */
    static int write(StreamWriter writer, List<DynamicData> samples, List<DynamicData> disposed)
            throws AdapterException {
        List<Object> infos = new ArrayList<>();
        for (DynamicData sample : samples) {
            SampleInfo info = new SampleInfo();
            info.valid_data = disposed.stream().noneMatch(each -> each == sample);
            info.instance_state = info.valid_data ? SampleInfo.ALIVE_INSTANCE_STATE
                    : SampleInfo.NOT_ALIVE_DISPOSED_INSTANCE_STATE;
            infos.add(info);
        }
        return writer.write(new ArrayList<>(samples), infos);
    }
}
