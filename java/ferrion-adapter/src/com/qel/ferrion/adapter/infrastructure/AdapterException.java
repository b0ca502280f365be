package com.qel.ferrion.adapter.infrastructure;

/** What an adapter throws when it cannot do what the host asked for. */
public class AdapterException extends Exception {
    private static final long serialVersionUID = 1L;

    /**
     * @param message for people: what failed, and what would help
     */
    public AdapterException(String message) {
        super(message);
    }

    /**
     * @param message for people: what failed, and what would help
     * @param cause may be null
     */
    public AdapterException(String message, Throwable cause) {
        super(message, cause);
    }
}
