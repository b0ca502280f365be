package com.qel.ferrion.adapters.file;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.BadRows;
import com.qel.ferrion.kit.BatchLimit;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.FileClaim;
import com.qel.ferrion.kit.OutOfHeapException;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.RejectFile;
import com.qel.ferrion.kit.SamplePool;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.time.Duration;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * A file's rows as samples. The rows are read and decoded in {@link #fill}, on the host's thread,
 * into samples that are used again for every batch.
 *
 * <p>A read that has bad rows to report puts the good ones into the lists and then throws: the
 * host takes both. A read that may have left rows behind signals when its loan is returned;
 * for rows that arrive later the connection's watching thread signals.
 */
final class FileStreamReader extends ReaderBase {
    private final Path path;
    private final boolean follow;
    private final RecordScanner scanner;
    private final RowDecoder decoder;
    /** What has to be given back; null only while the reader is being made. */
    private FileClaim claim;
    private RejectFile rejects;
    /** Null when reading begins at the start each time. */
    private FilePosition position;
    private Input input;
    private Watch.Task task;
    private final BadRows badRows;
    private final SamplePool pool;
    /** Of samples that have no numbers. */
    private final SampleInfo info = new SampleInfo();
    private final RecordNumbers numbers = new RecordNumbers();
    private boolean stopped;
    /** Whether the row in the scanner is to be decoded once more, in a read of its own. */
    private boolean again;
    private boolean mayHaveMore;
    /** Behind what is on loan; null when nothing has been read. */
    private FilePosition.Place reached;
    /** Whether nothing has been read, so that no position has to be left. */
    private boolean traceless = true;
    /** Used on the watching thread alone. */
    private boolean looked;

    /**
     * Opens a file and, where it is there already, binds its header.
     *
     * @param place which file, in which format
     * @param stream what the host asks for
     * @throws AdapterException when a property is wrong, or the file cannot be read as the type
     */
    FileStreamReader(StreamFile place, Stream stream) throws AdapterException {
        super(stream);
        this.pool = new SamplePool(place.type());
        this.path = place.path();
        Settings settings = stream.settings();
        this.follow = settings.get(FileSettings.FOLLOW);
        int longest = Math.toIntExact(settings.get(FileSettings.MAX_RECORD));
        Value root = Value.bind(place.type());
        if (place.format() == StreamFile.Format.CSV) {
            char delimiter = StreamFile.delimiter(settings);
            scanner = RecordScanner.csv(delimiter, longest);
            decoder = new CsvDecoder(root, delimiter, settings.get(FileSettings.COLUMNS));
        } else {
            StreamFile.rejectForJson(settings);
            scanner = RecordScanner.lines(longest);
            decoder = new JsonDecoder(root);
        }
        try {
            String kept = settings.get(FileSettings.REJECT_FILE);
            rejects = kept == null ? null
                    : new RejectFile(place.sibling(kept), path.toString(), settings.owner());
            claim = FileClaim.take(path, FileClaim.Use.READ, settings.owner());
            if (FileSettings.resumes(settings)) {
                position = new FilePosition(path, FilePosition.usual(path, stream.name()));
            }
            input = new Input(path, follow, scanner, settings.get(FileSettings.QUOTE_WAIT),
                    position);
            input.linger(settings.get(FileSettings.LINGER));
            openHeader();
            input.resume();
        } catch (NoSuchFileException missing) {
            release();
            throw new AdapterException(path + ": no such file", missing);
        } catch (IOException e) {
            release();
            throw new AdapterException(path + ": " + e.getMessage(), e);
        } catch (AdapterException e) {
            release();
            throw e;
        }
        badRows = new BadRows(settings.get(BadRows.REPORT), rejects);
    }

    private void openHeader() throws IOException, AdapterException {
        if (decoder.hasHeader() && input.next()) {
            decoder.bindHeader(scanner, path.toString());
            input.passFirst();
        } else if (decoder.hasHeader() && !follow) {
            throw new AdapterException(path + ": is empty, its header is missing");
        }
    }

    /** Has the watching thread look for rows, once or as long as the reader lives. */
    void start(Watch watch, Duration period) {
        task = follow ? watch.every(period, this::look) : watch.once(this::look);
    }

    @Override
    protected void changed(Settings updated) {
        input.linger(updated.get(FileSettings.LINGER));
    }

    @Override
    protected void fill(List<Object> samples, List<Object> infos) throws AdapterException {
        mayHaveMore = false;
        if (stopped) {
            badRows.report(true, "");
            return;
        }
        claim.lent();
        BatchLimit limit = new BatchLimit(settings());
        try {
            while (!limit.isReached() && !stopped && (again || input.next())) {
                keepStart();
                if (decoder.hasHeader() && input.atFirst()) {
                    bindNextHeader();
                } else if (!readRow(samples, infos, limit)) {
                    break;
                }
            }
        } catch (IOException e) {
            throw new AdapterException(path + ": " + e, e);
        } catch (OutOfMemoryError full) {
            throw new OutOfHeapException(path + ": a row of more than " + scanner.pending()
                    + " bytes", full);
        } finally {
            noteReached();
        }
        mayHaveMore = (limit.isReached() || again) && !stopped;
        badRows.report(true, stopped ? "; reading stops here" : "");
    }

    /** A process that ends before a first loan comes back leaves what the samples are known by. */
    private void keepStart() throws AdapterException, IOException {
        if (position != null && position.place() == null) {
            again = true;
            position.save(input.start());
            again = false;
            traceless = false;
        }
    }

    /** A bad row that reading stops at is met again, and so is one that is to be decoded again. */
    private void noteReached() throws AdapterException {
        try {
            reached = position == null ? null : input.place(again || stopped);
        } catch (IOException e) {
            throw new AdapterException(path + ": " + e, e);
        }
    }

    /** @return false when the row has to wait for the next read */
    private boolean readRow(List<Object> samples, List<Object> infos, BatchLimit limit) {
        again = false;
        try {
            DynamicData data = decode(samples.size());
            samples.add(data);
            infos.add(position == null ? info : numbers.get(samples.size() - 1, input));
            limit.add(data);
        } catch (BadRow bad) {
            passOver(bad, limit);
        } catch (OutOfMemoryError full) {
            // Without the samples that are lent there is more room.
            again = !samples.isEmpty();
            if (!again) {
                pool.release();
                passOver(new BadRow(new OutOfHeapException("a row of " + scanner.length()
                        + " bytes", full).getMessage()), limit);
            }
        }
        return !again;
    }

    /** A row that reading stops at is nobody's to keep: it stays where it is. */
    private void passOver(BadRow bad, BatchLimit limit) {
        String place = path + ":" + scanner.line();
        stopped = settings().get(BadRows.ON_BAD_ROW) == BadRows.OnBadRow.STOP;
        if (rejects != null) {
            badRows.add(place, bad, content());
        } else if (stopped) {
            badRows.add(place, bad);
        } else {
            badRows.add(place, bad, scanner.raw());
        }
        limit.add(scanner.length());
    }

    /** The row as text; one that is not UTF-8 has a character for each byte, and says so. */
    private Map<String, String> content() {
        byte[] raw = scanner.raw();
        Map<String, String> content = new LinkedHashMap<>();
        try {
            content.put("row",
                    StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(raw)).toString());
        } catch (CharacterCodingException e) {
            content.put("row", new String(raw, StandardCharsets.ISO_8859_1));
            content.put("encoding", "ISO-8859-1");
        }
        return content;
    }

    private DynamicData decode(int index) throws BadRow {
        if (scanner.fault() != null) {
            throw new BadRow(scanner.fault());
        }
        DynamicData data = pool.get(index);
        try {
            decoder.decode(scanner, data);
        } catch (IllegalArgumentException | TypeException rejection) {
            throw BadRow.rejected("", rejection);
        }
        return data;
    }

    /** The header of a file that came to be after the reader. */
    private void bindNextHeader() throws AdapterException {
        try {
            decoder.bindHeader(scanner, path.toString());
            input.passFirst();
        } catch (AdapterException e) {
            stopped = true;
            throw new AdapterException(e.getMessage() + "; reading stops here", e);
        }
    }

    /**
     * Takes the samples back, keeps the position, and signals when there was no room for all rows.
     *
     * @throws AdapterException when the position cannot be kept; reading goes on behind it
     */
    @Override
    protected void returned(List<Object> samples, List<Object> infos) throws AdapterException {
        claim.returned();
        pool.returned();
        try {
            if (reached != null) {
                traceless = false;
                position.save(reached);
            }
        } finally {
            signalRest();
        }
    }

    private void signalRest() {
        if (mayHaveMore) {
            mayHaveMore = false;
            signal();
        }
    }

    /** The input has been opened already. */
    @Override
    protected void probe() throws AdapterException {
        if (rejects != null) {
            rejects.probe();
        }
        if (position != null) {
            position.probe();
        }
    }

    /** Called by the watching thread, first when the host has the reader. */
    private void look() {
        if (!looked || input.hasMore()) {
            looked = true;
            signal();
        }
    }

    /** Closes the file; also what a constructor that fails has opened. */
    @Override
    protected void release() {
        if (task != null) {
            task.cancel();
        }
        if (claim != null) {
            claim.close();
        }
        if (rejects != null) {
            rejects.close();
        }
        if (position != null) {
            position.close(traceless);
        }
        try {
            if (input != null) {
                input.close();
            }
        } catch (IOException e) {
            // Nothing was written to it, so nothing is lost.
        }
    }
}
