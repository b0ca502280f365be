import com.fasterxml.jackson.core.JsonEncoding;
import com.fasterxml.jackson.core.JsonFactory;
import com.fasterxml.jackson.core.JsonGenerator;
import java.io.BufferedOutputStream;
import java.io.FileOutputStream;
import java.io.OutputStream;
import java.io.Reader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import org.apache.commons.csv.CSVFormat;
import org.apache.commons.csv.CSVRecord;

/**
 * The reference: what a Java programmer would write to turn this one CSV file into JSON lines, with
 * the same two libraries that the file adapter uses, and nothing in between.
 */
public final class PlainConvert {
    private PlainConvert() {}

    public static void main(String[] args) throws Exception {
        CSVFormat format =
                CSVFormat.RFC4180.builder().setHeader().setSkipHeaderRecord(true).build();
        long rows = 0;
        try (Reader in = Files.newBufferedReader(Path.of(args[0]), StandardCharsets.UTF_8);
                OutputStream out =
                        new BufferedOutputStream(new FileOutputStream(args[1]), 1 << 16);
                JsonGenerator json = new JsonFactory().createGenerator(out, JsonEncoding.UTF8)) {
            json.setRootValueSeparator(null);
            for (CSVRecord row : format.parse(in)) {
                json.writeStartObject();
                json.writeNumberField("id", Long.parseLong(row.get("id")));
                json.writeStringField("station", row.get("station"));
                json.writeNumberField("time_ms", Long.parseLong(row.get("time_ms")));
                String temperature = row.get("temperature");
                if (temperature.isEmpty()) {
                    json.writeNullField("temperature");
                } else {
                    json.writeNumberField("temperature", Double.parseDouble(temperature));
                }
                json.writeNumberField("humidity", Float.parseFloat(row.get("humidity")));
                json.writeBooleanField("valid", Boolean.parseBoolean(row.get("valid")));
                json.writeStringField("remark", row.get("remark"));
                json.writeEndObject();
                json.writeRaw('\n');
                rows++;
            }
        }
        System.out.println(rows);
    }
}
