package com.qel.ferrion.bench.bridge;

import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.HexFormat;
import java.util.Properties;

/** The adapter on which the bridge and a loop written by hand are measured. */
public final class StubAdapter implements Adapter {
    public StubAdapter(Properties properties) {}

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        return new StubConnection();
    }

    @Override
    public void deleteConnection(Connection connection) {}

    @Override
    public Version getVersion() {
        return new Version(1, 0, 0, 0);
    }

    private static final class StubConnection implements Connection {
        @Override
        public Session createSession(Properties properties) {
            return new Session() {};
        }

        @Override
        public void deleteSession(Session session) {}

        @Override
        public StreamReader createStreamReader(Session session, StreamInfo stream,
                Properties properties, StreamReaderListener listener) {
            return new StubReader(type(stream), Integer.parseInt(properties.getProperty("batch")),
                    Boolean.parseBoolean(properties.getProperty("fresh")),
                    HexFormat.of().parseHex(properties.getProperty("content")));
        }

        @Override
        public void deleteStreamReader(StreamReader reader) {}

        @Override
        public StreamWriter createStreamWriter(Session session, StreamInfo stream,
                Properties properties) {
            return new StubWriter(type(stream));
        }

        @Override
        public void deleteStreamWriter(StreamWriter writer) {}

        @Override
        public String toString() {
            return "stub";
        }

        private static TypeCode type(StreamInfo stream) {
            return (TypeCode) stream.getTypeInfo().getTypeRepresentation();
        }
    }
}
