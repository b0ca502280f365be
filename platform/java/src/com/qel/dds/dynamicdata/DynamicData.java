package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.TypeCode;
import java.util.Arrays;

/**
 * A sample of any type, kept as its CDR bytes. For one thread at a time, also when only reading.
 *
 * <p>Members are named by a path ("id", "position.lat", "readings[3]", "tags[0].name",
 * "grid[1][2]"), given as text or, for loops, as a {@link MemberPath} taken apart once. Accesses
 * allocate nothing but the strings they return.
 *
 * <p>All accesses throw {@link TypeException} for a path that the type does not have, a member of a
 * kind that does not fit, and bytes that turn out to be malformed (which only bytes taken from a
 * native sample can be); {@link IndexOutOfBoundsException} for an element that is not there. All
 * setters throw {@link IllegalArgumentException} for a value outside of the member's range, naming
 * both, and for one that would make the sample larger than it may be. After a throw the sample is
 * unchanged.
 */
public final class DynamicData {
    /** No extra bytes, no limit. */
    public static final DynamicDataProperty_t PROPERTY_DEFAULT = new DynamicDataProperty_t();

    final SampleBuffer buffer;
    private final TypeCode type;

    /**
     * Makes a sample with every member at its default: 0, "", first enumerator, empty sequence.
     *
     * @param type a struct, or an alias of one
     * @param property how the buffer is sized; null stands for the default
     * @throws TypeException when the type is no struct
     * @throws IllegalArgumentException when even the default sample is larger than the property
     *     allows
     */
    public DynamicData(TypeCode type, DynamicDataProperty_t property) {
        this.type = type;
        buffer = new SampleBuffer(TypeLayout.ofSample(type),
                property != null ? property : PROPERTY_DEFAULT);
    }

    /** @return the type given at creation */
    public TypeCode type() {
        return type;
    }

    /**
     * Sets every member back to its default. Keeps the memory, unless it is much more than the
     * content took.
     */
    public void clear() {
        buffer.clear();
    }

    /** Gives back the memory that the content does not take. */
    public void trim() {
        buffer.trim();
    }

    /** @return bytes of the content: those of {@link #toCdr} */
    public int size() {
        return buffer.complete().size;
    }

    /**
     * @param other of the same type; its content is taken over
     * @throws TypeException when the types differ
     */
    public void copyFrom(DynamicData other) {
        if (other.buffer.root != buffer.root) {
            throw new TypeException("a sample of " + other.type + " cannot be copied to one of "
                    + type);
        }
        buffer.copyFrom(other.buffer);
    }

    /** @return a copy of the sample as plain CDR (XCDR1, little endian, no encapsulation header) */
    public byte[] toCdr() {
        buffer.complete();
        return Arrays.copyOf(buffer.bytes, buffer.size);
    }

    /**
     * Replaces the sample, after walking the bytes whole. Padding is cleared; up to three bytes
     * behind the sample, which is what transports add, are left out.
     *
     * @param bytes plain CDR of a sample of this type; copied
     * @throws TypeException when they are none, saying where; the sample is unchanged
     */
    public void fromCdr(byte[] bytes) {
        int size = CdrCheck.check(buffer.root, bytes);
        buffer.replace(size);
        System.arraycopy(bytes, 0, buffer.bytes, 0, size);
        CdrCheck.clearPadding(buffer.root, buffer.bytes, size);
    }

    /** @return a path of this sample's type; texts are taken apart once and remembered */
    private MemberPath path(String path) {
        return buffer.root.path(path);
    }

    /** {@return the value of a boolean} */
    public boolean getBoolean(String path) {
        return getBoolean(path(path));
    }

    /** {@return the value of a boolean} */
    public boolean getBoolean(MemberPath path) {
        return Scalars.getBoolean(buffer, path);
    }

    /** {@return the bits of an octet, int8 or char} */
    public byte getByte(String path) {
        return getByte(path(path));
    }

    /** {@return the bits of an octet, int8 or char} */
    public byte getByte(MemberPath path) {
        return Scalars.getByte(buffer, path);
    }

    /** {@return the ISO 8859-1 character of a char} */
    public char getChar(String path) {
        return getChar(path(path));
    }

    /** {@return the ISO 8859-1 character of a char} */
    public char getChar(MemberPath path) {
        return Scalars.getChar(buffer, path);
    }

    /** {@return the value of a short, int8 or octet} */
    public short getShort(String path) {
        return getShort(path(path));
    }

    /** {@return the value of a short, int8 or octet} */
    public short getShort(MemberPath path) {
        return (short) Scalars.getInteger(buffer, path, Short.SIZE, "short");
    }

    /** {@return the value of an enum, or of an integer of a kind that always fits} */
    public int getInt(String path) {
        return getInt(path(path));
    }

    /** {@return the value of an enum, or of an integer of a kind that always fits} */
    public int getInt(MemberPath path) {
        return (int) Scalars.getInteger(buffer, path, Integer.SIZE, "int");
    }

    /** {@return the value of an enum or integer; of an unsigned 64-bit one its bits} */
    public long getLong(String path) {
        return getLong(path(path));
    }

    /** {@return the value of an enum or integer; of an unsigned 64-bit one its bits} */
    public long getLong(MemberPath path) {
        return Scalars.getInteger(buffer, path, Long.SIZE, "long");
    }

    /** {@return the value of a float, or of an integer of up to 16 bits} */
    public float getFloat(String path) {
        return getFloat(path(path));
    }

    /** {@return the value of a float, or of an integer of up to 16 bits} */
    public float getFloat(MemberPath path) {
        return Scalars.getFloat(buffer, path);
    }

    /** {@return the value of a double or float, or of an integer of up to 32 bits} */
    public double getDouble(String path) {
        return getDouble(path(path));
    }

    /** {@return the value of a double or float, or of an integer of up to 32 bits} */
    public double getDouble(MemberPath path) {
        return Scalars.getDouble(buffer, path);
    }

    /**
     * @param path of a string or enum
     * @return the text, or the name of the enumerator
     * @throws TypeException when the bytes of the text, as another system wrote them, are not UTF-8
     */
    public String getString(String path) {
        return getString(path(path));
    }

    /** {@return the same as {@link #getString(String)}} */
    public String getString(MemberPath path) {
        return Variable.getString(buffer, path);
    }

    /** Sets a boolean. */
    public void setBoolean(String path, boolean value) {
        setBoolean(path(path), value);
    }

    /** Sets a boolean. */
    public void setBoolean(MemberPath path, boolean value) {
        Scalars.setBoolean(buffer, path, value);
    }

    /** Sets an enum or integer to a value of its range; an octet or char to these bits. */
    public void setByte(String path, byte value) {
        setByte(path(path), value);
    }

    /** Sets an enum or integer to a value of its range; an octet or char to these bits. */
    public void setByte(MemberPath path, byte value) {
        Scalars.setByte(buffer, path, value);
    }

    /** Sets a char to an ISO 8859-1 character. */
    public void setChar(String path, char value) {
        setChar(path(path), value);
    }

    /** Sets a char to an ISO 8859-1 character. */
    public void setChar(MemberPath path, char value) {
        Scalars.setChar(buffer, path, value);
    }

    /** Sets an enum or integer to a value of its range. */
    public void setShort(String path, short value) {
        setShort(path(path), value);
    }

    /** Sets an enum or integer to a value of its range. */
    public void setShort(MemberPath path, short value) {
        Scalars.setInteger(buffer, path, value);
    }

    /** Sets an enum or integer to a value of its range. */
    public void setInt(String path, int value) {
        setInt(path(path), value);
    }

    /** Sets an enum or integer to a value of its range. */
    public void setInt(MemberPath path, int value) {
        Scalars.setInteger(buffer, path, value);
    }

    /** Sets an enum or integer to a value of its range; an unsigned 64-bit one to these bits. */
    public void setLong(String path, long value) {
        setLong(path(path), value);
    }

    /** Sets an enum or integer to a value of its range; an unsigned 64-bit one to these bits. */
    public void setLong(MemberPath path, long value) {
        Scalars.setLong(buffer, path, value);
    }

    /** Sets a float or double. */
    public void setFloat(String path, float value) {
        setFloat(path(path), value);
    }

    /** Sets a float or double. */
    public void setFloat(MemberPath path, float value) {
        Scalars.setFloat(buffer, path, value);
    }

    /** Sets a double, or a float to the nearest value it has. */
    public void setDouble(String path, double value) {
        setDouble(path(path), value);
    }

    /** Sets a double, or a float to the nearest value it has. */
    public void setDouble(MemberPath path, double value) {
        Scalars.setDouble(buffer, path, value);
    }

    /**
     * @param path of a string or enum
     * @param value a text of whole characters without NUL, within the bound when counted in UTF-8
     *     bytes; or the name of an enumerator
     */
    public void setString(String path, String value) {
        setString(path(path), value);
    }

    /** Does the same as {@link #setString(String, String)}. */
    public void setString(MemberPath path, String value) {
        Variable.setString(buffer, path, value);
    }

    /** {@return elements of a sequence or of an array's dimension, UTF-8 bytes of a string} */
    public int getLength(String path) {
        return getLength(path(path));
    }

    /** {@return elements of a sequence or of an array's dimension, UTF-8 bytes of a string} */
    public int getLength(MemberPath path) {
        return Variable.getLength(buffer, path);
    }

    /** Sets the number of a sequence's elements: cuts them off, or adds default ones. */
    public void setLength(String path, int length) {
        setLength(path(path), length);
    }

    /** Sets the number of a sequence's elements: cuts them off, or adds default ones. */
    public void setLength(MemberPath path, int length) {
        Variable.setLength(buffer, path, length);
    }

    /** Compares type and content, floating-point numbers by their bits. */
    @Override
    public boolean equals(Object other) {
        return other instanceof DynamicData && ((DynamicData) other).buffer.sameAs(buffer);
    }

    @Override
    public int hashCode() {
        return buffer.contentHash();
    }

    /** @return type and members for people; long sequences are cut */
    @Override
    public String toString() {
        return SampleText.of(this);
    }
}
