package com.qel.ferrion.kit;

import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.AccessDeniedException;
import java.nio.file.Files;
import java.nio.file.NotDirectoryException;
import java.nio.file.Path;

/** Tries whether there is room and permission for a file, by writing one beside it for a moment. */
public final class DiskProbe {
    /** A disk with less room than this is full. */
    private static final int BYTES = 1 << 16;

    private DiskProbe() {}

    /**
     * Tries.
     *
     * @param file that is to be written; it and its folders need not be there
     * @param anew whether files will have to be made even if this one is there
     * @throws IOException when nothing could be written
     */
    public static void writeBeside(Path file, boolean anew) throws IOException {
        boolean there = Files.exists(file);
        if (there && !Files.isRegularFile(file)) {
            return;
        }
        Path folder = (there ? file.toRealPath() : file.toAbsolutePath()).getParent();
        while (!Files.exists(folder)) {
            folder = folder.getParent();
        }
        if (!Files.isDirectory(folder)) {
            throw new NotDirectoryException(folder.toString());
        }
        try {
            write(Files.createTempFile(folder, ".ferry-check-", ""));
        } catch (AccessDeniedException closed) {
            // A file that is there can be written in a folder that nothing can be added to.
            if (!there || anew) {
                throw closed;
            }
        }
    }

    private static void write(Path probe) throws IOException {
        try (RandomAccessFile file = new RandomAccessFile(probe.toFile(), "rw")) {
            file.write(new byte[BYTES]);
            file.getFD().sync();
        } finally {
            Files.delete(probe);
        }
    }
}
