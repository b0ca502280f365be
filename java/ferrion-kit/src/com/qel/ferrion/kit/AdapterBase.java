package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterSettings.Role;
import java.util.Objects;
import java.util.Properties;

/**
 * An adapter to build on, with {@link ConnectionBase}, {@link ReaderBase} and {@link WriterBase}:
 * properties come as checked {@link Settings}, every call of the host runs with the adapter's class
 * loader as context class loader, and whatever a call throws is logged with its stack trace, the
 * connection and the stream before the host gets it. Log entries go to the {@link System.Logger} of
 * the adapter's package.
 *
 * <p>An extending class needs the public constructor that {@link Adapter} asks for. All of it runs
 * with the context class loader of the host's thread, which need not be the adapter's.
 */
public abstract class AdapterBase implements Adapter {
    private final Guard guard = new Guard(getClass());
    private final AdapterSettings declared;
    private final Version version;

    /**
     * @param declared all settings of the adapter and of what it makes
     * @param version of the adapter
     * @param properties of the adapter, as the host gave them; may be null
     * @throws AdapterException when these are not as declared
     */
    protected AdapterBase(AdapterSettings declared, Version version, Properties properties)
            throws AdapterException {
        this.declared = declared;
        this.version = version;
        guard.call("creation",
                () -> guard.parse(declared, Role.ADAPTER, getClass().getSimpleName(), properties));
    }

    /** @return the adapter's own settings */
    protected final Settings settings() {
        return guard.settings();
    }

    /**
     * Makes a connection.
     *
     * @param name the first of its configured names that is there; may be null
     * @param settings the connection's
     * @return a new connection
     * @throws Exception when there is none
     */
    protected abstract ConnectionBase connect(String name, Settings settings) throws Exception;

    @Override
    public final Connection createConnection(String firstName, String secondName,
            StreamReaderListener outputDiscoveryListener,
            StreamReaderListener inputDiscoveryListener, Properties properties)
            throws AdapterException {
        String name = firstName == null ? secondName : firstName;
        String owner = name == null ? "connection" : "connection \"" + name + "\"";
        Guard inner = guard.inner(owner);
        return inner.call("createConnection", () -> {
            Settings settings = inner.parse(declared, Role.CONNECTION, owner, properties);
            ConnectionBase connection = Objects.requireNonNull(connect(name, settings));
            connection.attach(inner, declared, outputDiscoveryListener, inputDiscoveryListener);
            return connection;
        });
    }

    @Override
    public final void deleteConnection(Connection connection) {
        ((ConnectionBase) connection).end();
    }

    @Override
    public final Version getVersion() {
        return version;
    }
}
