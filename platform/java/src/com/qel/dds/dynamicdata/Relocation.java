package com.qel.dds.dynamicdata;

import java.util.Arrays;

/**
 * Moves what lies behind a value whose size changes. As CDR pads every value by its position, a
 * move that is no multiple of the greatest alignment changes the paddings: values are laid out one
 * by one at their new places until old and new position agree again; the rest moves in one go.
 * Belongs to one sample buffer and keeps its memory for the next time, if that is not much.
 */
final class Relocation {
    private static final int KEPT = 1 << 14;

    private final SampleBuffer buffer;
    /** What was laid out anew, while the buffer still holds the old bytes. */
    private byte[] scratch = new byte[64];
    private int used;
    private int from;
    private long to;

    Relocation(SampleBuffer buffer) {
        this.buffer = buffer;
    }

    void run(MemberPath path, int oldEnd, int newEnd) {
        from = oldEnd;
        to = newEnd;
        used = 0;
        for (int step = path.children.length - 1; step >= 0; step--) {
            TypeLayout container = path.containers[step];
            int count = buffer.childCount(path, step);
            for (int child = path.children[step] + 1; child < count && !agreed(); child++) {
                copy(container.child(child));
            }
        }
        int rest = buffer.size - from;
        if (rest < 0) {
            throw buffer.malformed(path.toString());
        }
        buffer.reserve(buffer.whole(to + rest));
        System.arraycopy(buffer.bytes, from, buffer.bytes, (int) to, rest);
        System.arraycopy(scratch, 0, buffer.bytes, newEnd, used);
        buffer.size = (int) to + rest;
        if (scratch.length > KEPT) {
            scratch = new byte[64];
        }
    }

    private boolean agreed() {
        return (to - from) % buffer.root.alignment == 0;
    }

    /** Goes on to the value's end even where the positions agree: its rest is on no path. */
    private void copy(TypeLayout layout) {
        switch (layout.kind) {
        case STRING:
            copyBytes(1, copyCount());
            break;
        case SEQUENCE:
            copyElements(layout.element, copyCount());
            break;
        case ARRAY:
            copyElements(layout.element, layout.elementCount);
            break;
        case STRUCT:
            for (TypeLayout member : layout.members) {
                copy(member);
            }
            break;
        default:
            copyBytes(layout.scalarSize, layout.scalarSize);
            break;
        }
    }

    private int copyCount() {
        int count = Cdr.count(buffer, TypeLayout.align(from, 4));
        copyBytes(4, 4);
        return count;
    }

    private void copyElements(TypeLayout element, int count) {
        if (element.isScalar() && count > 0) {
            copyBytes(element.scalarSize, (long) element.scalarSize * count);
            return;
        }
        for (int i = 0; i < count; i++) {
            copy(element);
        }
    }

    /** Copies values of one size, with the padding that they need where they go. */
    private void copyBytes(int alignment, long count) {
        long start = TypeLayout.align(from, alignment);
        int padding = (int) (TypeLayout.align(to, alignment) - to);
        if (start + count > buffer.size) {
            throw buffer.malformed("byte " + start);
        }
        if (used + padding + count > scratch.length) {
            long wanted = Math.max(used + padding + count, 2L * scratch.length);
            scratch = Arrays.copyOf(scratch, (int) Math.min(wanted, Integer.MAX_VALUE - 8));
        }
        Arrays.fill(scratch, used, used + padding, (byte) 0);
        System.arraycopy(buffer.bytes, (int) start, scratch, used + padding, (int) count);
        used += padding + (int) count;
        from = (int) (start + count);
        to += padding + count;
    }
}
