package com.qel.ferrion.adapter;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.Properties;

/**
 * The root of an adapter: the class that the host is given by name.
 *
 * <p>It needs a public constructor: {@code (java.util.Properties)}, which is called with the
 * adapter's configured properties, or with null when there are none; or, where that one is
 * missing, {@code ()}. A constructor that throws makes the adapter unavailable; its trace is
 * printed, and the host sees "exception".
 *
 * <p>The host makes one object per configured adapter, on the thread that loads the configuration,
 * and calls {@link #getVersion} right after it. When it lets go of the adapter, after every
 * connection has been deleted, it calls the object's {@code finalize()}, which every Java object
 * has; as that method is deprecated and may run a second time on behalf of the garbage collector,
 * release what you own in {@link #deleteConnection} instead.
 */
public interface Adapter {
    /**
     * Makes a connection. Called once for every configured connection, on the thread that loads the
     * configuration, before anything else of that connection.
     *
     * <p>A connection that announces its streams implements {@link DiscoveryConnection} and keeps
     * the two listeners for its discovery readers. Mind their order: output comes first.
     *
     * @param firstName first of the two names that the configuration may give; may be null
     * @param secondName second of the names; may be null
     * @param outputDiscoveryListener to be signalled with the reader that {@link
     *     DiscoveryConnection#getOutputStreamDiscoveryReader} returns, and no other; null when the
     *     host could not make it
     * @param inputDiscoveryListener to be signalled with the reader that {@link
     *     DiscoveryConnection#getInputStreamDiscoveryReader} returns, and no other; null when the
     *     host could not make it
     * @param properties of the connection; null when there are none; yours to keep
     * @return the connection. Null is a failure: the host sees "null connection object"
     * @throws AdapterException when there is no connection; the host sees "exception creating
     *     connection"
     */
    Connection createConnection(String firstName, String secondName,
            StreamReaderListener outputDiscoveryListener,
            StreamReaderListener inputDiscoveryListener, Properties properties)
            throws AdapterException;

    /**
     * Ends a connection. Called once for every connection, after its sessions, readers and writers
     * have been deleted.
     *
     * <p>Neither of the two listeners given to {@link #createConnection} may be signalled after
     * this method has returned. The host does not call the connection again, but the VM may keep
     * the object: let go of what is large. What the method throws is reported, and the connection
     * is gone all the same.
     *
     * @param connection made by {@link #createConnection}; never null
     */
    void deleteConnection(Connection connection);

    /**
     * Returns the adapter's version. Called once, right after construction.
     *
     * @return never null; null and a throw make the adapter unavailable
     */
    Version getVersion();
}
