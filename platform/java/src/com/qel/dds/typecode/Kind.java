package com.qel.dds.typecode;

import java.util.Locale;

/** Kinds of types, in the order of the native platform's numbers, which begin at 1. */
public enum Kind {
    /** True or false. */
    BOOLEAN,
    /** One byte, ISO 8859-1. */
    CHAR,
    /** Unsigned, 8 bits. */
    OCTET,
    /** Signed, 8 bits. */
    INT8,
    /** Signed, 16 bits. */
    SHORT,
    /** Unsigned, 16 bits. */
    USHORT,
    /** Signed, 32 bits. */
    LONG,
    /** Unsigned, 32 bits. */
    ULONG,
    /** Signed, 64 bits. */
    LONGLONG,
    /** Unsigned, 64 bits. */
    ULONGLONG,
    /** IEEE 754 single precision. */
    FLOAT,
    /** IEEE 754 double precision. */
    DOUBLE,
    /** UTF-8, maybe bounded. */
    STRING,
    /** One of some named 32-bit values. */
    ENUM,
    /** Members in a fixed order. */
    STRUCT,
    /** A second name of a type. */
    ALIAS,
    /** Any number of elements, maybe bounded. */
    SEQUENCE,
    /** A fixed number of elements in one or more dimensions. */
    ARRAY;

    private static final Kind[] ALL = values();

    static Kind fromNative(int number) {
        return ALL[number - 1];
    }

    /** What IDL calls a primitive type. */
    String idlName() {
        String name = toString().toLowerCase(Locale.ROOT).replace("longlong", "long long");
        return name.startsWith("u") ? "unsigned " + name.substring(1) : name;
    }
}
