/* Kinds of types, which decide how values lie in CDR. */
#ifndef QDDSC_KIND_H
#define QDDSC_KIND_H

/** Kinds of types. Unions, optional members, maps, bit masks, bit sets, wide characters and
 * strings, long double, recursive and mutable types are not carried; making one is rejected by
 * name. */
typedef enum DDS_TCKind {
    DDS_TK_BOOLEAN = 1, /* 1 byte, 0 or 1 */
    DDS_TK_CHAR = 2,    /* 1 byte, ISO 8859-1 */
    DDS_TK_OCTET = 3,   /* 1 byte, unsigned (IDL octet and uint8) */
    DDS_TK_INT8 = 4,
    DDS_TK_SHORT = 5,
    DDS_TK_USHORT = 6,
    DDS_TK_LONG = 7,
    DDS_TK_ULONG = 8,
    DDS_TK_LONGLONG = 9,
    DDS_TK_ULONGLONG = 10,
    DDS_TK_FLOAT = 11,
    DDS_TK_DOUBLE = 12,
    DDS_TK_STRING = 13, /* UTF-8 */
    DDS_TK_ENUM = 14,   /* 4 bytes */
    DDS_TK_STRUCT = 15,
    DDS_TK_ALIAS = 16,
    DDS_TK_SEQUENCE = 17,
    DDS_TK_ARRAY = 18
} DDS_TCKind;

/** The greatest number of a kind. */
#define DDS_TK_LAST DDS_TK_ARRAY

#endif
