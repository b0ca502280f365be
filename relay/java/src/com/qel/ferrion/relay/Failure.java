package com.qel.ferrion.relay;

import com.qel.ferrion.kit.BadSamplesException;
import com.qel.ferrion.kit.RejectedRecord;
import com.qel.ferrion.kit.RejectedSampleException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** What there is to say of something thrown in one line. Immutable. */
final class Failure {
    private static final int LONGEST_CHAIN = 16;
    private static final int LONGEST_SENTENCE = 2000;
    /** Frames that differ between two calls of the same method. */
    private static final String[] CHANGING = {
        "jdk.internal.", "java.lang.reflect.", "java.lang.invoke.", "sun.reflect."};
    private static final String[] JDK = {"java.", "javax.", "jdk.", "sun.", "com.sun."};

    private final String sentence;
    private final String cause;
    private final long rejected;
    private final int taken;
    private final List<RejectedRecord> records = new ArrayList<>();

    /** Whatever the methods of what was thrown do: they are an adapter's. */
    Failure(Throwable thrown) {
        List<Throwable> chain = chain(thrown);
        Throwable root = chain.get(chain.size() - 1);
        sentence = messages(chain) + " (" + root.getClass().getName() + place(root) + ")";
        rejected = chain.stream().mapToLong(Failure::countOf).sum();
        taken = chain.stream().mapToInt(each -> each instanceof RejectedSampleException
                ? ((RejectedSampleException) each).taken() : 0).sum();
        for (Throwable each : chain) {
            if (each instanceof BadSamplesException) {
                records.addAll(((BadSamplesException) each).records());
            }
        }
        cause = root.getClass().getName() + hash(root);
    }

    /** Its messages and those of its causes, then class and place of the last of them. */
    String sentence() {
        return sentence;
    }

    /** The same for all that began in the same way, whatever wraps it; nothing to be shown. */
    String cause() {
        return cause;
    }

    /** Samples that a read passed over, or the one that a write stopped at. */
    long rejected() {
        return rejected;
    }

    /** Samples that a write took before it failed. */
    int taken() {
        return taken;
    }

    /** What a read passed over, as far as the adapter hands it over. */
    List<RejectedRecord> records() {
        return records;
    }

    private static long countOf(Throwable thrown) {
        return thrown instanceof BadSamplesException ? ((BadSamplesException) thrown).count()
                : thrown instanceof RejectedSampleException ? 1 : 0;
    }

    private static List<Throwable> chain(Throwable thrown) {
        List<Throwable> chain = new ArrayList<>();
        for (Throwable next = thrown; next != null && chain.size() < LONGEST_CHAIN;
                next = causeOf(next)) {
            chain.add(next);
        }
        return chain;
    }

    private static Throwable causeOf(Throwable thrown) {
        try {
            return thrown.getCause();
        } catch (RuntimeException | Error mute) {
            return null;
        }
    }

    private static String messageOf(Throwable thrown) {
        try {
            String text = thrown.getLocalizedMessage();
            return text == null ? "" : text.strip();
        } catch (RuntimeException | Error mute) {
            return "";
        }
    }

    /** Each once: many wrap a cause and repeat its message. */
    private static String messages(List<Throwable> chain) {
        StringBuilder text = new StringBuilder();
        for (Throwable thrown : chain) {
            String message = messageOf(thrown);
            if (text.indexOf(message) < 0) {
                text.append(text.length() == 0 ? "" : ": ").append(message);
            }
        }
        String line = text.toString().replaceAll(":\\s*\\R\\s*", ": ")
                .replaceAll("\\s*\\R\\s*", "; ");
        if (line.isEmpty()) {
            return "no message";
        }
        return line.length() <= LONGEST_SENTENCE ? line
                : line.substring(0, LONGEST_SENTENCE) + "...";
    }

    /** Where it was thrown, seen from outside of the JDK. */
    private static String place(Throwable thrown) {
        StackTraceElement[] frames = thrown.getStackTrace();
        return Arrays.stream(frames).filter(frame -> !isOf(frame, JDK)).findFirst()
                .or(() -> Arrays.stream(frames).findFirst())
                .map(frame -> " at " + frame).orElse("");
    }

    private static int hash(Throwable thrown) {
        int hash = 0;
        for (StackTraceElement frame : thrown.getStackTrace()) {
            if (!isOf(frame, CHANGING) && !frame.getClassName().contains("$$Lambda")) {
                hash = 31 * hash + frame.getClassName().hashCode();
                hash = 31 * hash + frame.getMethodName().hashCode() + frame.getLineNumber();
            }
        }
        return hash;
    }

    private static boolean isOf(StackTraceElement frame, String[] packages) {
        return Arrays.stream(packages).anyMatch(frame.getClassName()::startsWith);
    }
}
