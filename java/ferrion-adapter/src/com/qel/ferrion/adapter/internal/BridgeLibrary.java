package com.qel.ferrion.adapter.internal;

import java.io.IOException;
import java.nio.charset.Charset;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * Loads the bridge's native library, which is in the process already, into this class's loader:
 * without that the VM does not look for native methods there. Done once, when first asked for; a
 * failure is kept as a text, so that it can be reported every time instead of hiding in a class
 * that failed to initialise.
 */
final class BridgeLibrary {
    private static final String PROPERTY = "ferryjni.library";
    private static final String FILE = "libferryjni.so";
    private static final String PROBLEM = load();

    private BridgeLibrary() {}

    /** @return null when the library is loaded, else what was tried and why it failed */
    static String problem() {
        return PROBLEM;
    }

    private static String load() {
        String configured = System.getProperty(PROPERTY);
        String tried = configured != null
                ? "system property " + PROPERTY + "=" + configured : "the library in the process";
        try {
            String path = configured != null ? configured : findMapped();
            if (path != null) {
                tried = tried + " (" + path + ")";
                System.load(Path.of(path).toAbsolutePath().toString());
            } else {
                tried = FILE + " is not in the process; java.library.path="
                        + System.getProperty("java.library.path");
                System.loadLibrary("ferryjni");
            }
            return null;
        } catch (UnsatisfiedLinkError | RuntimeException e) {
            return "cannot signal the host, as " + FILE + " is not loaded. Tried: " + tried + ": "
                    + e;
        }
    }

    /** Path of the library where the process has it mapped, or null. */
    private static String findMapped() {
        try {
            // File names are in the encoding that the VM turns paths back into.
            Charset names = Charset.forName(System.getProperty("sun.jnu.encoding", "UTF-8"));
            byte[] maps = Files.readAllBytes(Path.of("/proc/self/maps"));
            for (String line : new String(maps, names).split("\n")) {
                if (line.matches(".*/libferryjni\\.so(\\.[0-9]+)*")) { // maybe with a version
                    return line.substring(line.indexOf('/'));
                }
            }
        } catch (IOException | IllegalArgumentException e) {
            // Without /proc there is nothing to find, and the caller says what it tried next.
        }
        return null;
    }
}
