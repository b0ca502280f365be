package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import java.io.IOException;

/** Makes records of one format from samples of one type. Used on one thread at a time. */
interface RowEncoder {
    /** What every file begins with; empty when the format has no header. */
    byte[] header();

    /**
     * Appends one record with its line end.
     *
     * @throws IOException when the sample cannot be written; what was appended is no record then
     */
    void encode(DynamicData data, Bytes out) throws IOException;
}
