package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Kind;
import java.util.Arrays;

/**
 * The bytes of a sample, and what is known about where things lie in them. For one thread at a
 * time, also when only reading: what a read finds out is kept.
 *
 * <p>Runs of members that nobody has asked for since the sample was cleared are not there yet:
 * members that are set in their order are appended, instead of moving the defaults behind them.
 */
final class SampleBuffer {
    /** Longest array that every VM can make. */
    private static final int MAX_SAMPLE = Integer.MAX_VALUE - 8;
    private static final int CURSORS = 4;
    private static final Cursor[] NONE = {};
    /** An array up to this length is kept whatever the sample holds. */
    private static final int KEPT = 1 << 14;
    /** A longer one is kept while the content it is used for takes this part of it. */
    private static final int SPARSE = 4;

    final TypeLayout root;
    /** Never a longer array than {@link #limit}, except for what a default sample takes. */
    byte[] bytes;
    /** Without the runs that are not there yet: see {@link #complete}. */
    int size;
    /** Most bytes the sample may take. */
    final int limit;
    /** Length that the array begins with, and is never cut below. */
    private final int initial;
    /** How many of the root's runs of members are there; all but the last ones. */
    private int laid;
    /** Where the root's runs start, as far as that is known. */
    private final int[] starts;
    /** The last one of them. */
    private int known;
    /**
     * How far walks over elements of variable size got, for the outermost levels; none before the
     * first such walk, as most samples never see one.
     */
    private Cursor[] cursors = NONE;
    /** Element counts of the sequences on the path walked last, by its steps. */
    private int[] counts = new int[CURSORS];
    private Relocation relocation;

    /** Remembers where an element starts. */
    private static final class Cursor {
        TypeLayout container;
        long content;
        long position;
        int element;
    }

    SampleBuffer(TypeLayout root, DynamicDataProperty_t property) {
        this.root = root;
        int wanted = property.buffer_max_size;
        limit = wanted > 0 ? Math.min(wanted, MAX_SAMPLE) : MAX_SAMPLE;
        starts = new int[root.runEnds.length];
        long needed = root.defaultSize(0);
        requireRoom(needed);
        initial = (int) Math.min(needed + property.buffer_initial_size, limit);
        bytes = allocate(initial);
        clear();
    }

    /** Sets everything to its default. */
    void clear() {
        replace((int) root.defaultSize(0));
        size = 0;
        laid = 0;
    }

    /** Has all members there. Room was kept for those that were not. */
    SampleBuffer complete() {
        layOut(starts.length - 1);
        return this;
    }

    private void layOut(int run) {
        while (laid <= run) {
            size = Defaults.writeRun(bytes, root, laid++, size);
        }
    }

    /** Bytes of a sample whose members that are there take so many. */
    long whole(long there) {
        long end = there;
        for (int run = laid; run < starts.length; run++) {
            end = root.skipRun(run, end);
        }
        return end;
    }

    /** Makes place for {@code length} bytes that the caller fills; what was there may be lost. */
    void replace(int length) {
        if (length > bytes.length) {
            requireRoom(length);
            bytes = allocate(grown(length));
        } else if (isSparse(Math.max(length, size))) {
            bytes = new byte[Math.max(length, initial)];
        }
        size = length;
        laid = starts.length;
        forgetPositions();
    }

    /** Whether so much content leaves too much of the array unused. */
    private boolean isSparse(int content) {
        return bytes.length > KEPT && bytes.length > initial && bytes.length / SPARSE > content;
    }

    /** Cuts the array to what it holds. */
    void trim() {
        complete();
        int least = Math.max(size, initial);
        if (bytes.length > least) {
            bytes = Arrays.copyOf(bytes, least);
        }
        relocation = null;
    }

    private byte[] allocate(int length) {
        try {
            return new byte[length];
        } catch (OutOfMemoryError full) {
            throw outOfHeap(length);
        }
    }

    private OutOfMemoryError outOfHeap(long length) {
        return new OutOfMemoryError("a sample of " + root.type + " needs " + length
                + " bytes, more than is left of the Java heap of "
                + (Runtime.getRuntime().maxMemory() >> 20) + " MiB");
    }

    void copyFrom(SampleBuffer other) {
        replace(other.complete().size);
        System.arraycopy(other.bytes, 0, bytes, 0, size);
    }

    private void forgetPositions() {
        known = 0;
        for (Cursor cursor : cursors) {
            cursor.container = null;
        }
    }

    /** Makes the array long enough and keeps what is in it. */
    void reserve(long length) {
        requireRoom(length);
        if (length > bytes.length) {
            byte[] longer = allocate(grown(length));
            System.arraycopy(bytes, 0, longer, 0, size);
            bytes = longer;
        }
    }

    private int grown(long length) {
        return (int) Math.min(limit, Math.max(length, bytes.length + (long) bytes.length / 2));
    }

    private void requireRoom(long length) {
        if (length > limit) {
            throw new IllegalArgumentException("a sample of " + root.type + " would take " + length
                    + " bytes, more than its limit of " + limit);
        }
    }

    /** Position of a value, behind its padding. Not checked against the end of the bytes. */
    int locate(MemberPath path) {
        if (path.root != root) {
            throw new TypeException("path \"" + path + "\" belongs to " + path.root.type
                    + ", the sample is of " + root.type);
        }
        if (path.run >= laid) {
            layOut(path.run);
        }
        if (path.offset >= 0) {
            return path.offset;
        }
        return path.member >= 0 ? locateMember(path) : walk(path);
    }

    /** A member of the root: apart from {@link #walk}, much code to compile in each use. */
    private int locateMember(MemberPath path) {
        long at = TypeLayout.align(root.memberStart(path.member, startOf(path.run)),
                path.alignment);
        if (at > size) {
            throw malformed(path.toString());
        }
        return (int) at;
    }

    /** Position of a scalar or enum, or of a string's or sequence's count, that is there whole. */
    int locateWhole(MemberPath path) {
        int at = locate(path);
        if (at > size - path.target.scalarSize) {
            throw malformed(path.toString());
        }
        return at;
    }

    /** A string's or sequence's count, at a position that was found to be whole. */
    int count(int at) {
        return (int) Cdr.INT.get(bytes, at);
    }

    private int walk(MemberPath path) {
        int depth = path.children.length;
        if (depth > counts.length) {
            counts = Arrays.copyOf(counts, depth);
        }
        long at = 0;
        for (int i = 0; i < depth; i++) {
            TypeLayout container = path.containers[i];
            int child = path.children[i];
            if (container.kind == Kind.STRUCT) {
                at = findMember(container, i == 0, child, at);
                continue;
            }
            if (container.kind == Kind.SEQUENCE) {
                at = TypeLayout.align(at, 4);
                int count = Cdr.count(this, at);
                at += 4;
                if (child >= count) {
                    throw new IndexOutOfBoundsException("path \"" + path + "\": index " + child
                            + " of a sequence of " + count);
                }
                counts[i] = count;
            }
            at = findElement(container, i, child, at);
        }
        at = TypeLayout.align(at, path.alignment);
        if (at > size) {
            throw malformed(path.toString());
        }
        return (int) at;
    }

    /** How many children the container of a path's step has; the path has just been located. */
    int childCount(MemberPath path, int step) {
        TypeLayout container = path.containers[step];
        switch (container.kind) {
        case STRUCT:
            return step == 0 ? root.firstOf(laid) : container.members.length;
        case ARRAY:
            return container.elementCount;
        default:
            return counts[step];
        }
    }

    private long findMember(TypeLayout struct, boolean isRoot, int member, long at) {
        int wanted = struct.runs[member];
        long start = isRoot ? startOf(wanted) : at;
        for (int run = 0; run < wanted && !isRoot; run++) {
            start = Cdr.skipRun(this, struct, run, start);
        }
        return struct.memberStart(member, start);
    }

    /** Where a run of the root's members starts, which is there. */
    private int startOf(int run) {
        while (known < run) {
            starts[known + 1] = (int) Cdr.skipRun(this, root, known, starts[known]);
            known++;
        }
        return starts[run];
    }

    private long findElement(TypeLayout container, int depth, int element, long at) {
        if (container.element.fixed) {
            return container.element.skipDefaults(at, element);
        }
        if (cursors == NONE) {
            cursors = new Cursor[CURSORS];
            Arrays.setAll(cursors, i -> new Cursor());
        }
        Cursor cursor = cursors[depth % CURSORS];
        if (cursor.container != container || cursor.content != at || cursor.element > element) {
            cursor.container = container;
            cursor.content = at;
            cursor.position = at;
            cursor.element = 0;
        }
        cursor.position = Cdr.skipElements(this, container.element, cursor.position,
                element - cursor.element);
        cursor.element = element;
        return cursor.position;
    }

    /**
     * Gives the value of a path, located just now, another end; what lies behind moves, with its
     * paddings laid out anew. The caller fills the bytes in front of the new end. When this throws
     * the sample is unchanged.
     *
     * @param from first byte that the caller changes
     * @param oldEnd end of the value now
     * @param newEnd its end afterwards
     */
    void splice(MemberPath path, int from, long oldEnd, long newEnd) {
        requireRoom(newEnd);
        if (oldEnd == size) {
            reserve(whole(newEnd));
            size = (int) newEnd;
        } else {
            if (relocation == null) {
                relocation = new Relocation(this);
            }
            relocation.run(path, (int) oldEnd, (int) newEnd);
        }
        known = Math.min(known, path.run);
        for (Cursor cursor : cursors) {
            if (cursor.position > from) {
                cursor.container = null;
            }
        }
    }

    boolean sameAs(SampleBuffer other) {
        return root == other.root && complete().size == other.complete().size
                && Arrays.equals(bytes, 0, size, other.bytes, 0, other.size);
    }

    int contentHash() {
        complete();
        int hash = root.type.hashCode();
        for (int i = 0; i < size; i++) {
            hash = 31 * hash + bytes[i];
        }
        return hash;
    }

    /** Says that the bytes are no sample of the type. */
    TypeException malformed(String where) {
        return new TypeException(root.type + ": " + where + ": the sample's " + size
                + " bytes are malformed");
    }
}
