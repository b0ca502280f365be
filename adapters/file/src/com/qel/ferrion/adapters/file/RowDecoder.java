package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;

/** Makes samples of one type from records of one format. Used on one thread at a time. */
interface RowDecoder {
    /** Whether the first record of every file names the columns. */
    boolean hasHeader();

    /**
     * Binds the columns that a file's first record names.
     *
     * @param file for messages
     * @throws AdapterException when a column is no member, so that no row could be right
     */
    void bindHeader(RecordScanner record, String file) throws AdapterException;

    /**
     * Sets a sample from a record. Whatever the sample held before is gone, also after a failure.
     *
     * @throws BadRow when the record is no sample of the type
     */
    void decode(RecordScanner record, DynamicData data) throws BadRow;
}
