package com.qel.dds.dynamicdata;

/** Properties of a type support. */
public final class DynamicDataTypeProperty_t {
    /** How the samples are made that the type support makes; never null. */
    public final DynamicDataProperty_t data;

    /** The default for samples. */
    public DynamicDataTypeProperty_t() {
        this(DynamicData.PROPERTY_DEFAULT);
    }

    /**
     * @param data for samples; null stands for the default
     */
    public DynamicDataTypeProperty_t(DynamicDataProperty_t data) {
        this.data = data != null ? data : DynamicData.PROPERTY_DEFAULT;
    }
}
