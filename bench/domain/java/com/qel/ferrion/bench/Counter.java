package com.qel.ferrion.bench;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;

/** Counts samples, looks for gaps, keeps their delays; writes a line of JSON at the last one. */
final class Counter implements StreamWriter {
    private final MemberPath sequence;
    private final MemberPath sent;
    private final int warmup;
    private final String report;
    private final long[] delays;
    private int seen;
    private long next;
    private long gaps;
    private long begin;

    Counter(TypeCode type, int count, int warmup, String report) {
        sequence = MemberPath.of(type, "number");
        sent = MemberPath.of(type, "sent");
        this.warmup = warmup;
        this.report = report;
        delays = new long[count];
    }

    @Override
    public int write(List<Object> samples, List<Object> infos) throws AdapterException {
        for (int i = 0; i < samples.size(); i++) {
            SampleInfo info = i < infos.size() ? (SampleInfo) infos.get(i) : null;
            if (info == null || info.valid_data) {
                add((DynamicData) samples.get(i));
            }
        }
        return samples.size();
    }

    private void add(DynamicData sample) throws AdapterException {
        long number = sample.getLong(sequence);
        if (number != next || seen == delays.length) {
            gaps++;
        }
        next = number + 1;
        if (seen == warmup) {
            begin = System.nanoTime();
        }
        if (seen < delays.length) {
            delays[seen++] = System.nanoTime() - sample.getLong(sent);
            if (seen == delays.length) {
                report((seen - warmup) * 1e9 / (System.nanoTime() - begin));
            }
        }
    }

    private void report(double rate) throws AdapterException {
        long[] counted = Arrays.copyOfRange(delays, warmup, seen);
        Arrays.sort(counted);
        String line = String.format(Locale.ROOT, "{\"samples\": %d, \"gaps\": %d, \"rate\": %.1f, "
                + "\"p50\": %.1f, \"p99\": %.1f, \"max\": %.1f}%n", seen, gaps, rate,
                at(counted, 50), at(counted, 99), at(counted, 100));
        try {
            Path part = Path.of(report + ".part");
            Files.writeString(part, line);
            Files.move(part, Path.of(report), StandardCopyOption.ATOMIC_MOVE);
        } catch (IOException e) {
            throw new AdapterException("cannot write " + report, e);
        }
    }

    /** Microseconds. */
    private static double at(long[] sorted, int percent) {
        return sorted[(int) ((sorted.length - 1L) * percent / 100)] / 1e3;
    }
}
