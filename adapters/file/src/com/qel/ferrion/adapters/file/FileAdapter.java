package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.AdapterSettings.Role;
import java.util.Properties;

/**
 * Adapter for files of comma-separated values and JSON lines: the class a host's configuration
 * names. A connection is a directory, a stream a file in it. The adapter has no state of its own.
 */
public final class FileAdapter implements Adapter {
    /** What the adapter, its connections, readers and writers understand. */
    public static final AdapterSettings SETTINGS = FileSettings.ALL;

    /**
     * Makes the adapter.
     *
     * @param properties none is known; null stands for an empty list
     * @throws AdapterException for any property
     */
    public FileAdapter(Properties properties) throws AdapterException {
        SETTINGS.of(Role.ADAPTER).parse("file adapter", properties);
    }

    /**
     * Makes the connection for a directory.
     *
     * @param firstName used in messages, as is {@code secondName}; each may be null
     * @param outputListener told when the reader for output streams has news, which is never
     * @param inputListener told when files appear or vanish; may be null
     */
    @Override
    public Connection createConnection(String firstName, String secondName,
            StreamReaderListener outputListener, StreamReaderListener inputListener,
            Properties properties) throws AdapterException {
        return new FileConnection(firstName == null ? secondName : firstName, outputListener,
                inputListener, properties);
    }

    @Override
    public void deleteConnection(Connection connection) {
        ((FileConnection) connection).close();
    }

    @Override
    public Version getVersion() {
        return new Version(0, 1, 0, 0);
    }
}
