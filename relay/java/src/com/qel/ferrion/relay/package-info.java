/**
 * What {@code ferry} has to have done in Java. For its own use: adapters need nothing of this.
 *
 * <p>Every class that the relay asks something has a static {@code byte[] answer(byte[])}, so that
 * one call on the native side serves all; texts are in UTF-8 on both ways.
 */
package com.qel.ferrion.relay;
