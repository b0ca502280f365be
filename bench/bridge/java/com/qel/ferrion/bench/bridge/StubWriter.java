package com.qel.ferrion.bench.bridge;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamWriter;
import java.util.List;

/** Looks at every sample that it is given, and says how many bore a valid number. */
final class StubWriter implements StreamWriter {
    private final MemberPath number;

    StubWriter(TypeCode type) {
        number = MemberPath.of(type, "number");
    }

    @Override
    public int write(List<Object> samples, List<Object> infos) {
        int good = 0;
        for (int i = 0; i < samples.size(); i++) {
            long value = ((DynamicData) samples.get(i)).getLong(number);
            boolean valid = ((SampleInfo) infos.get(i)).valid_data;
            good += valid && value == i ? 1 : 0;
        }
        return good;
    }
}
