package com.qel.ferrion.bench;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import java.util.List;

/** Lends numbered samples as fast as the host takes them, a fixed number in all. */
final class Generator implements StreamReader {
    private static final int BATCH = 1024;

    private final DynamicData[] samples = new DynamicData[BATCH];
    private final MemberPath sequence;
    private final MemberPath sent;
    private final int count;
    private int made;

    Generator(TypeCode type, int count) {
        this.count = count;
        sequence = MemberPath.of(type, "number");
        sent = MemberPath.of(type, "sent");
        for (int i = 0; i < BATCH; i++) {
            samples[i] = new DynamicData(type, DynamicData.PROPERTY_DEFAULT);
        }
    }

    @Override
    public void read(List<Object> lent, List<Object> infos) {
        for (int i = 0; i < BATCH && made < count; i++) {
            samples[i].setLong(sequence, made++);
            samples[i].setLong(sent, System.nanoTime());
            lent.add(samples[i]);
        }
    }

    @Override
    public void returnLoan(List<Object> lent, List<Object> infos) {}
}
