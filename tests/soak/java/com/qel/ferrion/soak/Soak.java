package com.qel.ferrion.soak;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.*;
import com.qel.ferrion.adapter.infrastructure.*;
import java.io.File;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.*;
import javax.management.ObjectName;

/** An adapter, and also each object that it makes. "act" says what an object does wrong. */
public final class Soak extends StreamReaderBase
        implements Adapter, DiscoveryConnection, Session, StreamWriter {
    private static final TypeCode OTHER = TypeCode.fromIdl("struct Other { double x; };", null);

    private static double[] counts = {1e9, 1e9, 1e9};

    private final List<DynamicData> samples = new ArrayList<>();
    private final List<SampleInfo> infos = new ArrayList<>();
    private final TypeCode type;
    private final boolean isReader;
    private List<DiscoveryReader> discovery = List.of();
    private String act;
    private int count;
    private long next;

    public Soak(Properties properties) {
        this(properties, null, null);
    }

    private Soak(Properties properties, StreamInfo stream, StreamReaderListener listener) {
        super(listener);
        isReader = listener != null;
        type = stream != null ? (TypeCode) stream.getTypeInfo().getTypeRepresentation() : null;
        take(properties);
    }

    private void take(Properties properties) {
        act = properties.getProperty("act");
        count = Integer.parseInt(properties.getProperty("count"));
        if (act.equals("throw")) {
            throw new IllegalStateException("thrown");
        }
    }

    /** A reader signals, on a thread that comes and goes; a connection announces streams. */
    @Override public void update(Properties properties) {
        take(properties);
        if (isReader) {
            new Thread(this::signal).start();
        }
        for (int i = 0; i < 40; i++) {
            StreamInfo info = new StreamInfo("s", new TypeInfo("Other", OTHER), i % 2 == 1);
            discovery.forEach(reader -> reader.announce(info));
        }
    }

    @Override public void read(List<Object> lent, List<Object> lentInfos) {
        for (int i = 0; i < count; i++, next++) {
            if (i == samples.size()) {
                samples.add(new DynamicData(type, null));
                infos.add(new SampleInfo());
            }
            DynamicData gap = act.equals("odd") ? new DynamicData(OTHER, null) : null;
            lent.add(next % 97 == 5 ? gap : fill(samples.get(i), next));
            infos.get(i).sample_rank = (int) next;
            lentInfos.addAll(infos.subList(i, i + count % 2));
        }
        failLate();
    }

    private static DynamicData fill(DynamicData sample, long number) {
        sample.setLong("id", number);
        sample.setString("text", "é".repeat((int) (number % 7)) + "x".repeat((int) (number % 41)));
        sample.setLength("values", (int) (number % 13));
        for (int i = 0; i < number % 13; i++) {
            sample.setInt("values[" + i + "]", (int) (number % 1000) + i);
        }
        return sample;
    }

    private void failLate() {
        if (act.equals("late")) {
            throw new IllegalStateException("what was done is done");
        }
    }

    /** Compares what one reader lent, in its order. */
    @Override public int write(List<Object> given, List<Object> givenInfos) {
        DynamicData made = new DynamicData(type, null);
        for (int i = 0; i < given.size(); i++, next++) {
            Object wanted = next % 97 == 5 ? null : fill(made, next);
            if (!Objects.equals(wanted, given.get(i)) || !givenInfos.isEmpty()
                    && ((SampleInfo) givenInfos.get(i)).sample_rank != (int) next) {
                throw new IllegalArgumentException(given.get(i) + " is not " + wanted);
            }
        }
        failLate();
        return given.size();
    }

    @Override public void returnLoan(List<Object> lent, List<Object> lentInfos) {}

    @Override public Connection createConnection(String first, String second,
            StreamReaderListener output, StreamReaderListener input, Properties properties) {
        Soak made = new Soak(properties);
        made.discovery = List.of(new DiscoveryReader(input), new DiscoveryReader(output));
        return made;
    }

    /** The VM keeps a connection for ever, so this one lets go of what is large. */
    @Override public void deleteConnection(Connection connection) {
        Soak deleted = (Soak) connection;
        deleted.discovery.forEach(StreamReaderBase::close);
        deleted.discovery = null;
    }

    @Override public Session createSession(Properties properties) {
        return new Soak(properties);
    }

    @Override public StreamReader createStreamReader(Session session, StreamInfo stream,
            Properties properties, StreamReaderListener listener) {
        return new Soak(properties, stream, listener);
    }

    @Override public StreamWriter createStreamWriter(Session session, StreamInfo stream,
            Properties properties) {
        return new Soak(properties, stream, null);
    }

    @Override public void deleteStreamReader(StreamReader reader) {
        ((Soak) reader).close();
    }

    @Override public void deleteStreamWriter(StreamWriter writer) {}

    @Override public void deleteSession(Session session) {}

    @Override public StreamReader getInputStreamDiscoveryReader() {
        return discovery.get(0);
    }

    @Override public StreamReader getOutputStreamDiscoveryReader() {
        return discovery.get(1);
    }

    @Override public Version getVersion() {
        return new Version(1, 0, 0, 0);
    }

    @Override public String toString() {
        return "soak";
    }

    /**
     * Global references but for those kept by contract and weak ones, as the VM counts them,
     * threads, open files, bytes of heap after a collection, of non-heap, of resident memory. Waits
     * a while for what is on its way out: threads, and references of the VM's compilers.
     */
    public static double[] measure(double kept) throws Exception {
        int left = 100;
        boolean more = true;
        for (double[] before = counts; more && left > 0; left--) {
            Thread.sleep(10);
            Object report = ManagementFactory.getPlatformMBeanServer().invoke(
                    new ObjectName("com.sun.management:type=DiagnosticCommand"), "threadPrint",
                    new Object[] {new String[0]}, new String[] {String[].class.getName()});
            // It ends with "JNI global refs: 25, weak refs: 0".
            String[] numbers = report.toString().split("JNI global refs:")[1].split("[^0-9]+");
            counts = new double[] {Double.parseDouble(numbers[1]) - kept,
                Double.parseDouble(numbers[2]), new File("/proc/self/task").list().length};
            more = counts[0] > before[0] || counts[1] > before[1] || counts[2] > before[2];
        }
        System.gc();
        String status = Files.readString(Path.of("/proc/self/status"));
        return new double[] {counts[0], counts[1], counts[2],
            new File("/proc/self/fd").list().length,
            ManagementFactory.getMemoryMXBean().getHeapMemoryUsage().getUsed(),
            ManagementFactory.getMemoryMXBean().getNonHeapMemoryUsage().getUsed(),
            Double.parseDouble(status.split("VmRSS:")[1].split("kB")[0]) * 1024};
    }
}
