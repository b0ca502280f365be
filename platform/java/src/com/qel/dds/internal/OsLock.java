package com.qel.dds.internal;

import java.io.IOException;
import java.nio.charset.Charset;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * The operating system's exclusive lock on a file, for those who ask for it: it keeps nobody from
 * reading and writing. It excludes other processes and other locks of this one, and ends with the
 * process at the latest. The JDK's own locks end as soon as anybody in the process closes the file,
 * and close it when a thread is interrupted.
 */
public final class OsLock implements AutoCloseable {
    /** EAGAIN. */
    private static final int HELD = -11;
    /** ENOENT. */
    private static final int MISSING = -2;

    private int descriptor;

    private OsLock(int descriptor) {
        this.descriptor = descriptor;
    }

    /**
     * Takes a lock at once or not at all. What is no regular file, or lies on a file system without
     * locks, is taken as if it were locked.
     *
     * @param file whose lock is wanted
     * @param create whether to make the file when it is not there
     * @return null when somebody else has the lock
     * @throws IOException when the file cannot be opened
     */
    public static OsLock tryLock(Path file, boolean create) throws IOException {
        NativeLibrary.require();
        // File names are in the encoding that the VM turns paths into.
        byte[] name = file.toString()
                .getBytes(Charset.forName(System.getProperty("sun.jnu.encoding", "UTF-8")));
        int result = lock(Arrays.copyOf(name, name.length + 1), create);
        if (result == HELD) {
            return null;
        }
        if (result < 0) {
            throw new IOException(file + (result == MISSING ? ": no such file or directory"
                                                            : ": " + reason(-result)));
        }
        return new OsLock(result);
    }

    /** @return a path to the very file that is locked, whatever its name stands for by now */
    public Path opened() {
        return Path.of("/proc/self/fd/" + descriptor);
    }

    /** @return whether a path stands for the file that is locked */
    public boolean isOf(Path file) {
        try {
            return Files.isSameFile(opened(), file);
        } catch (IOException missing) {
            return false;
        }
    }

    /** Gives the lock back; a second time does nothing. */
    @Override
    public synchronized void close() {
        if (descriptor >= 0) {
            unlock(descriptor);
            descriptor = -1;
        }
    }

    private static native int lock(byte[] path, boolean create);

    private static native void unlock(int descriptor);

    private static native String reason(int error);
}
