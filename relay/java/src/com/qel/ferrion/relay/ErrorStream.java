package com.qel.ferrion.relay;

import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;

/** System.err: what is printed goes into ferry's log, what was thrown in ferry's own form. */
final class ErrorStream extends PrintStream {
    /** On this thread what was thrown is just printing itself, and has been reported already. */
    private final ThreadLocal<Boolean> reported = ThreadLocal.withInitial(() -> false);

    ErrorStream() {
        super(new ToLog(), false, StandardCharsets.UTF_8);
    }

    private static final class ToLog extends OutputStream {
        @Override
        public void write(int octet) {
            write(new byte[] {(byte) octet}, 0, 1);
        }

        @Override
        public void write(byte[] text, int from, int count) {
            HostLog.print(text, from, count);
        }

        @Override
        public void flush() {
            HostLog.flush();
        }
    }

    /**
     * Throwable.printStackTrace holds this stream's lock, and hands itself and then each line of
     * its trace to this method. The lines have gone into the log with it, or are known.
     */
    @Override
    public void println(Object object) {
        boolean locked = Thread.holdsLock(this);
        if (object instanceof Throwable) {
            HostLog.failed((Throwable) object);
            reported.set(locked);
        } else if (!locked || !reported.get() || !isOfTrace(String.valueOf(object))) {
            reported.remove();
            super.println(object);
        }
    }

    private static boolean isOfTrace(String line) {
        String text = line.stripLeading();
        return text.startsWith("at ") || text.startsWith("... ") || text.startsWith("Caused by: ")
                || text.startsWith("Suppressed: ");
    }
}
