package com.qel.ferrion.kit;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.ferrion.kit.AdapterSettings.Role;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.EnumSet;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import java.util.Set;
import org.junit.Test;

public class SettingsTest {
    private enum OnError { SKIP, STOP_HERE }

    private static final Setting<String> URL = Setting.text("url", "what to open").required();
    private static final Setting<Integer> BATCH =
            Setting.integer("batch", 1, 500, "rows of a read").defaultTo(64).changeable();
    private static final Setting<Long> BYTES =
            Setting.bytes("bytes", 1, 1 << 30, "size of a file");
    private static final Setting<Duration> POLL = Setting.duration("poll", Duration.ofMillis(5),
            Duration.ofHours(2), "how often to look").defaultTo(Duration.ofSeconds(90));
    private static final Setting<OnError> ON_ERROR =
            Setting.choice("on_error", OnError.class, "what then").defaultTo(OnError.SKIP);
    private static final Setting<Boolean> SYNC = Setting.flag("sync", "whether to wait");
    private static final Setting<Path> FOLDER = Setting.path("folder", "where");
    private static final Setting<Secret> PASSWORD = Setting.secret("password", "the server's")
            .where(secret -> secret.reveal().length() > 3, "four characters or more");
    private static final Setting<Map<String, String>> COLUMNS =
            Setting.group("columns.", "names of columns");
    private static final AdapterSettings ALL = AdapterSettings.none()
            .with(Role.CONNECTION, URL, BATCH, BYTES, POLL, ON_ERROR)
            .with(Role.DISCOVERY, SYNC, FOLDER, PASSWORD, COLUMNS);

    /** @param pairs names and values; the required one is added */
    private static Properties properties(String... pairs) {
        Properties properties = new Properties();
        properties.setProperty("url", "db:x");
        for (int i = 0; i < pairs.length; i += 2) {
            properties.setProperty(pairs[i], pairs[i + 1]);
        }
        return properties;
    }

    private static Settings parse(String... pairs) throws SettingsException {
        return ALL.of(Role.CONNECTION).parse("connection \"c\"", properties(pairs));
    }

    /** data/settings.txt: a property's name and value, what it is read as or a complaint. */
    @Test
    public void valuesAreReadOrRejectedInWords() throws Exception {
        Map<String, Setting<?>> all = new HashMap<>();
        for (Setting<?> each : List.of(URL, BATCH, BYTES, POLL, ON_ERROR, SYNC, FOLDER, COLUMNS)) {
            all.put(each.name(), each);
        }
        for (String line : Files.readAllLines(Path.of(System.getProperty("settings")))) {
            String[] parts = line.replace("\\0", "\0").split("=| -> ", 3);
            if (line.startsWith("#")) {
                continue;
            }
            if (parts[2].startsWith("! ")) {
                String text = assertThrows(line, SettingsException.class,
                        () -> parse(parts[0], parts[1])).getMessage();
                assertTrue(text, text.startsWith("connection \"c\": ")
                        && text.contains(parts[2].substring(2)));
            } else {
                Settings settings = parse(parts[0], parts[1]);
                assertEquals(line, parts[2], "" + settings.get(all.get(parts[0])));
                assertTrue(line, settings.has(all.get(parts[0])));
            }
        }
        assertEquals(Map.of("a", "1", "b.c", "2"),
                parse("columns.b.c", "2", "columns.a", "1").get(COLUMNS));
    }

    /** What the native side reads and prints in the same way. */
    @Test
    public void quantitiesFollowTheSharedGrammar() throws Exception {
        for (String line : Files.readAllLines(Path.of(System.getProperty("grammar")))) {
            String[] part = line.split("[|=]", -1);
            if (line.startsWith("#")) {
                continue;
            }
            long low = Long.parseLong(part[1]);
            long high = Long.parseLong(part[2]);
            Setting<?> setting = quantity(part[0], low, high);
            if (part[4].equals("-")) {
                assertThrows(line, IllegalArgumentException.class,
                        () -> setting.read(Map.of("x", part[3])));
            } else {
                assertEquals(line, part[4] + " " + part[part.length == 6 ? 5 : 3],
                        readAndPrinted(setting, part[3]));
            }
        }
    }

    private static Setting<?> quantity(String kind, long low, long high) {
        return switch (kind) {
        case "whole" -> Setting.longInteger("x", low, high, "");
        case "bytes" -> Setting.bytes("x", low, high, "");
        default -> Setting.duration("x", Duration.ofNanos(low), Duration.ofNanos(high), "");
        };
    }

    private static <T> String readAndPrinted(Setting<T> setting, String text) {
        T value = setting.read(Map.of("x", text));
        return (value instanceof Duration ? ((Duration) value).toNanos() : value) + " "
                + setting.defaultTo(value).defaultText();
    }

    @Test
    public void whatIsAbsentHasItsDefault() throws SettingsException {
        Settings settings = parse();
        assertEquals(64, (int) settings.get(BATCH));
        assertEquals(OnError.SKIP, settings.get(ON_ERROR));
        assertEquals(null, settings.get(PASSWORD));
        assertEquals(Map.of(), settings.get(COLUMNS));
        assertFalse(settings.has(BATCH));
        assertEquals("90s", POLL.defaultText());
        assertEquals(Map.of("a", "1"), COLUMNS.required().read(Map.of("columns.a", "1")));
        Settings none = AdapterSettings.none().of(Role.READER).parse("reader", null);
        assertThrows(IllegalArgumentException.class, () -> none.get(BATCH));
    }

    @Test
    public void everyFaultIsReportedAtOnceAndTheHostsAreLeftAlone() {
        SettingsException rejected = assertThrows(SettingsException.class,
                () -> ALL.of(Role.CONNECTION).parse("c", new Properties() {
                    private static final long serialVersionUID = 1L;
                    {
                        setProperty("qel.ferrion.jni.initial_samples", "16");
                        setProperty("passwort", "hush");
                        setProperty("password", "hsh");
                        setProperty("poll", "soon");
                    }
                }));
        assertEquals("[passwort, url, poll, password]", rejected.problems().stream()
                .map(SettingsException.Problem::name).toList().toString());
        assertFalse(rejected.getMessage(), rejected.getMessage().contains("hush")
                || rejected.getMessage().contains("hsh"));
    }

    @Test
    public void secretsAreNotShown() throws SettingsException {
        Settings settings = parse("password", "hush");
        assertEquals(new Secret("hush"), settings.get(PASSWORD));
        String text = settings.toString();
        assertTrue(text, text.contains("password=***") && !text.contains("hush"));
    }

    @Test
    public void onlyChangeableSettingsChangeInFlight() throws SettingsException {
        Settings before = parse("poll", "60s", "batch", "7");
        Settings after = before.updated(properties("batch", "9", "poll", "1m"));
        assertEquals(9, (int) after.get(BATCH));
        assertEquals(7, (int) before.get(BATCH));
        assertEquals(Duration.ofMinutes(1), before.updated(null).get(POLL));
        String[][] rejected = {
            {"poll", "61s", "\"poll\" cannot be changed while in use (those that can: batch)"},
            {"url", "db:y", "\"url\" cannot"},
            {"columns.a", "b", "\"columns.\""}, {"batch", "many", "a whole number"},
            {"bach", "1", "did you mean \"batch\""}};
        for (String[] one : rejected) {
            String text = assertThrows(SettingsException.class,
                    () -> before.updated(properties(one[0], one[1]))).getMessage();
            assertTrue(text, text.contains(one[2]));
        }
    }

    /** Of the properties of a session only those count that the reader has, too. */
    @Test
    public void deliveriesDependOnTheSettings() throws SettingsException {
        AdapterSettings declared = AdapterSettings.none().with(Role.READER, SYNC)
                .delivers(Role.READER, settings -> EnumSet.of(
                        settings.has(SYNC) ? Delivery.REPEATS : Delivery.ONCE));
        assertEquals(EnumSet.of(Delivery.REPEATS), declared.deliveries(Role.READER,
                properties("sync", "true", "batch", "7", "qel.ferrion.x", "y")));
        assertThrows(IllegalStateException.class, () -> declared.deliveries(Role.READER, null));
        assertThrows(SettingsException.class,
                () -> declared.deliveries(Role.READER, properties("sync", "x")));
        assertEquals(Set.of(), declared.deliveries(Role.WRITER, null));
    }

    @Test
    public void declarationsThatContradictThemselvesAreRejected() {
        List<Runnable> cases = List.of(() -> BATCH.defaultTo(501),
                () -> Setting.text("qel.ferrion.x", ""),
                () -> SettingSet.of(URL, URL), () -> ALL.with(Role.CONNECTION, SYNC),
                () -> Setting.text("columns.", ""), () -> Setting.group("columns", ""));
        for (Runnable one : cases) {
            assertThrows(IllegalArgumentException.class, one::run);
        }
    }
}
