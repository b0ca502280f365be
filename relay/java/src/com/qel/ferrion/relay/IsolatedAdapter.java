package com.qel.ferrion.relay;

import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import java.lang.reflect.Constructor;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.net.MalformedURLException;
import java.net.URL;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;
import java.util.Properties;
import java.util.concurrent.ConcurrentHashMap;

/**
 * Stands for an adapter with a class path of its own, which the bridge could not find by its name.
 * The relay first has {@link #answer} find the class, then makes the bridge create one of these on
 * the same thread. Connections and all that they make are the adapter's own objects.
 *
 * <p>The context class loader is the adapter's during each call here, and so of threads started
 * from one.
 */
public final class IsolatedAdapter implements Adapter {
    /** Found by answer, for the next constructor. Only the thread that creates adapters is here. */
    private static Class<? extends Adapter> found;

    /**
     * Of adapters of the installation, by their classes: as many as use one share its loader,
     * because a native library, such as a database driver's, can be loaded by one only.
     */
    private static final Map<String, ClassLoader> INSTALLED = new HashMap<>();

    /** The classes that were found, by the names of adapter and class with a zero between. */
    private static final Map<String, Class<?>> TYPES = new ConcurrentHashMap<>();

    private final ClassLoader loader;
    private final Adapter adapter;
    private boolean ended;

    /**
     * Finds an adapter's class.
     *
     * @param question name of the adapter (empty for one of the installation), name of the class
     *     and entries of the class path, with zeros between
     * @return why there is no such adapter; empty when there is
     */
    static byte[] answer(byte[] question) throws MalformedURLException {
        String[] parts = new String(question, StandardCharsets.UTF_8).split("\0");
        String[] path = Arrays.copyOfRange(parts, 2, parts.length);
        URL[] urls = new URL[path.length];
        for (int i = 0; i < path.length; i++) {
            urls[i] = Path.of(path[i]).toUri().toURL();
        }
        ClassLoader loader = parts[0].isEmpty()
                ? INSTALLED.computeIfAbsent(parts[1], name -> new AdapterLoader(null, urls))
                : new AdapterLoader(parts[0], urls);
        String reason = find(parts[1], String.join(":", path), loader);
        if (found != null) {
            TYPES.put(parts[0] + '\0' + parts[1], found);
        }
        return reason.getBytes(StandardCharsets.UTF_8);
    }

    /**
     * An adapter's class. Any thread.
     *
     * @param adapter its name; empty for one of the installation
     * @return null if there is none
     */
    static Class<?> type(String adapter, String name) {
        Class<?> type = TYPES.get(adapter + '\0' + name);
        try {
            return type != null ? type : Class.forName(name);
        } catch (ClassNotFoundException | LinkageError none) {
            return null;
        }
    }

    private static String find(String name, String path, ClassLoader loader) {
        found = null;
        Class<?> type;
        try {
            type = Class.forName(name, false, loader);
        } catch (ClassNotFoundException e) {
            return "there is no class " + name + " in its class path " + path;
        } catch (LinkageError e) {
            return "class " + name + " in its class path " + path + " cannot be loaded: " + e;
        }
        if (type.getClassLoader() != loader) {
            return "class " + name + " is not in its class path " + path
                    + " but in ferry's, and would not see that of its adapter";
        }
        if (!Adapter.class.isAssignableFrom(type)) {
            return "class " + name + " in its class path " + path + " is no "
                    + Adapter.class.getName();
        }
        found = type.asSubclass(Adapter.class);
        return "";
    }

    /**
     * Makes the adapter whose class was found last, as the bridge would.
     *
     * @param properties for the adapter, as they are
     * @throws Exception what the adapter's constructor throws
     */
    public IsolatedAdapter(Properties properties) throws Exception {
        Class<? extends Adapter> type = found;
        found = null;
        loader = type.getClassLoader();
        adapter = within(() -> create(type, properties));
    }

    private static Adapter create(Class<? extends Adapter> type, Properties properties)
            throws Exception {
        try {
            Constructor<? extends Adapter> constructor;
            try {
                constructor = type.getDeclaredConstructor(Properties.class);
            } catch (NoSuchMethodException none) {
                constructor = type.getDeclaredConstructor();
            }
            // The bridge minds no access rights either.
            constructor.setAccessible(true);
            return constructor.getParameterCount() == 0
                    ? constructor.newInstance() : constructor.newInstance(properties);
        } catch (InvocationTargetException e) {
            throw unwrapped(e);
        }
    }

    @Override
    public Connection createConnection(String firstName, String secondName,
            StreamReaderListener outputDiscoveryListener,
            StreamReaderListener inputDiscoveryListener, Properties properties)
            throws AdapterException {
        return within(() -> adapter.createConnection(firstName, secondName, outputDiscoveryListener,
                inputDiscoveryListener, properties));
    }

    @Override
    public void deleteConnection(Connection connection) {
        within(() -> {
            adapter.deleteConnection(connection);
            return null;
        });
    }

    @Override
    public Version getVersion() {
        return within(adapter::getVersion);
    }

    /** The bridge's farewell to an adapter; the VM's own, later, is not passed on again. */
    @Override
    @SuppressWarnings({"deprecation", "removal"})
    protected void finalize() throws Exception {
        if (ended || adapter == null) {
            return;
        }
        ended = true;
        Class<?> type = adapter.getClass();
        while (type != Object.class) {
            try {
                Method method = type.getDeclaredMethod("finalize");
                method.setAccessible(true);
                within(() -> method.invoke(adapter));
                return;
            } catch (NoSuchMethodException none) {
                type = type.getSuperclass();
            } catch (InvocationTargetException e) {
                throw unwrapped(e);
            }
        }
    }

    private interface Call<T, E extends Exception> {
        T make() throws E;
    }

    private <T, E extends Exception> T within(Call<T, E> call) throws E {
        Thread thread = Thread.currentThread();
        ClassLoader before = thread.getContextClassLoader();
        thread.setContextClassLoader(loader);
        try {
            return call.make();
        } finally {
            thread.setContextClassLoader(before);
        }
    }

    private static Exception unwrapped(InvocationTargetException wrapper) {
        if (wrapper.getCause() instanceof Error) {
            throw (Error) wrapper.getCause();
        }
        return wrapper.getCause() instanceof Exception ? (Exception) wrapper.getCause() : wrapper;
    }
}
