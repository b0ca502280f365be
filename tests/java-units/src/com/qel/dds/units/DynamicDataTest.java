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
import org.junit.Test;

/** What accesses allow, and what they say when they refuse. */
public class DynamicDataTest {
    private static final TypeCode FOREIGN = TypeCode.fromIdl("struct F { long id; };", null);
    private final DynamicData data = new DynamicData(Peer.ALL, null);

    private void refused(Class<? extends Exception> wanted, String text, Runnable access) {
        byte[] before = data.toCdr();
        String said = assertThrows(text, wanted, access::run).getMessage();
        assertTrue(said + " does not say " + text, said.contains(text));
        assertArrayEquals(before, data.toCdr());
    }

    @Test
    public void wrongPathsAreRefused() {
        for (String path : new String[] {"", "nix", "id.x", "id[0]", "flats", "flats[0].nix",
            "flats[0]", "flats[0][0]", "grid[0].d", "grid[0]", "inners.d", "inners[", "inners[]",
            "inners[x]", "inners[-1].o", "inners[0]o", "inners[0].", "inners[99999999999].o",
            "id ", ".id", "last[0]", "inners"}) {
            refused(TypeException.class, path.isEmpty() ? "\"\"" : path.split("[.\\[]o?")[0],
                    () -> data.getInt(path));
        }
        refused(IndexOutOfBoundsException.class, "flats[2]", () -> data.getInt("flats[2].s"));
        refused(IndexOutOfBoundsException.class, "grid[1][2]", () -> data.getInt("grid[1][2].o"));
        refused(IndexOutOfBoundsException.class, "sequence of 0", () -> data.getInt("blob[0]"));
        MemberPath foreign = MemberPath.of(FOREIGN, "id");
        refused(TypeException.class, "belongs to F", () -> data.getInt(foreign));
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

    private void outOfRange(String text, Runnable access) {
        refused(IllegalArgumentException.class, text, access);
    }

    @Test
    public void rangesAreCheckedAndNamed() {
        data.setLength("bounded", 1);
        outOfRange("0 to 255", () -> data.setInt("before", 256));
        outOfRange("-128 to 127", () -> data.setInt("flats[0].i", 128));
        outOfRange("-32768 to 32767", () -> data.setInt("flats[0].s", -32769));
        outOfRange("0 to 65535", () -> data.setShort("flats[0].us", (short) -1));
        outOfRange("0 to 4294967295", () -> data.setLong("flats[0].ul", 1L << 32));
        outOfRange("id: 2147483648", () -> data.setLong("id", 1L << 31));
        outOfRange("18446744073709551615", () -> data.setInt("flats[1].ull", -1));
        outOfRange("255", () -> data.setChar("flats[0].c", '\u0100'));
        outOfRange("Color", () -> data.setInt("flats[0].col", 0));
        outOfRange("Color", () -> data.setLong("flats[0].col", (1L << 32) + 5));
        outOfRange("[BLUE, RED, GREEN]", () -> data.setString("bounded[0].col", "WHITE"));
        outOfRange("3.4028235E38", () -> data.setDouble("flats[0].f", 1e39));
        outOfRange("0 to 5", () -> data.setLength("bounded", 6));
        outOfRange("-1", () -> data.setLength("blob", -1));
        outOfRange("at most 12", () -> data.setString("tag", "éééééé1"));
        outOfRange("position 1", () -> data.setString("last", "a\ud800"));
        outOfRange("position 0", () -> data.setString("last", "\udc00\ud800"));
        outOfRange("NUL", () -> data.setString("last", "a\0b"));
    }

    @Test
    public void readsWidenWhereNothingIsLost() {
        data.setByte("before", (byte) -1);
        assertEquals(-1, data.getByte("before"));
        assertEquals(255, data.getShort("before"));
        data.setInt("flats[0].us", 65535);
        assertEquals(65535f, data.getFloat("flats[0].us"), 0);
        data.setLong("flats[0].ul", 4294967295L);
        assertEquals(4294967295.0, data.getDouble("flats[0].ul"), 0);
        data.setDouble("flats[0].f", 0.1);
        assertEquals(0.1f, data.getDouble("flats[0].f"), 0);
        assertEquals("RED", data.getString("flats[0].col"));
        data.setString("flats[0].col", "BLUE");
        assertEquals(2, data.getInt("flats[0].col"));
        refused(TypeException.class, "as int", () -> data.getInt("flats[0].ul"));
        refused(TypeException.class, "as short", () -> data.getShort("flats[0].us"));
        refused(TypeException.class, "as float", () -> data.getFloat("id"));
        refused(TypeException.class, "as double", () -> data.getDouble("flats[0].l"));
        refused(TypeException.class, "as byte", () -> data.getByte("flats[0].b"));
        refused(TypeException.class, "as integer", () -> data.setInt("flats[0].d", 1));
        refused(TypeException.class, "as boolean", () -> data.setBoolean("before", true));
        refused(TypeException.class, "as string", () -> data.getString("id"));
        refused(TypeException.class, "as sequence", () -> data.setLength("flats", 2));
    }

    @Test
    public void stringsAreWholeUtf8() {
        String all = "\u0001\u007f\u0080\u07ff\u0800\uffff\ufffd\ud800\udc00\udbff\udfff";
        data.setString("last", all);
        assertEquals(all, data.getString("last"));
        assertEquals(1 + 1 + 2 + 2 + 3 + 3 + 3 + 4 + 4, data.getLength("last"));
        refused(NullPointerException.class, "last", () -> data.setString("last", null));
        data.setString("last", "xyz");
        byte[] latin = data.toCdr();
        latin[latin.length - 4] = (byte) 0xE9; // the "y"; NUL and one octet follow the "z"
        data.fromCdr(latin);
        refused(TypeException.class, "UTF-8", () -> data.getString("last"));
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
