package com.qel.ferrion.adapters.sql;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;

/**
 * What becomes of values of every type on the way from one table to another of the same columns.
 * The documentation's table of types is what this finds of {@code data/types.txt}.
 */
public class TypesTest {
    @Rule public final Rig rig = new Rig();

    @Test
    public void theTableOfTypesIsWhatTheDocumentationSays() throws Exception {
        StringBuilder lines = new StringBuilder();
        String ours = rig.server ? "server | " : "sqlite | ";
        for (String line : Files.readAllLines(Path.of(System.getProperty("types"))).stream()
                .filter(line -> line.startsWith(ours)).toList()) {
            String[] each = line.substring(ours.length()).split(" \\| ");
            String found = there(each);
            assertEquals(each[0] + " " + each[1], each[2].split(":")[0],
                    found.split("\\|")[0]);
            lines.append("| `").append(each[0]).append("` | `").append(found.split("\\|")[1])
                    .append("` | ").append(each[2]).append(" |\n");
        }
        String docs = System.getProperty("sql.docs");
        assertTrue(lines.toString(),
                docs == null || Files.readString(Path.of(docs)).contains(lines));
    }

    /** What became of the values, and the member that carried them. */
    private String there(String[] of) throws Exception {
        rig.sql("DROP TABLE IF EXISTS source", "DROP TABLE IF EXISTS target");
        for (String name : new String[] {"source", "target"}) {
            rig.sql("CREATE TABLE " + name + " (id INT PRIMARY KEY, v " + of[0] + " NOT NULL)");
        }
        // The server's driver gets values in another way from a statement's fifth use on.
        int rows = 12;
        for (int id = 0; id < rows; id++) {
            rig.sql("INSERT INTO source VALUES (" + id + ", " + of[3 + id % (of.length - 3)] + ")");
        }
        String member = !of[1].equals("-") ? of[1] : Dialect.of(rig.url).idlType(
                Table.find(rig.direct(), null, "source").column("v"));
        TypeCode type = TypeCode.fromIdl("struct T { @key long id; " + member + " v; };", null);
        List<DynamicData> samples = new ArrayList<>();
        rig.errors.clear();
        try {
            StreamReader reader = rig.reader("source", type, "batch", "1", "report", "0s");
            for (int i = 0; i <= rows; i++) {
                samples.addAll(rig.read(reader, false));
            }
            rig.connection.deleteStreamReader(reader);
            assertEquals(of[0] + rig.errors, rig.errors.isEmpty() ? rows : 0, samples.size());
            if (samples.isEmpty()) {
                return "rejected|" + member;
            }
            StreamWriter writer = rig.writer("target", type);
            for (DynamicData each : samples) {
                assertEquals(of[0], 1, Rig.write(writer, List.of(each), List.of()));
            }
            rig.connection.deleteStreamWriter(writer);
        } catch (AdapterException | TypeException e) {
            assertTrue(e.getMessage(), e.getMessage().contains("is of bytes"));
            return "rejected|" + member;
        }
        String text = rig.server ? "v::text" : "quote(v) || typeof(v)";
        String changed = rig.rows("SELECT " + text + " FROM source EXCEPT SELECT " + text
                + " FROM target");
        if (changed.isEmpty() && rig.server && member.startsWith("string")) {
            rig.sql("SET TIME ZONE 'UTC'");
            for (DynamicData each : samples) {
                assertEquals(rig.rows("SELECT v::text FROM source WHERE id = " + each.getInt("id")),
                        each.getString("v"));
            }
        }
        return (changed.isEmpty() ? "exactly|" : "changed|") + member;
    }
}
