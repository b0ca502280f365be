package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;

/** Says in one sentence that the Java heap is too small for what is to be done, and what helps. */
public final class OutOfHeapException extends AdapterException {
    private static final long serialVersionUID = 1L;

    /**
     * @param what is being done, or does not fit: "a row of 12000000 bytes"
     * @param cause what the VM said
     */
    public OutOfHeapException(String what, OutOfMemoryError cause) {
        super(what + ": out of memory (" + cause.getMessage() + "); give the Java heap more than "
                + "its " + (Runtime.getRuntime().maxMemory() >> 20)
                + " MiB with the VM's option -Xmx, or set a smaller batch_bytes", cause);
    }
}
