/** Samples of any type, kept as the bytes that go over the wire. */
package com.qel.dds.dynamicdata;
