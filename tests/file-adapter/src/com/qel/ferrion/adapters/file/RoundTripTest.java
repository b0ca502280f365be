package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.kit.harness.TestHost;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Random;
import org.junit.Rule;
import org.junit.Test;
import org.junit.runner.RunWith;
import org.junit.runners.Parameterized;
import org.junit.runners.Parameterized.Parameters;

/** Every kind of member through a file and back, with the values that break naive writers. */
@RunWith(Parameterized.class)
public class RoundTripTest {
    private static final TypeCode TYPE = TypeCode.fromIdl(
            "module m { enum Color { RED, @value(300) GREEN, BLUE };"
            + "struct Base { @key string name; };"
            + "struct Place { double lat; float lon; };"
            + "struct Tag { string key; sequence<long> values; };"
            + "typedef sequence<Tag> Tags;"
            + "struct All : Base { boolean b; char c; octet o; int8 i8; short s; unsigned short us;"
            + "long l; unsigned long ul; long long ll; unsigned long long ull; float f; double d;"
            + "Color color; Place place; sequence<string, 4> words; double grid[2][3]; Tags tags;"
            + "Place places[2]; }; };", null);

    private static final String[] TEXTS = {"", " ", "plain", " led and trailed ", "a,b;c\td",
        "say \"hi\"", "\"", "\"\"", "two\nlines", "dos\r\nlines", "\r", "\n", "#hash", "-1", "NaN",
        "null", "{\"a\":[1]}", "back\\slash", "é ü ñ Ł 漢字", "𝔸lmen 🌧", "\u2028\u0001\u007f",
        "\uFEFFmark", "x".repeat(5000)};
    private static final double[] NUMBERS = {0.0, -0.0, 1, -1.5, 0.1, 1e-320, Double.MIN_VALUE,
        Double.MAX_VALUE, 2.2250738585072014E-308, 9007199254740993.0, Double.NaN,
        Double.POSITIVE_INFINITY, Double.NEGATIVE_INFINITY, 1.0E23, 4.35};
    private static final Map<String, long[]> BOUNDS = Map.of("o", new long[] {255, 128},
            "i8", new long[] {-128, 127}, "s", new long[] {-32768, 32767},
            "us", new long[] {65535, 32768}, "l", new long[] {-1L << 31, (1L << 31) - 1},
            "ul", new long[] {(1L << 32) - 1, 1L << 31}, "color", new long[] {300, 301});
    private static final long[] LONGS = {0, 1, -1, Long.MIN_VALUE, Long.MAX_VALUE,
        9007199254740993L, -9007199254740993L};

    @Rule public final Host host = new Host();
    private final String file;
    private final String[] properties;

    public RoundTripTest(String file, String[] properties) {
        this.file = file;
        this.properties = properties;
    }

    @Parameters(name = "{0}")
    public static List<Object[]> formats() {
        return Arrays.asList(new Object[][] {{"all.csv", new String[0]},
            {"semicolon.csv", new String[] {"delimiter", ";", "columns.place.lat", "Latitude; °"}},
            {"all.jsonl", new String[0]}});
    }

    private static DynamicData sample(int i, Random random) {
        DynamicData data = new DynamicData(TYPE, null);
        data.setString("name", TEXTS[i % TEXTS.length]);
        data.setBoolean("b", i % 2 == 1);
        data.setChar("c", (char) (i % 256));
        BOUNDS.forEach((member, bounds) ->
                data.setLong(member, i % 3 == 0 ? 0 : bounds[i % 3 - 1]));
        data.setLong("ll", i < LONGS.length ? LONGS[i] : random.nextLong());
        data.setLong("ull", i < LONGS.length ? LONGS[i] : random.nextLong());
        data.setFloat("f", i < NUMBERS.length ? (float) NUMBERS[i]
                : Float.intBitsToFloat(random.nextInt() & 0xFF7FFFFF));
        data.setDouble("d", i < NUMBERS.length ? NUMBERS[i]
                : Double.longBitsToDouble(random.nextLong() & 0xFFEFFFFFFFFFFFFFL));
        data.setDouble("place.lat", random.nextDouble() - 0.5);
        data.setFloat("place.lon", random.nextFloat() * -360);
        data.setLength("words", i % 5);
        for (int k = 0; k < i % 5; k++) {
            data.setString("words[" + k + "]", TEXTS[(i + k) % TEXTS.length]);
        }
        data.setDouble("grid[1][2]", NUMBERS[i % NUMBERS.length]);
        data.setDouble("grid[0][1]", i);
        data.setLength("tags", i % 3);
        for (int k = 0; k < i % 3; k++) {
            data.setString("tags[" + k + "].key", TEXTS[(i + 3) % TEXTS.length]);
            data.setLength("tags[" + k + "].values", i * 10);
            for (int m = 0; m < i * 10; m++) {
                data.setInt("tags[" + k + "].values[" + m + "]", m - i);
            }
        }
        data.setFloat("places[1].lon", i / 3f);
        return data;
    }

    @Test
    public void everyValueComesBackExactly() throws Exception {
        Random random = new Random(7);
        List<DynamicData> written = new ArrayList<>();
        TestHost.Writer writer = host.writer(file, TYPE, properties);
        for (int i = 0; i < 64; i++) {
            written.add(sample(i, random));
        }
        assertEquals(40, host.write(writer, written.subList(0, 40).toArray(new DynamicData[0])));
        assertEquals(24, host.write(writer, written.subList(40, 64).toArray(new DynamicData[0])));
        writer.delete();

        List<String> read = new ArrayList<>(Arrays.asList(properties));
        read.addAll(List.of("batch", "7"));
        TestHost.Reader reader = host.reader(file, TYPE, read.toArray(new String[0]));
        List<DynamicData> back = host.readAll(reader);
        assertTrue(host.errors.toString(), host.errors.isEmpty());
        assertEquals(written.size(), back.size());
        for (int i = 0; i < back.size(); i++) {
            assertEquals("sample " + i, written.get(i), back.get(i));
            // Equality of samples is by content; sign of zero and NaN are checked by their bits.
            assertEquals(Double.doubleToLongBits(written.get(i).getDouble("d")),
                    Double.doubleToLongBits(back.get(i).getDouble("d")));
        }
    }
}
