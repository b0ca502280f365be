import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.StreamReaderBase;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.List;
import java.util.Properties;

/** A whole adapter on one page: its one stream is a heartbeat of this process's Java VM. */
public final class HeartbeatAdapter implements Adapter {
    public HeartbeatAdapter(Properties properties) {}

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        return new HeartbeatConnection();
    }

    @Override
    public void deleteConnection(Connection connection) {}

    @Override
    public Version getVersion() {
        return new Version(1, 0, 0, 0);
    }

    private static final class HeartbeatConnection implements Connection {
        @Override
        public Session createSession(Properties properties) {
            return new Session() {};
        }

        @Override
        public void deleteSession(Session session) {}

        @Override
        public StreamReader createStreamReader(Session session, StreamInfo stream,
                Properties properties, StreamReaderListener listener) {
            TypeCode type = (TypeCode) stream.getTypeInfo().getTypeRepresentation();
            // Null where the configuration has none.
            Properties given = properties != null ? properties : new Properties();
            long beats = Long.parseLong(given.getProperty("beats", "10"));
            return new HeartbeatReader(type, beats, listener);
        }

        @Override
        public void deleteStreamReader(StreamReader reader) {
            ((HeartbeatReader) reader).close();
        }

        @Override
        public StreamWriter createStreamWriter(Session session, StreamInfo stream,
                Properties properties) throws AdapterException {
            throw new AdapterException("heartbeats can only be read");
        }

        @Override
        public void deleteStreamWriter(StreamWriter writer) {}

        @Override
        public String toString() {
            return "heartbeat";
        }
    }

    /** Lends one sample a beat. StreamReaderBase sees to it that no signal comes too late. */
    private static final class HeartbeatReader extends StreamReaderBase {
        private final DynamicData sample;
        private final long beats;
        private final Thread ticker = new Thread(this::tick, "heartbeat");
        private long sent;
        private volatile long due;

        HeartbeatReader(TypeCode type, long beats, StreamReaderListener listener) {
            super(listener);
            this.beats = beats;
            sample = new DynamicData(type, DynamicData.PROPERTY_DEFAULT);
            ticker.setDaemon(true);
            ticker.start();
        }

        private void tick() {
            do {
                due++;
            } while (signal() && due < beats && pause());
        }

        private static boolean pause() {
            try {
                Thread.sleep(100);
                return true;
            } catch (InterruptedException e) {
                return false;
            }
        }

        @Override
        public void read(List<Object> samples, List<Object> infos) {
            if (sent < due) {
                sample.setLong("beat", ++sent);
                sample.setLong("used_bytes",
                        Runtime.getRuntime().totalMemory() - Runtime.getRuntime().freeMemory());
                samples.add(sample);
            }
        }

        @Override
        public void returnLoan(List<Object> samples, List<Object> infos) {}
    }
}
