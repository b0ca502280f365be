package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamReaderBase;
import com.qel.ferrion.kit.Settings;
import java.io.IOException;
import java.lang.System.Logger.Level;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Properties;

/**
 * A file's rows as samples. The rows are read and decoded in {@link #read}, on the host's thread,
 * into samples that are used again for every batch.
 *
 * <p>A read that has bad rows to report puts the good ones into the lists and then throws: the
 * host takes both. A read that may have left rows behind signals when its loan is returned;
 * for rows that arrive later the connection's watching thread signals.
 */
final class FileStreamReader extends StreamReaderBase {
    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());

    private Settings settings;
    private final TypeCode type;
    private final Path path;
    private final BadRows badRows;
    private final boolean follow;
    private final RecordScanner scanner;
    private final RowDecoder decoder;
    private final Input input;
    private final List<DynamicData> pool = new ArrayList<>();
    private final SampleInfo info = new SampleInfo();
    private volatile int batch;
    private volatile boolean stopOnBadRow;
    private boolean stopped;
    private boolean mayHaveMore;
    /** Used on the watching thread alone. */
    private boolean looked;

    /**
     * Opens a file and, where it is there already, binds its header.
     *
     * @param place which file, in which format
     * @param listener the host's, or null
     * @param settings of the reader
     * @throws AdapterException when a property is wrong, or the file cannot be read as the type
     */
    FileStreamReader(StreamFile place, StreamReaderListener listener, Settings settings)
            throws AdapterException {
        super(listener);
        this.type = place.type();
        this.path = place.path();
        this.follow = settings.get(FileSettings.FOLLOW);
        String rejects = settings.get(FileSettings.REJECT_FILE);
        this.badRows = new BadRows(path, rejects == null ? null : place.sibling(rejects),
                settings.get(FileSettings.REPORT));
        apply(settings);
        int longest = settings.get(FileSettings.MAX_RECORD);
        Value root = Value.bind(type);
        if (place.format() == StreamFile.Format.CSV) {
            char delimiter = StreamFile.delimiter(settings);
            scanner = RecordScanner.csv(delimiter, longest);
            decoder = new CsvDecoder(root, delimiter, settings.get(FileSettings.COLUMNS));
        } else {
            StreamFile.refuseForJson(settings);
            scanner = RecordScanner.lines(longest);
            decoder = new JsonDecoder(root);
        }
        try {
            input = new Input(path, follow, scanner);
        } catch (NoSuchFileException missing) {
            throw new AdapterException(path + ": no such file", missing);
        } catch (IOException e) {
            throw new AdapterException(path + ": " + e.getMessage(), e);
        }
        openHeader();
    }

    private void openHeader() throws AdapterException {
        try {
            if (decoder.hasHeader() && input.next()) {
                decoder.bindHeader(scanner, path.toString());
                input.passFirst();
            } else if (decoder.hasHeader() && !follow) {
                throw new AdapterException(path + ": is empty, its header is missing");
            }
        } catch (IOException e) {
            release();
            throw new AdapterException(path + ": " + e.getMessage(), e);
        } catch (AdapterException e) {
            release();
            throw e;
        }
    }

    private void apply(Settings from) {
        batch = from.get(FileSettings.BATCH);
        stopOnBadRow = from.get(FileSettings.ON_BAD_ROW) == FileSettings.OnBadRow.STOP;
        settings = from;
    }

    /** Changes {@code batch} and {@code on_bad_row}. */
    @Override
    public void update(Properties properties) throws AdapterException {
        apply(settings.updated(properties));
    }

    @Override
    public void read(List<Object> samples, List<Object> infos) throws AdapterException {
        mayHaveMore = false;
        if (stopped) {
            return;
        }
        int most = batch;
        int looked = 0;
        try {
            while (looked < most && !stopped && input.next()) {
                if (decoder.hasHeader() && input.atFirst()) {
                    bindNextHeader();
                } else {
                    looked++;
                    readRow(samples, infos);
                }
            }
        } catch (IOException e) {
            throw new AdapterException(path + ": " + e, e);
        }
        mayHaveMore = looked == most && !stopped;
        boolean end = stopped || (!follow && !mayHaveMore);
        badRows.report(end, stopped ? "; reading stops here" : "");
    }

    private void readRow(List<Object> samples, List<Object> infos) {
        DynamicData data = pooled(samples.size());
        try {
            if (scanner.fault() != null) {
                throw new BadRow(scanner.fault());
            }
            decoder.decode(scanner, data);
            samples.add(data);
            infos.add(info);
        } catch (BadRow bad) {
            badRows.add(scanner, bad.getMessage());
            stopped = stopOnBadRow;
        }
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

    private DynamicData pooled(int index) {
        if (index == pool.size()) {
            pool.add(new DynamicData(type, DynamicData.PROPERTY_DEFAULT));
        }
        return pool.get(index);
    }

    /** Takes the samples back, and tells the host when there was no room for all rows. */
    @Override
    public void returnLoan(List<Object> samples, List<Object> infos) {
        if (mayHaveMore) {
            mayHaveMore = false;
            signal();
        }
    }

    /** Whether the watching thread has to look for more as long as the reader lives. */
    boolean follows() {
        return follow;
    }

    /** Called by the watching thread, first when the host has the reader. */
    void look() {
        if (!looked || input.hasNews() || badRows.isDue()) {
            looked = true;
            signal();
        }
    }

    /** Closes the file; the listener has been closed before. */
    void release() {
        String unreported = badRows.take();
        if (!unreported.isEmpty()) {
            LOG.log(Level.WARNING, unreported);
        }
        try {
            input.close();
        } catch (IOException e) {
            // Nothing was written to it, so nothing is lost.
        }
    }
}
