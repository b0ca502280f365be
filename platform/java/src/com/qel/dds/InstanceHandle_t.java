package com.qel.dds;

import java.util.Arrays;
import java.util.HexFormat;

/** Identifies an instance or an entity. Mutable; a new one is the nil handle. */
public final class InstanceHandle_t {
    /** Bytes of every handle. */
    public static final int KEY_HASH_LENGTH = 16;

    /** The handle's bytes; the array is never replaced. */
    public final byte[] keyHash = new byte[KEY_HASH_LENGTH];
    /** Bytes of the hash in use. */
    public int length = KEY_HASH_LENGTH;
    /** False for the nil handle. */
    public boolean isValid;

    /** Makes the nil handle. */
    public InstanceHandle_t() {}

    /** @param other whose content to take over */
    public void copyFrom(InstanceHandle_t other) {
        System.arraycopy(other.keyHash, 0, keyHash, 0, KEY_HASH_LENGTH);
        length = other.length;
        isValid = other.isValid;
    }

    /** Makes this the nil handle. */
    public void clear() {
        Arrays.fill(keyHash, (byte) 0);
        length = KEY_HASH_LENGTH;
        isValid = false;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof InstanceHandle_t && isValid == ((InstanceHandle_t) other).isValid
                && length == ((InstanceHandle_t) other).length
                && Arrays.equals(keyHash, ((InstanceHandle_t) other).keyHash);
    }

    @Override
    public int hashCode() {
        return Arrays.hashCode(keyHash) + (isValid ? 1 : 0);
    }

    @Override
    public String toString() {
        return isValid ? HexFormat.of().formatHex(keyHash) : "nil";
    }
}
