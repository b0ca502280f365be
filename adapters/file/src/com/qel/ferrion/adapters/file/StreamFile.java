package com.qel.ferrion.adapters.file;

import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.Locale;
import java.util.Properties;

/** Which file a stream is, in which format and of which type. */
final class StreamFile {
    static final String FILE = "file";
    static final String FORMAT = "format";

    /** What files hold. */
    enum Format { CSV, JSONL }

    private final String stream;
    private final Path directory;
    private final Path path;
    private final Format format;
    private final TypeCode type;

    /**
     * Finds the file of a stream.
     *
     * @param properties of the reader or writer: {@code file} and {@code format} are looked at
     * @throws AdapterException when the file would lie elsewhere, or its format or type is unknown
     */
    StreamFile(Path directory, StreamInfo info, Properties properties) throws AdapterException {
        this.directory = directory;
        this.stream = info.getStreamName();
        Object representation = info.getTypeInfo() == null ? null
                : info.getTypeInfo().getTypeRepresentation();
        if (!(representation instanceof TypeCode)
                || ((TypeCode) representation).resolve().kind() != Kind.STRUCT) {
            throw new AdapterException("stream '" + stream + "': its type is no known struct");
        }
        this.type = (TypeCode) representation;
        String file = properties == null ? null : properties.getProperty(FILE);
        this.path = sibling(file == null ? stream : file);
        String given = properties == null ? null : properties.getProperty(FORMAT);
        this.format = formatOf(given == null ? extension(path) : given, given != null);
    }

    private Format formatOf(String word, boolean given) throws AdapterException {
        switch (word) {
        case "csv":
            return Format.CSV;
        case "jsonl":
            return Format.JSONL;
        default:
            throw new AdapterException("stream '" + stream + "': " + (given
                    ? "property 'format' is '" + word + "', expected csv or jsonl"
                    : "the format of " + path.getFileName() + " is not known by its extension; set "
                            + "property 'format' to csv or jsonl"));
        }
    }

    private static String extension(Path path) {
        String name = path.getFileName().toString();
        return name.substring(name.lastIndexOf('.') + 1).toLowerCase(Locale.ROOT);
    }

    /**
     * A file of the connection's directory by name. A stream's name may come from another system,
     * so it must not lead out of the directory.
     */
    Path sibling(String name) throws AdapterException {
        try {
            Path found = directory.resolve(name).normalize();
            if (found.startsWith(directory) && !found.equals(directory)) {
                return found;
            }
        } catch (InvalidPathException e) {
            // Refused below.
        }
        throw new AdapterException("stream '" + stream + "': '" + name
                + "' is no file below directory " + directory);
    }

    /** The delimiter that a property list asks for; a comma when it does not. */
    static char delimiter(Options options) throws AdapterException {
        String text = options.text("delimiter");
        if (text == null) {
            return ',';
        }
        if (text.equals("tab") || text.equals("\\t")) {
            return '\t';
        }
        char c = text.length() == 1 ? text.charAt(0) : '"';
        boolean usable = c == '\t' || (c > ' ' && c < 0x7F && !Character.isLetterOrDigit(c)
                && "\".+-#_".indexOf(c) < 0);
        if (!usable) {
            throw options.refused("delimiter", "one punctuation mark such as ';', or tab");
        }
        return c;
    }

    /** Refuses properties that mean something for CSV alone. */
    static void refuseForJson(Options options, String delimiter, String columns)
            throws AdapterException {
        if (options.text(delimiter) != null || !options.below(columns).isEmpty()) {
            throw new AdapterException("properties 'delimiter' and 'columns.' are for CSV only");
        }
    }

    String stream() {
        return stream;
    }

    Path path() {
        return path;
    }

    Format format() {
        return format;
    }

    TypeCode type() {
        return type;
    }
}
