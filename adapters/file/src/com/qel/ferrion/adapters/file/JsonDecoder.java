package com.qel.ferrion.adapters.file;

import com.fasterxml.jackson.core.JsonFactory;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.kit.BadRow;

/** JSON lines to samples: one object a line, its names those of the members. */
final class JsonDecoder implements RowDecoder {
    private final Value root;
    private final JsonFactory factory = JsonReader.factory();

    JsonDecoder(Value root) {
        this.root = root;
    }

    @Override
    public boolean hasHeader() {
        return false;
    }

    @Override
    public void bindHeader(RecordScanner record, String file) {
        // JSON lines have none.
    }

    @Override
    public void decode(RecordScanner record, DynamicData data) throws BadRow {
        record.checkText();
        data.clear();
        JsonReader.readLine(factory, root, data, record.bytes(), record.start(), record.length());
    }
}
