package com.qel.ferrion.relay;

import com.qel.ferrion.kit.StopRequest;
import java.nio.charset.StandardCharsets;

/** Passes the request to stop on to writers that are built on the kit. */
final class Stopping {
    private Stopping() {}

    /**
     * Any thread; returns at once, whatever the adapters do.
     *
     * @param question in how many milliseconds threads that are still writing are interrupted
     */
    static byte[] answer(byte[] question) {
        long time = Long.parseLong(new String(question, StandardCharsets.UTF_8));
        start("ferry:interrupt", () -> {
            Thread.sleep(time);
            StopRequest.interrupt();
        });
        start("ferry:stopping", StopRequest::announce);
        return new byte[0];
    }

    private interface Step {
        void run() throws InterruptedException;
    }

    private static void start(String name, Step step) {
        Thread thread = new Thread(() -> {
            try {
                step.run();
            } catch (InterruptedException ended) {
                // Only an adapter that goes through all threads does that.
            }
        }, name);
        thread.setDaemon(true);
        thread.start();
    }
}
