package com.qel.dds.units;

import org.junit.runner.Description;
import org.junit.runner.JUnitCore;
import org.junit.runner.notification.Failure;
import org.junit.runner.notification.RunListener;

/** Runs test classes and prints the name of every test as it ends. */
public final class Units extends RunListener {
    @Override
    public void testFinished(Description test) {
        System.out.println(test.getDisplayName());
    }

    @Override
    public void testFailure(Failure failure) {
        System.out.println("FAILED " + failure.getTestHeader() + "\n" + failure.getTrace());
    }

    public static void main(String[] classes) throws ClassNotFoundException {
        JUnitCore core = new JUnitCore();
        core.addListener(new Units());
        boolean good = true;
        for (String name : classes) {
            var result = core.run(Class.forName(name));
            good = good && result.wasSuccessful() && result.getRunCount() > 0;
        }
        System.exit(good ? 0 : 1);
    }
}
