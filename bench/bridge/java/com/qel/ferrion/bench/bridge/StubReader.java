package com.qel.ferrion.bench.bridge;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import java.util.List;

/** Lends a batch of numbered samples at every read: the same objects, or new ones. */
final class StubReader implements StreamReader {
    private final TypeCode type;
    private final MemberPath number;
    private final DynamicData[] samples;
    private final SampleInfo[] infos;
    private final boolean fresh;
    private final byte[] content;
    private long made;
    private long returned;

    /** With `content`, the bytes of a sample of the type, in each. */
    StubReader(TypeCode type, int batch, boolean fresh, byte[] content) {
        this.type = type;
        this.fresh = fresh;
        this.content = content;
        number = MemberPath.of(type, "number");
        samples = new DynamicData[batch];
        infos = new SampleInfo[batch];
        for (int i = 0; i < batch; i++) {
            renew(i);
        }
    }

    private void renew(int i) {
        samples[i] = new DynamicData(type, DynamicData.PROPERTY_DEFAULT);
        samples[i].fromCdr(content);
        infos[i] = new SampleInfo();
    }

    @Override
    public void read(List<Object> lent, List<Object> lentInfos) {
        if (made != returned) {
            throw new IllegalStateException(made - returned + " samples are still lent");
        }
        for (int i = 0; i < samples.length; i++) {
            if (fresh) {
                renew(i);
            }
            samples[i].setLong(number, made++);
            lent.add(samples[i]);
            lentInfos.add(infos[i]);
        }
    }

    @Override
    public void returnLoan(List<Object> lent, List<Object> lentInfos) {
        returned += lent.size();
    }
}
