package com.qel.dds.typecode;

/**
 * A named value of an enum.
 *
 * @param name its name, not scoped
 * @param value its number
 */
public record Enumerator(String name, int value) {}
