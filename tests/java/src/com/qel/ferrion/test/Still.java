package com.qel.ferrion.test;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.sun.management.ThreadMXBean;
import java.lang.management.ManagementFactory;
import java.util.List;
import java.util.Properties;

/**
 * A reader and writer that allocate nothing. The reader lends one sample as often as its last
 * update said; the writer answers with the bytes that its thread has allocated since the last time.
 */
final class Still implements StreamReader, StreamWriter {
    private final ThreadMXBean bean = (ThreadMXBean) ManagementFactory.getThreadMXBean();
    private final Object sample;
    private final Object info = new SampleInfo();
    private int count;
    private long allocated;

    Still(Object type) {
        sample = new DynamicData((TypeCode) type, null);
    }

    @Override
    public void update(Properties properties) {
        count = Integer.parseInt(properties.getProperty("count"));
    }

    @Override
    public void read(List<Object> samples, List<Object> infos) {
        for (int i = 0; i < count; i++) {
            samples.add(sample);
            infos.add(info);
        }
    }

    @Override
    public void returnLoan(List<Object> samples, List<Object> infos) {}

    @Override
    public int write(List<Object> samples, List<Object> infos) {
        long before = allocated;
        allocated = bean.getCurrentThreadAllocatedBytes();
        return (int) (allocated - before);
    }
}
