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
 * The documentation's table of types is what this finds.
 */
public class TypesTest {
    /** Type, member, or null for the announced one, what is expected, values. */
    private static final String[][] SERVER = {
        {"smallint", null, "exactly", "-32768", "32767"},
        {"integer", null, "exactly", "-2147483648", "0"},
        {"bigint", null, "exactly", "-9223372036854775808", "9223372036854775807"},
        {"numeric", null, "exactly", "10000000000", "1.10", "-0.00000000000000000001", "'NaN'"},
        {"real", null, "exactly", "'-0'", "1e-45", "16777217", "'Infinity'", "0.1"},
        {"double precision", null, "exactly", "'-0'", "5e-324", "1e10", "'-Infinity'"},
        {"boolean", null, "exactly", "true", "false"},
        {"text", null, "exactly", "''", "' ü😀\"''\\\\,'", "E'a\\nb\\tc'"},
        {"varchar(9)", null, "exactly", "'a  '"},
        {"\"char\"", null, "exactly", "'x'"},
        {"bytea", null, "exactly", "'\\x00ff'", "''"},
        {"date", null, "exactly", "'2026-03-29'", "'infinity'", "'0044-03-15 BC'"},
        {"time", null, "exactly", "'23:59:59.999999'", "'24:00'"},
        {"timetz", null, "exactly", "'01:02:03.000004+05:30'"},
        {"interval", null, "exactly", "'1 year 2 mons -3 days 04:05:06.000007'"},
        {"timestamp", null, "exactly", "'2026-03-29 02:30:00.000001'", "'1883-11-18 12:03:57'"},
        {"timestamptz", null, "exactly", "'2026-10-25 02:30:00+01'", "'0001-01-01 00:00Z'"},
        {"timestamp", "string", "exactly", "'2026-03-29 02:30:00'", "'infinity'"},
        {"timestamptz", "string", "exactly", "'2026-10-25 02:30:00+01'", "'-infinity'"},
        {"uuid", null, "exactly", "'a0eebc99-9c0b-4ef8-bb6d-6bb9bd380a11'"},
        {"json", null, "exactly", "'{\"b\" : 1, \"a\":[1.0]}'"},
        {"jsonb", null, "exactly", "'{\"b\": 1, \"a\": [1.0]}'"},
        {"inet", null, "exactly", "'10.0.0.1/8'"}, {"cidr", null, "exactly", "'10.0.0.0/8'"},
        {"macaddr", null, "exactly", "'08:00:2b:01:02:03'"},
        {"bit(3)", null, "exactly", "B'101'"}, {"bit varying", null, "exactly", "B'1'", "B''"},
        {"money", null, "exactly", "1234.56"}, {"point", null, "exactly", "'(0.1,1e+20)'"},
        {"box", null, "exactly", "'(1,1),(0,0)'"}, {"circle", null, "exactly", "'<(0,0),0.1>'"},
        {"integer[]", null, "exactly", "'{{1,NULL},{3,4}}'"},
        {"text[]", null, "exactly", "'{\"a,b\",NULL,\"NULL\"}'"},
        {"int4range", null, "exactly", "'[1,5)'", "'empty'"},
        {"tsvector", null, "exactly", "'a:1 b:2'"}, {"pg_lsn", null, "exactly", "'16/B374D848'"},
        {"oid", null, "exactly", "4294967295"},
        {"char(5)", null, "exactly", "'ab'"},
        {"numeric", "double", "changed: the nearest double", "0.1", "1234567890.123456789"},
        {"bigint", "double", "changed: the nearest double", "9007199254740993"},
        {"double precision", "float", "changed: the nearest float", "0.1"},
        {"money", "double", "rejected", "1234.56"},
        {"numeric", "long long", "rejected", "0.5"},
        {"timestamp", "long long", "rejected", "'infinity'"},
        {"integer", "sequence<octet>", "rejected", "1"},
    };
    private static final String[][] FILE = {
        {"INTEGER", null, "exactly", "-9223372036854775808", "9223372036854775807"},
        {"REAL", null, "exactly", "5e-324", "0.1 + 0.2", "1e308", "9e999"},
        {"TEXT", null, "exactly", "''", "' ü😀\"''\\,'", "'a' || char(10)"},
        {"BLOB", null, "exactly", "x'00ff'", "x''"},
        {"BOOLEAN", null, "exactly", "TRUE", "FALSE"},
        {"NUMERIC", null, "exactly", "10000000000", "0.1 + 0.2", "'text'"},
        {"TIMESTAMP", "string", "exactly", "'2026-03-29 02:30:00'"},
        {"TIMESTAMP", "long long", "exactly", "'2026-03-29 02:30:00.5'"},
        {"TIMESTAMP", "long long", "changed: written with date and time", "'2026-03-29'"},
        {"REAL", "float", "changed: the nearest float", "0.1"},
        {"INTEGER", "double", "changed: the nearest double", "9007199254740993"},
        {"TEXT", "string", "rejected", "CAST(x'ff41' AS TEXT)"},
        {"INTEGER", "string", "rejected", "x'00'"}, {"BLOB", "sequence<octet>", "rejected", "1"},
    };

    @Rule public final Rig rig = new Rig();

    @Test
    public void theTableOfTypesIsWhatTheDocumentationSays() throws Exception {
        StringBuilder lines = new StringBuilder();
        for (String[] each : rig.server ? SERVER : FILE) {
            String found = there(each);
            assertEquals(String.join(" ", each[0], String.valueOf(each[1])), each[2].split(":")[0],
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
        String member = of[1] != null ? of[1] : Dialect.of(rig.url).idlType(
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
