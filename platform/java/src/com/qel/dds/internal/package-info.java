/** The binding's own classes. Nothing here is for users. */
package com.qel.dds.internal;
