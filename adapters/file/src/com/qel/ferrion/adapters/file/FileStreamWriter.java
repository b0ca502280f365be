package com.qel.ferrion.adapters.file;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.FileClaim;
import com.qel.ferrion.kit.OutOfHeapException;
import com.qel.ferrion.kit.RejectedSampleException;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.WriterBase;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;

/**
 * Samples as rows of a file. A batch is encoded in memory and written in one go, a large one piece
 * by piece; when write returns, its rows are with the operating system, and with {@code sync} on
 * the disk.
 */
final class FileStreamWriter extends WriterBase {
    /** Bytes of encoded records that are collected before they are written. */
    private static final int PIECE = 8 << 20;

    private final Path path;
    private final RowEncoder encoder;
    private final Output output;
    private final Bytes records = new Bytes();
    private int[] ends = new int[128];
    /** Records that lie encoded and are not written. */
    private int waiting;
    private final FileClaim claim;

    /**
     * Makes a writer and touches no file yet.
     *
     * @param place which file, in which format
     * @param stream what the host asks for
     * @throws AdapterException when a property is wrong
     */
    FileStreamWriter(StreamFile place, Stream stream) throws AdapterException {
        super(stream);
        Settings settings = stream.settings();
        path = place.path();
        Value root = Value.bind(place.type());
        Ending.Check check;
        if (place.format() == StreamFile.Format.CSV) {
            char delimiter = StreamFile.delimiter(settings);
            encoder = new CsvEncoder(root, delimiter, settings.get(FileSettings.COLUMNS));
            check = file -> Ending.ofTable(file, delimiter, encoder.header());
        } else {
            StreamFile.rejectForJson(settings);
            encoder = new JsonEncoder(root);
            check = Ending::ofLines;
        }
        boolean anew = settings.get(FileSettings.MODE) == Output.Mode.OVERWRITE;
        claim = FileClaim.take(path,
                anew ? FileClaim.Use.OVERWRITE : FileClaim.Use.APPEND, settings.owner());
        try {
            output = new Output(path, settings.get(FileSettings.MODE),
                    settings.get(FileSettings.SYNC), encoder.header(), check);
        } catch (AdapterException e) {
            claim.close();
            throw e;
        }
        output.rotateAt(settings.get(FileSettings.ROTATE));
    }

    @Override
    protected void probe() throws AdapterException {
        output.probe();
    }

    @Override
    protected void changed(Settings updated) {
        output.rotateAt(updated.get(FileSettings.ROTATE));
    }

    /**
     * Writes a row for every sample that has data, up to the first that cannot be encoded. One
     * without data, which reports that its instance has gone, has no place in a table: it counts as
     * taken.
     *
     * @return how many samples there are
     * @throws RejectedSampleException for a sample that is missing or cannot be encoded; those in
     *     front of it are in the file
     * @throws AdapterException when the file cannot be written; nothing of the batch is in it
     */
    @Override
    protected int store(List<Object> samples, List<Object> infos) throws AdapterException {
        claim.checkCircle();
        BadRow bad = null;
        int taken = 0;
        try {
            while (taken < samples.size() && bad == null) {
                Object info = infos != null && taken < infos.size() ? infos.get(taken) : null;
                boolean without = info instanceof SampleInfo && !((SampleInfo) info).valid_data;
                bad = without ? null : encode(samples.get(taken));
                taken += bad == null ? 1 : 0;
            }
            flush();
            output.commit();
        } finally {
            output.rollBack();
            waiting = 0;
            records.reset();
        }
        if (bad != null) {
            throw new RejectedSampleException(
                    path + ": sample " + taken + " of a write: " + bad.getMessage(), taken);
        }
        return taken;
    }

    /** @return why the sample cannot be a row; null when it lies encoded */
    private BadRow encode(Object sample) throws AdapterException {
        if (!(sample instanceof DynamicData)) {
            return new BadRow("there is no sample");
        }
        int before = records.size();
        try {
            encoder.encode((DynamicData) sample, records);
            noteRecord();
            return null;
        } catch (IOException | TypeException | IllegalArgumentException
                | IndexOutOfBoundsException e) {
            records.setSize(before);
            return new BadRow(String.valueOf(e.getMessage()));
        } catch (OutOfMemoryError full) {
            records.setSize(before);
            if (before > 0) {
                flush();
                records.release();
                return encode(sample);
            }
            records.release();
            throw new OutOfHeapException("a sample of " + ((DynamicData) sample).size()
                    + " bytes", full);
        }
    }

    private void noteRecord() throws AdapterException {
        if (waiting == ends.length) {
            ends = Arrays.copyOf(ends, 2 * waiting);
        }
        ends[waiting++] = records.size();
        if (records.size() >= PIECE) {
            flush();
        }
    }

    private void flush() throws AdapterException {
        if (waiting > 0) {
            output.add(records, ends, waiting);
            waiting = 0;
            records.reset();
        }
    }

    /**
     * Closes the file; every batch that write returned from is in it.
     *
     * @throws UncheckedIOException when the system reports a late failure
     */
    @Override
    protected void release() {
        try {
            output.close();
        } catch (IOException e) {
            throw new UncheckedIOException(path + ": " + e.getMessage(), e);
        } finally {
            claim.close();
        }
    }
}
