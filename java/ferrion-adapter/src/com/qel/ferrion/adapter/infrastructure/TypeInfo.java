package com.qel.ferrion.adapter.infrastructure;

/** The type of a stream's samples. Immutable. */
public final class TypeInfo {
    private final String typeName;
    private final Object typeRepresentation;

    /**
     * @param typeName the type's scoped name; may be null
     * @param typeRepresentation a {@code com.qel.dds.typecode.TypeCode}, the only form that can be
     *     carried, or null when the type is known by name alone
     */
    public TypeInfo(String typeName, Object typeRepresentation) {
        this.typeName = typeName;
        this.typeRepresentation = typeRepresentation;
    }

    /** @return the type's name, or null */
    public String getTypeName() {
        return typeName;
    }

    /** @return a {@code com.qel.dds.typecode.TypeCode}, or null */
    public Object getTypeRepresentation() {
        return typeRepresentation;
    }

    @Override
    public String toString() {
        return typeName + (typeRepresentation == null ? " (unknown)" : "");
    }
}
