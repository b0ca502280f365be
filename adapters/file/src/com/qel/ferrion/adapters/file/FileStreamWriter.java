package com.qel.ferrion.adapters.file;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.Settings;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.io.UncheckedIOException;
import java.lang.System.Logger.Level;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.Properties;

/**
 * Samples as rows of a file. A batch is encoded in memory and then written in one go; when write
 * returns, its rows are with the operating system, and with {@code sync} on the disk.
 */
final class FileStreamWriter implements StreamWriter {
    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());
    private static final byte[] LINE_END = {'\n'};

    private final Path path;
    private final RowEncoder encoder;
    private final Output output;
    private final Bytes records = new Bytes();
    private int[] ends = new int[128];
    private Settings settings;

    /**
     * Makes a writer and touches no file yet.
     *
     * @param place which file, in which format
     * @param settings of the writer
     * @throws AdapterException when a property is wrong
     */
    FileStreamWriter(StreamFile place, Settings settings) throws AdapterException {
        this.settings = settings;
        path = place.path();
        Value root = Value.bind(place.type());
        Output.AppendCheck check;
        if (place.format() == StreamFile.Format.CSV) {
            char delimiter = StreamFile.delimiter(settings);
            encoder = new CsvEncoder(root, delimiter, settings.get(FileSettings.COLUMNS));
            check = file -> checkAppend(file, RecordScanner.csv(delimiter, 1 << 30));
        } else {
            StreamFile.refuseForJson(settings);
            encoder = new JsonEncoder(root);
            check = file -> endsLine(file) ? new byte[0] : LINE_END;
        }
        output = new Output(path, settings.get(FileSettings.MODE),
                settings.get(FileSettings.SYNC), encoder.header(), check);
        output.rotateAt(settings.get(FileSettings.ROTATE));
    }

    /** Changes {@code rotate_bytes}. */
    @Override
    public void update(Properties properties) throws AdapterException {
        settings = settings.updated(properties);
        output.rotateAt(settings.get(FileSettings.ROTATE));
    }

    /**
     * Writes a row for every sample that has data. One without, which tells that its instance has
     * gone, has no place in a table: it counts as taken.
     *
     * @return rows written, and samples without data; not those that are missing or cannot be
     *     encoded
     */
    @Override
    public int write(List<Object> samples, List<Object> infos) throws AdapterException {
        records.reset();
        int count = 0;
        int without = 0;
        for (int i = 0; i < samples.size(); i++) {
            Object info = infos != null && i < infos.size() ? infos.get(i) : null;
            if (info instanceof SampleInfo && !((SampleInfo) info).valid_data) {
                without++;
            } else if (samples.get(i) instanceof DynamicData && encode(samples.get(i))) {
                if (count == ends.length) {
                    ends = Arrays.copyOf(ends, 2 * count);
                }
                ends[count++] = records.size();
            }
        }
        if (count > 0) {
            output.write(records, ends, count);
        }
        return count + without;
    }

    private boolean encode(Object sample) {
        int before = records.size();
        try {
            encoder.encode((DynamicData) sample, records);
            return true;
        } catch (IOException | TypeException | IllegalArgumentException
                | IndexOutOfBoundsException e) {
            // The others of the batch are good: this one is left out, and the count says so.
            records.setSize(before);
            LOG.log(Level.ERROR, path + ": a sample cannot be written and is left out", e);
            return false;
        }
    }

    /**
     * Closes the file; every batch that write returned from is in it.
     *
     * @throws UncheckedIOException when the system reports a late failure
     */
    void close() {
        try {
            output.close();
        } catch (IOException e) {
            throw new UncheckedIOException(path + ": " + e.getMessage(), e);
        }
    }

    private static boolean endsLine(Path file) throws IOException {
        try (RandomAccessFile opened = new RandomAccessFile(file.toFile(), "r")) {
            opened.seek(opened.length() - 1);
            return opened.read() == '\n';
        }
    }

    /** A table goes on only under the same header and where its last row ends. */
    private byte[] checkAppend(Path file, RecordScanner scanner)
            throws IOException, AdapterException {
        byte[] header = encoder.header();
        byte[] expected = Arrays.copyOf(header, header.length - 1);
        boolean ends = endsLine(file);
        boolean first = true;
        boolean last = false;
        try (RandomAccessFile opened = new RandomAccessFile(file.toFile(), "r")) {
            while (first || !ends) {
                if (scanner.next(last)) {
                    if (first && !Arrays.equals(scanner.raw(), expected)) {
                        break;
                    }
                    first = false;
                    if (last && scanner.fault() != null) {
                        throw new AdapterException(file + ":" + scanner.line() + ": "
                                + scanner.fault() + "; nothing is appended");
                    }
                } else if (last) {
                    break;
                } else {
                    last = scanner.fill(opened::read) <= 0;
                }
            }
        }
        if (first) {
            throw new AdapterException(file + ": its header is not that of the stream's type; "
                    + "nothing is appended");
        }
        return ends ? new byte[0] : LINE_END;
    }
}
