package com.qel.ferrion.kit;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import java.util.ArrayList;
import java.util.List;

/**
 * A sample that is kept.
 *
 * @param data null where a sample is missing
 * @param info null where nothing is known about it
 */
public record Sample(DynamicData data, SampleInfo info) {
    /** {@return a sample of its own with the same content; null for null} */
    public static DynamicData copy(DynamicData data) {
        if (data == null) {
            return null;
        }
        DynamicData copy = new DynamicData(data.type(), null);
        copy.copyFrom(data);
        return copy;
    }

    /** {@return an information of its own with the same content; null for null} */
    public static SampleInfo copy(SampleInfo info) {
        if (info == null) {
            return null;
        }
        SampleInfo copy = new SampleInfo();
        copy.copyFrom(info);
        return copy;
    }

    /**
     * Copies what was lent, or given to write.
     *
     * @param samples {@link DynamicData} objects and nulls
     * @param infos {@link SampleInfo} objects and nulls, one for each sample, or none at all
     * @return copies that share nothing with the lists
     */
    public static List<Sample> copies(List<Object> samples, List<Object> infos) {
        List<Sample> copies = new ArrayList<>(samples.size());
        for (int i = 0; i < samples.size(); i++) {
            copies.add(new Sample(copy((DynamicData) samples.get(i)),
                    i < infos.size() ? copy((SampleInfo) infos.get(i)) : null));
        }
        return copies;
    }
}
