import java.io.Reader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.Types;
import org.apache.commons.csv.CSVFormat;
import org.apache.commons.csv.CSVRecord;

/**
 * The reference: what a Java programmer would write to load this one CSV file into a table, with
 * the same libraries, the same statement and the same number of rows a transaction as the adapters.
 */
public final class PlainLoad {
    private static final int BATCH = 1024;

    private PlainLoad() {}

    public static void main(String[] args) throws Exception {
        boolean upsert = args[2].equals("upsert");
        CSVFormat format =
                CSVFormat.RFC4180.builder().setHeader().setSkipHeaderRecord(true).build();
        try (Reader in = Files.newBufferedReader(Path.of(args[0]), StandardCharsets.UTF_8);
                Connection database = DriverManager.getConnection("jdbc:sqlite:" + args[1])) {
            database.createStatement().execute("CREATE TABLE \"rows\" (id INTEGER NOT NULL, "
                    + "station TEXT NOT NULL, time_ms INTEGER NOT NULL, temperature REAL, "
                    + "humidity REAL, valid BOOLEAN NOT NULL, remark TEXT NOT NULL"
                    + (upsert ? ", PRIMARY KEY (id))" : ")"));
            database.setAutoCommit(false);
            PreparedStatement put = database.prepareStatement("INSERT INTO \"rows\" VALUES "
                    + "(?, ?, ?, ?, ?, ?, ?)" + (upsert ? " ON CONFLICT (id) DO UPDATE SET "
                    + "station = excluded.station, time_ms = excluded.time_ms, temperature = "
                    + "excluded.temperature, humidity = excluded.humidity, valid = "
                    + "excluded.valid, remark = excluded.remark" : ""));
            int waiting = 0;
            for (CSVRecord row : format.parse(in)) {
                put.setLong(1, Long.parseLong(row.get("id")));
                put.setString(2, row.get("station"));
                put.setLong(3, Long.parseLong(row.get("time_ms")));
                String temperature = row.get("temperature");
                if (temperature.isEmpty()) {
                    put.setNull(4, Types.DOUBLE);
                } else {
                    put.setDouble(4, Double.parseDouble(temperature));
                }
                put.setFloat(5, Float.parseFloat(row.get("humidity")));
                put.setBoolean(6, Boolean.parseBoolean(row.get("valid")));
                put.setString(7, row.get("remark"));
                put.addBatch();
                if (++waiting == BATCH) {
                    put.executeBatch();
                    database.commit();
                    waiting = 0;
                }
            }
            put.executeBatch();
            database.commit();
        }
    }
}
