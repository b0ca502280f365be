package com.qel.ferrion.test;

import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.util.Properties;

/** An adapter that does what {@link Stage} says. */
public class ScriptedAdapter implements Adapter {
    public ScriptedAdapter(Properties properties) {
        Stage.enter("new", properties);
    }

    /** There to be passed over in favour of the other constructor. */
    public ScriptedAdapter() {
        Stage.enter("new");
    }

    @Override
    public Connection createConnection(String first, String second, StreamReaderListener output,
            StreamReaderListener input, Properties properties) {
        return Scripted.connection(
                Stage.enter("createConnection", first, second, output, input, properties));
    }

    @Override
    public void deleteConnection(Connection connection) {
        Stage.enter("deleteConnection");
    }

    @Override
    public Version getVersion() {
        return Stage.enter("getVersion").equals("null") ? null : new Version(1, 2, 3, 4);
    }

    // Adapters of the field override it, and the host calls it through its contract.
    @SuppressWarnings("deprecation")
    @Override
    protected void finalize() {
        // The collector comes a second time.
        if (!Thread.currentThread().getName().equals("Finalizer")) {
            Stage.enter("finalize");
        }
    }

    /** Has only a constructor without arguments. */
    public static final class DefaultOnly extends ScriptedAdapter {}

    /** Has no constructor that the host could call. */
    public static final class Unusable extends ScriptedAdapter {
        public Unusable(String text) {}
    }
}
