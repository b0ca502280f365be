package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.Properties;

/** A session has nothing to hold: readers and writers work on the host's threads by themselves. */
final class FileSession implements Session {
    private final Options options;

    FileSession(Properties properties) throws AdapterException {
        options = new Options("session", properties);
    }

    @Override
    public void update(Properties properties) throws AdapterException {
        options.updated(properties);
    }
}
