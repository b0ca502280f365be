package com.qel.dds.units;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.DynamicDataHelper;
import com.qel.dds.dynamicdata.DynamicDataProperty_t;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.subscription.SampleInfoHelper;
import com.qel.dds.typecode.TypeCode;
import java.util.stream.IntStream;
import org.junit.Test;

/** Samples and sample infos between Java and native. */
public class CrossingTest {
    private static final TypeCode OTHER = TypeCode.fromIdl("struct Other { long id; };", null);
    private static final TypeCode ALIAS = TypeCode.fromIdl(
            "struct Other { long id; }; typedef Other Second;", "Second");

    @Test
    public void otherTypesAreRejectedByName() {
        DynamicData java = new DynamicData(OTHER, null);
        try (Peer peer = new Peer(Peer.ALL)) {
            for (var crossing : new org.junit.function.ThrowingRunnable[] {
                    () -> DynamicDataHelper.push_to_nativeI(java, peer.address),
                    () -> DynamicDataHelper.pull_from_nativeI(java, peer.address)}) {
                String text = assertThrows(TypeException.class, crossing).getMessage();
                assertTrue(text, text.contains("Other") && text.contains("units::All"));
            }
        }
        try (Peer peer = new Peer(ALIAS)) {
            java.setInt("id", 42);
            DynamicDataHelper.push_to_nativeI(java, peer.address);
            assertArrayEquals(java.toCdr(), peer.cdr());
        }
    }

    @Test
    public void nullsAreRejectedWithText() {
        DynamicData java = new DynamicData(OTHER, null);
        for (var crossing : new org.junit.function.ThrowingRunnable[] {
                () -> DynamicDataHelper.push_to_nativeI(null, 8),
                () -> DynamicDataHelper.pull_from_nativeI(java, 0),
                () -> SampleInfoHelper.push_to_nativeI(new SampleInfo(), 0),
                () -> SampleInfoHelper.pull_from_nativeI(null, 8)}) {
            String text = assertThrows(NullPointerException.class, crossing).getMessage();
            assertTrue(text, text.startsWith("the "));
        }
    }

    @Test
    public void limitsHoldOnBothSides() {
        DynamicData big = new DynamicData(Peer.ALL, null);
        big.setLength("blob", 5000);
        int least = new DynamicData(Peer.ALL, null).toCdr().length;
        try (Peer small = new Peer(Peer.ALL, least + 100); Peer peer = new Peer(Peer.ALL)) {
            byte[] before = small.cdr();
            assertThrows(IllegalArgumentException.class,
                    () -> DynamicDataHelper.push_to_nativeI(big, small.address));
            assertArrayEquals(before, small.cdr());
            DynamicDataHelper.push_to_nativeI(big, peer.address);
            DynamicData limited = new DynamicData(Peer.ALL,
                    new DynamicDataProperty_t(0, least + 100));
            limited.setString("last", "kept");
            byte[] kept = limited.toCdr();
            assertThrows(IllegalArgumentException.class,
                    () -> DynamicDataHelper.pull_from_nativeI(limited, peer.address));
            assertThrows(IllegalArgumentException.class, () -> limited.setLength("blob", 120));
            assertArrayEquals(kept, limited.toCdr());
            limited.clear();
            assertThrows("members that nobody has touched count",
                    IllegalArgumentException.class, () -> limited.setLength("blob", 120));
            assertEquals(least, limited.size());
        }
        assertThrows(IllegalArgumentException.class,
                () -> new DynamicData(Peer.ALL, new DynamicDataProperty_t(0, least - 1)));
    }

    /** More than the heap would hold if each sample kept the most that it ever took. */
    @Test
    public void aSampleKeepsWhatItsLastUsesTookAndNotMore() {
        DynamicData given = new DynamicData(Peer.ALL, null);
        DynamicData[] samples = new DynamicData[30];
        try (Peer peer = new Peer(Peer.ALL)) {
            for (int i = 0; i < samples.length; i++) {
                samples[i] = new DynamicData(Peer.ALL, null);
                for (int size : new int[] {10 << 20, 5, 40_000, 7, 5}) {
                    given.setLength("blob", size);
                    given.setInt("blob[" + (size - 1) + "]", i);
                    DynamicDataHelper.push_to_nativeI(given, peer.address);
                    DynamicDataHelper.pull_from_nativeI(samples[i], peer.address);
                    assertEquals(given, samples[i]);
                    assertEquals(given.toCdr().length, samples[i].size());
                }
            }
            given.setString("last", "x");
            given.trim();
            given.setString("last", "longer than before");
            samples[0].copyFrom(given);
            assertEquals("longer than before", samples[0].getString("last"));
        }
    }

    /** Every word another value, so that none can stand for another. */
    @Test
    public void everyFieldOfASampleInfoCrosses() {
        int[] words = IntStream.range(101, 128).toArray();
        words[3] = 0;           // no data
        words[13] = 1;          // the instance's handle is valid,
        words[19] = 0;          // the writer's is not
        words[25] = -119;
        words[26] = 0xF0000000; // not to be taken for a negative number
        SampleInfo info = new SampleInfo();
        long record = Peer.createInfo(words);
        SampleInfoHelper.pull_from_nativeI(info, record);
        Peer.takeInfo(record);
        assertEquals(103, info.instance_state);
        assertFalse(info.valid_data);
        assertEquals(106, info.source_timestamp.nanosec);
        assertEquals(109, info.instance_handle.keyHash[0]);
        assertTrue(info.instance_handle.isValid && !info.publication_handle.isValid);
        assertEquals((-119L << 32) + 0xF0000000L, info.publication_sequence_number);
        SampleInfo copy = new SampleInfo();
        copy.copyFrom(info);
        long target = Peer.createInfo(new int[27]);
        SampleInfoHelper.push_to_nativeI(copy, target);
        assertArrayEquals(words, Peer.takeInfo(target));

        copy.valid_data = true;
        long valid = Peer.createInfo(words);
        SampleInfoHelper.push_to_nativeI(copy, valid);
        assertEquals(1, Peer.takeInfo(valid)[3]);
        copy.clear();
        long cleared = Peer.createInfo(words);
        SampleInfoHelper.push_to_nativeI(copy, cleared);
        long fresh = Peer.createInfo(words);
        SampleInfoHelper.push_to_nativeI(new SampleInfo(), fresh);
        assertArrayEquals(Peer.takeInfo(fresh), Peer.takeInfo(cleared));
        assertTrue(copy.valid_data && copy.instance_state == SampleInfo.ALIVE_INSTANCE_STATE);
    }
}
