package com.qel.ferrion.adapters.file;

import com.qel.ferrion.kit.BadRow;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharsetDecoder;
import java.nio.charset.CoderResult;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;

/**
 * Cuts the bytes of a file into records and knows the line each begins at. Owns the buffer that the
 * current record lies in; used on one thread at a time.
 *
 * <p>A record of JSON lines is a line. A CSV record is a line too, but for line ends inside quotes;
 * a quote opens only at the start of a cell. A record that breaks these rules, or has another
 * number of cells than the header, carries a fault and ends with its first line: the quote that
 * made it longer may be the fault, and what lies behind it good.
 */
final class RecordScanner {
    private static final int FIRST_CAPACITY = 1 << 16;
    /** A larger buffer is kept while what it is used for takes this part of it. */
    private static final int SPARSE = 4;
    private static final int FIRST_TEXT = 256;
    private static final int NO_DELIMITER = -1;

    private final int delimiter;
    private final int longest;
    private final CharsetDecoder decoder = StandardCharsets.UTF_8.newDecoder()
            .onMalformedInput(CodingErrorAction.REPORT)
            .onUnmappableCharacter(CodingErrorAction.REPORT);
    private CharBuffer text = CharBuffer.allocate(FIRST_TEXT);

    private byte[] buffer = new byte[FIRST_CAPACITY];
    private int from;
    private int limit;
    private long nextLine = 1;
    private boolean atFileStart = true;
    private boolean skipping;
    /** Cells that a record must have; 0 while that is not known. */
    private int wanted;
    /** Whether the record at the front waits for the end of a quoted cell, and may no longer. */
    private boolean open;
    private boolean impatient;
    /** Longest record since the buffer was filled. */
    private int largest;

    // The record found last.
    private int start;
    private int end;
    private long line;
    private boolean quoted;
    private int seen;
    private int cells;
    private int[] cellEnds = new int[16];
    private String fault;
    private int newlines;

    private RecordScanner(int delimiter, int longest) {
        this.delimiter = delimiter;
        this.longest = longest;
    }

    static RecordScanner csv(char delimiter, int longest) {
        return new RecordScanner(delimiter, longest);
    }

    static RecordScanner lines(int longest) {
        return new RecordScanner(NO_DELIMITER, longest);
    }

    /** Forgets everything: another file, or the same one from its start. */
    void reset() {
        from = 0;
        limit = 0;
        nextLine = 1;
        atFileStart = true;
        skipping = false;
        wanted = 0;
        open = false;
        impatient = false;
    }

    /** Goes on elsewhere in the same file: at the begin of a line, or in one to be passed over. */
    void jump(long line, boolean midLine) {
        from = 0;
        limit = 0;
        nextLine = line;
        atFileStart = false;
        skipping = midLine;
        open = false;
        impatient = false;
    }

    /** Sets how many cells the records that follow must have: as many as the one found last. */
    void wantAsMany() {
        wanted = cells;
    }

    /** Where bytes come from: a file's read, or a stream's. */
    interface Source {
        /** Reads up to {@code length} bytes; returns how many, 0 or less when there are none. */
        int read(byte[] into, int offset, int length) throws IOException;
    }

    /**
     * Reads as much as fits, making room first.
     *
     * @return bytes read; 0 or less at the end of what the file holds now
     */
    int fill(Source source) throws IOException {
        if (from > 0) {
            System.arraycopy(buffer, from, buffer, 0, limit - from);
            limit -= from;
            from = 0;
        }
        if (limit == buffer.length) {
            buffer = Arrays.copyOf(buffer, 2 * buffer.length);
        } else if (buffer.length > FIRST_CAPACITY
                && Math.max(limit, largest) < buffer.length / SPARSE) {
            buffer = Arrays.copyOf(buffer, Math.max(FIRST_CAPACITY, buffer.length / SPARSE));
        }
        largest = 0;
        int count = source.read(buffer, limit, buffer.length - limit);
        limit += Math.max(count, 0);
        return count;
    }

    /** Bytes that are read but belong to no record yet. */
    int pending() {
        return limit - from;
    }

    /** Bytes from the begin of the record found last to where the next one begins. */
    int span() {
        return from - start;
    }

    /** Line of the record that is found next. */
    long nextLine() {
        return nextLine;
    }

    /** Whether the next bytes are the rest of a line that was given up. */
    boolean isMidLine() {
        return skipping;
    }

    /**
     * Finds the next record; blank lines are passed over.
     *
     * @param last true when no more bytes will come: what is left is a record, or cut off
     * @return false when the buffer holds no complete record
     */
    boolean next(boolean last) {
        skipByteOrderMark(last);
        skipRest();
        while (from < limit) {
            start = from;
            line = nextLine;
            fault = null;
            quoted = false;
            seen = 0;
            cells = 0;
            newlines = 0;
            open = false;
            int next = delimiter == NO_DELIMITER ? scanLine(last) : scanCells(last);
            boolean tooLong = (next < 0 ? seenEnd(last) : end) - from > longest;
            if (next < 0 && !tooLong && !last && !(open && impatient)) {
                return false;
            }
            if (next < 0 || tooLong) {
                fault = tooLong ? "record longer than " + longest + " bytes"
                                + (quoted ? " (is a quote not closed?)" : "")
                                : "quote is not closed"
                                + (last ? " before the end of the file" : " in time");
                next = endFirstLine(last);
            } else {
                next = checkCells(next);
            }
            open = false;
            impatient = false;
            largest = Math.max(largest, next - from);
            from = next;
            nextLine += newlines;
            if (end > start || fault != null) {
                return true;
            }
        }
        return false;
    }

    /** Where what is there of a record ends; a carriage return may yet belong to its line end. */
    private int seenEnd(boolean last) {
        return !last && buffer[limit - 1] == '\r' ? limit - 1 : limit;
    }

    private void skipByteOrderMark(boolean last) {
        if (atFileStart && (limit >= 3 || (last && limit > 0))) {
            atFileStart = false;
            if (limit >= 3 && buffer[0] == (byte) 0xEF && buffer[1] == (byte) 0xBB
                    && buffer[2] == (byte) 0xBF) {
                from = 3;
            }
        }
    }

    /**
     * Finds the fault of a whole record of cells.
     *
     * @param next where the record behind it starts
     * @return where reading goes on
     */
    private int checkCells(int next) {
        if (fault == null && wanted > 0 && cells != wanted && end > start) {
            fault = cells + " cells where the header has " + wanted;
        }
        if (fault == null || firstLineEnd() >= end) {
            return next;
        }
        fault += " (is a quote of this line not closed?)";
        return endFirstLine(false);
    }

    private int firstLineEnd() {
        int i = start;
        while (i < limit && buffer[i] != '\n') {
            i++;
        }
        return i;
    }

    /** Ends the record with its first line. @return where reading goes on */
    private int endFirstLine(boolean last) {
        int i = firstLineEnd();
        skipping = i == limit && !last;
        newlines = 0;
        return endAt(i);
    }

    /** Whether the record at the front has lines, but the quote that one of them opens no end. */
    boolean isOpen() {
        return open && newlines > 0;
    }

    /** Has the next look take the open record for one whose quote is never closed. */
    void giveUpOpen() {
        impatient = true;
    }

    /** Passes the rest of a line that was given up before its end was read. */
    private void skipRest() {
        while (skipping && from < limit) {
            if (buffer[from++] == '\n') {
                skipping = false;
                nextLine++;
            }
        }
    }

    private int scanLine(boolean last) {
        int i = from;
        while (i < limit && buffer[i] != '\n') {
            seen |= buffer[i++];
        }
        return i < limit || last ? endAt(i) : -1;
    }

    /** Ends the record before a line feed (or the end of the bytes) at i. */
    private int endAt(int i) {
        newlines += i < limit ? 1 : 0;
        end = i > start && buffer[i - 1] == '\r' ? i - 1 : i;
        return Math.min(i + 1, limit);
    }

    private void endCell(int at) {
        if (cells == cellEnds.length) {
            cellEnds = Arrays.copyOf(cellEnds, 2 * cells);
        }
        cellEnds[cells++] = at;
    }

    /** @return where the next record starts, or -1 when this one is not complete */
    private int scanCells(boolean last) {
        int i = from;
        while (true) {
            if (i < limit && buffer[i] == '"') {
                quoted = true;
                i = skipQuoted(i + 1, last);
                if (i < 0) {
                    open = true;
                    return -1;
                }
                if (i < limit && buffer[i] != delimiter && !endsLine(i)) {
                    fault = "text after a closing quote";
                    return skipLine(i, last);
                }
            }
            while (i < limit && buffer[i] != delimiter && buffer[i] != '\n') {
                if (buffer[i] == '\r' && i + 1 < limit && buffer[i + 1] != '\n') {
                    fault = "carriage return without line feed outside of quotes";
                    return skipLine(i, last);
                }
                seen |= buffer[i++];
            }
            if (i == limit && !last) {
                return -1;
            }
            if (i == limit || buffer[i] == '\n') {
                int next = endAt(i);
                endCell(end);
                return next;
            }
            endCell(i++);
        }
    }

    private boolean endsLine(int i) {
        return buffer[i] == '\n'
                || (buffer[i] == '\r' && (i + 1 == limit || buffer[i + 1] == '\n'));
    }

    /** @return the index behind the closing quote, or -1 when there is none yet */
    private int skipQuoted(int i, boolean last) {
        while (i < limit) {
            byte b = buffer[i++];
            seen |= b;
            if (b == '\n') {
                newlines++;
            } else if (b == '"') {
                if (i == limit) {
                    return last ? i : -1;
                }
                if (buffer[i] != '"') {
                    return i;
                }
                i++;
            }
        }
        return -1;
    }

    private int skipLine(int i, boolean last) {
        while (i < limit && buffer[i] != '\n') {
            i++;
        }
        return i < limit || last ? endAt(i) : -1;
    }

    /** Line the record begins at, counted from 1. */
    long line() {
        return line;
    }

    /** Why the record cannot be one, or null. */
    String fault() {
        return fault;
    }

    /** Whether any cell is quoted, so that cells are not simply what lies between delimiters. */
    boolean quoted() {
        return quoted;
    }

    int cells() {
        return cells;
    }

    /** Text of a cell of a record without quotes. */
    String cell(int index) throws BadRow {
        int begin = cellStart(index);
        String cell = new String(buffer, begin, cellEnds[index] - begin,
                seen >= 0 ? StandardCharsets.ISO_8859_1 : StandardCharsets.UTF_8);
        if (seen < 0 && cell.indexOf('\uFFFD') >= 0) {
            // Either the cell has this character, or it is what stands for bytes that are wrong.
            checkText();
        }
        return cell;
    }

    int cellStart(int index) {
        return index == 0 ? start : cellEnds[index - 1] + 1;
    }

    int cellEnd(int index) {
        return cellEnds[index];
    }

    byte[] bytes() {
        return buffer;
    }

    int start() {
        return start;
    }

    int length() {
        return end - start;
    }

    /** Rejects a record that is not UTF-8. */
    void checkText() throws BadRow {
        if (seen < 0) {
            ByteBuffer bytes = ByteBuffer.wrap(buffer, start, length());
            decoder.reset();
            CoderResult result;
            do {
                text.clear();
                result = decoder.decode(bytes, text, true);
            } while (result.isOverflow());
            reject(result);
        }
    }

    private static void reject(CoderResult result) throws BadRow {
        if (result.isError()) {
            throw new BadRow("not valid UTF-8");
        }
    }

    /** The record as text, valid until the next call. */
    CharBuffer text() throws BadRow {
        if (text.capacity() < length() || (text.capacity() > FIRST_CAPACITY
                && text.capacity() / SPARSE > length())) {
            text = CharBuffer.allocate(Math.max(FIRST_TEXT, length() + length() / 2));
        }
        text.clear();
        try {
            decoder.reset();
            reject(decoder.decode(ByteBuffer.wrap(buffer, start, length()), text, true));
        } finally {
            text.flip();
        }
        return text;
    }

    /** The record as it stands in the file, without its line end; for reports and rejects. */
    byte[] raw() {
        return Arrays.copyOfRange(buffer, start, end);
    }
}
