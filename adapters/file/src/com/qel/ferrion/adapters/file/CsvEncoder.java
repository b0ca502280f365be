package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Map;
import org.apache.commons.csv.CSVFormat;

/** Samples to CSV rows: a column per member, structs taken apart, NaN as an empty cell. */
final class CsvEncoder implements RowEncoder {
    private static final int FIRST_ROW = 256;
    /** Characters of a row that room is kept for. */
    private static final int KEPT = 1 << 16;

    private final Value[] columns;
    private final byte[] header;
    private final CSVFormat format;
    private final char delimiter;
    private final Decimals decimals = new Decimals();
    private final JsonEncoder json;
    private final Bytes element = new Bytes();
    private StringBuilder row = new StringBuilder(FIRST_ROW);

    /**
     * @param renamed names for columns, by path of the member
     * @throws AdapterException when a path of {@code renamed} is none of the type
     */
    CsvEncoder(Value root, char delimiter, Map<String, String> renamed) throws AdapterException {
        this.format = CsvDecoder.format(delimiter);
        this.delimiter = delimiter;
        this.json = new JsonEncoder(root);
        Map<Value, String> names = CsvDecoder.columnNames(root, renamed);
        this.columns = new ArrayList<>(names.keySet()).toArray(new Value[0]);
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
        row.setLength(0);
        for (int i = 0; i < columns.length; i++) {
            appendCell(columns[i], data, i == 0);
        }
        if (row.length() == 0) {
            // A blank line is no row to most readers, ours included.
            row.append("\"\"");
        }
        byte[] encoded = row.append('\n').toString().getBytes(StandardCharsets.UTF_8);
        out.write(encoded, 0, encoded.length);
        if (row.capacity() > KEPT) {
            row = new StringBuilder(FIRST_ROW);
        }
    }

    /** Texts are quoted by the CSV library where they need it; numbers never do. */
    private void appendCell(Value column, DynamicData data, boolean first) throws IOException {
        switch (column.kind) {
        case STRING:
            format.print(data.getString(column.place), row, first);
            return;
        case CHAR:
            char c = data.getChar(column.place);
            format.print(c == 0 ? "" : String.valueOf(c), row, first);
            return;
        case SEQUENCE:
        case ARRAY:
            element.reset();
            json.write(column, data, element);
            format.print(element.utf8(), row, first);
            return;
        case ENUM:
            int value = data.getInt(column.place);
            String name = column.enumName(value);
            format.print(name == null ? Integer.toString(value) : name, row, first);
            return;
        default:
            break;
        }
        if (!first) {
            row.append(delimiter);
        }
        Scalars.append(column, data, decimals, row);
    }
}
