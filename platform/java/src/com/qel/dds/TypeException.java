package com.qel.dds;

/**
 * Something does not fit a type: IDL that is wrong or says what is not carried, a path that a type
 * does not have, an access to a member of another kind, bytes that are no sample of a type.
 */
public class TypeException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    /**
     * @param message what does not fit, and where
     */
    public TypeException(String message) {
        super(message);
    }
}
