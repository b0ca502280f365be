package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.util.Random;
import org.junit.Test;

/** The short way gives what Java's own conversions give, or leaves it to them. */
public final class DecimalsTest {
    private static final int TRIES = 200_000;
    private final TypeCode type = TypeCode.fromIdl("struct N { double d; float f; octet o; };",
            null);
    private final Value root = Value.bind(type);
    private final DynamicData data = new DynamicData(type, null);
    private final Random random = new Random(11);

    private boolean set(String member, String text) {
        byte[] cell = ("," + text + ",").getBytes(StandardCharsets.ISO_8859_1);
        return Decimals.set(root.members.get(member), data, cell, 1, cell.length - 1);
    }

    /** Digits of any number, a point anywhere or nowhere, and also what Java reads as a number. */
    private String text() {
        String digits = new BigDecimal(random.nextLong() >>> 1 + random.nextInt(63)).toString();
        int point = random.nextInt(digits.length() + 2) - 1;
        String number = point < 0 ? digits
                                  : digits.substring(0, point) + "." + digits.substring(point);
        return number + (random.nextInt(50) == 0 ? "e1" : "");
    }

    private static String text(Decimals decimals) {
        return new String(decimals.text(), decimals.start(), decimals.length(),
                StandardCharsets.ISO_8859_1);
    }

    @Test
    public void numbersAreThoseThatJavaReads() {
        int[] done = new int[2];
        for (int i = 0; i < TRIES; i++) {
            String text = (i % 3 == 0 ? "-" : "") + text();
            if (set("d", text)) {
                done[0]++;
                assertEquals(text, Double.doubleToLongBits(Double.parseDouble(text)),
                        Double.doubleToLongBits(data.getDouble("d")));
            }
            if (set("f", text)) {
                done[1]++;
                assertEquals(text, Float.floatToIntBits(Float.parseFloat(text)),
                        Float.floatToIntBits(data.getFloat("f")));
            }
        }
        assertTrue(done[0] + " and " + done[1], done[0] > TRIES / 2 && done[1] > TRIES / 5);
        for (String other : new String[] {"", "-", ".", "1.2.3", "256", "-1", "1.0", " 1", "+1"}) {
            assertTrue(other, !set("o", other));
        }
    }

    @Test
    public void textsReadBackAndAreNeverLongerThanJavas() {
        Decimals decimals = new Decimals();
        int done = 0;
        for (int i = 0; i < TRIES; i++) {
            double number = i % 2 == 0 ? Double.parseDouble(text()) * (i % 3 - 1)
                                       : Double.longBitsToDouble(random.nextLong());
            if (decimals.format(number)) {
                done++;
                String text = text(decimals);
                assertEquals(text, number, Double.parseDouble(text), 0);
                assertTrue(text, text.length() <= Double.toString(number).length());
            }
            if (decimals.format((float) number)) {
                String text = text(decimals);
                assertEquals(text, (float) number, Float.parseFloat(text), 0);
                assertTrue(text, text.length() <= Float.toString((float) number).length());
            }
        }
        assertTrue("" + done, done > TRIES / 20);
    }
}
