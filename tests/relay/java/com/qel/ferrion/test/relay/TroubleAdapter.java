package com.qel.ferrion.test.relay;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.List;
import java.util.Properties;
import java.util.concurrent.CountDownLatch;

/**
 * An adapter that makes trouble where its property {@code at} says, of the kind that {@code kind}
 * says. Without trouble its readers count from 0 up to property {@code count}, a sample a signal,
 * and its writers take everything.
 */
public final class TroubleAdapter implements Adapter {
    private final String place;
    private final String kind;

    /** @param properties {@code at}, a method's name, and {@code kind}: throw, hang or exit */
    public TroubleAdapter(Properties properties) {
        place = properties.getProperty("at", "");
        kind = properties.getProperty("kind", "throw");
        if (kind.equals("thread")) {
            new Thread(TroubleAdapter::hang).start();
        }
        at("constructor");
    }

    private static void hang() {
        try {
            new CountDownLatch(1).await();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private void at(String method) {
        if (!method.equals(place)) {
            return;
        }
        switch (kind) {
            case "hang" -> hang();
            case "exit" -> System.exit(0);
            case "throw" -> throw new IllegalStateException("trouble in " + method);
            default -> throw new Error("trouble in " + method);
        }
    }

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        at("createConnection");
        return new TroubleConnection(Long.parseLong(properties.getProperty("count", "1")));
    }

    @Override
    public void deleteConnection(Connection connection) {
        at("deleteConnection");
    }

    @Override
    public Version getVersion() {
        at("getVersion");
        return new Version(0, 0, 0, 1);
    }

    // The host calls it through its contract.
    @SuppressWarnings("deprecation")
    @Override
    protected void finalize() {
        at("finalize");
    }

    private final class TroubleConnection implements Connection {
        private final long count;

        TroubleConnection(long count) {
            this.count = count;
        }

        @Override
        public Session createSession(Properties properties) {
            at("createSession");
            return new Session() {};
        }

        @Override
        public void deleteSession(Session session) {
            at("deleteSession");
        }

        @Override
        public StreamReader createStreamReader(Session session, StreamInfo stream,
                Properties properties, StreamReaderListener listener) {
            at("createStreamReader");
            return new Counting(stream, listener, count);
        }

        @Override
        public void deleteStreamReader(StreamReader reader) {
            at("deleteStreamReader");
        }

        @Override
        public StreamWriter createStreamWriter(Session session, StreamInfo stream,
                Properties properties) {
            at("createStreamWriter");
            return (samples, infos) -> {
                at("write");
                return samples.size();
            };
        }

        @Override
        public void deleteStreamWriter(StreamWriter writer) {
            at("deleteStreamWriter");
        }

        @Override
        public String toString() {
            at("toString");
            return "trouble";
        }
    }

    private final class Counting implements StreamReader {
        private final DynamicData sample;
        private final StreamReaderListener listener;
        private final long count;
        private long next;

        Counting(StreamInfo stream, StreamReaderListener listener, long count) {
            sample = new DynamicData((TypeCode) stream.getTypeInfo().getTypeRepresentation(),
                    DynamicData.PROPERTY_DEFAULT);
            this.listener = listener;
            this.count = count;
        }

        @Override
        public void read(List<Object> samples, List<Object> infos) {
            at("read");
            if (next < count) {
                sample.setLong("n", next++);
                samples.add(sample);
            }
        }

        @Override
        public void returnLoan(List<Object> samples, List<Object> infos) {
            at("returnLoan");
            if (next < count) {
                listener.onDataAvailable(this);
            }
        }
    }
}
