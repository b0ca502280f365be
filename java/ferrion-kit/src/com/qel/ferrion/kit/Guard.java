package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.lang.System.Logger.Level;
import java.util.Properties;
import java.util.concurrent.Callable;

/**
 * What surrounds every call of the host: the adapter's class loader as context class loader, in
 * place of none or of another one that the host's thread has, and a log entry for whatever comes
 * out. Made on the host's thread, read by any.
 */
final class Guard {
    private final ClassLoader loader;
    private final System.Logger log;
    private final String owner;
    private volatile Settings settings;
    private boolean checks;

    /** A call that gives nothing back. */
    interface Step {
        void run() throws Exception;
    }

    /** Takes over new settings. */
    interface Change {
        void to(Settings settings) throws Exception;
    }

    Guard(Class<?> adapter) {
        loader = adapter.getClassLoader();
        log = System.getLogger(adapter.getPackageName());
        owner = adapter.getSimpleName();
    }

    private Guard(Guard outer, String owner) {
        loader = outer.loader;
        log = outer.log;
        this.owner = outer.owner + ", " + owner;
    }

    Guard inner(String part) {
        return new Guard(this, part);
    }

    /** Reads the settings of what is being made. */
    Settings parse(AdapterSettings declared, AdapterSettings.Role role, String part,
            Properties properties) throws SettingsException {
        settings = declared.of(role).parse(part, properties);
        checks = Check.isOn(properties);
        return settings;
    }

    /** If the host only tries: runs the probe of what has been made, and the end when it throws. */
    void probe(Step probe, Step end) throws Exception {
        if (checks) {
            Check.complete(probe, end);
        }
    }

    Settings settings() {
        return settings;
    }

    /** @return the class loader to give to {@link #leave} */
    ClassLoader enter() {
        Thread self = Thread.currentThread();
        ClassLoader before = self.getContextClassLoader();
        self.setContextClassLoader(loader);
        return before;
    }

    void leave(ClassLoader before) {
        Thread.currentThread().setContextClassLoader(before);
    }

    <T> T call(String name, Callable<T> work) throws AdapterException {
        ClassLoader before = enter();
        try {
            return work.call();
        } catch (Throwable thrown) {
            throw report(name, thrown);
        } finally {
            leave(before);
        }
    }

    /** A call whose contract has no checked exception. */
    void end(String name, Step step) {
        try {
            call(name, () -> {
                step.run();
                return null;
            });
        } catch (AdapterException e) {
            throw new IllegalStateException(e.getMessage(), e);
        }
    }

    void update(Properties properties, Change change) throws AdapterException {
        call("update", () -> {
            Settings now = settings.updated(properties);
            change.to(now);
            settings = now;
            return null;
        });
    }

    /**
     * Logs what came out of a call. Bad samples are the host's to count and to report, read or
     * written.
     *
     * @return it, if need be as the cause of the one checked exception that the host's calls have;
     *     what is not checked is thrown from here
     */
    AdapterException report(String name, Throwable thrown) {
        if (thrown instanceof BadSamplesException || thrown instanceof RejectedSampleException) {
            return (AdapterException) thrown;
        }
        try {
            log.log(Level.ERROR, owner + ": " + name + " failed", thrown);
        } catch (RuntimeException | Error unlogged) {
            // The host hears of the failure all the same.
        }
        if (thrown instanceof OutOfMemoryError) {
            return new OutOfHeapException(name, (OutOfMemoryError) thrown);
        }
        if (thrown instanceof RuntimeException) {
            throw (RuntimeException) thrown;
        }
        if (thrown instanceof Error) {
            throw (Error) thrown;
        }
        return thrown instanceof AdapterException ? (AdapterException) thrown
                                                  : new AdapterException(thrown.toString(), thrown);
    }
}
