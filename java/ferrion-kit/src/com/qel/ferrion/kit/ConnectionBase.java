package com.qel.ferrion.kit;

import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.kit.AdapterSettings.Role;
import java.util.Objects;
import java.util.Properties;

/**
 * A connection to build on; {@link AdapterBase} says what that brings. Override what the connection
 * can do. One that announces streams extends {@link DiscoveryConnectionBase}.
 */
public abstract class ConnectionBase implements Connection {
    private Guard guard;
    private AdapterSettings declared;

    /** A session holds nothing of its own, unless an adapter wants it to. */
    public static class SessionBase implements Session {
        private Guard guard;

        /** Takes over new settings. */
        protected void changed(Settings settings) throws Exception {}

        /** Ends the session; its readers and writers have been released. */
        protected void release() throws Exception {}

        @Override
        public final void update(Properties properties) throws AdapterException {
            guard.update(properties, this::changed);
        }
    }

    /** @return a new session */
    protected SessionBase openSession(Settings settings) throws Exception {
        return new SessionBase();
    }

    /** @return a new reader of the stream; the default rejects */
    protected ReaderBase openReader(Stream stream) throws Exception {
        throw new AdapterException("there is nothing to read here");
    }

    /** @return a new writer to the stream; the default rejects */
    protected WriterBase openWriter(Stream stream) throws Exception {
        throw new AdapterException("nothing can be written here");
    }

    /** Called when the connection is complete: the place to start threads and to announce. */
    protected void opened() throws Exception {}

    /**
     * Tries whether the connection can do its work, and leaves nothing behind. Called last in the
     * creation when the host only checks its configuration; a throw is the creation's failure, upon
     * which {@link #release} is called.
     */
    protected void probe() throws Exception {}

    /** Takes over new settings; a throw leaves the old ones. */
    protected void changed(Settings settings) throws Exception {}

    /** Ends the connection; its sessions, readers and writers have been released. */
    protected void release() throws Exception {}

    /** @return the settings; null until {@link #opened} */
    protected final Settings settings() {
        return guard == null ? null : guard.settings();
    }

    final Guard guard() {
        return guard;
    }

    void attach(Guard ours, AdapterSettings all, StreamReaderListener outputs,
            StreamReaderListener inputs) throws Exception {
        guard = ours;
        declared = all;
        Check.complete(this::opened, this::release);
        guard.probe(this::probe, this::release);
    }

    void end() {
        guard.end("deleteConnection", this::release);
    }

    @Override
    public final Session createSession(Properties properties) throws AdapterException {
        Guard inner = guard.inner("session");
        return inner.call("createSession", () -> {
            SessionBase session = Objects.requireNonNull(openSession(
                    inner.parse(declared, Role.SESSION, "session", properties)));
            session.guard = inner;
            return session;
        });
    }

    @Override
    public final void deleteSession(Session session) {
        SessionBase ours = (SessionBase) session;
        ours.guard.end("deleteSession", ours::release);
    }

    @Override
    public final StreamReader createStreamReader(Session session, StreamInfo stream,
            Properties properties, StreamReaderListener listener) throws AdapterException {
        String owner = "reader of stream \"" + stream.getStreamName() + "\"";
        Guard inner = guard.inner(owner);
        return inner.call("createStreamReader", () -> {
            inner.parse(declared, Role.READER, owner, properties);
            ReaderBase reader = Objects.requireNonNull(
                    openReader(new Stream(stream, session, listener, inner)));
            inner.probe(reader::probe, reader::finish);
            return reader;
        });
    }

    @Override
    public final void deleteStreamReader(StreamReader reader) {
        ((ReaderBase) reader).end();
    }

    @Override
    public final StreamWriter createStreamWriter(Session session, StreamInfo stream,
            Properties properties) throws AdapterException {
        String owner = "writer of stream \"" + stream.getStreamName() + "\"";
        Guard inner = guard.inner(owner);
        return inner.call("createStreamWriter", () -> {
            inner.parse(declared, Role.WRITER, owner, properties);
            WriterBase writer = Objects.requireNonNull(
                    openWriter(new Stream(stream, session, null, inner)));
            inner.probe(writer::probe, writer::release);
            StopRequest.add(writer);
            return writer;
        });
    }

    @Override
    public final void deleteStreamWriter(StreamWriter writer) {
        ((WriterBase) writer).end();
    }

    @Override
    public final void update(Properties properties) throws AdapterException {
        guard.update(properties, this::changed);
    }

    @Override
    public String toString() {
        return getClass().getSimpleName();
    }

    /** What a reader or writer is asked for. */
    public static final class Stream {
        final StreamReaderListener listener;
        final Guard guard;
        private final StreamInfo info;
        private final Session session;

        Stream(StreamInfo info, Session session, StreamReaderListener listener, Guard guard) {
            this.info = info;
            this.session = session;
            this.listener = listener;
            this.guard = guard;
        }

        /** @return the stream's name */
        public String name() {
            return info.getStreamName();
        }

        /** @return the type of its samples; null when the host has one that cannot be carried */
        public TypeCode type() {
            Object type = info.getTypeInfo() == null ? null
                    : info.getTypeInfo().getTypeRepresentation();
            return type instanceof TypeCode ? (TypeCode) type : null;
        }

        /** @return the settings of the reader or writer */
        public Settings settings() {
            return guard.settings();
        }

        /** @return what {@link #openSession} made */
        public Session session() {
            return session;
        }
    }
}
