import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import org.apache.commons.csv.CSVFormat;
import org.apache.commons.csv.CSVPrinter;

/**
 * The reference for reading: what a Java programmer would write to get this one table into a CSV
 * file, page by page behind the last key, with the same libraries and page size as the adapters.
 */
public final class PlainRead {
    private static final int PAGE = 1024;

    private PlainRead() {}

    public static void main(String[] args) throws Exception {
        try (Connection database = DriverManager.getConnection("jdbc:sqlite:" + args[0]);
                PreparedStatement page = database.prepareStatement("SELECT id, station, time_ms, "
                        + "temperature, humidity, valid, remark FROM \"rows\" WHERE id > ? "
                        + "ORDER BY id LIMIT " + PAGE);
                Writer out = Files.newBufferedWriter(Path.of(args[1]), StandardCharsets.UTF_8);
                CSVPrinter csv = new CSVPrinter(out, CSVFormat.RFC4180)) {
            csv.printRecord("id", "station", "time_ms", "temperature", "humidity", "valid",
                    "remark");
            long last = Long.MIN_VALUE;
            for (int rows = PAGE; rows == PAGE;) {
                rows = 0;
                page.setLong(1, last);
                try (ResultSet row = page.executeQuery()) {
                    for (; row.next(); rows++) {
                        last = row.getLong(1);
                        csv.printRecord(last, row.getString(2), row.getLong(3),
                                row.getObject(4), row.getFloat(5),
                                row.getBoolean(6), row.getString(7));
                    }
                }
            }
        }
    }
}
