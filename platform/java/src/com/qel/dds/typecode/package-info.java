/** Types of samples, as objects. */
package com.qel.dds.typecode;
