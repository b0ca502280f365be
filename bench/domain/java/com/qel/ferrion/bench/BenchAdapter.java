package com.qel.ferrion.bench;

import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.Properties;

/** The Java ends of the domain benchmark: readers make samples, writers count them. */
public final class BenchAdapter implements Adapter {
    public BenchAdapter(Properties properties) {}

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        return new BenchConnection();
    }

    @Override
    public void deleteConnection(Connection connection) {}

    @Override
    public Version getVersion() {
        return new Version(1, 0, 0, 0);
    }

    private static final class BenchConnection implements Connection {
        @Override
        public Session createSession(Properties properties) {
            return new Session() {};
        }

        @Override
        public void deleteSession(Session session) {}

        @Override
        public StreamReader createStreamReader(Session session, StreamInfo stream,
                Properties properties, StreamReaderListener listener) {
            return new Generator(type(stream), number(properties, "count"));
        }

        @Override
        public void deleteStreamReader(StreamReader reader) {}

        @Override
        public StreamWriter createStreamWriter(Session session, StreamInfo stream,
                Properties properties) throws AdapterException {
            return new Counter(type(stream), number(properties, "count"),
                    number(properties, "warmup"), properties.getProperty("report"));
        }

        @Override
        public void deleteStreamWriter(StreamWriter writer) {}

        @Override
        public String toString() {
            return "bench";
        }

        private static TypeCode type(StreamInfo stream) {
            return (TypeCode) stream.getTypeInfo().getTypeRepresentation();
        }

        private static int number(Properties properties, String name) {
            return Integer.parseInt(properties.getProperty(name, "0"));
        }
    }
}
