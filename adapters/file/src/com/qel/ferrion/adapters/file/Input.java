package com.qel.ferrion.adapters.file;

import java.io.Closeable;
import java.io.FileNotFoundException;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.lang.System.Logger.Level;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.attribute.BasicFileAttributes;
import java.time.Duration;

/**
 * One file as a source of records, read once or followed as it grows.
 *
 * <p>A followed file may be missing for a while, be cut back, or be replaced by another of its
 * name; the last two are reported, and reading goes on with what the name stands for then. All
 * methods run on the host's thread, but {@link #hasMore}, which the watching thread calls.
 */
final class Input implements Closeable {
    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());

    private final Path path;
    private final boolean follow;
    private final RecordScanner scanner;
    private boolean ending;
    private boolean fresh = true;
    private long replacedAt;
    private final Duration quoteWait;
    /** How long a replaced file must stay silent before reading leaves it for its successor. */
    private volatile Duration linger = Duration.ZERO;
    /** When a record at the end was found to wait for its closing quote; 0 when none does. */
    private volatile long openSince;
    /** No channel: those close when somebody interrupts the host's thread. */
    private volatile RandomAccessFile file;
    private volatile Object key;
    private volatile long consumed;
    private volatile boolean waiting;
    /** Of the open file, to be known by in another process. */
    private volatile long number;
    /** Of the open file. */
    private FilePosition.Opening opening;
    /**
     * Whether a file has been read to its end: what is opened next had the name after it, and may
     * have been renamed before it was read.
     */
    private boolean succeeds;
    /** Where reading goes on that another process has begun; null when that is done. */
    private FilePosition.Place resumed;
    /** The place that was asked for last, in a file that may have been closed since. */
    private FilePosition.Place last;

    /**
     * Opens the file, or the one of another name that reading goes on in. A followed one may be
     * missing yet.
     *
     * @param quoteWait how long a record waits for its closing quote; zero stands for ever
     * @param position where reading goes on; null to begin at the start
     * @throws IOException when it cannot be opened
     */
    Input(Path path, boolean follow, RecordScanner scanner, Duration quoteWait,
            FilePosition position) throws IOException {
        this.quoteWait = quoteWait;
        this.path = path;
        this.follow = follow;
        this.scanner = scanner;
        boolean opened = position != null && position.place() != null && reopen(position);
        if (!opened && !open() && !follow) {
            throw new NoSuchFileException(path.toString());
        }
    }

    /** Sets how long a replaced file must be silent before its successor is read. Any thread. */
    void linger(Duration silence) {
        linger = silence;
    }

    /** Opens the file that reading goes on in; not if it has gone, or is not what it was. */
    private boolean reopen(FilePosition position) throws IOException {
        FilePosition.Place place = position.place();
        opening = place.opening();
        Path where = position.find();
        if (where == null) {
            LOG.log(Level.WARNING, "{0}: the file that was read up to byte {1} is no longer in its "
                    + "folder; what it had behind that is not read", path,
                    Long.toString(place.offset()));
            return false;
        }
        if (!open(position::find)) {
            return false;
        }
        RandomAccessFile opened = file;
        if (opened.length() < place.offset()
                || !FilePosition.check(opened, place.offset()).equals(place.check())) {
            LOG.log(Level.WARNING, "{0}: is no longer what it was up to byte {1}, where reading "
                    + "should go on; reading it from its start", where,
                    Long.toString(place.offset()));
            close();
            return false;
        }
        resumed = place;
        opening = place.opening();
        return true;
    }

    private boolean open() throws IOException {
        return open(succeeds ? () -> Rotation.behind(path, number) : () -> path);
    }

    /** A file by what it is: its name may change at any time. */
    private interface Where {
        /** @return null when it has gone */
        Path find() throws IOException;
    }

    private boolean open(Where where) throws IOException {
        Path name = where.find();
        if (name == null) {
            return false;
        }
        try {
            Object before = keyOf(name);
            long numberBefore = FilePosition.numberOf(name);
            if (Files.isDirectory(name)) {
                throw new IOException("is a directory");
            }
            RandomAccessFile opened = new RandomAccessFile(name.toFile(), "r");
            // Renamed or replaced in between: which file was opened is not known, so look again.
            if (!name.equals(where.find()) || !is(name, before, numberBefore)) {
                opened.close();
                return open(where);
            }
            key = before;
            number = numberBefore;
            succeeds = false;
            opening = opening == null ? FilePosition.Opening.begin() : opening.next();
            file = opened;
        } catch (NoSuchFileException missing) {
            return false;
        } catch (FileNotFoundException unopened) {
            if (Files.exists(name)) {
                throw unopened;
            }
            return false;
        }
        scanner.reset();
        consumed = 0;
        ending = false;
        fresh = true;
        replacedAt = 0;
        openSince = 0;
        return true;
    }

    private static boolean is(Path name, Object key, long number) throws IOException {
        try {
            return keyOf(name).equals(key) && FilePosition.numberOf(name) == number;
        } catch (NoSuchFileException moved) {
            return false;
        }
    }

    private static Object keyOf(Path path) throws IOException {
        return Files.readAttributes(path, BasicFileAttributes.class).fileKey();
    }

    /** Whether the record found next is the first of its file. */
    boolean atFirst() {
        return fresh;
    }

    /** Marks the first record as used: it was a header. */
    void passFirst() {
        fresh = false;
    }

    /** Goes on where another process has stopped; called behind the header of the first file. */
    void resume() throws IOException {
        RandomAccessFile open = file;
        if (resumed != null && open != null && resumed.offset() > offset()) {
            open.seek(resumed.offset());
            consumed = resumed.offset();
            scanner.jump(resumed.line(), resumed.midLine());
            fresh = false;
        }
        resumed = null;
    }

    /** Where the open file starts. */
    FilePosition.Place start() throws IOException {
        return new FilePosition.Place(number, 0, 1, false, FilePosition.check(file, 0),
                new FilePosition.Opening(opening.number(), null));
    }

    /** The number of the open file in the file system. */
    long number() {
        return number;
    }

    /** The open file as one of those that were read in turn, by the record that was found last. */
    FilePosition.Opening opening() {
        FilePosition.Opening now = opening;
        if (now.first() == null) {
            now = now.with(scanner.raw());
            opening = now;
        }
        return now;
    }

    /** Behind the record that was found last, in bytes. */
    long offset() {
        return consumed - scanner.pending();
    }

    /**
     * Where reading goes on after what has been found.
     *
     * @param again whether the record found last is to be found again
     * @return null when nothing has been opened yet
     */
    FilePosition.Place place(boolean again) throws IOException {
        RandomAccessFile open = file;
        if (open == null) {
            return last;
        }
        long offset = offset() - (again ? scanner.span() : 0);
        if (last == null || last.opening() != opening || last.offset() != offset) {
            last = new FilePosition.Place(number, offset,
                    again ? scanner.line() : scanner.nextLine(), !again && scanner.isMidLine(),
                    FilePosition.check(open, offset), opening);
        }
        return last;
    }

    /**
     * Finds the next record, which then lies in the scanner.
     *
     * @return false when there is none now; a file that is not followed then has ended
     */
    boolean next() throws IOException {
        while (true) {
            if (scanner.next(ending)) {
                openSince = 0;
                return true;
            }
            RandomAccessFile from = file;
            if (from == null) {
                if (!follow || !open()) {
                    waiting = follow;
                    return false;
                }
                continue;
            }
            int count = scanner.fill(from::read);
            if (count > 0) {
                consumed += count;
                replacedAt = replacedAt == 0 ? 0 : System.nanoTime();
                waiting = false;
            } else if (!goesOnAtEnd(from) && !givesUpQuote()) {
                waiting = follow;
                return false;
            }
        }
    }

    /** At the end of what is there. @return whether looking on is worth while */
    private boolean goesOnAtEnd(RandomAccessFile from) throws IOException {
        if (!follow || ending) {
            if (!ending) {
                ending = true;
                return true;
            }
            place(false);
            succeeds = follow;
            close();
            return follow;
        }
        if (from.length() < consumed) {
            LOG.log(Level.WARNING, "{0}: was cut back to {1} bytes after {2} had been read; "
                    + "reading it again from its start", path, Long.toString(from.length()),
                    Long.toString(consumed));
            close();
            return true;
        }
        return wasReplaced();
    }

    /** Whether the record at the end has waited long enough for its closing quote. */
    private boolean givesUpQuote() {
        if (!scanner.isOpen() || quoteWait.isZero()) {
            return false;
        }
        if (openSince == 0) {
            openSince = System.nanoTime() | 1;
        }
        if (!isQuoteOverdue()) {
            return false;
        }
        scanner.giveUpOpen();
        return true;
    }

    private boolean isQuoteOverdue() {
        long since = openSince;
        return since != 0 && System.nanoTime() - since >= quoteWait.toNanos();
    }

    private boolean wasReplaced() throws IOException {
        try {
            if (keyOf(path).equals(key)) {
                return false;
            }
        } catch (NoSuchFileException moved) {
            if (Rotation.behind(path, number).equals(path)) {
                return false;
            }
        }
        // Who renamed the file may still write to it: leave it only after some silence.
        long now = System.nanoTime();
        if (replacedAt == 0) {
            replacedAt = now;
        }
        if (now - replacedAt < linger.toNanos()) {
            return false;
        }
        LOG.log(Level.INFO, "{0}: is another file now; going on with that one", path);
        ending = true;
        return true;
    }

    /** Whether a reader that found nothing would find something now. Any thread. */
    boolean hasMore() {
        if (!waiting) {
            return false;
        }
        try {
            RandomAccessFile open = file;
            if (open == null) {
                return Files.exists(path);
            }
            return isQuoteOverdue() || open.length() != consumed || !keyOf(path).equals(key);
        } catch (NoSuchFileException missing) {
            return hasRenamed();
        } catch (IOException closed) {
            return false;
        }
    }

    private boolean hasRenamed() {
        try {
            return !Rotation.behind(path, number).equals(path);
        } catch (IOException unreadable) {
            return false;
        }
    }

    @Override
    public void close() throws IOException {
        RandomAccessFile open = file;
        file = null;
        if (open != null) {
            open.close();
        }
    }
}
