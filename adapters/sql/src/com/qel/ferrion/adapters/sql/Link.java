package com.qel.ferrion.adapters.sql;

import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * One connection to the database with the statements that were prepared on it. A {@link Pool} owns
 * it and lends it to one thread at a time; only {@link #abort} may come from another one.
 */
final class Link {
    private static final int KEPT_STATEMENTS = 128;

    final Database.Use use;
    final Connection connection;
    private final Dialect dialect;
    private final Map<String, PreparedStatement> statements =
            new LinkedHashMap<>(16, 0.75f, true);
    private String server;

    Link(Database.Use use, Connection connection, Dialect dialect) {
        this.use = use;
        this.connection = connection;
        this.dialect = dialect;
    }

    /**
     * A statement that is kept for the next time. Those that were not used for longest are closed,
     * so what a caller holds has to be done with before it prepares many others.
     */
    PreparedStatement prepare(String sql) throws SQLException {
        PreparedStatement statement = statements.get(sql);
        if (statement == null) {
            statement = connection.prepareStatement(sql);
            statements.put(sql, statement);
            if (statements.size() > KEPT_STATEMENTS) {
                var eldest = statements.values().iterator();
                eldest.next().close();
                eldest.remove();
            }
        }
        return statement;
    }

    void execute(String sql) throws SQLException {
        try (Statement statement = connection.createStatement()) {
            statement.execute(sql);
        }
    }

    /** Which run of the server this is a connection to; asked for once. */
    String server() throws SQLException {
        if (server == null) {
            server = dialect.server(connection);
        }
        return server;
    }

    /** Ends the connection. A transaction that was not committed is undone. */
    void close() {
        try {
            connection.close();
        } catch (SQLException e) {
            // It was no longer one; the server finds out by itself.
        }
    }

    /** Makes what is under way fail. Any thread. */
    void abort() {
        try {
            try {
                connection.abort(Runnable::run);
            } catch (SecurityException noManager) {
                // PostgreSQL's driver asks for a permission, which VMs from 24 on know none of.
                connection.close();
            }
        } catch (SQLException e) {
            // It has ended already.
        }
    }
}
