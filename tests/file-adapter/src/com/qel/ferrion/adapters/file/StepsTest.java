package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.Check;
import com.qel.ferrion.kit.RejectedRecord;
import com.qel.ferrion.kit.Sample;
import com.qel.ferrion.kit.harness.TestHost;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.time.Duration;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.Rule;
import org.junit.Test;
import org.junit.runner.RunWith;
import org.junit.runners.Parameterized;
import org.junit.runners.Parameterized.Parameters;

/**
 * Files that grow, are cut back, are replaced, or come later than their reader, what stands in
 * files after writes, and which files are found: {@code data/steps.txt}.
 */
@RunWith(Parameterized.class)
public class StepsTest {
    @Rule public final Host host = new Host();
    private final List<String> steps;
    private final Map<String, TestHost.Writer> writers = new HashMap<>();
    /** Rows of abandoned loans, by their publication handles and numbers. */
    private final Map<String, String> numbers = new HashMap<>();
    private TestHost.Reader reader;
    /** The one that was made last. */
    private TestHost.Writer writer;

    public StepsTest(String name, List<String> steps) {
        this.steps = steps;
    }

    @Parameters(name = "{0}")
    public static List<Object[]> cases() throws Exception {
        String text = Files.readString(Path.of(System.getProperty("steps")))
                .replaceAll("(?m)^#.*\n", "");
        return Arrays.stream(text.strip().split("\n\n+")).map(each -> each.lines().toList())
                .map(lines -> new Object[] {lines.get(0), lines.subList(1, lines.size())}).toList();
    }

    @Test
    public void everyStepComesOutAsWritten() throws Exception {
        for (int i = 0; i < steps.size(); i++) {
            String[] words = steps.get(i).replace("\\n", "\n").replace("\\r", "\r").split(" ", 3);
            try {
                take(words[0], words.length > 1 ? words[1] : "",
                        words.length > 2 ? words[2] : "", i);
            } catch (AdapterException rejected) {
                host.errors.add(rejected.getMessage());
            }
            String said = String.join("\n", host.errors);
            boolean wanted = i + 1 < steps.size() && steps.get(i + 1).startsWith("! ");
            assertTrue(steps.get(i) + ": " + said,
                    wanted ? said.contains(steps.get(++i).substring(2)) : said.isEmpty());
            host.errors.clear();
        }
    }

    private void take(String step, String name, String rest, int at) throws Exception {
        String all = (name + " " + rest).strip();
        switch (step) {
        case "put" -> host.put(name, rest);
        case "add" -> Files.writeString(host.path(name), rest, StandardOpenOption.APPEND);
        case "move" -> Files.move(host.path(name), host.path(rest));
        case "link" -> Files.createSymbolicLink(host.path(name), Path.of(rest));
        case "name" -> Files.createLink(host.path(name), host.path(rest));
        case "limit" -> Host.limitFileSize(name);
        case "files" -> {
            try (Stream<Path> there = Files.walk(host.path(""))) {
                assertEquals(all, there.skip(1).map(file -> file.getFileName().toString())
                        .sorted().collect(Collectors.joining(" ")));
            }
        }
        case "folder" -> Files.createDirectory(host.path(name));
        case "text" -> assertEquals(steps.get(at), rest, host.text(name));
        case "logged" -> assertTrue("" + host.logged, host.logged.remove(0).contains(all));
        case "record" -> {
            RejectedRecord record = host.records.remove(0);
            assertEquals(host.path(name) + " " + rest,
                    record.position() + " " + new String(record.raw(), StandardCharsets.UTF_8));
        }
        case "remove" -> Files.delete(host.path(name));
        case "connect" -> host.connection = host.connect(properties(all));
        case "announced" -> assertTrue(steps.get(at) + ": " + announced(), soon(all));
        case "reader" -> reader = host.reader(name, Host.POINT, properties(rest));
        case "writer" -> {
            writer = host.writer(name, Host.POINT, properties(rest));
            writers.put(name, writer);
        }
        case "update" -> reader.update(properties(all));
        case "change" -> writer.update(properties(all));
        case "write" -> host.write(writer, Arrays.stream(all.split(" ")).map(StepsTest::point)
                .toArray(DynamicData[]::new));
        case "end" -> writers.remove(name).delete();
        case "delete" -> reader.delete();
        case "abandon" -> assertEquals(steps.get(at), List.of(all.split(" ")),
                reader.readAndDelete().stream().map(this::known).toList());
        case "close" -> host.connection.delete();
        case "pause" -> Thread.sleep(200); // in which the host would notice a signal
        case "watchers" -> assertEquals(all, "" + Thread.getAllStackTraces().keySet().stream()
                .filter(thread -> thread.getName().equals("file-watch-files") && thread.isDaemon())
                .count());
        case "read" -> {
            List<String> wanted = all.isEmpty() ? List.of() : List.of(all.split(" "));
            List<DynamicData> rows = host.await(reader, Math.max(1, wanted.size()));
            assertEquals(steps.get(at), wanted, rows.stream().map(StepsTest::text).toList());
        }
        case "quiet" -> {
            // Leaves no signal under way: what comes next is new.
            do {
                assertEquals(List.of(), host.read(reader));
            } while (reader.awaitSignal(Duration.ofMillis(100)));
        }
        case "look" -> {
            // Some times in vain.
            for (int i = 0; i < 3; i++) {
                assertTrue(reader.awaitSignal(Duration.ofSeconds(10)));
                assertEquals(List.of(), host.read(reader));
            }
        }
        default -> throw new AssertionError(step);
        }
    }

    private String[] properties(String pairs) {
        return pairs.isEmpty() ? new String[0]
                : pairs.replace("FOLDER", host.path("").toString())
                        .replace("CHECK", Check.PROPERTY + "=true").split("[ =]");
    }

    /** The streams that are there, with the names of their types. */
    private String announced() throws Exception {
        return host.connection.announced().values().stream()
                .map(stream -> stream.getStreamName() + ":"
                        + (stream.getTypeInfo().getTypeRepresentation() instanceof TypeCode
                                ? stream.getTypeInfo().getTypeName() : ""))
                .collect(Collectors.joining(" "));
    }

    private boolean soon(String wanted) throws Exception {
        long end = System.nanoTime() + Duration.ofSeconds(10).toNanos();
        while (!announced().equals(wanted) && System.nanoTime() < end) {
            Thread.sleep(5);
        }
        return announced().equals(wanted);
    }

    /** A row; with a star if the sample's number stood for it before, and never for another. */
    private String known(Sample sample) {
        String row = text(sample.data());
        String before = numbers.put(sample.info().publication_handle + " "
                + sample.info().publication_sequence_number, row);
        assertTrue(row + " has the number of " + before, before == null || before.equals(row));
        return before == null ? row : row + "*";
    }

    private static DynamicData point(String text) {
        String[] parts = text.split("\\|");
        return Host.point(Integer.parseInt(parts[0]), parts[1], Double.parseDouble(parts[2]));
    }

    private static String text(DynamicData point) {
        return point.getInt("id") + "|" + point.getString("text") + "|" + point.getDouble("value");
    }
}
