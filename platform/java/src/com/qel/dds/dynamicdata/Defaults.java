package com.qel.dds.dynamicdata;

import java.util.Arrays;

/**
 * Default values as CDR: 0, "", first enumerator, empty sequence, or what a member says of itself.
 */
final class Defaults {
    private Defaults() {}

    /** Writes {@code count} default values from a position on; the room is there. */
    static void write(byte[] bytes, TypeLayout layout, int start, int count) {
        int end = (int) layout.skipDefaults(start, count);
        Arrays.fill(bytes, start, end, (byte) 0);
        int at = start;
        for (int i = 0; i < count && !layout.zeroDefault; i++) {
            at = poke(bytes, layout, at);
        }
    }

    /** Writes those of a struct's run; returns their end. */
    static int writeRun(byte[] bytes, TypeLayout struct, int run, int start) {
        int end = (int) struct.skipRun(run, start);
        Arrays.fill(bytes, start, end, (byte) 0);
        int at = start;
        for (int i = struct.firstOf(run); i < struct.runEnds[run]; i++) {
            at = poke(bytes, struct.members[i], at);
        }
        return end;
    }

    /** Writes what is not zero of one default value; returns its end. */
    private static int poke(byte[] bytes, TypeLayout layout, int start) {
        int end = start + (int) layout.defaultSize(start);
        if (layout.zeroDefault) {
            return end;
        }
        if (layout.initial != null) {
            System.arraycopy(layout.initial, 0, bytes, end - layout.initial.length,
                    layout.initial.length);
            return end;
        }
        int at = start;
        switch (layout.kind) {
        case STRING:
            Cdr.INT.set(bytes, end - 5, 1);
            break;
        case ENUM:
            Cdr.INT.set(bytes, end - 4, layout.defaultEnum);
            break;
        case STRUCT:
            for (TypeLayout member : layout.members) {
                at = poke(bytes, member, at);
            }
            break;
        default: // an array: all else is zero
            for (int i = 0; i < layout.elementCount; i++) {
                at = poke(bytes, layout.element, at);
            }
            break;
        }
        return end;
    }
}
