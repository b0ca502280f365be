package com.qel.dds.units;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.DynamicDataHelper;
import com.qel.dds.typecode.TypeCode;
import java.util.Arrays;
import java.util.Random;
import org.junit.Test;

/** Java samples are byte for byte what native samples of the same content are. */
public class AgainstNativeTest {
    private static final int STEPS = 150;

    /** So small that things often come to lie where others were whose positions are known. */
    private static final TypeCode SMALL = TypeCode.fromIdl(
            "struct Word { octet o; @default(\"some\") string w; @default(7) double d; }; "
            + "struct Small { sequence<octet> front; sequence<sequence<string>> words[2]; "
            + "Word word; @default(2) short s; sequence<Word> more; };", null);

    /** Whose places are known without looking at the sample, up to the last one. */
    private static final TypeCode FIXED = TypeCode.fromIdl("struct Part { octet o; double d; short"
            + " s[3]; }; struct Fixed { octet o; Part parts[2][3]; long l; string last; };", null);

    @Test
    public void everyChangeGivesTheSameBytes() {
        Random random = new Random(1);
        int rejected = 0;
        for (TypeCode type : new TypeCode[] {Peer.ALL, SMALL, FIXED}) {
            DynamicData pulled = new DynamicData(type, null);
            DynamicData java = new DynamicData(type, null);
            for (int sample = 0; sample < 60; sample++) {
                java.clear();
                // What is compared has all members there; left alone, a cleared one gets them late.
                boolean often = sample % 2 == 0;
                try (Peer peer = new Peer(type); Peer pushed = new Peer(type)) {
                    if (often) {
                        assertArrayEquals("defaults", peer.cdr(), java.toCdr());
                    }
                    RandomWalk walk = new RandomWalk(random, java, peer);
                    for (int i = 0; i < STEPS; i++) {
                        rejected += walk.step() ? 0 : 1;
                        if (often || random.nextInt(STEPS) == 0) {
                            assertArrayEquals(walk.last, peer.cdr(), java.toCdr());
                        }
                    }
                    DynamicDataHelper.push_to_nativeI(java, pushed.address);
                    assertArrayEquals("push", peer.cdr(), pushed.cdr());
                    DynamicDataHelper.pull_from_nativeI(pulled, peer.address);
                    assertEquals("pull", java, pulled);
                    assertEquals(java.hashCode(), pulled.hashCode());
                    assertEquals("positions after a pull", java.toString(), pulled.toString());
                }
            }
        }
        assertTrue("bounds were tried", rejected > 10);
    }

    /** A random sample's bytes. */
    private static byte[] someSample(Random random) {
        DynamicData java = new DynamicData(Peer.ALL, null);
        try (Peer peer = new Peer(Peer.ALL)) {
            RandomWalk walk = new RandomWalk(random, java, peer);
            for (int i = 0; i < STEPS; i++) {
                walk.step();
            }
        }
        return java.toCdr();
    }

    private static byte[] spoil(Random random, byte[] good) {
        byte[] bad = Arrays.copyOf(good, good.length + Math.max(0, random.nextInt(9) - 4));
        for (int flips = random.nextInt(3); flips >= 0; flips--) {
            int at = random.nextInt(bad.length);
            bad[at] = random.nextBoolean() ? (byte) random.nextInt() : (byte) random.nextInt(3);
        }
        return random.nextInt(4) == 0 ? Arrays.copyOf(bad, random.nextInt(bad.length)) : bad;
    }

    @Test
    public void bothSidesRejectTheSameBytes() {
        Random random = new Random(2);
        int taken = 0;
        int rejected = 0;
        for (int round = 0; round < 4000; round++) {
            byte[] bytes = spoil(random, round % 100 == 0 ? someSample(random) : GOOD);
            DynamicData java = new DynamicData(Peer.ALL, null);
            java.setString("last", "unchanged");
            byte[] before = java.toCdr();
            try (Peer peer = new Peer(Peer.ALL)) {
                boolean nativeTook = peer.setCdr(bytes);
                try {
                    java.fromCdr(bytes);
                    taken++;
                    assertArrayEquals("only Java took " + Arrays.toString(bytes), peer.cdr(),
                            java.toCdr());
                    assertTrue(nativeTook);
                } catch (TypeException e) {
                    rejected++;
                    assertTrue("only native took it: " + e, !nativeTook);
                    assertArrayEquals(before, java.toCdr());
                }
            }
        }
        assertTrue(taken + " and " + rejected, taken > 300 && rejected > 300);
    }

    private static final byte[] GOOD = someSample(new Random(3));

    /** Bytes that came unchecked: every access works on them or says what is wrong. */
    @Test
    public void accessesSurviveMalformedBytes() {
        Random random = new Random(4);
        int said = 0;
        try (Peer peer = new Peer(Peer.ALL); Peer other = new Peer(Peer.ALL)) {
            for (int round = 0; round < 3000; round++) {
                DynamicData java = new DynamicData(Peer.ALL, null);
                peer.loan(spoil(random, GOOD));
                DynamicDataHelper.pull_from_nativeI(java, peer.address);
                java.toString();
                RandomWalk walk = new RandomWalk(random, java, other);
                for (int i = 0; i < 20; i++) {
                    try {
                        walk.step();
                    } catch (TypeException expected) {
                        said++;
                    } catch (AssertionError unequalPeer) {
                        continue;
                    } catch (IndexOutOfBoundsException e) {
                        assertEquals(IndexOutOfBoundsException.class, e.getClass());
                    }
                }
            }
        }
        assertTrue("malformed ones were met: " + said, said > 300);
    }

    /** What an earlier, longer sample left in the buffer is not read as part of a shorter one. */
    @Test
    public void accessesStopAtTheEndOfTheSample() {
        DynamicData java = new DynamicData(Peer.ALL, null);
        try (Peer peer = new Peer(Peer.ALL)) {
            for (int size = 0; size < GOOD.length; size++) {
                peer.loan(GOOD);
                DynamicDataHelper.pull_from_nativeI(java, peer.address);
                java.getInt("end");
                peer.loan(Arrays.copyOf(GOOD, size));
                DynamicDataHelper.pull_from_nativeI(java, peer.address);
                assertThrows(TypeException.class, () -> java.getInt("end"));
                if (size < Integer.BYTES) {
                    assertThrows(TypeException.class, () -> java.getInt("id"));
                }
                assertTrue(java.toString(), java.toString().contains("...: "));
            }
        }
        DynamicData lying = new DynamicData(SMALL, null);
        try (Peer peer = new Peer(SMALL)) {
            peer.loan(new byte[] {2, 0, 0, 0, 1});
            DynamicDataHelper.pull_from_nativeI(lying, peer.address);
            assertThrows(TypeException.class, () -> lying.getLength("front"));
        }
    }
}
