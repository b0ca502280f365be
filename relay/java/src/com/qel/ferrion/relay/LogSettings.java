package com.qel.ferrion.relay;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.logging.LogManager;

/**
 * The settings of the JDK's loggers, made when the first of them is used: all go into ferry's log,
 * from its level on.
 */
public final class LogSettings {
    /**
     * Called by the loggers' manager.
     *
     * @throws IOException never
     */
    public LogSettings() throws IOException {
        String level = System.getProperty("com.qel.ferrion.relay.level", "INFO");
        String text = "handlers=" + LogHandler.class.getName() + "\n.level=" + level + "\n";
        LogManager.getLogManager().readConfiguration(
                new ByteArrayInputStream(text.getBytes(StandardCharsets.ISO_8859_1)));
    }
}
