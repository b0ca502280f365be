package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.nio.file.Files;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;

/** Reading tables as others write them, and the rows that are wrong. */
public class CsvReadTest {
    private static final TypeCode NARROW = TypeCode.fromIdl(
            "enum E { LOW, HIGH }; struct P { double lat; double lon; };"
            + "struct N { octet o; short s; unsigned long long u; float f; double d; boolean b;"
            + "E e; char c; string<5> t; sequence<long, 2> q; P position; P corners[2]; };", null);

    @Rule public final Host host = new Host();

    private List<DynamicData> points(String content, String... properties) throws Exception {
        host.put("p.csv", content);
        return host.readAll(host.reader("p.csv", Host.POINT, properties));
    }

    private String headerError(String content, String... properties) throws Exception {
        host.put("h.csv", content);
        return assertThrows(AdapterException.class,
                () -> host.reader("h.csv", NARROW, properties)).getMessage();
    }

    @Test
    public void readsTablesOfOtherMakers() throws Exception {
        List<DynamicData> rows = points("\uFEFFvalue,id,text\r\n"
                + "1.5,1,\"a \"\"quoted\"\", b\r\nsecond line\"\r\n\r\n"
                + " -2e3 , 2 ,blank  \r\n,3,\"\"\n+4,4,a \"quote\" inside\n5.,5,漢字 𝔸");
        assertEquals(List.of(), host.errors);
        assertEquals(List.of(Host.point(1, "a \"quoted\", b\r\nsecond line", 1.5),
                Host.point(2, "blank  ", -2000), Host.point(3, "", Double.NaN),
                Host.point(4, "a \"quote\" inside", 4), Host.point(5, "漢字 𝔸", 5)), rows);
    }

    @Test
    public void bindsColumnsByNameAndLeavesDefaults() throws Exception {
        host.put("n.csv", "Breite;q;corners;f\n"
                + "1.5;[7,8];\"[{\"\"lat\"\":1},{\"\"lon\"\":2}]\";1.00000017881393432617187499\n"
                + ";;[{},{}];1\n");
        StreamReader reader = host.reader("n.csv", NARROW, "delimiter", ";",
                "columns.position.lat", "Breite");
        reader.update(Host.properties("batch", "1", "delimiter", ";"));
        assertThrows(AdapterException.class,
                () -> reader.update(Host.properties("delimiter", ",")));
        List<DynamicData> rows = host.readAll(reader);
        assertEquals(List.of(), host.errors);
        assertEquals(1.5, rows.get(0).getDouble("position.lat"), 0);
        assertEquals(8, rows.get(0).getInt("q[1]"));
        assertEquals(2, rows.get(0).getDouble("corners[1].lon"), 0);
        // Just below the middle between two floats: rounding to double first would go up.
        assertEquals(1.0000001f, rows.get(0).getFloat("f"), 0);
        assertTrue(Double.isNaN(rows.get(1).getDouble("position.lat")));
        assertEquals(0, rows.get(1).getLength("q"));
        assertEquals(0.0, rows.get(1).getDouble("corners[1].lon"), 0);
        assertEquals(0.0, rows.get(1).getDouble("d"), 0);
    }

    @Test
    public void refusesHeadersThatDoNotFit() throws Exception {
        String unknown = headerError("o,s,lat\n1,2,3\n");
        assertTrue(unknown, unknown.contains("h.csv:1: column 3 'lat'"));
        assertTrue(unknown, unknown.contains("'position.lat'"));
        assertTrue(headerError("o,s,o\n").contains("column 3 'o' appears twice"));
        assertTrue(headerError("").contains("header is missing"));
        assertTrue(headerError("\"o,s\n1,2\n").contains("h.csv:1: header: quote is not closed"));
        assertTrue(headerError("o\n", "columns.positio", "x").contains("no member 'positio'"));
        assertTrue(headerError("o\n", "batsh", "5").contains("did you mean 'batch'"));
        assertTrue(headerError("o\n", "delimiter", "a").contains("property 'delimiter' is 'a'"));
        assertTrue(assertThrows(AdapterException.class, () -> host.reader("none.csv", NARROW))
                .getMessage().contains("no such file"));
        assertTrue(assertThrows(AdapterException.class,
                () -> host.reader("../x.csv", NARROW)).getMessage().contains("no file below"));
    }

    @Test
    public void badRowsAreNamedByLineAndDoNotHideTheOthers() throws Exception {
        List<DynamicData> rows = points("id,text,value\n"
                + "1,\"two\nlines\",1\n"     // line 2
                + "x,a,1\n"                  // line 4
                + "3,a\n"                    // line 5
                + "4,\"b\n\"c,1\n"           // line 6, goes on in 7
                + "5,ok,1\n"
                + "6,a\rb,1\n"               // line 9
                + "7,ok,1\n", "batch", "1", "report_ms", "0");
        assertEquals(List.of(1, 5, 7), Host.ids(rows));
        assertEquals(4, host.errors.size());
        assertTrue(host.errors.get(0), host.errors.get(0).endsWith("p.csv:4: id: 'x' is not a "
                + "whole number"));
        assertTrue(host.errors.get(1).endsWith("p.csv:5: 2 cells where the header has 3"));
        assertTrue(host.errors.get(2).endsWith("p.csv:6: text after a closing quote"));
        assertTrue(host.errors.get(3), host.errors.get(3).contains("p.csv:9: carriage return"));
    }

    @Test
    public void manyBadRowsAreReportedTogetherAndKept() throws Exception {
        StringBuilder bad = new StringBuilder();
        for (int i = 0; i < 30; i++) {
            bad.append("x").append(i).append(",a,1\n");
        }
        List<DynamicData> rows = points("id,text,value\n" + bad + "4,a,1\n", "batch", "1",
                "reject_file", "rejects.txt");
        assertEquals(List.of(4), Host.ids(rows));
        // The first at once, the others when the file has ended: ten by name, all in the file.
        assertEquals(2, host.errors.size());
        assertTrue(host.errors.get(0), host.errors.get(0).contains("p.csv:2: id: 'x0'"));
        assertTrue(host.errors.get(1), host.errors.get(1).contains("p.csv:12: id: 'x10'")
                && host.errors.get(1).endsWith("and 19 more bad rows"));
        assertEquals(bad.toString(), host.text("rejects.txt"));
    }

    @Test
    public void anUnclosedQuoteCostsItsLineOnly() throws Exception {
        List<DynamicData> rows = points("id,text,value\n1,a,1\n2,\"open,1\n3,b,1\n4,c,1\n");
        assertEquals(List.of(1, 3, 4), Host.ids(rows));
        assertTrue(host.errors.get(0), host.errors.get(0).contains("p.csv:3: quote is not closed"));
        host.errors.clear();
        rows = points("id,text,value\n1,\"" + "x".repeat(500) + "\n2,a,1\n3,\"b\n\",1\n", "batch",
                "1", "max_record_bytes", "100", "report_ms", "0");
        assertEquals(List.of(2, 3), Host.ids(rows));
        assertTrue(host.errors.toString(), host.errors.get(0).contains("p.csv:2: record longer"));
    }

    @Test
    public void stopsAtTheFirstBadRowWhenTold() throws Exception {
        List<DynamicData> rows = points("id,text,value\n1,a,1\n2,a,x\n3,a,1\n", "on_bad_row",
                "stop");
        assertEquals(List.of(1), Host.ids(rows));
        assertTrue(host.errors.get(0), host.errors.get(0).contains("p.csv:3: value: 'x' is not a "
                + "number; reading stops here"));
    }

    @Test
    public void everyKindRefusesWhatItCannotHold() throws Exception {
        String[][] wrong = {{"o", "256"}, {"o", "-1"}, {"o", ""}, {"s", "32768"}, {"s", "1.0"},
            {"u", "18446744073709551616"}, {"u", "-1"}, {"f", "1e39"}, {"d", "1e309"},
            {"d", "0x1p3"}, {"d", "1d"}, {"d", "1e"}, {"d", "."}, {"b", "yes"}, {"b", ""},
            {"e", "MIDDLE"}, {"e", ""}, {"e", "2"}, {"c", "ab"},
            {"c", "Ł"}, {"t", "sixsix"}, {"q", "\"[1,2,3]\""}, {"q", "[1"},
            {"q", "1"}, {"q", "[x]"}};
        for (String[] cell : wrong) {
            host.errors.clear();
            host.put("k.csv", cell[0] + ",position.lat\n" + cell[1] + ",1\n");
            StreamReader reader = host.reader("k.csv", NARROW);
            String what = cell[0] + " = " + cell[1];
            assertEquals(what, 0, host.readAll(reader).size());
            assertTrue(what + host.errors, host.errors.size() == 1
                    && host.errors.get(0).contains("k.csv:2: " + cell[0] + ": "));
        }
    }

    @Test
    public void textThatIsNotUtf8IsABadRow() throws Exception {
        byte[] bytes = "id,text,value\n1,?,1\n2,\"?\",1\n3,ok,1\n".getBytes("ISO-8859-1");
        for (int i = 0; i < bytes.length; i++) {
            bytes[i] = bytes[i] == '?' ? (byte) 0xE9 : bytes[i];
        }
        Files.write(host.path("p.csv"), bytes);
        List<DynamicData> rows = host.readAll(host.reader("p.csv", Host.POINT));
        assertEquals(List.of(3), Host.ids(rows));
        assertTrue(host.errors.get(0),
                host.errors.get(0).contains("p.csv:2: text: not valid UTF-8"));
    }

    @Test
    public void recordsLieAcrossTheBuffersEnd() throws Exception {
        StringBuilder table = new StringBuilder("id,text,value\r\n");
        for (int i = 0; i < 9000; i++) {
            table.append(i).append(",\"").append("é\n\"\"".repeat(i % 7)).append("\",").append(i)
                    .append("\r\n");
        }
        List<DynamicData> rows = points(table.toString());
        assertEquals(List.of(), host.errors);
        assertEquals(9000, rows.size());
        for (int i = 0; i < 9000; i++) {
            assertEquals(Host.point(i, "é\n\"".repeat(i % 7), i), rows.get(i));
        }
    }
}
