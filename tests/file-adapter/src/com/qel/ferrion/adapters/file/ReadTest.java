package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.harness.TestHost;
import java.io.ByteArrayOutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;

/**
 * What becomes of files, right and wrong: the records of {@code data/read.txt}. A record has the
 * file's extension, type and properties, its content ("-" for none), the members of rows to show,
 * the rows, and the errors behind "!".
 */
public class ReadTest {
    private static final Path RECORDS = Path.of(System.getProperty("records"));
    private static final String IDL = "enum E { LOW, HIGH }; struct P { double lat; double lon; };"
            + "struct In { long x; string s; }; struct Narrow { octet o; short s; "
            + "unsigned long long u; float f; double d; boolean b; E e; char c; string<5> t;"
            + "sequence<long, 2> q; P position; P corners[2]; }; "
            + "struct Point { long id; string text; double value; };"
            + "struct Json { long id; unsigned long long u; long long n; float f; double d;"
            + "boolean b; E e; char c; string<5> t; In in; sequence<In, 3> list; long pair[2]; };";

    @Rule public final Host host = new Host();

    /** Content in which \n and \r are line ends, and \x is followed by a byte. */
    private static byte[] content(String text) {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        String[] parts = text.replace("\\n", "\\x0A").replace("\\r", "\\x0D").split("\\\\x", -1);
        for (int i = 0; i < parts.length; i++) {
            if (i > 0) {
                bytes.write(Integer.parseInt(parts[i].substring(0, 2), 16));
            }
            bytes.writeBytes(parts[i].substring(i > 0 ? 2 : 0).getBytes(StandardCharsets.UTF_8));
        }
        return bytes.toByteArray();
    }

    private static String shown(DynamicData row, String member) {
        return switch (MemberPath.of(row.type(), member).type().resolve().kind()) {
        case STRING, ENUM -> row.getString(member);
        case FLOAT -> "" + row.getFloat(member);
        case DOUBLE -> "" + row.getDouble(member);
        case SEQUENCE -> row.getLength(member) + " elements";
        default -> "" + row.getLong(member);
        };
    }

    private List<String> outcome(List<String> record) throws Exception {
        String[] how = record.get(0).split(" ");
        Files.deleteIfExists(host.path("rejects.txt"));
        Files.write(host.path("f" + how[0]), content(record.get(1).replaceFirst("^-$", "")));
        TypeCode type = TypeCode.fromIdl(IDL, how[1]);
        String[] properties = Arrays.stream(how, 2, how.length)
                .flatMap(pair -> Arrays.stream(pair.split("=", 2))).toArray(String[]::new);
        List<String> lines = new ArrayList<>();
        try {
            TestHost.Reader reader = host.reader("f" + how[0], type, properties);
            for (DynamicData row : host.readAll(reader)) {
                lines.add(String.join(" | ", Arrays.stream(record.get(2).split(" "))
                        .map(member -> shown(row, member)).toList()));
            }
            reader.delete();
        } catch (AdapterException rejected) {
            host.errors.add(rejected.getMessage());
        }
        if (Files.exists(host.path("rejects.txt"))) {
            lines.add("rejected: " + host.text("rejects.txt")
                    .replace(host.path("").toString() + "/", ""));
        }
        lines.replaceAll(line -> line.replace("\n", "\\n").replace("\r", "\\r"));
        String folder = host.path("").toString();
        host.errors.forEach(error -> lines.add("! " + error.replace(folder + "/", "")
                .replace(folder, "FOLDER").replace("\n", "\n  ")));
        host.errors.clear();
        return lines;
    }

    @Test
    public void recordsComeOutAsWritten() throws Exception {
        String text = Files.readString(RECORDS).replaceAll("(?m)^#.*\n", "");
        String[] records = text.strip().split("\n\n+");
        assertFalse(records.length < 2);
        for (String record : records) {
            List<String> lines = record.lines().toList();
            assertEquals(record, String.join("\n", lines.subList(3, lines.size())),
                    String.join("\n", outcome(lines)));
        }
    }
}
