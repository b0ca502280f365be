package com.qel.dds.units;

import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.subscription.SampleInfoHelper;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.internal.StreamReaderListenerImpl;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** Runs with both libraries' properties naming files that do not exist. */
public class MissingLibraryTest {
    private static void saysEveryTime(String path, ThrowingRunnable use) {
        for (int i = 0; i < 2; i++) {
            String text = assertThrows(UnsatisfiedLinkError.class, use).getMessage();
            assertTrue(text, text.contains(path));
        }
    }

    @Test
    public void errorsNameWhatWasTried() {
        String binding = System.getProperty("qdds.library.path");
        saysEveryTime(binding, () -> TypeCode.fromIdl("struct A { long a; };", null));
        saysEveryTime(binding, () -> SampleInfoHelper.push_to_nativeI(new SampleInfo(), 8));
        var reader = new DiscoveryReader(null);
        StreamReaderListenerImpl listener = new StreamReaderListenerImpl(8);
        saysEveryTime("(" + System.getProperty("ferryjni.library") + ")",
                () -> listener.onDataAvailable(reader));
        new StreamReaderListenerImpl(0).onDataAvailable(reader); // to nobody
        assertThrows(NullPointerException.class, () -> listener.onDataAvailable(null));
    }
}
