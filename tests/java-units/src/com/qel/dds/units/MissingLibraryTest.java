package com.qel.dds.units;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.subscription.SampleInfoHelper;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.internal.StreamReaderListenerImpl;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
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

    /** By a copy of the jar that lies beside no library, in a process that has none. */
    private static void findsItWhereTheVmLooks() throws Exception {
        Path copy = Files.createTempFile("units", ".jar");
        Files.copy(Path.of(TypeCode.class.getProtectionDomain().getCodeSource().getLocation()
                .toURI()), copy, StandardCopyOption.REPLACE_EXISTING);
        System.clearProperty("qdds.library.path");
        try (URLClassLoader other = new URLClassLoader(new URL[] {copy.toUri().toURL()}, null)) {
            assertEquals("A", other.loadClass(TypeCode.class.getName())
                    .getMethod("fromIdl", String.class, String.class)
                    .invoke(null, "struct A { long a; };", null).toString());
        } finally {
            Files.delete(copy);
        }
    }

    @Test
    public void errorsNameWhatWasTried() throws Exception {
        String binding = System.getProperty("qdds.library.path");
        saysEveryTime(binding, () -> TypeCode.fromIdl("struct A { long a; };", null));
        saysEveryTime(binding, () -> SampleInfoHelper.push_to_nativeI(new SampleInfo(), 8));
        var reader = new DiscoveryReader(null);
        StreamReaderListenerImpl listener = new StreamReaderListenerImpl(8);
        assertTrue(assertThrows(UnsatisfiedLinkError.class,
                () -> listener.onDataAvailable(reader)).getCause() instanceof UnsatisfiedLinkError);
        String bridge = System.getProperty("ferryjni.library");
        saysEveryTime("system property ferryjni.library=" + bridge + " (" + bridge + ")",
                () -> listener.onDataAvailable(reader));
        new StreamReaderListenerImpl(0).onDataAvailable(reader); // to nobody
        assertThrows(NullPointerException.class, () -> listener.onDataAvailable(null));
        findsItWhereTheVmLooks();
    }
}
