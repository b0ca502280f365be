package com.qel.dds.internal;

import java.io.IOException;
import java.net.URISyntaxException;
import java.net.URL;
import java.nio.charset.Charset;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.CodeSource;

/**
 * Loads libqddsjava.so, once, into the loader of the binding's classes. It is looked for where the
 * system property {@code qdds.library.path} says (the file, or its folder); else beside the
 * libqddsc.so that the process has mapped, so that native and Java code share one platform; else in
 * {@code lib} of the tree that this jar lies in; else where the VM looks for libraries.
 */
public final class NativeLibrary {
    private static final String PROPERTY = "qdds.library.path";
    private static final String FILE = "libqddsjava.so";
    /** From share/ferryjni/java/qdds.jar up to the folder that holds lib. */
    private static final int LEVELS_ABOVE_JAR = 4;
    private static final String PROBLEM = load();

    private NativeLibrary() {}

    /**
     * Makes sure that native methods can be called. Any thread.
     *
     * @throws UnsatisfiedLinkError every time, when the library could not be loaded; its text says
     *     what was tried
     */
    public static void require() {
        if (PROBLEM != null) {
            throw new UnsatisfiedLinkError(PROBLEM);
        }
    }

    private static String load() {
        String tried = "";
        try {
            String configured = System.getProperty(PROPERTY);
            if (configured != null) {
                tried = PROPERTY + "=" + configured;
                Path path = Path.of(configured).toAbsolutePath();
                System.load((Files.isDirectory(path) ? path.resolve(FILE) : path).toString());
                return null;
            }
            for (Path folder : new Path[] {findMapped(), findBesideJar()}) {
                tried = tried + (folder != null ? folder.resolve(FILE) + ", " : "");
                if (folder != null && Files.exists(folder.resolve(FILE))) {
                    System.load(folder.resolve(FILE).toString());
                    return null;
                }
            }
            tried = tried + "java.library.path=" + System.getProperty("java.library.path");
            System.loadLibrary("qddsjava");
            return null;
        } catch (UnsatisfiedLinkError | RuntimeException e) {
            return "cannot load " + FILE + ". Tried: " + tried + ": " + e;
        }
    }

    /** Folder of the native platform in this process, or null. */
    private static Path findMapped() {
        try {
            // File names are in the encoding that the VM turns paths back into.
            Charset names = Charset.forName(System.getProperty("sun.jnu.encoding", "UTF-8"));
            byte[] maps = Files.readAllBytes(Path.of("/proc/self/maps"));
            for (String line : new String(maps, names).split("\n")) {
                if (line.matches(".*/libqddsc\\.so(\\.[0-9]+)*")) {
                    return Path.of(line.substring(line.indexOf('/'))).getParent();
                }
            }
        } catch (IOException | IllegalArgumentException e) {
            // Without /proc there is nothing to find; the next place is tried.
        }
        return null;
    }

    private static Path findBesideJar() {
        CodeSource source = NativeLibrary.class.getProtectionDomain().getCodeSource();
        URL location = source != null ? source.getLocation() : null;
        if (location == null || !"file".equals(location.getProtocol())) {
            return null;
        }
        try {
            Path up = Path.of(location.toURI());
            for (int i = 0; up != null && i < LEVELS_ABOVE_JAR; i++) {
                up = up.getParent();
            }
            return up != null ? up.resolve("lib") : null;
        } catch (URISyntaxException | IllegalArgumentException e) {
            return null;
        }
    }
}
