package com.qel.ferrion.relay;

import java.util.logging.Handler;
import java.util.logging.Level;
import java.util.logging.LogRecord;
import java.util.logging.SimpleFormatter;

/** Brings what adapters log by the JDK's loggers into ferry's log. */
public final class LogHandler extends Handler {
    private final SimpleFormatter messages = new SimpleFormatter();

    /** For the JDK's loggers. */
    public LogHandler() {
        // Public as they want it.
    }

    @Override
    public void publish(LogRecord record) {
        if (isLoggable(record)) {
            HostLog.logged(levelOf(record), record.getLoggerName() + ": "
                    + messages.formatMessage(record), record.getThrown());
        }
    }

    private static int levelOf(LogRecord record) {
        int level = record.getLevel().intValue();
        if (level >= Level.SEVERE.intValue()) {
            return HostLog.ERROR;
        }
        if (level >= Level.WARNING.intValue()) {
            return HostLog.WARNING;
        }
        return level >= Level.CONFIG.intValue() ? HostLog.STATUS : HostLog.DEBUG;
    }

    @Override
    public void flush() {
        // Every line is written at once.
    }

    @Override
    public void close() {
        // The log is the host's.
    }
}
