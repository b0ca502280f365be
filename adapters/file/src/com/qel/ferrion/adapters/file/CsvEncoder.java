package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.Map;
import org.apache.commons.csv.CSVFormat;

/** Samples to CSV rows: a column per member, structs taken apart, NaN as an empty cell. */
final class CsvEncoder implements RowEncoder {
    private static final int FIRST_CELL = 256;
    /** Characters of a cell that room is kept for. */
    private static final int KEPT = 1 << 16;

    /** Each column's way of its own: one method for all kinds takes the VM seconds to compile. */
    private final Cell[] cells;
    private final byte[] header;
    private final CSVFormat format;
    private final char delimiter;
    private final Decimals decimals = new Decimals();
    private final JsonEncoder json;
    private final Bytes element = new Bytes();
    private StringBuilder cell = new StringBuilder(FIRST_CELL);

    /** Appends a sample's cell, and the delimiter in front of it unless it is a row's first. */
    private interface Cell {
        void append(DynamicData data, boolean first, Bytes out) throws IOException;
    }

    /**
     * @param renamed names for columns, by path of the member
     * @throws AdapterException when a path of {@code renamed} is none of the type
     */
    CsvEncoder(Value root, char delimiter, Map<String, String> renamed) throws AdapterException {
        this.format = CsvDecoder.format(delimiter);
        this.delimiter = delimiter;
        this.json = new JsonEncoder(root);
        Map<Value, String> names = CsvDecoder.columnNames(root, renamed);
        this.cells = names.keySet().stream().map(this::cellOf).toArray(Cell[]::new);
        StringBuilder row = new StringBuilder();
        try {
            for (String name : names.values()) {
                format.print(name, row, row.length() == 0);
            }
        } catch (IOException e) {
            throw new AdapterException("header: " + e.getMessage(), e);
        }
        this.header = row.append('\n').toString().getBytes(StandardCharsets.UTF_8);
    }

    @Override
    public byte[] header() {
        return header;
    }

    @Override
    public void encode(DynamicData data, Bytes out) throws IOException {
        int start = out.size();
        for (int i = 0; i < cells.length; i++) {
            cells[i].append(data, i == 0, out);
        }
        if (out.size() == start) {
            // A blank line is no row to most readers, ours included.
            out.plain("\"\"");
        }
        out.write('\n');
    }

    private Cell cellOf(Value column) {
        switch (column.kind) {
        case STRING:
            return (data, first, out) -> appendText(data.getString(column.place), first, out);
        case CHAR:
            return (data, first, out) -> {
                char c = data.getChar(column.place);
                appendText(c == 0 ? "" : String.valueOf(c), first, out);
            };
        case SEQUENCE:
        case ARRAY:
            return (data, first, out) -> {
                element.reset();
                json.write(column, data, element);
                appendText(element.text(), first, out);
            };
        case ENUM:
            return (data, first, out) -> {
                int value = data.getInt(column.place);
                String name = column.enumName(value);
                appendText(name == null ? Integer.toString(value) : name, first, out);
            };
        default:
            return (data, first, out) -> {
                if (!first) {
                    out.write(delimiter);
                }
                String odd = column.scalar.append(data, decimals, out);
                if (odd != null && !odd.equals("NaN")) {
                    out.plain(odd);
                }
            };
        }
    }

    /** What may need quotes goes through the CSV library. */
    private void appendText(String text, boolean first, Bytes out) throws IOException {
        if (isPlain(text, first)) {
            if (!first) {
                out.write(delimiter);
            }
            out.utf8(text);
            return;
        }
        cell.setLength(0);
        format.print(text, cell, first);
        out.utf8(cell.toString());
        if (cell.capacity() > KEPT) {
            cell = new StringBuilder(FIRST_CELL);
        }
    }

    /** Whether the library would write a text as it is; it does so with some others as well. */
    private boolean isPlain(String text, boolean first) {
        int last = text.length() - 1;
        if (last < 0) {
            return !first;
        }
        if (text.charAt(last) <= ' ' || !beginsPlain(text.charAt(0), first)) {
            return false;
        }
        for (int i = 1; i <= last; i++) {
            char c = text.charAt(i);
            if (c == '"' || c == delimiter || c == '\n' || c == '\r') {
                return false;
            }
        }
        return true;
    }

    private static boolean beginsPlain(char c, boolean first) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                || (c >= 0x80 && !first);
    }
}
