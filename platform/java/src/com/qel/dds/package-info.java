/**
 * The Java binding of the DDS platform: types, samples and what is known about samples.
 *
 * <p>Classes and members that have the platform's native names ({@code push_to_nativeI}, {@code
 * DynamicDataProperty_t}) keep them, as native code looks them up.
 */
package com.qel.dds;
