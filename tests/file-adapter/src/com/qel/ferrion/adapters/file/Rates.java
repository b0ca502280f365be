package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Properties;

/**
 * Prints how many rows a second each format is read and written with, in the adapter alone. Not a
 * test: run it with an IDL file and a CSV file; rows are repeated up to the number wanted, and each
 * measurement is made five times.
 */
final class Rates {
    private static TypeCode type;
    private static Connection connection;

    private Rates() {}

    public static void main(String[] arguments) throws Exception {
        type = TypeCode.fromIdlFile(Path.of(arguments[0]), null);
        int rows = Integer.parseInt(arguments[2]);
        Path directory = Files.createTempDirectory("rates");
        FileAdapter adapter = new FileAdapter(null);
        connection = adapter.createConnection("rates", null, null, null,
                properties("directory", directory.toString()));
        Files.copy(Path.of(arguments[1]), directory.resolve("in.csv"));
        List<DynamicData> samples = new ArrayList<>();
        read("in.csv", samples);
        for (int round = 0; round < 5; round++) {
            for (String name : new String[] {"big.csv", "big.jsonl"}) {
                Path file = directory.resolve(name);
                long begin = System.nanoTime();
                write(name, samples, rows);
                report(name, "write", rows, Files.size(file), begin);
                begin = System.nanoTime();
                int count = read(name, null);
                if (count != rows) {
                    throw new IllegalStateException(count + " rows read");
                }
                report(name, "read", rows, Files.size(file), begin);
            }
        }
        adapter.deleteConnection(connection);
    }

    private static Properties properties(String... pairs) {
        return Host.properties(pairs);
    }

    private static void report(String name, String what, int rows, long bytes, long begin) {
        double seconds = (System.nanoTime() - begin) / 1e9;
        System.out.printf(Locale.ROOT, "%-10s %-6s %9.0f rows/s %7.1f MB/s%n", name, what,
                rows / seconds, bytes / 1e6 / seconds);
    }

    private static StreamInfo stream(String name) {
        return new StreamInfo(name, new TypeInfo(type.name(), type), false);
    }

    private static int read(String name, List<DynamicData> copies) throws Exception {
        StreamReader reader = connection.createStreamReader(null, stream(name), null, null);
        List<Object> samples = new ArrayList<>();
        List<Object> infos = new ArrayList<>();
        int count = 0;
        do {
            samples.clear();
            infos.clear();
            reader.read(samples, infos);
            count += samples.size();
            for (Object sample : copies == null ? List.of() : samples) {
                DynamicData copy = new DynamicData(type, null);
                copy.copyFrom((DynamicData) sample);
                copies.add(copy);
            }
            reader.returnLoan(samples, infos);
        } while (!samples.isEmpty());
        connection.deleteStreamReader(reader);
        return count;
    }

    private static void write(String name, List<DynamicData> samples, int rows) throws Exception {
        StreamWriter writer = connection.createStreamWriter(null, stream(name),
                properties("mode", "overwrite"));
        List<Object> batch = new ArrayList<>();
        for (int i = 0; i < rows; i++) {
            batch.add(samples.get(i % samples.size()));
            if (batch.size() == 1024 || i == rows - 1) {
                writer.write(batch, List.of());
                batch.clear();
            }
        }
        connection.deleteStreamWriter(writer);
    }
}
