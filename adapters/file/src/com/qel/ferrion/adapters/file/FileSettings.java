package com.qel.ferrion.adapters.file;

import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.BadRows;
import com.qel.ferrion.kit.BatchLimit;
import com.qel.ferrion.kit.Delivery;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import java.nio.file.Path;
import java.time.Duration;
import java.util.EnumSet;
import java.util.Map;
import java.util.Set;

/** The properties that the adapter understands. */
final class FileSettings {
    private static final Duration HOUR = Duration.ofHours(1);

    static final Setting<Path> DIRECTORY =
            Setting.path("directory", "where the files are").required();
    static final Setting<Duration> POLL = Setting.duration("poll", Duration.ofMillis(1), HOUR,
            "how often growing files, and the directory itself, are looked at")
            .defaultTo(Duration.ofMillis(200));
    static final Setting<String> TYPE_IDL = Setting.text("type_idl",
            "IDL file with the type of announced files that have none of their own");
    static final Setting<String> TYPE_NAME =
            Setting.text("type_name", "the type in it; its last struct when absent");

    static final Setting<String> FILE = Setting.text("file",
            "name of the file, below the directory; the stream's name when absent");
    static final Setting<StreamFile.Format> FORMAT = Setting.choice("format",
            StreamFile.Format.class, "what the file holds; when absent, its extension says that");
    static final Setting<String> DELIMITER = Setting.text("delimiter", "CSV: between two cells")
            .where(StreamFile::isDelimiter, "one punctuation mark such as \";\", or tab")
            .defaultTo(",");
    static final Setting<Map<String, String>> COLUMNS =
            Setting.group("columns.", "CSV: name of a member's column");

    static final Setting<Boolean> FOLLOW =
            Setting.flag("follow", "whether to go on as the file grows").defaultTo(false);
    static final Setting<Boolean> RESUME = Setting.flag("resume", "whether to go on where an "
            + "earlier process has stopped; when absent, a followed file does");
    static final Setting<String> REJECT_FILE = Setting.text("reject_file",
            "file below the directory that bad rows are appended to, as JSON lines");
    static final Setting<Long> MAX_RECORD = Setting.bytes("max_record_bytes", 1, 1 << 30,
            "longest row taken").defaultTo(16L << 20);
    static final Setting<Duration> LINGER = Setting.duration("linger", Duration.ZERO, HOUR,
            "followed: how long a replaced file must be silent before its successor is read")
            .defaultTo(Duration.ofSeconds(1)).changeable();
    static final Setting<Duration> QUOTE_WAIT = Setting.duration("quote_wait", Duration.ZERO, HOUR,
            "followed CSV: how long a row waits for its closing quote; 0s for as long as it takes")
            .defaultTo(Duration.ofSeconds(10));

    static final Setting<Output.Mode> MODE = Setting.choice("mode", Output.Mode.class,
            "what to do with a file that is there already").defaultTo(Output.Mode.APPEND);
    static final Setting<Long> ROTATE = Setting.bytes("rotate_bytes", 0, Long.MAX_VALUE,
            "size that a file does not grow beyond; 0 for no limit").defaultTo(0L).changeable();
    static final Setting<Boolean> SYNC = Setting.flag("sync",
            "whether a batch is on the disk when its write returns").defaultTo(false);

    static final AdapterSettings ALL = AdapterSettings.none()
            .with(Role.CONNECTION, DIRECTORY, POLL)
            .with(Role.DISCOVERY, TYPE_IDL, TYPE_NAME)
            .with(Role.READER, FILE, FORMAT, DELIMITER, COLUMNS, FOLLOW, RESUME, BatchLimit.SAMPLES,
                    BatchLimit.BYTES, BadRows.ON_BAD_ROW, REJECT_FILE, BadRows.REPORT, MAX_RECORD,
                    LINGER, QUOTE_WAIT)
            .with(Role.WRITER, FILE, FORMAT, DELIMITER, COLUMNS, MODE, ROTATE, SYNC)
            .delivers(Role.READER, FileSettings::ofReader)
            .delivers(Role.WRITER, settings -> EnumSet.of(Delivery.COUNTS_PREFIX));

    private FileSettings() {}

    /** Whether reading goes on where an earlier process has stopped. */
    static boolean resumes(Settings settings) {
        return settings.has(RESUME) ? settings.get(RESUME) : settings.get(FOLLOW);
    }

    /** Without a position, what has been renamed away is not found again. */
    private static Set<Delivery> ofReader(Settings settings) {
        if (resumes(settings)) {
            return EnumSet.of(Delivery.REPEATS, Delivery.NUMBERS);
        }
        return settings.get(FOLLOW) ? EnumSet.noneOf(Delivery.class)
                : EnumSet.of(Delivery.REPEATS);
    }
}
