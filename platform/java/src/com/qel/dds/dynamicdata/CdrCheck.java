package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Kind;
import java.util.Arrays;

/** Checks the bytes of a sample from outside, before anything trusts them. */
final class CdrCheck {
    /** A payload is padded to a multiple of 4 on its way. */
    private static final int MAX_TRAILER = 3;

    private final TypeLayout root;
    private final byte[] bytes;
    private final int size;
    private final boolean clears;
    private long at;

    private CdrCheck(TypeLayout root, byte[] bytes, int size, boolean clears) {
        this.root = root;
        this.bytes = bytes;
        this.size = size;
        this.clears = clears;
    }

    /** @return bytes of the sample, without what is behind it */
    static int check(TypeLayout root, byte[] bytes) {
        CdrCheck check = new CdrCheck(root, bytes, bytes.length, false);
        check.value(root);
        if (bytes.length - check.at > MAX_TRAILER) {
            throw check.reject("the sample ends here");
        }
        return (int) check.at;
    }

    /** Clears the padding of a sample that was found good. */
    static void clearPadding(TypeLayout root, byte[] bytes, int size) {
        new CdrCheck(root, bytes, size, true).value(root);
    }

    private TypeException reject(String problem) {
        return new TypeException(root.type + ": " + problem + " (byte " + at + " of " + size + ")");
    }

    private void value(TypeLayout layout) {
        switch (layout.kind) {
        case STRING:
            string(layout);
            break;
        case SEQUENCE:
            int count = count();
            if (layout.bound != 0 && count > layout.bound) {
                throw reject("a sequence of " + count + " is longer than its bound "
                        + layout.bound);
            }
            elements(layout.element, count);
            break;
        case ARRAY:
            elements(layout.element, layout.elementCount);
            break;
        case STRUCT:
            for (int i = 0; i < layout.members.length; i++) {
                value(layout.members[i]);
            }
            break;
        default:
            scalars(layout, 1);
            break;
        }
    }

    private void align(int alignment) {
        long next = TypeLayout.align(at, alignment);
        if (next > size) {
            throw reject("the sample ends early");
        }
        if (clears) {
            Arrays.fill(bytes, (int) at, (int) next, (byte) 0);
        }
        at = next;
    }

    private void require(long length) {
        if (length > size - at) {
            throw reject("the sample ends early");
        }
    }

    private int count() {
        align(4);
        require(4);
        int count = (int) Cdr.INT.get(bytes, (int) at);
        if (count < 0) {
            throw reject("the sample ends early");
        }
        at += 4;
        return count;
    }

    private void string(TypeLayout layout) {
        int length = count();
        require(length);
        if (length == 0 || bytes[(int) at + length - 1] != 0) {
            throw reject("a string does not end in NUL");
        }
        for (int i = 0; i < length - 1; i++) {
            if (bytes[(int) at + i] == 0) {
                throw reject("a string holds a NUL");
            }
        }
        if (layout.bound != 0 && length - 1 > layout.bound) {
            throw reject("a string of " + (length - 1) + " is longer than its bound "
                    + layout.bound);
        }
        at += length;
    }

    private void elements(TypeLayout element, int count) {
        if (count > (size - at) / element.minimum) {
            throw reject("the sample ends early");
        }
        if (element.isScalar()) {
            if (count > 0) {
                scalars(element, count);
            }
            return;
        }
        for (int i = 0; i < count; i++) {
            value(element);
        }
    }

    private void scalars(TypeLayout layout, int count) {
        align(layout.scalarSize);
        require((long) count * layout.scalarSize);
        long end = at + (long) count * layout.scalarSize;
        for (; layout.kind == Kind.BOOLEAN && at < end; at++) {
            if ((bytes[(int) at] & 0xFF) > 1) {
                throw reject("a boolean is neither 0 nor 1");
            }
        }
        for (; layout.kind == Kind.ENUM && at < end; at += 4) {
            int value = (int) Cdr.INT.get(bytes, (int) at);
            if (Arrays.binarySearch(layout.enumValues, value) < 0) {
                throw reject(value + " is no enumerator of " + layout.type);
            }
        }
        at = end;
    }
}
