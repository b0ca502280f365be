package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterBase;
import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.ConnectionBase;
import com.qel.ferrion.kit.Settings;
import java.util.Properties;

/**
 * Adapter for files of comma-separated values and JSON lines: the class a host's configuration
 * names. A connection is a directory, a stream a file in it. The adapter has no state of its own.
 */
public final class FileAdapter extends AdapterBase {
    /** What the adapter, its connections, readers and writers understand. */
    public static final AdapterSettings SETTINGS = FileSettings.ALL;

    /**
     * Makes the adapter.
     *
     * @param properties none is known; null stands for an empty list
     * @throws AdapterException for any property
     */
    public FileAdapter(Properties properties) throws AdapterException {
        super(SETTINGS, new Version(0, 1, 0, 0), properties);
    }

    @Override
    protected ConnectionBase connect(String name, Settings settings) throws AdapterException {
        return new FileConnection(name, settings);
    }
}
