package com.qel.ferrion.kit;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterSettings.Role;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;
import java.util.Properties;
import java.util.concurrent.Semaphore;

/** Lends what was written to the connection before. {@code fault} names the call that fails. */
public final class Echo extends AdapterBase {
    static final Setting<String> FAULT =
            Setting.text("fault", "which call fails").defaultTo("none").changeable();
    public static final AdapterSettings SETTINGS = AdapterSettings.none()
            .with(Role.CONNECTION, FAULT, Setting.text("fixed", "what stays"))
            .with(Role.READER, BatchLimit.SAMPLES, BatchLimit.BYTES);

    /** The samples written, or the host's own where the fault is to keep them. */
    private static final List<DynamicData> KEPT = new ArrayList<>();
    /** Connections, readers and writers that have not been released. */
    static int open;
    /** Keeps the thread that the fault "thread" leaves behind. */
    static final Semaphore LEFT = new Semaphore(0);
    /** Of the last connection. */
    static DiscoveryReader last;
    /** A write that waits until the host stops has begun. */
    static final Semaphore WAITING = new Semaphore(0);
    /** Of the last reader. */
    static StreamReaderListener heard;

    public Echo(Properties properties) throws AdapterException {
        super(SETTINGS, new Version(1, 0, 0, 0), properties);
        KEPT.clear();
        open = 0;
    }

    @Override
    protected ConnectionBase connect(String name, Settings settings) throws Exception {
        Objects.requireNonNull(settings());
        return new EchoConnection();
    }

    /** Every call passes here. */
    private static final class EchoConnection extends DiscoveryConnectionBase {
        boolean is(String fault) {
            return settings().get(FAULT).equals(fault);
        }

        void pass(String call) throws Exception {
            if (Thread.currentThread().getContextClassLoader() != Echo.class.getClassLoader()) {
                throw new AssertionError(call + " without context class loader");
            }
            if (is(call)) {
                throw new java.io.IOException("as told");
            }
        }

        /** Begins a reader or writer. */
        void begin(String call, Stream stream) throws Exception {
            pass(call);
            Objects.requireNonNull(stream.session());
            open++;
        }

        void end(String call) throws Exception {
            open--;
            pass(call);
        }

        @Override
        protected void opened() throws Exception {
            open++;
            last = getInputStreamDiscoveryReader();
            pass("opened");
            for (int i = 0; i < 40; i++) {
                last.announce(new StreamInfo("s" + i, new TypeInfo(null, null), false));
            }
            last.dispose("s7");
        }

        @Override
        protected SessionBase openSession(Settings settings) throws Exception {
            pass("openSession");
            return super.openSession(settings);
        }

        @Override
        protected void changed(Settings settings) throws Exception {
            pass("changed");
        }

        @Override
        protected void probe() throws Exception {
            pass("probe");
        }

        @Override
        protected void release() throws Exception {
            end("release");
        }

        @Override
        protected ReaderBase openReader(Stream stream) throws Exception {
            begin("openReader", stream);
            heard = stream.listener;
            return new ReaderBase(stream) {
                @Override
                protected void fill(List<Object> samples, List<Object> infos) throws Exception {
                    signal();
                    if (is("lost")) {
                        fail(new java.io.IOException("the queue is gone"));
                    } else if (is("found")) {
                        recovered();
                    }
                    BatchLimit limit = new BatchLimit(settings());
                    while (!KEPT.isEmpty() && !limit.isReached()) {
                        DynamicData next = KEPT.remove(0);
                        samples.add(next);
                        limit.add(next == null ? 0 : next.size());
                    }
                    if (is("lend")) {
                        samples.add("no sample");
                    }
                    if (is("inform")) {
                        infos.add(new SampleInfo());
                    }
                    pass("fill");
                    if (is("bad")) {
                        throw new BadSamplesException("two rows", 2);
                    }
                    if (is("heap")) {
                        throw new OutOfMemoryError("no room");
                    }
                }

                @Override
                protected void probe() throws Exception {
                    pass("probeReader");
                }

                @Override
                protected void returned(List<Object> samples, List<Object> infos)
                        throws Exception {
                    pass("returned");
                }

                @Override
                protected void release() throws Exception {
                    if (is("thread")) {
                        new Thread(LEFT::acquireUninterruptibly, "left").start();
                    }
                    EchoConnection.this.end("releaseReader");
                }
            };
        }

        @Override
        protected WriterBase openWriter(Stream stream) throws Exception {
            begin("openWriter", stream);
            return new WriterBase(stream) {
                private final Semaphore stop = new Semaphore(0);

                @Override
                protected void stopping() throws Exception {
                    stop.release();
                    pass("stopping");
                }

                @Override
                protected int store(List<Object> samples, List<Object> infos) throws Exception {
                    if (is("wait") || is("stopping")) {
                        WAITING.release();
                        stop.acquire();
                        return 0;
                    }
                    for (int i = 0; is("reject") && i < samples.size(); i++) {
                        DynamicData sample = (DynamicData) samples.get(i);
                        if (sample.getInt("id") == 4) {
                            throw new RejectedSampleException("no fours", i);
                        }
                        KEPT.add(Sample.copy(sample));
                    }
                    if (is("reject")) {
                        return samples.size();
                    }
                    if (is("keep")) {
                        samples.forEach(sample -> KEPT.add((DynamicData) sample));
                    } else {
                        Sample.copies(samples, infos).forEach(sample -> KEPT.add(sample.data()));
                    }
                    pass("store");
                    return samples.size();
                }

                @Override
                protected void probe() throws Exception {
                    pass("probeWriter");
                }

                @Override
                protected void release() throws Exception {
                    EchoConnection.this.end("releaseWriter");
                }
            };
        }
    }
}
