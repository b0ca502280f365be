package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterBase;
import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.ConnectionBase;
import com.qel.ferrion.kit.Delivery;
import com.qel.ferrion.kit.Settings;
import java.util.EnumSet;
import java.util.Properties;

/**
 * Adapter for databases: the class a host's configuration names. A connection is a database, a
 * stream a table in it. The adapter has no state of its own.
 */
public final class SqlAdapter extends AdapterBase {
    /** All that may be set. */
    public static final AdapterSettings SETTINGS = AdapterSettings.none()
            .with(Role.CONNECTION, Database.SETTINGS)
            .with(Role.DISCOVERY, SqlDiscovery.DISCOVER, SqlDiscovery.PERIOD)
            .with(Role.READER, SqlStreamReader.SETTINGS)
            .with(Role.WRITER, SqlStreamWriter.SETTINGS)
            .delivers(Role.READER, settings -> EnumSet.of(Delivery.REPEATS))
            .delivers(Role.WRITER, SqlStreamWriter::deliveries);

    /**
     * Makes the adapter.
     *
     * @param properties none is known; null stands for an empty list
     * @throws AdapterException for any property
     */
    public SqlAdapter(Properties properties) throws AdapterException {
        super(SETTINGS, new Version(0, 1, 0, 0), properties);
    }

    @Override
    protected ConnectionBase connect(String name, Settings settings) throws AdapterException {
        return new SqlConnection(name, settings);
    }
}
