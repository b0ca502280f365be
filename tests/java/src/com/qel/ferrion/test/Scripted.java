package com.qel.ferrion.test;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import java.lang.reflect.InvocationHandler;
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** What stands behind every scripted object: it records each call and does what the script says. */
final class Scripted implements InvocationHandler {
    private static final TypeCode STREAM_TYPE = TypeCode.fromIdl("struct T { long id; };", null);
    private static final TypeCode ODD_TYPE = TypeCode.fromIdl("struct Odd { double x; };", null);

    private final String name;
    /** The type of a data reader's samples; null for everything else. */
    private final TypeCode type;
    /** Discovery readers of a connection by kind: each is made when first asked for. */
    private final Map<String, StreamReader> discovery = new HashMap<>();

    private Scripted(String kind, Object type) {
        this.name = Stage.name(kind, this);
        this.type = (TypeCode) type;
    }

    static <T> T make(Class<T> type, String kind, Object typeCode) {
        Object proxy = Proxy.newProxyInstance(Scripted.class.getClassLoader(),
                new Class<?>[] {type}, new Scripted(kind, typeCode));
        if (proxy instanceof StreamReader reader) {
            Stage.READERS.add(reader);
        }
        return type.cast(proxy);
    }

    static Connection connection(String action) {
        Class<? extends Connection> type =
                action.equals("plain") ? Connection.class : DiscoveryConnection.class;
        return action.equals("null") ? null : make(type, "Connection", null);
    }

    @Override
    public Object invoke(Object self, Method method, Object[] arguments) {
        if (method.getName().equals("toString") && !(self instanceof Connection)) {
            return name;
        }
        Object[] given = arguments != null ? arguments : new Object[0];
        String action = Stage.enter(name + "." + method.getName(), given);
        return switch (action.equals("null") ? "" : method.getName()) {
        case "toString" -> name;
        case "createSession" -> make(Session.class, "Session", null);
        case "createStreamReader" -> reader(action, given);
        case "createStreamWriter" -> action.equals("still") ? new Still(typeOf(given))
                : make(StreamWriter.class, "Writer", null);
        case "getInputStreamDiscoveryReader" -> discovery(action, "Input");
        case "getOutputStreamDiscoveryReader" -> discovery(action, "Output");
        case "read" -> read(action, given);
        // By default not what it was given, so that nobody returns the count instead.
        case "write" ->
            action.isEmpty() ? ((List<?>) given[0]).size() + 1 : Integer.parseInt(action);
        default -> null;
        };
    }

    private static StreamReader reader(String action, Object[] given) {
        if (action.equals("still")) {
            return new Still(typeOf(given));
        }
        StreamReader reader = make(StreamReader.class, "Reader", typeOf(given));
        if (action.equals("signal")) {
            ((StreamReaderListener) given[3]).onDataAvailable(reader);
        }
        return reader;
    }

    private static Object typeOf(Object[] given) {
        return ((StreamInfo) given[1]).getTypeInfo().getTypeRepresentation();
    }

    private StreamReader discovery(String action, String kind) {
        if (action.equals("other")) {
            discovery.remove(kind);
        }
        return discovery.computeIfAbsent(kind, k -> make(StreamReader.class, k, null));
    }

    /**
     * Fills the lists by the words of the script: a number of ordinary samples, "big", "null",
     * "odd" (it cannot be converted), i and a number of infos, "inull"; for streams "alien" (of
     * another class), "bare", "untyped" and "gone"; "boom" throws. Returns what a method without a
     * result does.
     */
    // The interfaces say List<Object>; reflection has lost it.
    @SuppressWarnings("unchecked")
    private Object read(String action, Object[] lists) {
        List<Object> samples = (List<Object>) lists[0];
        List<Object> infos = (List<Object>) lists[1];
        for (String word : action.isEmpty() ? new String[0] : action.split(" ")) {
            if (word.equals("boom")) {
                throw new IllegalStateException(word);
            }
            boolean isInfo = word.startsWith("i");
            String text = isInfo ? word.substring(1) : word;
            boolean isNumber = Character.isDigit(text.charAt(0));
            String what = isNumber ? "" : text;
            for (int left = isNumber ? Integer.parseInt(text) : 1; left > 0; left--) {
                if (what.equals("alien")) {
                    samples.add(what);
                } else if (isInfo) {
                    infos.add(what.equals("null") ? null : info(infos.size() + 1));
                } else {
                    samples.add(type != null ? sample(what, samples.size())
                            : stream(what, "stream" + samples.size()));
                }
            }
        }
        return null;
    }

    private static SampleInfo info(int state) {
        SampleInfo info = new SampleInfo();
        info.instance_state = state;
        return info;
    }

    private Object sample(String what, int id) {
        DynamicData sample = new DynamicData(what.equals("odd") ? ODD_TYPE : type, null);
        if (what.isEmpty() || what.equals("big")) {
            sample.setInt("id", id);
            sample.setString("text", what.repeat(1000));
        }
        return what.equals("null") ? null : sample;
    }

    private static Object stream(String what, String streamName) {
        return switch (what) {
        case "null" -> null;
        case "bare" -> new StreamInfo(null, null, false);
        case "untyped" -> new StreamInfo(streamName, new TypeInfo("T", null), false);
        case "gone" -> new StreamInfo(streamName, new TypeInfo(null, null), true);
        case "odd" -> new StreamInfo(streamName, new TypeInfo("T", "no type code"), false);
        default -> new StreamInfo(streamName, new TypeInfo("T", STREAM_TYPE), false);
        };
    }
}
