/** The bridge's own classes. Nothing here is for adapters. */
package com.qel.ferrion.adapter.internal;
