package com.qel.ferrion.adapter;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.List;

/**
 * A source of samples.
 *
 * <p>The host calls {@link #read}, uses what it was lent, and calls {@link #returnLoan}, always in
 * this order, on one thread at a time, both lists being the same two objects every time. It reads
 * when it was signalled, when its period is over, or both.
 */
public interface StreamReader extends Entity {
    /**
     * Lends samples to the host.
     *
     * <p>Must not wait for data: the same thread serves other readers and the writers of its
     * session. Add what is there, nothing if there is nothing, and signal when there is more.
     *
     * <p>The samples are copied before the host goes on, but they are on loan until {@link
     * #returnLoan}: keep them unchanged until then, and use them again for the next read if you
     * like; a reader that makes no new objects costs the host no garbage collections.
     *
     * @param samples empty when called; add {@code com.qel.dds.dynamicdata.DynamicData} objects of
     *     the stream's type (a discovery reader adds {@code StreamInfo}). A null element, one of
     *     another class's type or one that cannot be copied shows as a missing sample at its
     *     position; the others are not affected. <b>An object that is no {@code DynamicData} at all
     *     ends the process:</b> the list takes it, but the VM does not check it where it is used
     * @param infos empty when called; either leave it empty or add one {@code
     *     com.qel.dds.subscription.SampleInfo} for every sample, null where there is none. The same
     *     object may be added more than once. Here, too, one of another class ends the process
     * @throws AdapterException reported as "exception". What had been added before is delivered all
     *     the same, and its loan returned
     */
    void read(List<Object> samples, List<Object> infos) throws AdapterException;

    /**
     * Takes the loan back: the host has handed the samples on, so this is also their
     * acknowledgement. Called once after every read, also after one that gave nothing or threw.
     *
     * @param samples what the read added; the host empties the list after this call
     * @param infos what the read added; the host empties the list after this call
     * @throws AdapterException reported as "exception"; the lists are emptied all the same
     */
    void returnLoan(List<Object> samples, List<Object> infos) throws AdapterException;
}
