package com.qel.ferrion.adapters.sql;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.kit.Setting;
import java.lang.System.Logger.Level;
import java.sql.Connection;
import java.sql.SQLException;
import java.time.Duration;
import java.util.HashSet;
import java.util.Locale;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;

/**
 * The tables of a database as streams: announced as they appear or change, disposed as they vanish.
 * A table can be read and written, a view only be read. Looks on the watching thread.
 */
final class SqlDiscovery {
    static final Setting<Boolean> DISCOVER = Setting.flag("discover",
            "announce tables as streams").defaultTo(false);
    static final Setting<Duration> PERIOD = Setting.duration("discover_period",
            Duration.ofMillis(100), Duration.ofHours(24), "how often to look for tables")
            .defaultTo(Duration.ofSeconds(10));

    private final Database database;
    private final DiscoveryReader inputs;
    private final DiscoveryReader outputs;
    /** What has been told, by the IDL of each table's type. */
    private final Map<String, String> known = new TreeMap<>();
    private final Set<String> writable = new HashSet<>();

    SqlDiscovery(Database database, DiscoveryReader inputs, DiscoveryReader outputs) {
        this.database = database;
        this.inputs = inputs;
        this.outputs = outputs;
    }

    /** Called by the watching thread now and then. */
    void look(Link link) throws SQLException, AdapterException {
        if (database.missingFile() == null) {
            link.once(this::compare);
        }
    }

    /** Compares the tables with what has been told about them. */
    private Void compare(Connection connection) throws SQLException, AdapterException {
        Map<String, Boolean> found = Table.list(connection, database.schema());
        for (Map.Entry<String, Boolean> each : found.entrySet()) {
            String name = each.getKey();
            String idl = idl(name, Table.describe(connection, database.schema(), name,
                    each.getValue()));
            if (!idl.equals(known.put(name, idl))) {
                StreamInfo stream = new StreamInfo(name, type(name, idl), false);
                inputs.announce(stream);
                if (each.getValue()) {
                    writable.add(name);
                    outputs.announce(stream);
                }
            }
        }
        known.keySet().removeIf(name -> {
            boolean gone = !found.containsKey(name);
            if (gone) {
                inputs.dispose(name);
                if (writable.remove(name)) {
                    outputs.dispose(name);
                }
            }
            return gone;
        });
        return null;
    }

    /** The struct that a table's rows are: a member for every column, keys for its primary key. */
    private String idl(String name, Table table) {
        Set<String> used = new HashSet<>();
        String struct = identifier(name, used);
        used.clear();
        StringBuilder text = new StringBuilder("struct ").append(struct).append(" {\n");
        for (Column column : table.columns) {
            text.append(table.key.contains(column.name()) ? "    @key " : "    ")
                    .append(database.dialect().idlType(column)).append(' ')
                    .append(identifier(column.name(), used)).append(";\n");
        }
        return text.append("};\n").toString();
    }

    /** A name that IDL can have, and that finds its column again by {@link Column#plain}. */
    private static String identifier(String name, Set<String> used) {
        String free = Column.identifier(name);
        while (isKeyword(free) || !used.add(free.toLowerCase(Locale.ROOT))) {
            free += "_";
        }
        return free;
    }

    /** Which words are IDL's own only its parser knows. */
    private static boolean isKeyword(String word) {
        try {
            TypeCode.fromIdl("struct x__ { long " + word + "; };", null);
            return false;
        } catch (TypeException e) {
            return true;
        }
    }

    private TypeInfo type(String name, String idl) {
        try {
            TypeCode type = TypeCode.fromIdl(idl, null);
            return new TypeInfo(type.name(), type);
        } catch (TypeException e) {
            Link.LOG.log(Level.WARNING, database + ": table '" + name
                    + "' is announced without a type: " + e.getMessage());
            return new TypeInfo(null, null);
        }
    }
}
