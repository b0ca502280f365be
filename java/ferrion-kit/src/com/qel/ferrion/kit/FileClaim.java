package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Who reads and who writes which file in this process, whatever the adapter, the connection or the
 * spelling of its name: links count. A file has one writer; one that is overwritten is not read,
 * and one that is appended to not by the thread that writes, as its rows would go round for ever.
 * Any thread.
 */
public final class FileClaim implements AutoCloseable {
    /** By name and by identity; a file that is not there yet has its name only. */
    private static final Map<Object, List<FileClaim>> CLAIMS = new HashMap<>();

    /** Of the reader whose loan the thread holds. */
    private static final ThreadLocal<FileClaim> LENT = new ThreadLocal<>();

    private final List<Object> keys = new ArrayList<>();
    private final Path path;
    private final Use use;
    private final String owner;

    /** What is done with a file. */
    public enum Use {
        /** Read, beside other readers and one that appends. */
        READ("read"),
        /** Appended to by one alone. */
        APPEND("written"),
        /** Written anew by one alone. */
        OVERWRITE("written"),
        /** Appended to, beside others that do the same. */
        COLLECT("appended to");

        private final String word;

        Use(String word) {
            this.word = word;
        }

        boolean goesWith(Use other) {
            return (this == other && (this == READ || this == COLLECT))
                    || (this == READ && other == APPEND) || (this == APPEND && other == READ);
        }
    }

    private FileClaim(Path path, Use use, String owner) {
        this.path = path;
        this.use = use;
        this.owner = owner;
    }

    /**
     * Claims a file. What is there and no regular file is free for all.
     *
     * @param path of a file, which need not be there
     * @param use what it is wanted for
     * @param owner who wants it, for messages: "writer of stream 's'"
     * @return the claim, to be closed by the caller
     * @throws AdapterException when somebody has a claim that this one does not go with
     */
    public static FileClaim take(Path path, Use use, String owner) throws AdapterException {
        FileClaim claim = new FileClaim(path, use, owner);
        claim.identify();
        synchronized (CLAIMS) {
            for (Object key : claim.keys) {
                for (FileClaim other : CLAIMS.getOrDefault(key, List.of())) {
                    claim.check(other, key);
                }
            }
            claim.keys.forEach(
                    key -> CLAIMS.computeIfAbsent(key, any -> new ArrayList<>()).add(claim));
        }
        return claim;
    }

    private void identify() {
        try {
            BasicFileAttributes found = Files.readAttributes(path, BasicFileAttributes.class);
            if (found.isRegularFile()) {
                keys.add(path.toRealPath());
                keys.add(found.fileKey());
            }
        } catch (IOException missing) {
            Path name = path.toAbsolutePath().normalize();
            try {
                name = name.getParent().toRealPath().resolve(name.getFileName());
            } catch (IOException | RuntimeException later) {
                // The folder will be made by who writes first.
            }
            keys.add(name);
        }
    }

    private void check(FileClaim other, Object key) throws AdapterException {
        if (!use.goesWith(other.use) && isSame(other, key)) {
            throw new AdapterException(owner + ": " + path + " cannot be " + use.word
                    + ": this process has it " + other.use.word + " already, by the " + other.owner
                    + " (" + other.path + ")");
        }
    }

    /** Notes that the calling thread has rows of this file on loan. */
    public void lent() {
        LENT.set(this);
    }

    /** Ends what {@link #lent} began. */
    public void returned() {
        LENT.remove();
    }

    /**
     * Called before the file is written.
     *
     * @throws AdapterException when the calling thread has rows of the same file on loan: it would
     *     read what it writes, for ever
     */
    public void checkCircle() throws AdapterException {
        FileClaim source = LENT.get();
        if (source != null && source.keys.stream().anyMatch(key -> keys.contains(key)
                && isSame(source, key))) {
            throw new AdapterException(owner + ": " + path + " is what the " + source.owner
                    + " reads: its rows would come back for ever; nothing is written");
        }
    }

    /** The number of a file that has gone is given to another: names decide. */
    private boolean isSame(FileClaim other, Object key) {
        try {
            return key instanceof Path || Files.isSameFile(path, other.path);
        } catch (IOException gone) {
            return false;
        }
    }

    /** Gives the claim back; a second time does nothing. */
    @Override
    public void close() {
        synchronized (CLAIMS) {
            for (Object key : keys) {
                List<FileClaim> those = CLAIMS.get(key);
                if (those != null && those.remove(this) && those.isEmpty()) {
                    CLAIMS.remove(key);
                }
            }
        }
    }
}
