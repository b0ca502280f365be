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
import java.util.List;

/** What stands behind every scripted object: it records each call and does what the script says. */
final class Scripted implements InvocationHandler {
    private static final TypeCode STREAM_TYPE = TypeCode.fromIdl("struct T { long id; };", null);
    private static final TypeCode ODD_TYPE = TypeCode.fromIdl("struct Odd { double x; };", null);

    private final String name;
    /** The type of a data reader's samples; null for everything else. */
    private final TypeCode type;
    /** Discovery readers of a connection: each is made when first asked for. */
    private StreamReader input;
    private StreamReader output;

    private Scripted(String kind, Object type) {
        this.name = Stage.name(kind, this);
        this.type = (TypeCode) type;
    }

    static <T> T make(Class<T> type, String kind, Object typeCode) {
        Object proxy = Proxy.newProxyInstance(Scripted.class.getClassLoader(),
                new Class<?>[] {type}, new Scripted(kind, typeCode));
        if (proxy instanceof StreamReader reader) {
            Stage.made(reader);
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
        switch (action.equals("null") ? "" : method.getName()) {
            case "toString":
                return name;
            case "createSession":
                return make(Session.class, "Session", null);
            case "createStreamReader":
                return reader(action, (StreamInfo) given[1], (StreamReaderListener) given[3]);
            case "createStreamWriter":
                return make(StreamWriter.class, "Writer", null);
            case "getInputStreamDiscoveryReader":
                input = discovery(action, input, "Input");
                return input;
            case "getOutputStreamDiscoveryReader":
                output = discovery(action, output, "Output");
                return output;
            case "read":
                read(action, list(given[0]), list(given[1]));
                return null;
            case "write":
                // By default not what it was given, so that nobody returns the count instead.
                return action.isEmpty() ? list(given[0]).size() + 1 : Integer.parseInt(action);
            default:
                return null;
        }
    }

    private static StreamReader reader(String action, StreamInfo stream,
            StreamReaderListener listener) {
        StreamReader reader = make(StreamReader.class, "Reader",
                stream.getTypeInfo().getTypeRepresentation());
        if (action.equals("signal")) {
            listener.onDataAvailable(reader);
        }
        return reader;
    }

    private static StreamReader discovery(String action, StreamReader reader, String kind) {
        return reader == null || action.equals("other") ? make(StreamReader.class, kind, null)
                : reader;
    }

    // The interfaces say List<Object>; reflection has lost it.
    @SuppressWarnings("unchecked")
    private static List<Object> list(Object list) {
        return (List<Object>) list;
    }

    /**
     * Fills the lists by the words of the script: a number of ordinary samples, "null", "odd" (it
     * cannot be converted), i and a number of infos, "inull"; for streams "bare", "untyped" and
     * "gone"; "boom" throws.
     */
    private void read(String action, List<Object> samples, List<Object> infos) {
        for (String word : action.isEmpty() ? new String[0] : action.split(" ")) {
            if (word.equals("boom")) {
                throw new IllegalStateException(word);
            } else if (word.equals("inull") || word.equals("null")) {
                (word.equals("null") ? samples : infos).add(null);
            } else if (word.startsWith("i")) {
                for (int left = Integer.parseInt(word.substring(1)); left > 0; left--) {
                    SampleInfo info = new SampleInfo();
                    info.instance_state = infos.size() + 1;
                    infos.add(info);
                }
            } else {
                boolean number = Character.isDigit(word.charAt(0));
                for (int left = number ? Integer.parseInt(word) : 1; left > 0; left--) {
                    String what = number ? "" : word;
                    samples.add(type != null ? sample(what, samples.size())
                            : stream(what, "stream" + samples.size()));
                }
            }
        }
    }

    private Object sample(String what, int id) {
        if (what.equals("odd")) {
            return new DynamicData(ODD_TYPE, null);
        }
        DynamicData sample = new DynamicData(type, null);
        sample.setInt("id", id);
        return sample;
    }

    private static Object stream(String what, String streamName) {
        switch (what) {
            case "bare":
                return new StreamInfo(null, null, false);
            case "untyped":
                return new StreamInfo(streamName, new TypeInfo("T", null), false);
            case "gone":
                return new StreamInfo(streamName, new TypeInfo(null, null), true);
            case "odd":
                return new StreamInfo(streamName, new TypeInfo("T", "no type code"), false);
            default:
                return new StreamInfo(streamName, new TypeInfo("T", STREAM_TYPE), false);
        }
    }
}
