package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.kit.Setting;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;

/**
 * The number of the last sample that a writer has written, in a table of the database that it
 * writes to. As the number moves in the transaction of the rows, what comes again can be told from
 * what is new. Immutable.
 */
final class Once {
    static final Setting<String> NAME = Setting.text("once", "has each sample written once: the "
            + "name under which the number of the last one is kept in the table ferry_once")
            .where(name -> !name.isBlank(), "a name that no other writer to the database has");
    static final String TABLE = "ferry_once";

    private final String name;
    private final String creation;
    private final String lock;
    private final String begin;
    private final String select;
    private final String move;

    Once(String name, String schema) {
        this.name = name;
        String table = Table.qualified(schema, TABLE);
        creation = "CREATE TABLE IF NOT EXISTS " + table
                + " (name VARCHAR(1000) NOT NULL PRIMARY KEY, number BIGINT NOT NULL)";
        lock = "UPDATE " + table + " SET number = number WHERE name = ?";
        begin = "INSERT INTO " + table + " (name, number) VALUES (?, 0) ON CONFLICT DO NOTHING";
        select = "SELECT number FROM " + table + " WHERE name = ?";
        move = "UPDATE " + table + " SET number = ? WHERE name = ?";
    }

    /** Makes the table unless it is there, in the present transaction. */
    void create(Link link) throws SQLException {
        link.execute(creation);
    }

    /** The number of the last sample, 0 when there is none. Nobody else moves it until the end. */
    long last(Link link) throws SQLException {
        if (update(link, lock) == 0) {
            update(link, begin);
            update(link, lock); // Somebody may have been quicker.
        }
        PreparedStatement statement = link.prepare(select);
        statement.setString(1, name);
        try (ResultSet row = statement.executeQuery()) {
            row.next();
            return row.getLong(1);
        }
    }

    private int update(Link link, String sql) throws SQLException {
        PreparedStatement statement = link.prepare(sql);
        statement.setString(1, name);
        return statement.executeUpdate();
    }

    /** Sets the number of the last sample. */
    void moveTo(Link link, long number) throws SQLException {
        PreparedStatement statement = link.prepare(move);
        statement.setLong(1, number);
        statement.setString(2, name);
        statement.executeUpdate();
    }
}
