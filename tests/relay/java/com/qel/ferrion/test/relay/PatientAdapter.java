package com.qel.ferrion.test.relay;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterBase;
import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.ConnectionBase;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.WriterBase;
import java.util.List;
import java.util.Properties;

/** Its writers wait for a place that never comes; its readers have lost their source. */
public final class PatientAdapter extends AdapterBase {
    public static final AdapterSettings SETTINGS = AdapterSettings.none();

    public PatientAdapter(Properties properties) throws AdapterException {
        super(SETTINGS, new Version(1, 0, 0, 0), properties);
    }

    @Override
    protected ConnectionBase connect(String name, Settings settings) {
        return new ConnectionBase() {
            @Override
            protected WriterBase openWriter(Stream stream) {
                return new WriterBase(stream) {
                    @Override
                    protected int store(List<Object> samples, List<Object> infos)
                            throws InterruptedException {
                        System.err.println("waiting");
                        Thread.sleep(Long.MAX_VALUE);
                        return 0;
                    }
                };
            }

            @Override
            protected ReaderBase openReader(Stream stream) {
                return new ReaderBase(stream) {
                    {
                        Thread thread = new Thread(() -> fail(new IllegalStateException("gone")));
                        thread.setDaemon(true);
                        thread.start();
                    }

                    @Override
                    protected void fill(List<Object> samples, List<Object> infos) {}
                };
            }
        };
    }
}
