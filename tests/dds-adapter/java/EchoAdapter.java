import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.ArrayList;
import java.util.List;
import java.util.Properties;

/** What its one writer takes its one reader lends: samples and their information, in order. */
public final class EchoAdapter implements Adapter, Connection, StreamReader, StreamWriter {
    private final List<DynamicData> heldSamples = new ArrayList<>();
    private final List<SampleInfo> heldInfos = new ArrayList<>();

    public EchoAdapter(Properties properties) {}

    @Override public Connection createConnection(String first, String second,
            StreamReaderListener output, StreamReaderListener input, Properties properties) {
        return this;
    }

    @Override public void deleteConnection(Connection connection) {}

    @Override public Version getVersion() {
        return new Version(1, 0, 0, 0);
    }

    @Override public Session createSession(Properties properties) {
        return new Session() {};
    }

    @Override public void deleteSession(Session session) {}

    @Override public StreamReader createStreamReader(Session session, StreamInfo stream,
            Properties properties, StreamReaderListener listener) {
        return this;
    }

    @Override public void deleteStreamReader(StreamReader reader) {}

    @Override public StreamWriter createStreamWriter(Session session, StreamInfo stream,
            Properties properties) {
        return this;
    }

    @Override public void deleteStreamWriter(StreamWriter writer) {}

    @Override public synchronized int write(List<Object> samples, List<Object> infos) {
        for (int i = 0; i < samples.size(); i++) {
            DynamicData sample = (DynamicData) samples.get(i);
            heldSamples.add(new DynamicData(sample.type(), null));
            heldSamples.get(heldSamples.size() - 1).copyFrom(sample);
            heldInfos.add(new SampleInfo());
            heldInfos.get(heldInfos.size() - 1).copyFrom((SampleInfo) infos.get(i));
        }
        return samples.size();
    }

    @Override public synchronized void read(List<Object> samples, List<Object> infos) {
        samples.addAll(heldSamples);
        infos.addAll(heldInfos);
        heldSamples.clear();
        heldInfos.clear();
    }

    @Override public void returnLoan(List<Object> samples, List<Object> infos) {}
}
