package com.qel.ferrion.adapters.file;

import com.qel.dds.internal.OsLock;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.DiskProbe;
import java.io.Closeable;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.lang.System.Logger.Level;
import java.nio.ByteBuffer;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.ArrayDeque;
import java.util.Deque;

/**
 * A file that batches of records are appended to, each as a whole or not at all.
 *
 * <p>The file is opened by the first batch, and locked from then on; one that is there before is
 * locked at once. When a batch fails, everything it wrote is taken back, rotations too, so that the
 * same batch can be written again. Used on one thread at a time, but for the size limit.
 */
final class Output implements Closeable {
    /** What to do with a file that is there when the first batch comes. */
    enum Mode { CREATE, APPEND, OVERWRITE }

    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());
    private static final byte[] NOTHING = {};

    private final Path path;
    private final Mode mode;
    private final boolean sync;
    private final byte[] header;
    private final Ending.Check check;
    private volatile long rotateBytes;

    /** No channel: those close for good when somebody interrupts the host's thread. */
    private RandomAccessFile file;
    /** On what the name stands for; null before that is there. */
    private OsLock lock;
    private long size;
    /** Size before the current batch, or -1 between batches. */
    private long begin = -1;
    /** What the first batch must put before its records. */
    private byte[] lead = NOTHING;
    /** Files that the current batch has rotated away, the newest first. */
    private final Deque<Rotated> rotated = new ArrayDeque<>();
    /** A failed batch that could not be taken back yet: the size to cut to, or -1. */
    private long cutTo = -1;

    /** A full file, still locked: a batch that fails goes on with it. */
    private record Rotated(Path path, OsLock lock) {}

    /**
     * Makes an output; a file that is there is locked and not touched.
     *
     * @throws AdapterException when there is a directory, or somebody else writes the file
     */
    Output(Path path, Mode mode, boolean sync, byte[] header, Ending.Check check)
            throws AdapterException {
        this.path = path;
        this.mode = mode;
        this.sync = sync;
        this.header = header;
        this.check = check;
        if (Files.isDirectory(path)) {
            throw new AdapterException(path + ": is a directory, not a file");
        }
        try {
            if (Files.exists(path)) {
                lock(false);
            }
        } catch (IOException e) {
            throw new AdapterException(path + ": cannot be written: " + e.getMessage(), e);
        }
    }

    /** Locks what the name stands for now, unless that has been done. */
    private void lock(boolean create) throws IOException {
        if (lock != null && lock.isOf(path)) {
            return;
        }
        unlock();
        lock = OsLock.tryLock(path, create);
        if (lock == null) {
            throw new IOException(path + " is written by another process");
        }
    }

    private void unlock() {
        if (lock != null) {
            lock.close();
            lock = null;
        }
    }

    /** Limits the size of files; 0 for no limit. Any thread. */
    void rotateAt(long bytes) {
        rotateBytes = bytes;
    }

    /**
     * Writes records of a batch, which the first of them begins.
     *
     * @param records where they lie
     * @param ends where each ends; the first begins at 0
     * @param count how many
     * @throws AdapterException when they could not be written; the file is as it was before the
     *     batch, which has ended
     */
    void add(Bytes records, int[] ends, int count) throws AdapterException {
        try {
            if (begin < 0) {
                beginBatch();
            }
            int from = 0;
            for (int i = 0; i < count; i++) {
                int recordStart = i == 0 ? 0 : ends[i - 1];
                if (isFull(recordStart - from, ends[i] - recordStart)) {
                    put(records.slice(from, recordStart));
                    rotate();
                    from = recordStart;
                }
            }
            put(records.slice(from, ends[count - 1]));
        } catch (IOException e) {
            throw failure(e);
        }
    }

    private void beginBatch() throws IOException, AdapterException {
        if (cutTo >= 0) {
            takeBack(cutTo);
        }
        if (file == null) {
            open();
        }
        begin = size;
        putAll(ByteBuffer.wrap(lead));
    }

    /**
     * Ends the batch; without one nothing happens.
     *
     * @throws AdapterException when it is not on the disk; the file is as it was before the batch
     */
    void commit() throws AdapterException {
        if (begin < 0) {
            return;
        }
        try {
            if (sync) {
                file.getFD().sync();
            }
        } catch (IOException e) {
            throw failure(e);
        }
        rotated.forEach(each -> each.lock().close());
        rotated.clear();
        lead = NOTHING;
        begin = -1;
    }

    /** Ends the batch as if it had never begun, or has that done before the next one. */
    void rollBack() {
        if (begin >= 0) {
            failure(new IOException("given up"));
        }
    }

    private AdapterException failure(IOException cause) {
        String state = "; no record of this batch was written";
        IOException stuck = null;
        try {
            if (begin >= 0) {
                takeBack(begin);
            }
        } catch (IOException e) {
            stuck = e;
            state = "; what was written of this batch will be taken back before the next one";
        }
        begin = -1;
        AdapterException failure =
                new AdapterException(path + ": cannot be written: " + cause + state, cause);
        if (stuck != null) {
            failure.addSuppressed(stuck);
        }
        return failure;
    }

    private boolean isFull(long unwritten, long record) {
        long limit = rotateBytes;
        // A new file gets the header with its first record.
        long filled = Math.max(size, header.length) + unwritten;
        return limit > 0 && filled > header.length && filled + record > limit;
    }

    private void open() throws IOException, AdapterException {
        if (!Files.isDirectory(path.getParent())) {
            Files.createDirectories(path.getParent());
        }
        try {
            if (mode == Mode.CREATE) {
                Files.createFile(path);
            }
        } catch (FileAlreadyExistsException exists) {
            throw exists(exists);
        }
        lock(true);
        Ending ending = checkAppend();
        RandomAccessFile opened = new RandomAccessFile(lock.opened().toFile(), "rw");
        try {
            if (mode == Mode.OVERWRITE) {
                opened.setLength(0);
            } else if (ending != null && ending.isTorn()) {
                setAside(opened, ending);
            }
            size = opened.length();
        } catch (IOException e) {
            opened.close();
            throw e;
        }
        lead = ending == null ? NOTHING : ending.lead();
        file = opened;
    }

    /** Cuts off the begin of a record whose writer was killed; it may be somebody else's. */
    private void setAside(RandomAccessFile opened, Ending ending) throws IOException {
        Path torn = path.resolveSibling(path.getFileName() + ".torn");
        byte[] rest = new byte[Math.toIntExact(ending.size() - ending.whole())];
        opened.seek(ending.whole());
        opened.readFully(rest);
        try (FileOutputStream out = new FileOutputStream(torn.toFile(), true)) {
            out.write(rest);
            out.write('\n');
            out.getFD().sync();
        }
        opened.setLength(ending.whole());
        LOG.log(Level.WARNING, "{0}: its last record was not whole: its {1} bytes have been cut "
                + "off and put into {2}", path, Integer.toString(rest.length), torn.getFileName());
    }

    private AdapterException exists(IOException cause) {
        return new AdapterException(
                path + ": exists, and mode is \"create\"; nothing is overwritten", cause);
    }

    /** @return how the file ends that is appended to; null for another one */
    private Ending checkAppend() throws IOException, AdapterException {
        return mode == Mode.APPEND && Files.exists(path) && Files.size(path) > 0
                ? check.check(path) : null;
    }

    /**
     * Tries whether a first batch could be written, and leaves nothing behind.
     *
     * @throws AdapterException when it could not
     */
    void probe() throws AdapterException {
        try {
            if (Files.exists(path)) {
                if (mode == Mode.CREATE) {
                    throw exists(null);
                }
                checkAppend();
                new RandomAccessFile(path.toFile(), "rw").close();
            }
            DiskProbe.writeBeside(path, rotateBytes > 0);
        } catch (IOException e) {
            throw new AdapterException(path + ": cannot be written: " + e, e);
        }
    }

    private void put(ByteBuffer bytes) throws IOException {
        if (size == 0 && header.length > 0) {
            putAll(ByteBuffer.wrap(header));
        }
        putAll(bytes);
    }

    private void putAll(ByteBuffer bytes) throws IOException {
        file.seek(size);
        file.write(bytes.array(), bytes.position(), bytes.remaining());
        size += bytes.remaining();
    }

    /** Moves the full file to the first free number behind the highest, and begins another. */
    private void rotate() throws IOException {
        if (sync) {
            file.getFD().sync();
        }
        Path target = path.resolveSibling(path.getFileName() + "." + (highestNumber() + 1));
        Files.move(path, target);
        rotated.push(new Rotated(target, lock));
        lock = null;
        file.close();
        Files.createFile(path);
        lock(false);
        file = new RandomAccessFile(lock.opened().toFile(), "rw");
        size = 0;
    }

    private long highestNumber() throws IOException {
        String stem = path.getFileName() + ".";
        long highest = 0;
        try (var names = Files.newDirectoryStream(path.getParent())) {
            for (Path name : names) {
                String text = name.getFileName().toString();
                if (text.startsWith(stem) && text.substring(stem.length()).matches("[0-9]{1,18}")) {
                    highest = Math.max(highest, Long.parseLong(text.substring(stem.length())));
                }
            }
        }
        return highest;
    }

    /** Undoes what the current batch did: rotations first, then the rest of its bytes. */
    private void takeBack(long begin) throws IOException {
        cutTo = begin;
        while (!rotated.isEmpty()) {
            if (file != null) {
                file.close();
            }
            // What stands under the name was begun by this batch and holds nothing else, unless
            // another process has taken the name.
            if (Files.exists(path)) {
                lock(false);
            }
            Files.move(rotated.peek().path(), path, StandardCopyOption.REPLACE_EXISTING);
            unlock();
            lock = rotated.pop().lock();
            file = new RandomAccessFile(lock.opened().toFile(), "rw");
        }
        size = begin;
        if (file.length() > begin) {
            file.setLength(begin);
        }
        cutTo = -1;
    }

    /** Closes the file. Every batch that was written is complete in it. */
    @Override
    public void close() throws IOException {
        try {
            if (file != null && cutTo >= 0) {
                takeBack(cutTo);
            }
        } finally {
            rotated.forEach(each -> each.lock().close());
            unlock();
            if (file != null) {
                file.close();
                file = null;
            }
        }
    }
}
