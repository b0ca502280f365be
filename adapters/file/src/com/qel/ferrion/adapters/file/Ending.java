package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * How a file ends that records are to be appended to. A writer ends each record with a line end, so
 * a last record without one is torn: its writer was killed, or the machine lost its power.
 *
 * @param whole bytes up to which there are whole records
 * @param size of the file, in bytes
 * @param lead what must come before the first record that is appended
 */
record Ending(long whole, long size, byte[] lead) {
    private static final byte[] NOTHING = {};
    private static final byte[] LINE_END = {'\n'};
    private static final int PIECE = 1 << 20;
    /** Stands for a closing quote; no part of UTF-8. */
    private static final byte CLOSED = (byte) 0xFF;
    private static final int LONGEST = 1 << 30;

    /** Looks at a file before records are appended to it. */
    interface Check {
        Ending check(Path path) throws IOException, AdapterException;
    }

    /** Whether there is the begin of a record at the end. */
    boolean isTorn() {
        return whole < size;
    }

    /** A last line that is a whole object only lacks its end: the begin of one never is one. */
    static Ending ofLines(Path path) throws IOException {
        try (RandomAccessFile file = new RandomAccessFile(path.toFile(), "r")) {
            long size = file.length();
            long whole = lastLineEnd(file);
            if (size - whole > LONGEST) {
                throw new IOException("a last line of " + (size - whole) + " bytes");
            }
            byte[] rest = new byte[(int) (size - whole)];
            file.seek(whole);
            file.readFully(rest);
            return JsonReader.isObject(rest)
                    ? new Ending(size, size, LINE_END) : new Ending(whole, size, NOTHING);
        }
    }

    /** @return where the last line begins that has no end; the file's size if all have */
    private static long lastLineEnd(RandomAccessFile file) throws IOException {
        byte[] piece = new byte[PIECE];
        for (long end = file.length(); end > 0;) {
            int length = (int) Math.min(PIECE, end);
            end -= length;
            file.seek(end);
            file.readFully(piece, 0, length);
            for (int i = length - 1; i >= 0; i--) {
                if (piece[i] == '\n') {
                    return end + i + 1;
                }
            }
        }
        return 0;
    }

    /**
     * A table goes on only under the same header.
     *
     * @throws AdapterException when it has another one
     */
    static Ending ofTable(Path path, char delimiter, byte[] header)
            throws IOException, AdapterException {
        byte[] expected = Arrays.copyOf(header, header.length - 1);
        try (RandomAccessFile file = new RandomAccessFile(path.toFile(), "r")) {
            long size = file.length();
            RecordScanner scanner = RecordScanner.csv(delimiter, LONGEST);
            boolean ended = false;
            while (!scanner.next(ended) && !ended) {
                ended = scanner.fill(file::read) <= 0;
            }
            byte[] first = scanner.raw();
            boolean isBegun = ended && first.length < expected.length
                    && Arrays.equals(first, Arrays.copyOf(expected, first.length));
            if (isBegun) {
                return new Ending(0, size, NOTHING);
            }
            if (!Arrays.equals(first, expected)) {
                throw new AdapterException(path + ": its header is not that of the stream's type; "
                        + "nothing is appended");
            }
            if (ended) {
                return new Ending(size, size, LINE_END);
            }
            long whole = endOfRecords(file, delimiter);
            scanner.wantAsMany();
            rejectRows(path, file, whole, scanner);
            return new Ending(whole, size, NOTHING);
        }
    }

    /** What is torn is one record: rows behind it mean that somebody has left a quote open. */
    private static void rejectRows(Path path, RandomAccessFile file, long from,
            RecordScanner scanner) throws IOException, AdapterException {
        file.seek(from);
        scanner.jump(0, false);
        for (int records = 0; find(scanner, file); records++) {
            if (records > 0 && scanner.fault() == null) {
                throw new AdapterException(path + ": the quote that opens behind byte " + from
                        + " is not closed, and there are rows behind it; nothing is appended");
            }
        }
    }

    private static boolean find(RecordScanner scanner, RandomAccessFile file) throws IOException {
        while (!scanner.next(false)) {
            if (scanner.fill(file::read) <= 0) {
                return scanner.next(true);
            }
        }
        return true;
    }

    /** Behind the last line end that is not inside of quotes, which open at the start of a cell. */
    private static long endOfRecords(RandomAccessFile file, char delimiter) throws IOException {
        byte[] piece = new byte[PIECE];
        boolean quoted = false;
        byte before = '\n';
        long whole = 0;
        long at = 0;
        file.seek(0);
        for (int length = file.read(piece); length > 0; length = file.read(piece)) {
            for (int i = 0; i < length; i++) {
                byte now = piece[i];
                if (quoted) {
                    quoted = now != '"';
                    before = CLOSED;
                } else {
                    // Behind a closing quote, a quote stands for itself.
                    quoted = now == '"'
                            && (before == '\n' || before == delimiter || before == CLOSED);
                    whole = now == '\n' ? at + i + 1 : whole;
                    before = now;
                }
            }
            at += length;
        }
        return whole;
    }
}
