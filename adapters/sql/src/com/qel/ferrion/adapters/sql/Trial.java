package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;

/** Tries whether files can be written, and leaves nothing behind. */
final class Trial {
    private static final int ROOM = 64 << 10;

    private Trial() {}

    /**
     * Tries whether a file, which need not exist, could be written, and its folders be made.
     *
     * @param what it is, for the message
     * @throws AdapterException when it could not
     */
    static void file(Path file, String what) throws AdapterException {
        Path folder = file.toAbsolutePath();
        if (Files.isDirectory(folder) || (Files.exists(folder) && !Files.isWritable(folder))) {
            throw new AdapterException(what + ": " + file + (Files.isDirectory(folder)
                    ? " is a directory" : " cannot be written"));
        }
        do {
            folder = folder.getParent();
        } while (!Files.exists(folder));
        Path trial = folder.resolve(".ferry-trial-" + ProcessHandle.current().pid() + "-"
                + Long.toHexString(System.nanoTime()));
        try {
            try (FileChannel out = FileChannel.open(trial, StandardOpenOption.CREATE_NEW,
                    StandardOpenOption.WRITE)) {
                ByteBuffer room = ByteBuffer.allocate(ROOM);
                while (room.hasRemaining()) {
                    out.write(room);
                }
                out.force(true);
            } finally {
                Files.deleteIfExists(trial);
            }
        } catch (IOException e) {
            throw new AdapterException(what + ": " + file + " cannot be written: nothing can be "
                    + "put into " + folder + " (" + e + ")", e);
        }
    }
}
