package com.qel.ferrion.adapter;

/** The host's listener: adapters call it, they do not implement it (tests do). */
@FunctionalInterface
public interface StreamReaderListener {
    /**
     * Signals that the reader has something to read.
     *
     * <p>Any thread may call, also from inside of the reader's own methods and of the method that
     * makes it. The call takes note and returns; the host reads later, on a thread of its own. One
     * signal is enough for any number of samples, and a signal without samples does no harm.
     *
     * <p>Only signal between the creation and the deletion of the reader: {@link
     * Connection#deleteStreamReader} says why. {@link
     * com.qel.ferrion.adapter.infrastructure.StreamReaderBase} keeps to that for you.
     *
     * @param reader the reader that this listener was given for; a signal in another reader's name
     *     is logged and dropped
     * @throws NullPointerException when the reader is null
     */
    void onDataAvailable(StreamReader reader);
}
