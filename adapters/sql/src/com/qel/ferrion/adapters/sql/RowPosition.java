package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.PositionFile;
import java.net.URLDecoder;
import java.net.URLEncoder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;

/**
 * Up to where a stream has been read: the values of the order columns in the last row that the
 * host has taken.
 */
final class RowPosition {
    static final String PROPERTY = "position_file";

    private final PositionFile file;

    /**
     * Opens a position that nobody else has.
     *
     * @throws AdapterException when somebody has, or the folder cannot be written
     */
    RowPosition(Path file) throws AdapterException {
        this.file = new PositionFile(file, PROPERTY);
    }

    /**
     * Where the position of a stream is kept that nobody has named a file for: with the host, else
     * in the current folder. There it stays once it is there.
     *
     * @param database a label that no other database has
     */
    static Path usual(String database, String stream) {
        Path here = Path.of("positions", PositionFile.fileName(database),
                PositionFile.fileName(stream));
        Path host = PositionFile.ofHost(database, stream);
        return host == null || Files.exists(here) ? here : host;
    }

    /** Tries whether a position could be kept. */
    void probe() throws AdapterException {
        file.probe();
    }

    /**
     * The position that was kept.
     *
     * @param order names of the columns that it has to be of
     * @return null when there is none yet
     * @throws AdapterException when it is of other columns, or no position
     */
    List<Object> load(List<String> order) throws AdapterException {
        List<String> lines = file.load();
        if (lines == null) {
            return null;
        }
        String wanted = header(order);
        if (lines.isEmpty() || !lines.get(0).equals(wanted)) {
            throw new AdapterException(PROPERTY + ": " + file + " says \""
                    + (lines.isEmpty() ? "" : lines.get(0)) + "\" instead of \"" + wanted
                    + "\"; remove it to read from the start");
        }
        List<Object> values = new ArrayList<>();
        try {
            for (String line : lines.subList(1, lines.size())) {
                values.add(parse(line));
            }
        } catch (IllegalArgumentException | IndexOutOfBoundsException e) {
            values.clear();
        }
        if (values.size() != order.size()) {
            throw new AdapterException(PROPERTY + ": " + file + " is damaged");
        }
        return values;
    }

    /** Puts a position in place of the one before; it is on the disk when this returns. */
    void save(List<String> order, List<Object> values) throws AdapterException {
        List<String> lines = new ArrayList<>(List.of(header(order)));
        values.forEach(value -> lines.add(format(value)));
        file.save(lines);
    }

    private static String header(List<String> order) {
        return "position by " + String.join(", ", order);
    }

    private static String format(Object value) {
        if (value instanceof Long) {
            return "i" + value;
        }
        if (value instanceof Double) {
            return "r" + Double.toHexString((Double) value);
        }
        return value instanceof byte[] ? "b" + HexFormat.of().formatHex((byte[]) value)
                : "t" + URLEncoder.encode((String) value, StandardCharsets.UTF_8);
    }

    private static Object parse(String line) {
        String rest = line.substring(1);
        return switch (line.charAt(0)) {
        case 'i' -> Long.valueOf(rest);
        case 'r' -> Double.valueOf(rest);
        case 'b' -> HexFormat.of().parseHex(rest);
        case 't' -> URLDecoder.decode(rest, StandardCharsets.UTF_8);
        default -> throw new IllegalArgumentException(line);
        };
    }

    /** @param traceless whether what was made for it goes as well */
    void close(boolean traceless) {
        file.close(traceless);
    }
}
