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
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;
import java.util.List;
import java.util.Properties;
import java.util.concurrent.locks.LockSupport;

/**
 * An adapter that makes trouble where its property {@code at} says, of the kind that {@code kind}
 * says. Without trouble its readers count from 0 up to property {@code count}, a sample a signal,
 * and its writers take everything.
 */
public final class TroubleAdapter implements Adapter {
    private final String place;
    private final String kind;

    /** @param properties {@code at}, a method's name, and {@code kind}: throw, hang or exit */
    public TroubleAdapter(Properties properties) {
        place = properties.getProperty("at", "");
        kind = properties.getProperty("kind", "throw");
        if (kind.equals("thread")) {
            new Thread(TroubleAdapter::hang).start();
        }
        at("constructor");
    }

    private static void hang() {
        while (true) {
            LockSupport.park();
        }
    }

    private void at(String method) {
        if (!method.equals(place)) {
            return;
        }
        switch (kind) {
            case "hang" -> hang();
            case "exit" -> System.exit(0);
            default -> throw new IllegalStateException("trouble in " + method);
        }
    }

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        at("createConnection");
        Class<?>[] types = {Connection.class, Session.class, StreamReader.class, StreamWriter.class};
        Everything everything = new Everything();
        everything.count = Long.parseLong(properties.getProperty("count", "1"));
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
        private DynamicData sample;
        private StreamReaderListener signal;
        private long next;

        // What a read fills is a list of objects by its contract.
        @SuppressWarnings("unchecked")
        Object call(Object self, Method method, Object[] arguments) {
            at(method.getName());
            return switch (method.getName()) {
                case "createSession", "createStreamWriter" -> self;
                case "createStreamReader" -> {
                    TypeInfo type = ((StreamInfo) arguments[1]).getTypeInfo();
                    sample = new DynamicData((TypeCode) type.getTypeRepresentation(),
                            DynamicData.PROPERTY_DEFAULT);
                    signal = (StreamReaderListener) arguments[3];
                    yield self;
                }
                case "read" -> {
                    if (next < count) {
                        sample.setLong("n", next++);
                        ((List<Object>) arguments[0]).add(sample);
                    }
                    yield null;
                }
                case "returnLoan" -> {
                    if (next < count) {
                        signal.onDataAvailable((StreamReader) self);
                    }
                    yield null;
                }
                case "write" -> ((List<?>) arguments[0]).size();
                default -> "trouble";
            };
        }
    }
}
