package com.qel.dds.units;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.DynamicDataTypeSupport;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.TypeCode;
import java.lang.invoke.MethodType;
import java.lang.reflect.InvocationTargetException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import org.junit.Test;

/** What accesses allow, and what they say when they reject. */
public class DynamicDataTest {
    private static final TypeCode FOREIGN = TypeCode.fromIdl("struct F { long id; };", null);
    private final DynamicData data = new DynamicData(Peer.ALL, null);

    /** What a call gives back or throws; one that throws has changed nothing. */
    private String outcome(String name, Object... arguments) throws Exception {
        byte[] before = data.toCdr();
        Class<?>[] types = Arrays.stream(arguments)
                .map(each -> MethodType.methodType(each.getClass()).unwrap().returnType())
                .toArray(Class<?>[]::new);
        try {
            return "" + DynamicData.class.getMethod(name, types).invoke(data, arguments);
        } catch (InvocationTargetException thrown) {
            assertArrayEquals(before, data.toCdr());
            return thrown.getCause().getClass().getSimpleName() + ": "
                    + thrown.getCause().getMessage();
        }
    }

    private static Object value(String method, String text) {
        return switch (method) {
        case "setBoolean" -> Boolean.valueOf(text);
        case "setByte" -> Byte.valueOf(text);
        case "setChar" -> text.charAt(0);
        case "setShort" -> Short.valueOf(text);
        case "setInt", "setLength" -> Integer.valueOf(text);
        case "setLong" -> Long.valueOf(text);
        case "setDouble" -> Double.valueOf(text);
        default -> text;
        };
    }

    /** Calls in order, each with its outcome: data/accesses.txt. */
    @Test
    public void accessesGiveOrRejectWhatIsWritten() throws Exception {
        for (String line : Files.readAllLines(Path.of(System.getProperty("accesses")))) {
            if (!line.isEmpty() && line.charAt(0) != '#') {
                String[] call = line.split(" -> ")[0].split(" ");
                String path = call.length > 1 ? call[1] : "";
                assertEquals(line, line.substring(line.indexOf(" -> ") + 4), call.length < 3
                        ? outcome(call[0], path)
                        : outcome(call[0], path, value(call[0], call[2])));
            }
        }
        MemberPath foreign = MemberPath.of(FOREIGN, "id");
        assertThrows(TypeException.class, () -> data.getInt(foreign));
    }

    @Test
    public void pathsCanBeFilledWithIndices() {
        data.setLength("nested", 3);
        data.setLength("nested[1]", 2);
        data.setString("nested[1][1]", "deep");
        MemberPath nested = MemberPath.of(Peer.ALL, "nested");
        assertEquals("deep", data.getString(nested.at(1, 1)));
        assertEquals("deep", data.getString(nested.at(1).at(1)));
        assertEquals("string", nested.at(0, 0).type().toString());
        MemberPath grid = MemberPath.of(Peer.ALL, "grid");
        assertEquals(2, data.getLength(grid.at(1)));
        assertEquals("grid[1][0]", grid.at(1).at(0).toString());
        assertThrows(TypeException.class, () -> grid.at(0, 0, 0));
        assertThrows(IndexOutOfBoundsException.class, () -> grid.at(0, 2));
        assertThrows(IndexOutOfBoundsException.class, () -> nested.at(-1));
    }

    @Test
    public void stringsAreWholeUtf8() {
        String all = "\u0001\u007f\u0080\u07ff\u0800\uffff\ufffd\ud800\udc00\udbff\udfff";
        data.setString("last", all);
        assertEquals(all, data.getString("last"));
        assertEquals(1 + 1 + 2 + 2 + 3 + 3 + 3 + 4 + 4, data.getLength("last"));
        byte[] before = data.toCdr();
        assertThrows(NullPointerException.class, () -> data.setString("last", null));
        for (String bad : new String[] {"a\ud800", "\udc00\ud800", "a\0b"}) {
            assertThrows(IllegalArgumentException.class, () -> data.setString("last", bad));
        }
        assertArrayEquals(before, data.toCdr());
        data.setString("last", "xyz");
        byte[] latin = data.toCdr();
        latin[latin.length - 4] = (byte) 0xE9; // the "y"; NUL and one octet follow the "z"
        data.fromCdr(latin);
        assertThrows(TypeException.class, () -> data.getString("last"));
    }

    @Test
    public void boundsHoldForBytesFromOutside() {
        TypeCode type = TypeCode.fromIdl("struct B { string<3> s; sequence<octet, 2> o; };", null);
        DynamicData bounded = new DynamicData(type, null);
        bounded.fromCdr(new byte[] {4, 0, 0, 0, 'a', 'b', 'c', 0, 2, 0, 0, 0, 1, 2});
        assertEquals("abc", bounded.getString("s"));
        for (byte[] bytes : new byte[][] {
            {5, 0, 0, 0, 'a', 'b', 'c', 'd', 0, 0, 0, 0, 0, 0, 0, 0},
            {1, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 1, 2, 3}}) {
            assertTrue(assertThrows(TypeException.class, () -> bounded.fromCdr(bytes)).getMessage()
                    .contains("bound"));
        }
    }

    @Test
    public void samplesCompareByTypeAndContent() {
        DynamicDataTypeSupport support = new DynamicDataTypeSupport(Peer.ALL, null);
        DynamicData other = support.create_data();
        assertEquals(data, other);
        data.setString("tag", "t");
        assertTrue(!data.equals(other));
        support.copy_data(other, data);
        assertEquals(data, other);
        DynamicData foreign = new DynamicData(FOREIGN, null);
        assertThrows(TypeException.class, () -> support.copy_data(foreign, data));
        assertThrows(TypeException.class,
                () -> new DynamicData(Peer.ALL.member("ds").type(), null));
    }
}
