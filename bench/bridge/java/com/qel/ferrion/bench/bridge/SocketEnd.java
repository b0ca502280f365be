package com.qel.ferrion.bench.bridge;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import java.io.EOFException;
import java.io.IOException;
import java.net.UnixDomainSocketAddress;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.SocketChannel;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;

/**
 * The stub adapter in a process of its own, behind a Unix socket. The host sends 'R' for a batch,
 * which comes back as a count and its samples, 'L' when it is done with it, and 'W' with a count
 * and samples, answered by the number written. A sample is its size, valid_data, and its bytes.
 */
public final class SocketEnd {
    private static final int ROOM = 1 << 22;

    private final SocketChannel channel;
    private final TypeCode type;
    private final ByteBuffer in = ByteBuffer.allocateDirect(ROOM).order(ByteOrder.LITTLE_ENDIAN);
    private final ByteBuffer out = ByteBuffer.allocateDirect(ROOM).order(ByteOrder.LITTLE_ENDIAN);
    private final List<Object> samples = new ArrayList<>();
    private final List<Object> infos = new ArrayList<>();
    private final List<DynamicData> toWrite = new ArrayList<>();
    private final List<SampleInfo> infosToWrite = new ArrayList<>();

    private SocketEnd(SocketChannel channel, TypeCode type) {
        this.channel = channel;
        this.type = type;
        in.flip();
    }

    /** The socket's path, the type's IDL and name, the batch, and a sample's bytes in hex. */
    public static void main(String[] arguments) throws IOException {
        TypeCode type = TypeCode.fromIdl(arguments[1], arguments[2]);
        StubReader reader = new StubReader(type, Integer.parseInt(arguments[3]), false,
                HexFormat.of().parseHex(arguments[4]));
        try (SocketChannel channel =
                SocketChannel.open(UnixDomainSocketAddress.of(arguments[0]))) {
            new SocketEnd(channel, type).serve(reader, new StubWriter(type));
        }
    }

    private void serve(StubReader reader, StubWriter writer) throws IOException {
        while (true) {
            int what;
            try {
                what = need(1).get();
            } catch (EOFException hostHasGone) {
                return;
            }
            if (what == 'R') {
                reader.read(samples, infos);
                sendBatch();
            } else if (what == 'L') {
                reader.returnLoan(samples, infos);
                samples.clear();
                infos.clear();
            } else {
                receiveBatch(need(4).getInt());
                out.putInt(writer.write(samples, infos));
                samples.clear();
                infos.clear();
            }
            send();
        }
    }

    private void sendBatch() {
        out.putInt(samples.size());
        for (int i = 0; i < samples.size(); i++) {
            byte[] bytes = ((DynamicData) samples.get(i)).toCdr();
            out.putInt(bytes.length).putInt(((SampleInfo) infos.get(i)).valid_data ? 1 : 0);
            out.put(bytes);
        }
    }

    private void receiveBatch(int count) throws IOException {
        for (int i = 0; i < count; i++) {
            if (i == toWrite.size()) {
                toWrite.add(new DynamicData(type, DynamicData.PROPERTY_DEFAULT));
                infosToWrite.add(new SampleInfo());
            }
            byte[] bytes = new byte[need(4).getInt()];
            infosToWrite.get(i).valid_data = need(4).getInt() != 0;
            need(bytes.length).get(bytes);
            toWrite.get(i).fromCdr(bytes);
            samples.add(toWrite.get(i));
            infos.add(infosToWrite.get(i));
        }
    }

    /** The input, with so many bytes to be read. */
    private ByteBuffer need(int bytes) throws IOException {
        if (in.remaining() < bytes) {
            in.compact();
            while (in.position() < bytes) {
                if (channel.read(in) < 0) {
                    throw new EOFException();
                }
            }
            in.flip();
        }
        return in;
    }

    private void send() throws IOException {
        out.flip();
        while (out.hasRemaining()) {
            channel.write(out);
        }
        out.clear();
    }
}
