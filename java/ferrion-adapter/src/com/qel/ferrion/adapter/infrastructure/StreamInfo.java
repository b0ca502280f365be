package com.qel.ferrion.adapter.infrastructure;

/** A stream: its name, its type and whether it is gone. Immutable. */
public final class StreamInfo {
    private final String streamName;
    private final TypeInfo typeInfo;
    private final boolean disposed;

    /**
     * @param streamName may be null; streams to be found by the host need one
     * @param typeInfo type of its samples; may be null when the stream is gone
     * @param disposed true when the stream is there no more
     */
    public StreamInfo(String streamName, TypeInfo typeInfo, boolean disposed) {
        this.streamName = streamName;
        this.typeInfo = typeInfo;
        this.disposed = disposed;
    }

    /** @return the stream's name, or null */
    public String getStreamName() {
        return streamName;
    }

    /** @return the type of its samples, or null */
    public TypeInfo getTypeInfo() {
        return typeInfo;
    }

    /** @return true when the stream is there no more */
    public boolean isDisposed() {
        return disposed;
    }

    @Override
    public String toString() {
        return streamName + ": " + typeInfo + (disposed ? ", disposed" : "");
    }
}
