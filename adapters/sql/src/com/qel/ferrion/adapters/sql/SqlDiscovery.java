package com.qel.ferrion.adapters.sql;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.kit.Setting;
import java.lang.System.Logger.Level;
import java.sql.SQLException;
import java.time.Duration;
import java.util.HashSet;
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
    /** What has been announced, by the IDL of each table's type. */
    private final Map<String, String> known = new TreeMap<>();
    private final Set<String> writable = new HashSet<>();
    /** Tables that could not be looked at, with the reason. */
    private final Map<String, String> rejected = new TreeMap<>();

    SqlDiscovery(Database database, DiscoveryReader inputs, DiscoveryReader outputs) {
        this.database = database;
        this.inputs = inputs;
        this.outputs = outputs;
    }

    /** Called by the watching thread now and then. */
    void look(Access access) throws SQLException, AdapterException {
        if (database.missingFile() == null) {
            access.once(this::compare);
        }
    }

    /** Compares the tables with what has been announced. */
    private Void compare(Link link) throws SQLException {
        Map<String, Boolean> found = Table.list(link.connection, database.schema());
        found.remove(Once.TABLE);
        for (Map.Entry<String, Boolean> each : found.entrySet()) {
            try {
                Table table = Table.describe(link.connection, database.schema(), each.getKey(),
                        each.getValue());
                rejected.remove(each.getKey());
                announce(each.getKey(), idl(each.getKey(), table), each.getValue());
            } catch (SQLException e) {
                if (!database.dialect().isPermanent(e)) {
                    throw e;
                }
                reject(each.getKey(), Secrets.text(e));
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
        rejected.keySet().retainAll(found.keySet());
        return null;
    }

    private void announce(String name, String idl, boolean isTable) {
        if (!idl.equals(known.put(name, idl))) {
            StreamInfo stream = new StreamInfo(name, type(name, idl), false);
            inputs.announce(stream);
            if (isTable) {
                writable.add(name);
                outputs.announce(stream);
            }
        }
    }

    /** A table that cannot be looked at hides no other; it is reported once. */
    private void reject(String name, String reason) {
        if (!reason.equals(rejected.put(name, reason))) {
            Access.LOG.log(Level.WARNING, database + ": table \"" + name
                    + "\" is not announced: " + reason);
        }
    }

    /** The struct that a table's rows are: a member for every column, keys for its primary key. */
    private String idl(String name, Table table) {
        StringBuilder text = new StringBuilder("struct ")
                .append(Column.identifier(name, any -> false)).append(" {\n");
        table.identifiers().forEach((member, column) ->
                text.append(table.key.contains(column.name()) ? "    @key " : "    ")
                        .append(database.dialect().idlType(column)).append(' ').append(member)
                        .append(";\n"));
        return text.append("};\n").toString();
    }

    private TypeInfo type(String name, String idl) {
        try {
            TypeCode type = TypeCode.fromIdl(idl, null);
            return new TypeInfo(type.name(), type);
        } catch (TypeException e) {
            Access.LOG.log(Level.WARNING, database + ": table \"" + name
                    + "\" is announced without a type: " + e.getMessage());
            return new TypeInfo(null, null);
        }
    }
}
