package com.qel.dds.dynamicdata;

import com.qel.dds.typecode.TypeCode;

/** Makes samples of one type. Immutable; any thread. */
public final class DynamicDataTypeSupport {
    /** The default for all samples. */
    public static final DynamicDataTypeProperty_t TYPE_PROPERTY_DEFAULT =
            new DynamicDataTypeProperty_t();

    private final TypeCode type;
    private final DynamicDataTypeProperty_t property;

    /**
     * @param type a struct, or an alias of one
     * @param property null stands for the default
     * @throws com.qel.dds.TypeException when the type is no struct
     */
    public DynamicDataTypeSupport(TypeCode type, DynamicDataTypeProperty_t property) {
        TypeLayout.ofSample(type);
        this.type = type;
        this.property = property != null ? property : TYPE_PROPERTY_DEFAULT;
    }

    /** @return a new sample with every member at its default */
    public DynamicData create_data() {
        return new DynamicData(type, property.data);
    }

    /**
     * Does nothing, as the garbage collector does it; here for the symmetry of ported code.
     *
     * @param data no longer wanted
     */
    public void delete_data(DynamicData data) {}

    /**
     * @param destination filled with the content of the source
     * @param source of the same type
     * @throws com.qel.dds.TypeException when the types differ
     */
    public void copy_data(DynamicData destination, DynamicData source) {
        destination.copyFrom(source);
    }

    /** @return the type's scoped name */
    public String get_type_name() {
        return type.name();
    }
}
