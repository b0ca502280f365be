package com.qel.dds.typecode;

/** Kinds of types, in the order of the native platform's numbers, which begin at 1. */
public enum Kind {
    /** True or false. */
    BOOLEAN("boolean", 1, 0),
    /** One byte, ISO 8859-1. */
    CHAR("char", 1, 0),
    /** Unsigned, 8 bits. */
    OCTET("octet", 1, 9),
    /** Signed, 8 bits. */
    INT8("int8", 1, 8),
    /** Signed, 16 bits. */
    SHORT("short", 2, 16),
    /** Unsigned, 16 bits. */
    USHORT("unsigned short", 2, 17),
    /** Signed, 32 bits. */
    LONG("long", 4, 32),
    /** Unsigned, 32 bits. */
    ULONG("unsigned long", 4, 33),
    /** Signed, 64 bits. */
    LONGLONG("long long", 8, 64),
    /** Unsigned, 64 bits. */
    ULONGLONG("unsigned long long", 8, 64),
    /** IEEE 754 single precision. */
    FLOAT("float", 4, 0),
    /** IEEE 754 double precision. */
    DOUBLE("double", 8, 0),
    /** UTF-8, maybe bounded. */
    STRING(null, 4, 0),
    /** One of some named 32-bit values. */
    ENUM(null, 4, 32),
    /** Members in a fixed order. */
    STRUCT(null, 0, 0),
    /** A second name of a type. */
    ALIAS(null, 0, 0),
    /** Any number of elements, maybe bounded. */
    SEQUENCE(null, 4, 0),
    /** A fixed number of elements in one or more dimensions. */
    ARRAY(null, 0, 0);

    private static final Kind[] ALL = values();

    private final String idlName;
    private final int size;
    private final int integerBits;

    Kind(String idlName, int size, int integerBits) {
        this.idlName = idlName;
        this.size = size;
        this.integerBits = integerBits;
    }

    static Kind fromNative(int number) {
        return ALL[number - 1];
    }

    /** What IDL calls a primitive type; null for other kinds. */
    String idlName() {
        return idlName;
    }

    /**
     * Bytes in CDR, and the alignment there, of a number, character, boolean or enum; of the count
     * in front of a string or sequence; 0 for other kinds.
     */
    public int size() {
        return size;
    }

    /**
     * Bits of a signed number that holds every value of an integer or enum, but for the upper half
     * of an unsigned one of 64 bits; 0 for other kinds.
     */
    public int integerBits() {
        return integerBits;
    }
}
