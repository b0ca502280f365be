package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.Settings;
import java.util.Properties;

/** A session has nothing to hold: readers and writers work on the host's threads by themselves. */
final class FileSession implements Session {
    private Settings settings;

    FileSession(Properties properties) throws AdapterException {
        settings = FileSettings.ALL.of(Role.SESSION).parse("session", properties);
    }

    @Override
    public void update(Properties properties) throws AdapterException {
        settings = settings.updated(properties);
    }
}
