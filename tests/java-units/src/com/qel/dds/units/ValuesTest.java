package com.qel.dds.units;

import static org.junit.Assert.assertEquals;

import com.qel.dds.InstanceHandle_t;
import com.qel.dds.Time_t;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.List;
import org.junit.Test;

public class ValuesTest {
    private static InstanceHandle_t handle(boolean valid, int length, int last) {
        InstanceHandle_t handle = new InstanceHandle_t();
        handle.isValid = valid;
        handle.length = length;
        handle.keyHash[15] = (byte) last;
        return handle;
    }

    /** Each differs from the first in one place. */
    private static List<List<Object>> families() {
        return List.of(
                List.of(handle(true, 16, 1), handle(false, 16, 1), handle(true, 8, 1),
                        handle(true, 16, 2), "handle"),
                List.of(new Time_t(5, 7), new Time_t(6, 7), new Time_t(5, 8), new Time_t(), "time"),
                List.of(new Version(1, 2, 3, 4), new Version(0, 2, 3, 4), new Version(1, 0, 3, 4),
                        new Version(1, 2, 0, 4), new Version(1, 2, 3, 0), "version"));
    }

    @Test
    public void valuesAreEqualInAllTheirPartsOrNotAtAll() {
        List<List<Object>> once = families();
        List<List<Object>> again = families();
        for (int family = 0; family < once.size(); family++) {
            Object first = once.get(family).get(0);
            for (int i = 0; i < once.get(family).size(); i++) {
                Object other = again.get(family).get(i);
                assertEquals(first + " and " + other, i == 0, first.equals(other));
            }
            assertEquals(first.hashCode(), again.get(family).get(0).hashCode());
        }
    }

    @Test
    public void valuesShowThemselves() {
        InstanceHandle_t copy = new InstanceHandle_t();
        copy.copyFrom(handle(true, 16, 0xAB));
        assertEquals("000000000000000000000000000000ab", copy.toString());
        copy.clear();
        assertEquals(new InstanceHandle_t(), copy);
        DynamicData sample = new DynamicData(TypeCode.fromIdl("struct P { double d; }; struct S { "
                + "sequence<long> l; string s; P p; };", null), null);
        sample.setLength("l", 2);
        sample.setInt("l[1]", 7);
        Object[][] texts = {{"S{l: [0, 7], s: \"\", p: {d: 0.0}}", sample}, {"nil", copy},
            {"no time", new Time_t()},
            {"1970-01-01T00:00:05.000000007Z", new Time_t(5, 7)},
            {"1.2.3.4", new Version(1, 2, 3, 4)},
            {"T", new TypeInfo("T", "")}, {"T (unknown)", new TypeInfo("T", null)}};
        for (Object[] one : texts) {
            assertEquals(one[0], one[1].toString());
        }
        Version version = new Version(1, 2, 3, 4);
        assertEquals(List.of(1, 2, 3, 4), List.of(version.getMajorNumber(),
                version.getMinorNumber(), version.getReleaseNumber(), version.getRevisionNumber()));
        TypeInfo type = new TypeInfo("T", "of T");
        assertEquals(List.of("T", "of T"),
                List.of(type.getTypeName(), type.getTypeRepresentation()));
    }
}
