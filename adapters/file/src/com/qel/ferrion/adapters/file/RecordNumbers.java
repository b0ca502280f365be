package com.qel.ferrion.adapters.file;

import com.qel.dds.InstanceHandle_t;
import com.qel.dds.subscription.SampleInfo;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;

/**
 * The numbers of a reader's samples, by which a store knows those that are lent again: the offset
 * behind the record, in the file that the publication handle stands for. For one thread at a time.
 */
final class RecordNumbers {
    private final List<SampleInfo> infos = new ArrayList<>();
    /** Whose handle each info has. */
    private final List<FilePosition.Opening> openings = new ArrayList<>();
    /** Of {@link #opening}. */
    private final byte[] handle = new byte[InstanceHandle_t.KEY_HASH_LENGTH];
    private FilePosition.Opening opening;

    /**
     * @param index of a sample within its read: at most one more than the highest so far
     * @param input which has found the sample's record last
     * @return what goes with the sample, used again in later reads
     */
    SampleInfo get(int index, Input input) {
        if (index == infos.size()) {
            infos.add(new SampleInfo());
            openings.add(null);
        }
        SampleInfo info = infos.get(index);
        FilePosition.Opening now = input.opening();
        if (openings.get(index) != now) {
            openings.set(index, now);
            setHandle(info, now, input.number());
        }
        info.publication_sequence_number = input.offset();
        return info;
    }

    private void setHandle(SampleInfo info, FilePosition.Opening now, long file) {
        if (opening != now) {
            opening = now;
            ByteBuffer.wrap(handle).putLong(now.number())
                    .putInt(HexFormat.fromHexDigits(now.first())).putInt((int) file);
        }
        System.arraycopy(handle, 0, info.publication_handle.keyHash, 0, handle.length);
        info.publication_handle.isValid = true;
    }
}
