package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.Rule;
import org.junit.Test;
import org.junit.runner.RunWith;
import org.junit.runners.Parameterized;
import org.junit.runners.Parameterized.Parameters;

/** Tables, rows and what is wrong with them: {@code data/steps.txt} says how steps are written. */
@RunWith(Parameterized.class)
public class StepsTest {
    @Rule public final Rig rig = new Rig();
    private final List<String> steps;
    private TypeCode type;
    /** The one that was made last, and the one before. */
    private StreamReader reader;
    private StreamReader other;
    private StreamWriter writer;
    private List<String> before;

    public StepsTest(String name, List<String> steps) {
        this.steps = steps;
    }

    @Parameters(name = "{0}")
    public static List<Object[]> cases() throws Exception {
        String text = Files.readString(Path.of(System.getProperty("steps")))
                .replaceAll("(?m)^#.*\n", "");
        List<Object[]> cases = new ArrayList<>();
        for (String each : text.strip().split("\n\n+")) {
            List<String> lines = each.lines().filter(line -> !line.matches("(\\w+: )?= .*"))
                    .toList();
            List<String> values = each.lines().filter(line -> line.matches("(\\w+: )?= .*")
                    && counts(line)).toList();
            for (String line : values.isEmpty() ? List.of("") : values) {
                String[] value = line.isEmpty() ? new String[0]
                        : line.replaceFirst("^(\\w+: )?= ", "").split(" \\| ", -1);
                cases.add(new Object[] {lines.get(0), lines.stream().skip(1)
                        .map(step -> filled(step, value)).toList()});
            }
        }
        return cases;
    }

    /** Not a line for the other database. */
    private static boolean counts(String line) {
        return !line.startsWith(System.getProperty("sql.url") != null ? "sqlite: " : "server: ");
    }

    private static String filled(String step, String[] values) {
        String text = step;
        for (int i = 0; i < values.length; i++) {
            text = text.replace("$" + (i + 1), values[i]);
        }
        return text;
    }

    @Test(timeout = 100_000)
    public void everyStepComesOutAsWritten() throws Exception {
        for (String line : steps) {
            String step = line.replaceFirst("^(sqlite|server): ", "")
                    .replace("FOLDER", rig.folder.getRoot().toString())
                    .replace("PROBE", "qel.ferrion.check=true");
            String[] words = (step + " ").split(" ", 2);
            try {
                if (counts(line)) {
                    take(step, words[0], words[1].strip());
                }
            } catch (AdapterException rejected) {
                StringWriter all = new StringWriter();
                rejected.printStackTrace(new PrintWriter(all, true));
                assertFalse(all.toString(), all.toString().matches("(?s).*(hidden|den@).*"));
                rig.errors.add(rejected.getMessage());
            } catch (Exception | AssertionError e) {
                throw new AssertionError(line + ": " + e.getMessage() + rig.errors, e);
            }
        }
        assertEquals(List.of(), rig.errors);
    }

    /** What went wrong has to be told before the next step, but for reads in a row. */
    private void take(String step, String word, String rest) throws Exception {
        String[] parts = (rest + " ").split(" ", 2);
        String[] properties = properties(parts[1].strip());
        String[] rows = rest.isEmpty() ? new String[0] : rest.split(" ");
        if (!List.of("!", "brief", "read", "fails", "bad").contains(word)) {
            assertEquals("in front of it", List.of(), rig.errors);
        }
        switch (word) {
        case "!" -> {
            assertTrue(step, rig.errors.toString().contains(rest));
            rig.errors.clear();
        }
        case "brief" -> assertTrue(rig.errors.toString(), rig.errors.get(0).length() < 290);
        case "type" -> type = TypeCode.fromIdl("enum Color { RED, GREEN }; struct Row { "
                + rest + "; };", null);
        case "drop" -> rig.sql("DROP TABLE IF EXISTS " + rest);
        case "table" -> rig.sql("DROP TABLE IF EXISTS " + parts[0],
                "CREATE TABLE " + parts[0] + " (" + parts[1] + ")");
        case "sql" -> rig.sql(rest);
        case "rows" -> assertEquals(step, rest.split(" => ?", 2)[1],
                rig.rows(rest.split(" => ?", 2)[0]));
        case "user" -> rig.url = rig.url.replaceFirst("user=\\w+", "user=" + rest);
        case "url" -> rig.url = rest;
        case "use" -> rig.use(properties(rest));
        case "connect" -> rig.connect(properties(rest));
        case "folder" -> Files.createDirectory(Path.of(rest));
        case "file" -> Files.writeString(Path.of(parts[0]),
                parts[1].replaceFirst(" $", "").replace("\\n", "\n"));
        case "listing" -> before = listing();
        case "same" -> assertEquals(before, listing());
        case "pause" -> Thread.sleep(Long.parseLong(rest));
        case "discover" -> assertEquals(step, parts[0], discovered(parts[0], properties).stream()
                .map(StreamInfo::getStreamName).collect(Collectors.joining(",")));
        case "members" -> assertEquals(rest, type.members().stream().map(each -> each.name())
                .collect(Collectors.joining(" ")));
        case "reader" -> {
            other = reader;
            reader = rig.reader(parts[0], type, properties);
        }
        case "swap" -> {
            StreamReader last = reader;
            reader = other;
            other = last;
        }
        case "update" -> reader.update(Rig.properties(properties(rest)));
        case "writer" -> writer = rig.writer(parts[0], type, properties);
        case "delete" -> rig.connection.deleteStreamReader(reader);
        case "end" -> rig.connection.deleteStreamWriter(writer);
        case "read" -> assertEquals(step, List.of(rows), texts(rig.read(reader, false)));
        case "until" -> assertEquals(step, List.of(rows),
                texts(rig.readUntil(reader, rows.length)));
        case "any" -> assertEquals(step, Arrays.stream(rows).sorted().toList(),
                texts(rig.readUntil(reader, rows.length)).stream().sorted().toList());
        case "later" -> {
            List<String> found = new ArrayList<>();
            for (; found.size() < rows.length; Thread.sleep(5)) {
                found.addAll(texts(rig.read(reader, false)));
            }
            assertEquals(step, List.of(rows), found);
        }
        case "fails" -> {
            for (; rig.errors.isEmpty(); Thread.sleep(5)) {
                assertEquals(List.of(), rig.read(reader, false));
            }
        }
        case "bad" -> {
            assertEquals(step, Long.parseLong(rest), rig.bad);
            rig.bad = 0;
        }
        case "ends" -> assertEquals(step, Long.parseLong(rest), rig.ends);
        case "record" -> assertEquals(rest, rig.records.get(0).position() + " "
                + new String(rig.records.remove(0).raw(), StandardCharsets.UTF_8));
        case "write" -> {
            List<DynamicData> samples = Arrays.stream(rows).map(this::sample).toList();
            assertEquals(step, rows.length, Rig.write(writer, samples,
                    IntStream.range(0, rows.length).filter(i -> rows[i].startsWith("end:"))
                            .mapToObj(samples::get).toList()));
        }
        case "numbered" -> assertEquals(step, Integer.parseInt(rows[1]), Rig.writeNumbered(writer,
                Arrays.stream(rows).skip(2).map(this::sample).toList(), Integer.parseInt(rows[0])));
        default -> throw new AssertionError("no such step");
        }
    }

    private static String[] properties(String pairs) {
        return pairs.isEmpty() ? new String[0]
                : Arrays.stream(pairs.split("; ")).flatMap(each -> Stream.of(each.split("=", 2)))
                        .toArray(String[]::new);
    }

    /** The streams that are announced; the first one's type is that of what is made next. */
    private List<StreamInfo> discovered(String name, String[] properties) throws Exception {
        List<StreamInfo> found = rig.announced(name, properties);
        type = (TypeCode) found.get(0).getTypeInfo().getTypeRepresentation();
        return found;
    }

    private List<String> listing() throws Exception {
        try (Stream<Path> all = Files.walk(rig.folder.getRoot().toPath())) {
            List<String> found = new ArrayList<>(all.map(Path::toString).sorted().toList());
            found.add(rig.rows(rig.server ? "SELECT tablename FROM pg_tables WHERE tablename = "
                    + "'later'" : "SELECT name FROM sqlite_master"));
            return found;
        }
    }

    private List<String> texts(List<DynamicData> samples) {
        List<Field> fields = Field.of(type);
        return samples.stream().map(sample -> fields.stream().map(field -> field.text(sample))
                .collect(Collectors.joining("|")).replace(' ', '_').replace("\0", "\\0")).toList();
    }

    private DynamicData sample(String row) {
        DynamicData sample = new DynamicData(type, null);
        String[] values = row.replaceFirst("^end:", "").replace("\\0", "\0").split("\\|");
        for (int i = 0; i < values.length; i++) {
            String member = type.members().get(i).name();
            switch (type.members().get(i).type().kind()) {
            case STRING, ENUM -> sample.setString(member, values[i]);
            case CHAR -> sample.setChar(member, values[i].charAt(0));
            case BOOLEAN -> sample.setBoolean(member, values[i].equals("true"));
            case FLOAT, DOUBLE -> sample.setDouble(member, Double.parseDouble(values[i]));
            default -> sample.setLong(member, Long.parseLong(values[i]));
            }
        }
        return sample;
    }
}
