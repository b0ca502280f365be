// Numbers of the serialized type objects (XTypes 1.3, annex B: dds-xtypes_typeobject.idl).
#ifndef QDDSDOMAIN_SRC_TYPE_OBJECT_CODES_H
#define QDDSDOMAIN_SRC_TYPE_OBJECT_CODES_H

#include <cstdint>

#include "qddsc/kind.h"

namespace qddsdomain::xtypes {

/// Kinds of types; the first byte of a type object's or identifier's union.
constexpr uint8_t TK_NONE = 0x00;
constexpr uint8_t TK_BOOLEAN = 0x01;
constexpr uint8_t TK_BYTE = 0x02;
constexpr uint8_t TK_INT16 = 0x03;
constexpr uint8_t TK_INT32 = 0x04;
constexpr uint8_t TK_INT64 = 0x05;
constexpr uint8_t TK_UINT16 = 0x06;
constexpr uint8_t TK_UINT32 = 0x07;
constexpr uint8_t TK_UINT64 = 0x08;
constexpr uint8_t TK_FLOAT32 = 0x09;
constexpr uint8_t TK_FLOAT64 = 0x0A;
constexpr uint8_t TK_FLOAT128 = 0x0B;
constexpr uint8_t TK_CHAR8 = 0x10;
constexpr uint8_t TK_CHAR16 = 0x11;
constexpr uint8_t TK_ALIAS = 0x30;
constexpr uint8_t TK_ENUM = 0x40;
constexpr uint8_t TK_BITMASK = 0x41;
constexpr uint8_t TK_STRUCTURE = 0x51;
constexpr uint8_t TK_UNION = 0x52;
constexpr uint8_t TK_BITSET = 0x53;
constexpr uint8_t TK_SEQUENCE = 0x60;
constexpr uint8_t TK_ARRAY = 0x61;
constexpr uint8_t TK_MAP = 0x62;

/// XTypes 1.3 has these; the engine's release does not: its compiler makes a char of int8.
constexpr uint8_t TK_INT8 = 0x0C;
constexpr uint8_t TK_UINT8 = 0x0D;

/// What a primitive is announced as, by DDS_TCKind.
constexpr uint8_t primitiveKinds[] = {TK_NONE,   TK_BOOLEAN, TK_CHAR8,  TK_BYTE,   TK_CHAR8,
                                      TK_INT16,  TK_UINT16,  TK_INT32,  TK_UINT32, TK_INT64,
                                      TK_UINT64, TK_FLOAT32, TK_FLOAT64};
static_assert(sizeof primitiveKinds == DDS_TK_DOUBLE + 1, "a number for each primitive");

/// Kinds of type identifiers.
constexpr uint8_t TI_STRING8_SMALL = 0x70;
constexpr uint8_t TI_STRING8_LARGE = 0x71;
constexpr uint8_t TI_STRING16_SMALL = 0x72;
constexpr uint8_t TI_STRING16_LARGE = 0x73;
constexpr uint8_t TI_PLAIN_SEQUENCE_SMALL = 0x80;
constexpr uint8_t TI_PLAIN_SEQUENCE_LARGE = 0x81;
constexpr uint8_t TI_PLAIN_ARRAY_SMALL = 0x90;
constexpr uint8_t TI_PLAIN_ARRAY_LARGE = 0x91;
constexpr uint8_t TI_PLAIN_MAP_SMALL = 0xA0;
constexpr uint8_t TI_PLAIN_MAP_LARGE = 0xA1;
constexpr uint8_t TI_STRONGLY_CONNECTED_COMPONENT = 0xB0;
constexpr uint8_t EK_MINIMAL = 0xF1;
constexpr uint8_t EK_COMPLETE = 0xF2;
constexpr uint8_t EK_BOTH = 0xF3;

/// Flags of members.
constexpr uint16_t TRY_CONSTRUCT1 = 1 << 0;
constexpr uint16_t IS_OPTIONAL = 1 << 3;
constexpr uint16_t IS_MUST_UNDERSTAND = 1 << 4;
constexpr uint16_t IS_KEY = 1 << 5;
constexpr uint16_t IS_DEFAULT = 1 << 6;

/// Flags of types, and those of them that a minimal type object keeps.
constexpr uint16_t IS_FINAL = 1 << 0;
constexpr uint16_t IS_APPENDABLE = 1 << 1;
constexpr uint16_t IS_MUTABLE = 1 << 2;
constexpr uint16_t IS_NESTED = 1 << 3;
constexpr uint16_t MINIMAL_TYPE_FLAGS = IS_FINAL | IS_APPENDABLE | IS_MUTABLE;

/// Characters that a name may have.
constexpr uint32_t MEMBER_NAME_MAX_LENGTH = 256;
constexpr uint32_t TYPE_NAME_MAX_LENGTH = 256;

} // namespace qddsdomain::xtypes

#endif
