package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.AdapterSettings.Role;
import java.util.Properties;

/**
 * Adapter for databases: the class a host's configuration names. A connection is a database, a
 * stream a table in it. The adapter has no state of its own.
 */
public final class SqlAdapter implements Adapter {
    /** All that may be set. */
    public static final AdapterSettings SETTINGS = AdapterSettings.none()
            .with(Role.CONNECTION, Database.SETTINGS)
            .with(Role.DISCOVERY, SqlDiscovery.DISCOVER, SqlDiscovery.PERIOD)
            .with(Role.READER, SqlStreamReader.SETTINGS)
            .with(Role.WRITER, SqlStreamWriter.SETTINGS);

    /**
     * Makes the adapter.
     *
     * @param properties none is known; null stands for an empty list
     * @throws AdapterException for any property
     */
    public SqlAdapter(Properties properties) throws AdapterException {
        SETTINGS.of(Role.ADAPTER).parse("sql adapter", properties);
    }

    /**
     * Makes the connection for a database, without connecting to it.
     *
     * @param firstName used in messages, as is {@code secondName}; each may be null
     * @param outputListener told when tables that can be written come or go; may be null
     * @param inputListener told when tables that can be read come or go; may be null
     */
    @Override
    public Connection createConnection(String firstName, String secondName,
            StreamReaderListener outputListener, StreamReaderListener inputListener,
            Properties properties) throws AdapterException {
        return new SqlConnection(firstName == null ? secondName : firstName, outputListener,
                inputListener, properties);
    }

    @Override
    public void deleteConnection(Connection connection) {
        ((SqlConnection) connection).close();
    }

    @Override
    public Version getVersion() {
        return new Version(0, 1, 0, 0);
    }
}
