package com.qel.ferrion.test;

import static java.util.stream.Collectors.joining;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.IdentityHashMap;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import java.util.TreeMap;
import java.util.stream.Stream;

/**
 * Where the scripted objects find what to do and report what was done to them. The native side of
 * the tests sets the script and owns the transcript, in which calls and log lines stand in their
 * order.
 */
public final class Stage {
    private static final Map<String, String> ACTIONS = new HashMap<>();
    private static final Map<Object, String> NAMES = new IdentityHashMap<>();
    private static final Map<String, Integer> COUNTS = new HashMap<>();
    /** Every listener given to an adapter and every reader made, in their order. */
    private static final List<StreamReaderListener> LISTENERS = new ArrayList<>();
    static final List<StreamReader> READERS = new ArrayList<>();
    private static final List<Thread> STORM = new ArrayList<>();

    private Stage() {}

    /** Appends a line to the transcript; registered by the native side. */
    private static native void record(String line);

    /**
     * Does what a line says. "signal" and the numbers of a listener and a reader: signals the one
     * in the name of the other, on a Java thread, if both are there; "storm" does so again and
     * again, "signal_here" on the calling thread. "reset": forgets everything, names count from 1
     * again. Else a method and what it does from now on; nothing stands for the ordinary.
     */
    public static void act(String line) throws InterruptedException {
        String[] words = line.split(" ");
        if (words[0].equals("reset")) {
            STORM.forEach(Thread::interrupt);
            for (Thread thread : STORM) {
                thread.join();
            }
            STORM.clear();
            List.of(ACTIONS, NAMES, COUNTS).forEach(Map::clear);
            List.of(LISTENERS, READERS).forEach(List::clear);
        } else if (words[0].startsWith("signal") || words[0].equals("storm")) {
            int from = Integer.parseInt(words[1]);
            int by = Integer.parseInt(words[2]);
            if (from >= LISTENERS.size() || by >= READERS.size()) {
                return;
            }
            StreamReaderListener listener = LISTENERS.get(from);
            StreamReader reader = READERS.get(by);
            if (words[0].equals("signal_here")) {
                listener.onDataAvailable(reader);
                return;
            }
            boolean storm = words[0].equals("storm");
            Thread thread = new Thread(() -> {
                do {
                    listener.onDataAvailable(reader);
                } while (storm && !Thread.interrupted());
            }, "signaller");
            thread.start();
            if (storm) {
                STORM.add(thread);
            } else {
                thread.join();
            }
        } else {
            ACTIONS.put(words[0], line.substring(words[0].length()).strip());
        }
    }

    /** Takes note of a call and acts: throws if the script says so, else returns its action. */
    static synchronized String enter(String method, Object... arguments) {
        String thread = Thread.currentThread().getName();
        record(method + Stream.of(arguments).map(Stage::text).collect(joining(", ", "(", ")"))
                + (thread.equals("main") ? "" : " on " + thread));
        String action = ACTIONS.getOrDefault(method.substring(method.indexOf('.') + 1), "");
        if (action.startsWith("throw")) {
            throw new IllegalStateException(action.length() > 6 ? action.substring(6) : null);
        } else if (action.startsWith("hostile")) {
            Hostile.act(action.substring(8));
            return "";
        }
        return action;
    }

    /** The same object has the same name: its kind and its number among those seen. */
    static synchronized String name(String kind, Object object) {
        return NAMES.computeIfAbsent(object, o -> kind + COUNTS.merge(kind, 1, Integer::sum));
    }

    private static String text(Object value) {
        if (value instanceof Properties properties) {
            return new TreeMap<>(properties).toString();
        } else if (value instanceof String string) {
            return '"' + string + '"';
        } else if (value instanceof StreamInfo stream) {
            TypeInfo type = stream.getTypeInfo();
            Object representation = type != null ? type.getTypeRepresentation() : null;
            return stream.getStreamName() + ":" + (type != null ? type.getTypeName() : "untyped")
                    + (representation instanceof TypeCode ? ":TypeCode" : ":" + representation)
                    + (stream.isDisposed() ? ":disposed" : "");
        } else if (value instanceof List<?> list) {
            // All elements of a short list, size and ends of a long one.
            return name("list", list) + (list.size() <= 4
                    ? list.stream().map(Stage::text).collect(joining(" ", "[", "]"))
                    : "[" + list.size() + ": " + text(list.get(0)) + ".."
                            + text(list.get(list.size() - 1)) + "]");
        } else if (value instanceof DynamicData sample) {
            boolean odd = sample.type().member("id") == null;
            return name("d", sample) + (odd ? " odd" : "#" + sample.getInt("id"));
        } else if (value instanceof SampleInfo info) {
            return name("i", info) + "#" + info.instance_state;
        } else if (value instanceof StreamReaderListener listener) {
            LISTENERS.add(listener);
            return name("listener", listener);
        }
        return String.valueOf(value);
    }
}
