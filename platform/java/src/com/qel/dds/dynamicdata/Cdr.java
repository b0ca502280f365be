package com.qel.dds.dynamicdata;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;

/**
 * Walks over CDR that may hold anything: nothing here reads outside of it. Positions are longs, so
 * that no count in the bytes can make them overflow.
 */
final class Cdr {
    // Floating point goes by its bits: the virtual machine links the first access to it with some
    // hundred classes.
    static final VarHandle SHORT = view(short[].class);
    static final VarHandle INT = view(int[].class);
    static final VarHandle LONG = view(long[].class);

    private Cdr() {}

    private static VarHandle view(Class<?> elements) {
        return MethodHandles.byteArrayViewVarHandle(elements, ByteOrder.LITTLE_ENDIAN);
    }

    /** The count at an aligned position, not negative. */
    static int count(SampleBuffer buffer, long at) {
        if (at > buffer.size - 4) {
            throw buffer.malformed("byte " + at);
        }
        int count = (int) INT.get(buffer.bytes, (int) at);
        if (count < 0) {
            throw buffer.malformed("byte " + at);
        }
        return count;
    }

    /** From a value's start to its end. */
    static long skip(SampleBuffer buffer, TypeLayout layout, long start) {
        if (layout.fixed) {
            return inside(buffer, start + layout.defaultSize(start));
        }
        long at = start;
        switch (layout.kind) {
        case STRING:
            at = TypeLayout.align(at, 4);
            return inside(buffer, at + 4 + count(buffer, at));
        case SEQUENCE:
            at = TypeLayout.align(at, 4);
            return skipElements(buffer, layout.element, at + 4, count(buffer, at));
        case ARRAY:
            return skipElements(buffer, layout.element, at, layout.elementCount);
        default:
            for (int run = 0; run < layout.runEnds.length; run++) {
                at = skipRun(buffer, layout, run, at);
            }
            return at;
        }
    }

    /** From the start of a struct's run to its end. */
    static long skipRun(SampleBuffer buffer, TypeLayout struct, int run, long start) {
        int last = struct.runEnds[run] - 1;
        return skip(buffer, struct.members[last], struct.memberStart(last, start));
    }

    static long skipElements(SampleBuffer buffer, TypeLayout element, long start, int count) {
        if (element.fixed) {
            return inside(buffer, element.skipDefaults(start, count));
        }
        long at = start;
        for (int i = 0; i < count; i++) {
            at = skip(buffer, element, at);
        }
        return at;
    }

    private static long inside(SampleBuffer buffer, long position) {
        if (position > buffer.size) {
            throw buffer.malformed("byte " + position);
        }
        return position;
    }
}
