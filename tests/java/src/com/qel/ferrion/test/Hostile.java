package com.qel.ferrion.test;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.concurrent.locks.LockSupport;

/** What adapters do to the thread that calls them, by name. */
public final class Hostile {
    private Hostile() {}

    /** Throws, ends the process, never returns, or spoils the calling thread and returns. */
    public static void act(String kind) {
        switch (kind) {
        case "checked" -> Hostile.<RuntimeException>sneak(new AdapterException("hostile"));
        case "unchecked" -> throw new IllegalStateException("hostile");
        case "format" -> throw new IllegalStateException("100%s %n %d");
        case "blank" -> throw new IllegalStateException();
        case "mute" -> throw new Mute();
        case "stack" -> act(kind);
        case "memory" -> throw new IllegalStateException("" + new byte[Integer.MAX_VALUE].length);
        case "death" -> throw new ThreadDeath();
        case "init" -> new Broken();
        case "hang" -> hang();
        case "exit" -> System.exit(0);
        case "halt" -> Runtime.getRuntime().halt(0);
        case "quit" -> new Thread(() -> System.exit(0)).start();
        case "thread" -> new Thread(Hostile::hang).start();
        case "spoil" -> {
            Thread.currentThread().setContextClassLoader(ClassLoader.getPlatformClassLoader());
            Thread.currentThread().setName("spoilt");
            Thread.currentThread().interrupt();
        }
        default -> throw new IllegalArgumentException("no misbehaviour " + kind);
        }
    }

    private static void hang() {
        while (true) {
            LockSupport.park();
        }
    }

    @SuppressWarnings("unchecked")
    private static <T extends Throwable> void sneak(Throwable checked) throws T {
        throw (T) checked;
    }

    /** An exception that cannot be asked for anything. */
    private static final class Mute extends RuntimeException {
        private static final long serialVersionUID = 1L;

        @Override
        public String getMessage() {
            throw new IllegalStateException("mute");
        }

        @Override
        public String toString() {
            return getMessage();
        }
    }

    /** Fails in its static initializer, and is not there from then on. */
    public static final class Broken {
        private static final int VALUE = Integer.parseInt("hostile");
    }
}
