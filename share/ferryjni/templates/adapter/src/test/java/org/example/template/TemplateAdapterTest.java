package org.example.template;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.kit.Sample;
import com.qel.ferrion.kit.harness.TestHost;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.List;

/** Drives the adapter as ferry does, but without ferry. Maven runs it without main(). */
public class TemplateAdapterTest {
    private static final TypeCode TYPE =
            TypeCode.fromIdl("struct Reading { @key int64 number; string text; };", "Reading");

    public void testReads() throws Exception {
        try (TestHost host = new TestHost(TemplateAdapter.class)) {
            TestHost.Reader reader =
                    host.connect("in").reader("readings", TYPE, "count", "3", "every", "10ms");
            List<Sample> samples = reader.await(3, Duration.ofSeconds(5));
            check("reading 3", samples.get(2).data().getString("text"));
        }
    }

    public void testWrites() throws Exception {
        Path directory = Files.createTempDirectory("template");
        try (TestHost host = new TestHost(TemplateAdapter.class)) {
            DynamicData sample = new DynamicData(TYPE, DynamicData.PROPERTY_DEFAULT);
            sample.setLong("number", 7);
            sample.setString("text", "seven");
            host.connect("out", "directory", directory.toString()).writer("a.txt", TYPE)
                    .write(sample);
        }
        Path file = directory.resolve("a.txt");
        check("7 seven\n", Files.readString(file));
        Files.delete(file);
        Files.delete(directory);
    }

    private static void check(Object expected, Object found) {
        if (!expected.equals(found)) {
            throw new AssertionError("expected " + expected + ", found " + found);
        }
    }

    public static void main(String[] arguments) throws Exception {
        TemplateAdapterTest test = new TemplateAdapterTest();
        test.testReads();
        test.testWrites();
    }
}
