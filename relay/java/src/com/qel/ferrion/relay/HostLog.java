package com.qel.ferrion.relay;

import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.charset.StandardCharsets;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.stream.Stream;

/**
 * The way into ferry's log, which hides secrets and makes control characters visible. Any thread.
 * The relay binds the native methods before it calls {@link #start}.
 */
final class HostLog {
    /** The host's numbers for the levels of lines. */
    static final int ERROR = 1;
    static final int WARNING = 2;
    static final int STATUS = 4;
    static final int DEBUG = 0x40;

    /** Beyond so many all are forgotten, and their traces come once more. */
    private static final int MOST_CAUSES = 1000;
    private static final Set<String> CAUSES = ConcurrentHashMap.newKeySet();

    private HostLog() {}

    /** Takes the place of System.err. */
    static void start() {
        System.setErr(new ErrorStream());
    }

    /** Text that is no line of the log yet: whole lines of it go there. */
    static native void print(byte[] text, int from, int count);

    /** Ends the line that has been begun on this thread. */
    static native void flush();

    /** One line. */
    static native void line(int level, byte[] text);

    /** Without memory for a sentence there is none. */
    private static native void failed(byte[] sentence, byte[] cause, long rejected, int taken,
            byte[][] records, byte[] trace);

    /**
     * Something has been thrown and is printed. Its stack trace goes into the log when there has
     * been none of the same cause; otherwise one line reports it, unless the relay does.
     */
    static void failed(Throwable thrown) {
        try {
            Failure failure = new Failure(thrown);
            failed(bytes(failure.sentence()), bytes(failure.cause()), failure.rejected(),
                    failure.taken(), records(failure), isNew(failure) ? trace(thrown) : null);
        } catch (OutOfMemoryError full) {
            failed(null, null, 0, 0, null, null);
        }
    }

    /** Raw bytes, reason and position of each in turn. */
    private static byte[][] records(Failure failure) {
        return failure.records().stream().flatMap(each -> Stream.of(each.raw(),
                bytes(each.reason()), bytes(each.position()))).toArray(byte[][]::new);
    }

    /** A line of a logger, with what was thrown or null. */
    static void logged(int level, String text, Throwable thrown) {
        if (thrown == null) {
            line(level, bytes(text));
            return;
        }
        Failure failure = new Failure(thrown);
        line(level, bytes(text + ": " + failure.sentence()));
        if (isNew(failure)) {
            byte[] trace = trace(thrown);
            print(trace, 0, trace.length);
        }
    }

    private static boolean isNew(Failure failure) {
        if (CAUSES.size() >= MOST_CAUSES) {
            CAUSES.clear();
        }
        return CAUSES.add(failure.cause());
    }

    private static byte[] trace(Throwable thrown) {
        StringWriter text = new StringWriter();
        try (PrintWriter writer = new PrintWriter(text)) {
            thrown.printStackTrace(writer);
        } catch (RuntimeException | Error mute) {
            text.write(thrown.getClass().getName() + System.lineSeparator());
        }
        return bytes(text.toString());
    }

    private static byte[] bytes(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }
}
