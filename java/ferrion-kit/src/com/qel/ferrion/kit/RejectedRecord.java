package com.qel.ferrion.kit;

/**
 * What a source could not make a sample of, for the host to set aside.
 *
 * @param raw as it stands in the source; of any bytes
 * @param reason for people: what is wrong with it
 * @param position for people: where in the source it is
 */
public record RejectedRecord(byte[] raw, String reason, String position) {}
