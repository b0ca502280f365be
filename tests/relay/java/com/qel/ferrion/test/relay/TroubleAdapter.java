package com.qel.ferrion.test.relay;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.test.Hostile;
import java.io.IOException;
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;
import java.util.List;
import java.util.Properties;
import java.util.concurrent.locks.LockSupport;
import java.util.logging.Logger;

/**
 * An adapter that makes trouble where its property {@code at} says, of the kind that {@code kind}
 * says. Without trouble its readers count from 0 up to property {@code count}, {@code batch}
 * samples a signal, and its writers take everything.
 */
public final class TroubleAdapter implements Adapter {
    private static final List<System.Logger.Level> LEVELS = List.of(System.Logger.Level.DEBUG,
            System.Logger.Level.INFO, System.Logger.Level.WARNING, System.Logger.Level.ERROR);

    private final String place;
    private final String kind;

    /**
     * @param properties {@code at}: a method's name, with {@code kind} throw or one of {@link
     *     Hostile}'s, or "content", with one of {@link Everything#read}'s
     */
    public TroubleAdapter(Properties properties) {
        place = properties.getProperty("at", "");
        kind = properties.getProperty("kind", "throw");
        at("constructor");
    }

    private void at(String method) {
        if (kind.equals("loader")) {
            ClassLoader loader = Thread.currentThread().getContextClassLoader();
            System.err.println("loader of " + method + ": "
                    + (loader == null ? "none" : loader.getName()));
        }
        if (!method.equals(place)) {
            return;
        }
        System.err.println("trouble: " + kind + " in " + method);
        if (kind.equals("throw")) {
            throw new IllegalStateException("trouble in " + method, new IOException(
                    "\u001b[2Jjdbc:x://user:hunter2@host/db?password=hunter2&x=1\nnext line"));
        }
        if (kind.equals("log")) {
            Logger.getLogger("trouble").config("at CONFIG");
            for (System.Logger.Level level : LEVELS) {
                System.getLogger("trouble").log(level, "at " + level);
            }
            for (int i = 0; i < 2; i++) {
                System.getLogger("trouble").log(LEVELS.get(3), "at its",
                        new IllegalStateException("limit", new IOException("limit")));
            }
            IllegalStateException own = new IllegalStateException("own words",
                    new IOException("x".repeat(10_000)));
            own.addSuppressed(new IllegalStateException(own));
            synchronized (System.err) {
                System.err.println((Object) "an object");
                own.printStackTrace();
                System.err.println((Object) "behind it");
            }
            new Thread(() -> System.err.print("no\u202eend")).start();
            return;
        }
        Hostile.act(kind);
    }

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        at("createConnection");
        Class<?>[] types =
                {Connection.class, Session.class, StreamReader.class, StreamWriter.class};
        Everything everything = new Everything();
        everything.count = Long.parseLong(properties.getProperty("count", "1"));
        everything.batch = Long.parseLong(properties.getProperty("batch", "1"));
        return (Connection) Proxy.newProxyInstance(getClass().getClassLoader(), types,
                everything::call);
    }

    @Override
    public void deleteConnection(Connection connection) {
        at("deleteConnection");
    }

    @Override
    public Version getVersion() {
        at("getVersion");
        return new Version(0, 0, 0, 1);
    }

    // The host calls it through its contract.
    @SuppressWarnings("deprecation")
    @Override
    protected void finalize() {
        at("finalize");
    }

    /** What a connection does and all that is made of it: one reader at most. */
    private final class Everything {
        private long count;
        private long batch;
        private TypeCode type;
        private DynamicData sample;
        /** Of another type than the stream's. */
        private final DynamicData alien = new DynamicData(
                TypeCode.fromIdl("struct Alien { string s; long long n; };", "Alien"),
                DynamicData.PROPERTY_DEFAULT);
        private StreamReaderListener signal;
        private long next;

        // What a read fills is a list of objects by its contract.
        @SuppressWarnings("unchecked")
        Object call(Object self, Method method, Object[] arguments) {
            at(method.getName());
            return switch (method.getName()) {
            case "createSession", "createStreamWriter" -> self;
            case "createStreamReader" -> {
                TypeInfo info = ((StreamInfo) arguments[1]).getTypeInfo();
                type = (TypeCode) info.getTypeRepresentation();
                sample = new DynamicData(type, DynamicData.PROPERTY_DEFAULT);
                signal = (StreamReaderListener) arguments[3];
                yield self;
            }
            case "read" -> {
                read(self, (List<Object>) arguments[0]);
                yield null;
            }
            case "returnLoan" -> {
                if (next < count) {
                    signal.onDataAvailable((StreamReader) self);
                }
                if (kind.equals("clear")) {
                    ((List<Object>) arguments[0]).clear();
                    ((List<Object>) arguments[1]).add(null);
                }
                yield null;
            }
            case "write" -> ((List<?>) arguments[0]).size();
            default -> "trouble";
            };
        }

        /** Lends samples, and with "content" what else the kind says. */
        private void read(Object self, List<Object> samples) {
            boolean more = next < count;
            for (long i = 0; i < batch && next < count; i++) {
                DynamicData each = kind.equals("alien") ? alien
                        : batch == 1 ? sample
                        : new DynamicData(type, DynamicData.PROPERTY_DEFAULT);
                each.setLong("n", next++);
                samples.add(each);
            }
            if (more && kind.equals("nulls")) {
                samples.add(null);
            } else if (next == 1 && (kind.equals("keep") || kind.equals("storm"))) {
                for (int i = 0; i < 4; i++) {
                    Thread thread = new Thread(kind.equals("keep") ? () -> change(samples)
                            : () -> signal(self));
                    thread.setDaemon(true);
                    thread.start();
                }
            }
        }

        private void signal(Object self) {
            while (true) {
                signal.onDataAvailable((StreamReader) self);
                LockSupport.parkNanos(10_000);
            }
        }

        private static void change(List<Object> samples) {
            while (true) {
                try {
                    samples.add(null);
                    samples.remove(0);
                } catch (RuntimeException e) {
                    samples.clear();
                }
            }
        }
    }
}
