package com.qel.ferrion.adapter.infrastructure;

import com.qel.ferrion.adapter.StreamReaderListener;
import java.util.ArrayDeque;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Queue;

/**
 * The discovery reader for a {@link com.qel.ferrion.adapter.DiscoveryConnection}: a queue of stream
 * announcements. Any thread may announce; the host reads.
 *
 * <p>Make one for each direction in {@code createConnection}, with the listener of that direction,
 * and close both in {@code deleteConnection}.
 */
public final class DiscoveryReader extends StreamReaderBase {
    /** The host looks at no more elements of one read and drops the others. */
    private static final int MAX_PER_READ = 32;

    /** Guards both collections; not held while signalling. */
    private final Object lock = new Object();
    private final Queue<StreamInfo> waiting = new ArrayDeque<>();
    /** Streams announced and not disposed, so that a disposal can name their type. */
    private final Map<String, TypeInfo> announced = new HashMap<>();

    /**
     * @param listener the one of this reader's direction; null makes a reader that is only polled
     */
    public DiscoveryReader(StreamReaderListener listener) {
        super(listener);
    }

    /**
     * Announces a stream, or, when it says that it is disposed, that it is gone. Announcements
     * reach the host in their order, none is left out.
     *
     * @param stream not null, with a name
     */
    public void announce(StreamInfo stream) {
        String name = Objects.requireNonNull(stream.getStreamName(), "a stream needs a name");
        synchronized (lock) {
            if (stream.isDisposed()) {
                announced.remove(name);
            } else {
                announced.put(name, stream.getTypeInfo());
            }
            waiting.add(stream);
        }
        signal();
    }

    /**
     * Announces that a stream is gone.
     *
     * @param streamName of a stream that was announced
     * @return false when there is no such stream, or no longer: nothing is announced
     */
    public boolean dispose(String streamName) {
        synchronized (lock) {
            if (!announced.containsKey(streamName)) {
                return false;
            }
            waiting.add(new StreamInfo(streamName, announced.remove(streamName), true));
        }
        signal();
        return true;
    }

    /** Moves waiting announcements to the host, 32 at most, and signals again if more wait. */
    @Override
    public void read(List<Object> samples, List<Object> infos) {
        boolean more;
        synchronized (lock) {
            for (int i = 0; i < MAX_PER_READ && !waiting.isEmpty(); i++) {
                samples.add(waiting.remove());
            }
            more = !waiting.isEmpty();
        }
        if (more) {
            signal();
        }
    }

    /** Does nothing: announcements are immutable. */
    @Override
    public void returnLoan(List<Object> samples, List<Object> infos) {}
}
