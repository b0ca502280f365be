package com.qel.dds.dynamicdata;

import com.qel.dds.typecode.Kind;
import java.util.Arrays;

/** Reads and writes what has a variable size: strings and sequences. Enums by name as well. */
final class Variable {
    private Variable() {}

    static String getString(SampleBuffer buffer, MemberPath path) {
        if (path.target.kind == Kind.ENUM) {
            int value = (int) Scalars.getInteger(buffer, path, Integer.SIZE, "string");
            String name = path.target.enumName(value);
            if (name == null) {
                throw buffer.malformed(path.toString());
            }
            return name;
        }
        int at = locateString(buffer, path);
        return Utf8.decode(buffer.bytes, at + 4, buffer.count(at) - 1, path);
    }

    static void setString(SampleBuffer buffer, MemberPath path, String value) {
        if (value == null) {
            throw new NullPointerException(path + ": the string is null");
        }
        if (path.target.kind == Kind.ENUM) {
            Scalars.setInteger(buffer, path, enumValue(path, value));
            return;
        }
        int at = locateString(buffer, path);
        long length = Utf8.length(value, path);
        int bound = path.target.bound;
        if (bound != 0 && length > bound) {
            throw new IllegalArgumentException(path + ": a string of " + length
                    + " bytes is out of range: at most " + bound);
        }
        long end = (long) at + 4 + length + 1;
        long oldEnd = (long) at + 4 + buffer.count(at);
        if (end != oldEnd) {
            buffer.splice(path, at, oldEnd, end);
            Cdr.INT.set(buffer.bytes, at, (int) length + 1);
        }
        buffer.bytes[Utf8.encode(value, buffer.bytes, at + 4)] = 0;
    }

    private static int enumValue(MemberPath path, String name) {
        int index = Arrays.asList(path.target.enumNames).indexOf(name);
        if (index < 0) {
            throw new IllegalArgumentException(path + ": \"" + name + "\" is out of range: one of "
                    + Arrays.toString(path.target.enumNames));
        }
        return path.target.enumValues[index];
    }

    /** Position of a string's count; the whole string is inside of the sample. */
    private static int locateString(SampleBuffer buffer, MemberPath path) {
        if (path.target.kind != Kind.STRING) {
            throw Scalars.wrongKind(path, "string");
        }
        int at = buffer.locateWhole(path);
        int count = buffer.count(at);
        if (count < 1 || count > buffer.size - at - 4) {
            throw buffer.malformed(path.toString());
        }
        return at;
    }

    static int getLength(SampleBuffer buffer, MemberPath path) {
        switch (path.target.kind) {
        case ARRAY:
            buffer.locate(path);
            return path.arrayLength();
        case STRING:
            return buffer.count(locateString(buffer, path)) - 1;
        case SEQUENCE:
            int at = buffer.locateWhole(path);
            int count = buffer.count(at);
            if (count < 0 || count > (buffer.size - at - 4) / path.target.element.minimum) {
                throw buffer.malformed(path.toString());
            }
            return count;
        default:
            throw Scalars.wrongKind(path, "something with a length");
        }
    }

    static void setLength(SampleBuffer buffer, MemberPath path, int length) {
        if (path.target.kind != Kind.SEQUENCE) {
            throw Scalars.wrongKind(path, "sequence");
        }
        int bound = path.target.bound;
        if (length < 0 || (bound != 0 && length > bound)) {
            throw new IllegalArgumentException(path + ": length " + length
                    + " is out of range: 0 to " + (bound != 0 ? bound : Integer.MAX_VALUE));
        }
        int count = getLength(buffer, path);
        if (length == count) {
            return;
        }
        int at = buffer.locate(path);
        TypeLayout element = path.target.element;
        long kept = Cdr.skipElements(buffer, element, at + 4, Math.min(count, length));
        long oldEnd = Cdr.skipElements(buffer, element, kept, Math.max(0, count - length));
        int more = Math.max(0, length - count);
        buffer.splice(path, at, oldEnd, element.skipDefaults(kept, more));
        Cdr.INT.set(buffer.bytes, at, length);
        Defaults.write(buffer.bytes, element, (int) kept, more);
    }
}
