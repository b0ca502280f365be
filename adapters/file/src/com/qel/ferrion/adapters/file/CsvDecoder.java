package com.qel.ferrion.adapters.file;

import com.fasterxml.jackson.core.JsonFactory;
import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.Names;
import java.io.IOException;
import java.io.Reader;
import java.io.UncheckedIOException;
import java.lang.System.Logger.Level;
import java.nio.CharBuffer;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.TreeSet;
import org.apache.commons.csv.CSVFormat;
import org.apache.commons.csv.CSVParser;
import org.apache.commons.csv.CSVRecord;

/**
 * CSV records (RFC 4180) to samples. The header binds columns to members once; after that a row
 * costs a text per cell and its conversion.
 *
 * <p>Records with quotes go through the CSV library's parser, which is fed one record at a time so
 * that a bad one cannot take its neighbours along. Records without any are cut at the delimiters.
 */
final class CsvDecoder implements RowDecoder {
    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());

    /** Bytes of a row that the parser keeps no memory for. */
    private static final int LARGE = 1 << 16;

    private final Map<String, Value> places = new HashMap<>();
    private final char delimiter;
    /** Like the parser made when a cell needs it: many tables have none, and start sooner. */
    private JsonFactory json;
    private final Feed feed = new Feed();
    private CSVParser parser;
    private Value[] columns;
    private String[] texts = new String[0];
    private boolean clearFirst;
    private boolean saidMissing;

    /**
     * @param root the bound type
     * @param delimiter between cells
     * @param renamed names that columns have in the file, by path of the member
     * @throws AdapterException when a path of {@code renamed} is none of the type
     */
    CsvDecoder(Value root, char delimiter, Map<String, String> renamed) throws AdapterException {
        this.delimiter = delimiter;
        columnNames(root, renamed).forEach((value, name) -> places.put(name, value));
    }

    /** RFC 4180 with another delimiter where one is wanted; rows end with a line feed. */
    static CSVFormat format(char delimiter) {
        return CSVFormat.RFC4180.builder().setDelimiter(delimiter).setRecordSeparator('\n')
                .setIgnoreEmptyLines(false).build();
    }

    /**
     * The columns of a type in order, with their names in files.
     *
     * @throws AdapterException when a renamed path is no column, or two columns get one name
     */
    static Map<Value, String> columnNames(Value root, Map<String, String> renamed)
            throws AdapterException {
        List<Value> columns = new ArrayList<>();
        root.addColumns(columns);
        Map<Value, String> names = new LinkedHashMap<>();
        Map<String, String> paths = new HashMap<>();
        Map<String, String> left = new HashMap<>(renamed);
        for (Value column : columns) {
            String given = left.remove(column.path);
            String name = given == null ? column.path : given;
            String other = paths.put(name, column.path);
            if (other != null) {
                throw new AdapterException("column name \"" + name + "\" is given to both \""
                        + other + "\" and \"" + column.path + "\"");
            }
            names.put(column, name);
        }
        for (String unknown : left.keySet()) {
            throw new AdapterException("property \"columns." + unknown + "\": the type has no "
                    + "member \"" + unknown + "\" that is a column"
                    + Names.suggestion(unknown, paths.values()));
        }
        return names;
    }

    @Override
    public boolean hasHeader() {
        return true;
    }

    @Override
    public void bindHeader(RecordScanner record, String file) throws AdapterException {
        String[] names = new String[record.cells()];
        try {
            if (record.fault() != null) {
                throw new BadRow(record.fault());
            }
            split(record, names);
        } catch (BadRow bad) {
            throw new AdapterException(file + ":" + record.line() + ": header: "
                    + bad.getMessage());
        }
        Map<String, Value> left = new HashMap<>(places);
        Value[] bound = new Value[names.length];
        clearFirst = false;
        for (int i = 0; i < names.length; i++) {
            bound[i] = left.remove(names[i]);
            if (bound[i] == null) {
                String what = places.containsKey(names[i]) ? "appears twice"
                        : "is no member of the type" + Names.suggestion(names[i], places.keySet());
                throw new AdapterException(file + ":" + record.line() + ": column " + (i + 1)
                        + " \"" + names[i] + "\" " + what);
            }
            clearFirst |= bound[i].isCollection();
        }
        // Another file's header may have bound what this one leaves at its default.
        clearFirst |= !left.isEmpty();
        if (!left.isEmpty() && !saidMissing) {
            saidMissing = true;
            LOG.log(Level.INFO, "{0}: no column for {1}; default values are used", file,
                    String.join(", ", new TreeSet<>(left.keySet())));
        }
        columns = bound;
        record.wantAsMany();
    }

    @Override
    public void decode(RecordScanner record, DynamicData data) throws BadRow {
        if (texts.length != columns.length) {
            texts = new String[columns.length];
        }
        boolean quoted = record.quoted();
        if (quoted) {
            parse(record, texts);
        }
        if (clearFirst) {
            data.clear();
        }
        for (int i = 0; i < columns.length; i++) {
            Value column = columns[i];
            try {
                if (!quoted && Decimals.set(column, data, record.bytes(), record.cellStart(i),
                        record.cellEnd(i))) {
                    continue;
                }
                String cell = quoted ? texts[i] : record.cell(i);
                if (column.isCollection()) {
                    json = json == null ? JsonReader.factory() : json;
                    JsonReader.readCell(json, column, data, cell);
                } else {
                    Scalars.set(column, data, cell);
                }
            } catch (BadRow bad) {
                throw bad.in(column.path);
            } catch (IllegalArgumentException | TypeException rejected) {
                throw BadRow.rejected(column.path, rejected);
            }
        }
        if (quoted) {
            // A large cell is not to stay until the next row with quotes.
            Arrays.fill(texts, null);
        }
    }

    private void split(RecordScanner record, String[] into) throws BadRow {
        if (!record.quoted()) {
            for (int i = 0; i < into.length; i++) {
                into[i] = record.cell(i);
            }
            return;
        }
        parse(record, into);
    }

    private void parse(RecordScanner record, String[] into) throws BadRow {
        feed.record = record.text();
        feed.lineEnd = true;
        try {
            if (parser == null) {
                parser = new CSVParser(feed, format(delimiter));
            }
            CSVRecord parsed = parser.iterator().next();
            if (parsed.size() != into.length || feed.record.hasRemaining()) {
                throw new IllegalStateException("cells are not separated as expected");
            }
            for (int i = 0; i < into.length; i++) {
                into[i] = parsed.get(i);
            }
            if (record.length() > LARGE) {
                // The parser would keep as much as its longest cell took.
                parser = null;
            }
        } catch (IOException | UncheckedIOException | IllegalStateException
                | NoSuchElementException e) {
            // The parser may stand anywhere now.
            parser = null;
            throw new BadRow(e.getMessage());
        }
    }

    /** Gives the parser one record and one line end, never the next record. */
    private static final class Feed extends Reader {
        private CharBuffer record;
        private boolean lineEnd;

        @Override
        public int read(char[] into, int offset, int length) {
            if (record.hasRemaining()) {
                int count = Math.min(length, record.remaining());
                record.get(into, offset, count);
                return count;
            }
            if (lineEnd) {
                lineEnd = false;
                into[offset] = '\n';
                return 1;
            }
            return -1;
        }

        @Override
        public void close() {
            // Nothing to close: the text is the scanner's.
        }
    }
}
