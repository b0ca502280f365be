package com.qel.ferrion.relay;

import java.io.IOException;
import java.net.URL;
import java.net.URLClassLoader;
import java.util.Arrays;
import java.util.Collections;
import java.util.Enumeration;
import java.util.LinkedHashSet;
import java.util.Set;

/**
 * The classes of one adapter: its own first, so that it has the versions of libraries that it came
 * with, then what everybody sees. Classes of the JDK, and those that host and adapter talk through,
 * are everybody's: an adapter that brings copies of them would not be understood.
 */
final class AdapterLoader extends URLClassLoader {
    private static final String[] SHARED = {
        "com.qel.dds.", "com.qel.ferrion.adapter.", "com.qel.ferrion.kit."};

    static {
        registerAsParallelCapable();
    }

    /** @param name of the adapter, or null: stands in stack traces before each of its classes */
    AdapterLoader(String name, URL[] classPath) {
        super(name, classPath, ClassLoader.getSystemClassLoader());
    }

    @Override
    protected Class<?> loadClass(String name, boolean resolve) throws ClassNotFoundException {
        synchronized (getClassLoadingLock(name)) {
            Class<?> found = findLoadedClass(name);
            if (found == null && Arrays.stream(SHARED).noneMatch(name::startsWith)) {
                found = own(name);
            }
            return found == null ? super.loadClass(name, resolve) : found;
        }
    }

    /** Null when it is none of the JDK and not in the adapter's class path. */
    private Class<?> own(String name) {
        try {
            return getPlatformClassLoader().loadClass(name);
        } catch (ClassNotFoundException none) {
            try {
                return findClass(name);
            } catch (ClassNotFoundException neither) {
                return null;
            }
        }
    }

    @Override
    public URL getResource(String name) {
        URL own = findResource(name);
        return own == null ? super.getResource(name) : own;
    }

    @Override
    public Enumeration<URL> getResources(String name) throws IOException {
        Set<URL> all = new LinkedHashSet<>(Collections.list(findResources(name)));
        all.addAll(Collections.list(getParent().getResources(name)));
        return Collections.enumeration(all);
    }
}
