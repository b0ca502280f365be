package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;

/** Reading JSON lines, right and wrong. */
public class JsonReadTest {
    private static final TypeCode TYPE = TypeCode.fromIdl(
            "enum E { LOW, HIGH }; struct In { long x; string s; };"
            + "struct J { long id; unsigned long long u; long long n; float f; double d; boolean b;"
            + "E e; char c; string<5> t; In in; sequence<In, 3> list; long pair[2]; };", null);

    @Rule public final Host host = new Host();

    private List<DynamicData> lines(String content, String... properties) throws Exception {
        host.put("j.jsonl", content);
        return host.readAll(host.reader("j.jsonl", TYPE, properties));
    }

    @Test
    public void namesMapToMembersAndMissingOnesAreDefaults() throws Exception {
        List<DynamicData> rows = lines("\uFEFF{\"in\":{\"s\":\"\\u00e9\\ud835\\udd38\",\"x\":-1},"
                + "\"u\":18446744073709551615,\"n\":-9223372036854775808,\"d\":null,\"f\":0.1,"
                + "\"e\":\"HIGH\",\"list\":[{\"x\":1},{\"s\":\"b\"}],\"pair\":[5,6]}\n\n"
                + "{\"id\":2,\"d\":\"-Infinity\",\"e\":1,\"list\":[{}]}", "batch", "1");
        assertEquals(List.of(), host.errors);
        DynamicData first = rows.get(0);
        assertEquals("é𝔸", first.getString("in.s"));
        assertEquals(-1L, first.getLong("u"));
        assertEquals(Long.MIN_VALUE, first.getLong("n"));
        assertTrue(Double.isNaN(first.getDouble("d")));
        assertEquals(0.1f, first.getFloat("f"), 0);
        assertEquals("b", first.getString("list[1].s"));
        assertEquals(6, first.getInt("pair[1]"));
        // Nothing of the first line is left in what the second does not name.
        DynamicData second = new DynamicData(TYPE, null);
        second.setInt("id", 2);
        second.setDouble("d", Double.NEGATIVE_INFINITY);
        second.setInt("e", 1);
        second.setLength("list", 1);
        assertEquals(second, rows.get(1));
    }

    @Test
    public void aLineThatIsTooLongIsOneBadRow() throws Exception {
        List<DynamicData> rows = lines("{\"id\":1}\n{\"t\":\"" + "x".repeat(300_000)
                + "\"}\n{\"id\":3}\n{\"id\":x}\n", "max_record_bytes", "1000");
        assertEquals(List.of(1, 3), Host.ids(rows));
        assertTrue(host.errors.toString(), host.errors.get(0).matches(
                "(?s)[^\n]*j.jsonl:2: record longer than 1000 bytes\n[^\n]*j.jsonl:4: [^\n]*"));
    }

    @Test
    public void wrongLinesAreNamedByLineAndMember() throws Exception {
        String[][] wrong = {{"{\"idd\":1}", "'idd' is no member of the type; did you mean 'id'?"},
            {"{\"in\":{\"y\":1}}", "'in.y' is no member"}, {"{\"id\":1,\"id\":2}", "appears twice"},
            {"{\"id\":1.0}", "id: expected a whole number"}, {"{\"id\":null}", "id: expected"},
            {"{\"id\":2147483648}", "id: 2147483648 is out of range"},
            {"{\"u\":-1}", "u: -1 is out of range"},
            {"{\"n\":9223372036854775808}", "n: '9223372036854775808' is out of range"},
            {"{\"f\":1e39}", "f: "}, {"{\"d\":\"1\"}", "d: expected a number"},
            {"{\"b\":1}", "b: expected true or false"}, {"{\"e\":\"HIG\"}", "did you mean 'HIGH'"},
            {"{\"c\":\"ab\"}", "c: 'ab'"}, {"{\"t\":\"sixsix\"}", "t: "},
            {"{\"t\":\"\\ud835\"}", "t: holds half"}, {"{\"in\":[]}", "in: expected an object"},
            {"{\"list\":[{},{},{},{}]}", "list: more than 3"},
            {"{\"pair\":[1]}", "pair: 1 elements"},
            {"{\"pair\":[1,2,3]}", "pair: more than 2"}, {"{\"id\":1} x", "not JSON"},
            {"{\"id\":1}{}", "text after the end"},
            {"{\"id\":1", "not JSON"}, {"[]", "expected an"},
            {"{\"list\":[{\"x\":\"a\"}]}", "list[0].x: expected a whole number"}};
        StringBuilder content = new StringBuilder();
        for (String[] line : wrong) {
            content.append(line[0]).append('\n');
        }
        List<DynamicData> rows = lines(content + "{\"id\":9}\n", "batch", "1",
                "report_ms", "0");
        assertEquals(List.of(9), Host.ids(rows));
        assertEquals(wrong.length, host.errors.size());
        for (int i = 0; i < wrong.length; i++) {
            String error = host.errors.get(i);
            assertTrue(error, error.contains("j.jsonl:" + (i + 1) + ": ")
                    && error.contains(wrong[i][1]));
        }
    }
}
