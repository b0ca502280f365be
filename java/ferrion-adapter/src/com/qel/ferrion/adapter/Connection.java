package com.qel.ferrion.adapter;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import java.util.Properties;

/**
 * A connection to a data source or sink: it makes the sessions, readers and writers that the
 * configuration asks for.
 *
 * <p>Order: the session first, then its readers and writers; at the end the readers and writers,
 * then the session, then, through {@link Adapter#deleteConnection}, the connection. The host makes
 * and deletes on one thread at a time.
 *
 * <p>A create method that throws or returns null has made nothing as far as the host is concerned:
 * the matching delete method is not called for it.
 */
public interface Connection extends Entity {
    /**
     * Makes a session, the bracket around readers and writers that one host thread serves.
     *
     * @param properties null when there are none; yours to keep
     * @return the session. Null is a failure ("null connection object"), also where an adapter has
     *     no use for sessions: return an empty one
     * @throws AdapterException when there is no session; the host sees "exception"
     */
    Session createSession(Properties properties) throws AdapterException;

    /**
     * Ends a session. All readers and writers made on it are gone by then. What it throws is
     * reported as "exception", and the session is gone all the same.
     *
     * @param session made by this connection; never null
     */
    void deleteSession(Session session);

    /**
     * Makes a reader: the host takes the samples of a stream from it.
     *
     * @param session made by this connection; never null
     * @param stream name and type of the stream; its type representation is a {@code
     *     com.qel.dds.typecode.TypeCode}, or null when the host has a form of types that cannot be
     *     carried (such a reader is called but its samples are dropped)
     * @param properties null when there are none; yours to keep
     * @param listener to be signalled when there is something to read; null when the host could not
     *     make it, and then the host reads by its period alone. It may be signalled at once, even
     *     from inside of this method
     * @return the reader. Null is a failure ("null connection object")
     * @throws AdapterException when there is no reader; the host sees "exception"
     */
    StreamReader createStreamReader(Session session, StreamInfo stream, Properties properties,
            StreamReaderListener listener) throws AdapterException;

    /**
     * Ends a reader. Called when no read is under way and no loan is out.
     *
     * <p>Once this method has returned, signals by the reader's listener come to nothing, and the
     * bridge waits for those that are under way. Stop your own threads here all the same, or build
     * on {@link com.qel.ferrion.adapter.infrastructure.StreamReaderBase}, whose {@code close()}
     * sees to it.
     *
     * <p>What it throws is reported as "exception", and the reader is gone all the same.
     *
     * @param reader made by this connection; never null
     */
    void deleteStreamReader(StreamReader reader);

    /**
     * Makes a writer: the host hands the samples of a stream to it.
     *
     * @param session made by this connection; never null
     * @param stream name and type of the stream, as for a reader
     * @param properties null when there are none; yours to keep
     * @return the writer. Null is a failure ("null connection object")
     * @throws AdapterException when there is no writer; the host sees "exception"
     */
    StreamWriter createStreamWriter(Session session, StreamInfo stream, Properties properties)
            throws AdapterException;

    /**
     * Ends a writer. Called when no write is under way: flush and close here. What it throws is
     * reported as "exception", and the writer is gone all the same.
     *
     * @param writer made by this connection; null only from a host that deletes a writer whose
     *     creation failed, which {@code ferry} does not
     */
    void deleteStreamWriter(StreamWriter writer);

    /**
     * Returns what is worth knowing about the connection. Hosts of today do not ask; the default
     * says nothing.
     *
     * @return may be null or empty
     */
    default Properties getAttributes() {
        return new Properties();
    }

    /**
     * Describes the connection for people. Called once, right after the connection was made, on the
     * same thread; the host keeps the text. Null and a throw are reported as failures of the
     * connection's creation. Leave passwords out.
     *
     * @return never null
     */
    @Override
    String toString();
}
