package com.qel.ferrion.adapter;

/**
 * A connection that announces which streams it has. A plain {@link Connection} serves only the
 * streams that the configuration names.
 *
 * <p>The samples of both readers are {@link com.qel.ferrion.adapter.infrastructure.StreamInfo}
 * objects; {@link com.qel.ferrion.adapter.infrastructure.DiscoveryReader} is a reader made for
 * this. The host looks at no more than 32 elements of one read and drops the others.
 *
 * <p>Either method may be called more than once and must return the same object each time. The
 * readers belong to the connection and are not passed to {@code deleteStreamReader}; the host stops
 * using them before it calls {@link Adapter#deleteConnection}.
 */
public interface DiscoveryConnection extends Connection {
    /**
     * The reader that announces streams with data to read: those that {@code createStreamReader}
     * can be called for.
     *
     * @return never null; null is reported as "null connection object", a throw as "exception"
     */
    StreamReader getInputStreamDiscoveryReader();

    /**
     * The reader that announces streams that take data: those that {@code createStreamWriter} can
     * be called for.
     *
     * @return never null; null is reported as "null connection object", a throw as "exception"
     */
    StreamReader getOutputStreamDiscoveryReader();
}
