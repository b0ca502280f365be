package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;

/** Says in one sentence that the Java heap is too small for what is to be done, and what helps. */
public final class OutOfHeapException extends AdapterException {
    private static final long serialVersionUID = 1L;

    /**
     * @param what does not fit: "a row of 12000000 bytes"
     * @param cause what the VM said
     */
    public OutOfHeapException(String what, OutOfMemoryError cause) {
        super(what + " does not fit into what is left of the Java heap of "
                + (Runtime.getRuntime().maxMemory() >> 20) + " MiB (" + cause.getMessage()
                + "); give the VM more with -Xmx, or set a smaller batch_bytes", cause);
    }
}
