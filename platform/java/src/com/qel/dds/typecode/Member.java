package com.qel.dds.typecode;

/**
 * A member of a struct.
 *
 * @param name its name
 * @param type its type as declared, so maybe an alias
 * @param key whether it is part of the key
 */
public record Member(String name, TypeCode type, boolean key) {}
