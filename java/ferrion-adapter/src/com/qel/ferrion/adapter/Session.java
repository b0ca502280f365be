package com.qel.ferrion.adapter;

/**
 * A bracket around readers and writers that the host serves with one thread, and so a natural place
 * for what they share and must not be used by two threads: a transaction, a database connection.
 * May be empty.
 */
public interface Session extends Entity {}
