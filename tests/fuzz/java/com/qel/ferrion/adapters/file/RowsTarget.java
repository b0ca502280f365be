package com.qel.ferrion.adapters.file;

import static java.nio.charset.StandardCharsets.ISO_8859_1;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import java.io.ByteArrayInputStream;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * A file's rows, read in one go and in pieces: the same both times, the same as a naive reading of
 * the rules finds, and the same again once written.
 *
 * <p>The first byte of the input is format (bit 0), type (1), delimiter (2, 3), whether a header is
 * put in front (4) and whether rows may be 20 bytes long only (5); the second is the size of the
 * pieces; the rest is the file.
 */
public final class RowsTarget {
    private static final TypeCode[] TYPES = {TypeCode.fromIdl(
            "enum Color { RED, @value(300) GREEN }; struct Place { double lat; float lon; };"
            + "struct Row { @key string name; boolean b; char c; octet o; int8 i; unsigned short u;"
            + "long l; unsigned long long ull; Color color; Place place; sequence<string, 4> words;"
            + "short grid[2][2]; sequence<Place> places; };", "Row"),
        TypeCode.fromIdl("struct Line { string text; };", "Line")};
    /** Between what is known of a row by the rules and what became of it; not an ISO character. */
    private static final String THEN = "\u2028";
    /** What does not make another kind of an outcome. */
    private static final String VARIABLE = "(?s)=.*|'.*'|\\(.*|[0-9]+|[^ -~]";

    private final boolean json;
    private final TypeCode type;
    private final Value root;
    private final char delimiter;
    private final RowEncoder encoder;

    private RowsTarget(int switches) throws AdapterException {
        json = (switches & 1) != 0;
        type = TYPES[switches >> 1 & 1];
        root = Value.bind(type);
        delimiter = ",;\t[".charAt(switches >> 2 & 3);
        encoder = json ? new JsonEncoder(root) : new CsvEncoder(root, delimiter, Map.of());
    }

    /** @return a number for each kind of outcome */
    public static int[] run(byte[] input) throws Exception {
        RowsTarget target = new RowsTarget(input[0]);
        byte[] header = target.encoder.header();
        Bytes file = new Bytes();
        file.write(header, 0, (input[0] & 16) != 0 ? header.length : 0);
        file.write(input, 2, input.length - 2);
        int longest = (input[0] & 32) != 0 ? 20 : 1 << 20;
        return target.check(all(file), Math.max(1, input[1] & 0xFF), longest);
    }

    private int[] check(byte[] file, int piece, int longest) throws Exception {
        List<String> rows = read(file, file.length + 1, longest);
        equal("in pieces", rows, read(file, piece, longest));
        List<String> outcomes = part(rows, 1);
        List<String> naive = naive(new String(file, ISO_8859_1), longest);
        boolean unusable = rows.size() == 1 && outcomes.get(0).startsWith("header");
        equal("by the rules", unusable ? naive.subList(0, 1) : naive, part(rows, 0));
        Bytes written = new Bytes();
        written.write(encoder.header());
        DynamicData data = new DynamicData(type, null);
        List<String> samples = outcomes.stream().filter(text -> text.startsWith("=")).toList();
        for (String sample : samples) {
            data.fromCdr(sample.substring(1).getBytes(ISO_8859_1));
            encoder.encode(data, written);
        }
        List<String> again = part(read(all(written), piece, Integer.MAX_VALUE), 1);
        equal("written", samples, json ? again : again.subList(1, again.size()));
        return outcomes.stream().map(text -> text.replaceAll(VARIABLE, ""))
                .mapToInt(String::hashCode).toArray();
    }

    private static byte[] all(Bytes bytes) {
        return Arrays.copyOf(bytes.slice(0, bytes.size()).array(), bytes.size());
    }

    private static List<String> part(List<String> rows, int which) {
        return rows.stream().map(row -> row.split(THEN, 2)[which]).toList();
    }

    private static void equal(String what, List<String> expected, List<String> found) {
        if (!expected.equals(found)) {
            throw new AssertionError(what + ":\n" + expected + "\n" + found);
        }
    }

    /** Reads as the adapter does: of each row its line, what is cut out, and sample or reason. */
    private List<String> read(byte[] file, int piece, int longest) throws Exception {
        RecordScanner scanner = json ? RecordScanner.lines(longest)
                                     : RecordScanner.csv(delimiter, longest);
        RowDecoder decoder = json ? new JsonDecoder(root)
                                  : new CsvDecoder(root, delimiter, Map.of());
        DynamicData data = new DynamicData(type, null);
        List<String> rows = new ArrayList<>();
        boolean last = false;
        for (int at = 0;;) {
            if (!scanner.next(last)) {
                if (last) {
                    return rows;
                }
                int count = Math.min(piece, file.length - at);
                last = count == 0;
                scanner.fill(new ByteArrayInputStream(file, at, count)::read);
                at += count;
                continue;
            }
            String fault = scanner.fault();
            boolean tooLong = fault != null && fault.startsWith("record longer");
            String cut = scanner.line() + (fault == null ? " " : "!")
                    + (tooLong ? "" : new String(scanner.raw(), ISO_8859_1)) + THEN;
            try {
                if (decoder.hasHeader() && rows.isEmpty()) {
                    decoder.bindHeader(scanner, "");
                    rows.add(cut);
                } else if (fault != null) {
                    rows.add(cut + (tooLong ? "too long" : fault));
                } else {
                    decoder.decode(scanner, data);
                    rows.add(cut + "=" + new String(data.toCdr(), ISO_8859_1));
                }
            } catch (BadRow bad) {
                rows.add(cut + bad.getMessage());
            } catch (AdapterException unusable) {
                return List.of(cut + "header" + (tooLong ? "" : unusable.getMessage()));
            }
        }
    }

    /** Where rows begin and end by the adapter's documentation, found in another way. */
    private List<String> naive(String text, int longest) {
        Matcher cell = Pattern.compile("\"[^\"]*+(?:\"\"[^\"]*+)*+\"|(?!\")[^\\" + delimiter
                + "\r\n]*+").matcher(text);
        List<String> cuts = new ArrayList<>();
        int next;
        int wanted = 0;
        int begin = text.startsWith("\u00EF\u00BB\u00BF") ? 3 : 0;
        for (int at = begin; at < text.length(); at = next) {
            int i = at;
            boolean open = false;
            int cells = 0;
            for (boolean more = !json; more; more = !open && text.startsWith("" + delimiter, i++)) {
                cells++;
                open = !cell.region(i, text.length()).lookingAt();
                i = open ? i : cell.end();
            }
            i -= json ? 0 : 1;
            boolean whole = json || (!open && text.substring(i).matches("(?s)\r?(\n.*)?"));
            int lineEnd = (text + "\n").indexOf('\n', open ? at : i);
            int end = withoutReturn(text, at, lineEnd);
            boolean tooLong = (open ? text.length() : end) - at > longest;
            whole = whole && (wanted == 0 || end == at || cells == wanted);
            if (!whole || tooLong) {
                lineEnd = (text + "\n").indexOf('\n', at);
                end = withoutReturn(text, at, lineEnd);
            }
            wanted = cuts.isEmpty() && end > at ? cells : wanted;
            next = Math.min(lineEnd + 1, text.length());
            if (end > at || !whole || tooLong) {
                cuts.add(text.substring(0, at).replaceAll("[^\n]", "").length() + 1
                        + (whole && !tooLong ? " " : "!")
                        + (tooLong ? "" : text.substring(at, end)));
            }
        }
        return cuts;
    }

    private static int withoutReturn(String text, int at, int lineEnd) {
        return text.substring(at, lineEnd).endsWith("\r") ? lineEnd - 1 : lineEnd;
    }
}
