package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.Names;
import com.qel.ferrion.kit.Secret;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.DriverPropertyInfo;
import java.sql.SQLException;
import java.time.Duration;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import java.util.UUID;

/** Which database, and how to get in. Immutable; any thread. */
final class Database {
    static final Setting<String> URL = Setting.text("url", "the database, as its JDBC driver "
            + "calls it: jdbc:sqlite:FILE or jdbc:postgresql://HOST/DATABASE").required();
    static final Setting<String> USER = Setting.text("user", "who connects");
    static final Setting<Secret> PASSWORD = Setting.secret("password", "the user's password");
    static final Setting<Path> PASSWORD_FILE = Setting.path("password_file",
            "a file whose first line is the password; read again for every connection");
    static final Setting<String> PASSWORD_ENV = Setting.text("password_env",
            "an environment variable that holds the password");
    static final Setting<String> SCHEMA = Setting.text("schema",
            "where the tables are, if not where the server looks by itself");
    static final Setting<Duration> CONNECT_TIMEOUT = Setting.duration("connect_timeout",
            Duration.ofSeconds(1), Duration.ofMinutes(10), "how long connecting may take")
            .defaultTo(Duration.ofSeconds(10));
    static final Setting<Duration> NETWORK_TIMEOUT = Setting.duration("network_timeout",
            Duration.ofSeconds(1), Duration.ofHours(1),
            "how long an answer may take, and with SQLite a lock")
            .defaultTo(Duration.ofSeconds(30));
    static final Setting<Integer> CONNECTIONS = Setting.integer("connections", 1, 1000,
            "most connections to the database that are open at a time").defaultTo(8);
    static final Setting<String> TIME_ZONE = Setting.text("time_zone",
            "the zone in which PostgreSQL writes timestamps that become strings")
            .defaultTo("UTC");
    static final Setting<Map<String, String>> DRIVER = Setting.group("driver.",
            "properties for the JDBC driver");
    static final Setting<?>[] SETTINGS = {URL, USER, PASSWORD, PASSWORD_FILE, PASSWORD_ENV, SCHEMA,
            CONNECT_TIMEOUT, NETWORK_TIMEOUT, CONNECTIONS, TIME_ZONE, DRIVER};

    /** SQL state of failures that are ours, before the database has been asked anything. */
    private static final String REJECTED = "28000";

    private final Settings settings;
    private final String url;
    private final Dialect dialect;

    /** What a JDBC connection is for. */
    enum Use { READ, WRITE, INSERT_ONLY }

    /**
     * @throws AdapterException for a URL or a driver's property that can never work, and when the
     *     password is given in more than one way
     */
    Database(Settings settings) throws AdapterException {
        this.settings = settings;
        this.url = settings.get(URL);
        this.dialect = Dialect.of(url);
        // No message repeats the URL: it may hold a password.
        if (dialect == null) {
            throw rejected("property \"url\" must be jdbc:sqlite:FILE or jdbc:postgresql:...");
        }
        if (dialect.hasUserInfo(url)) {
            throw rejected("property \"url\" has a user or password before an \"@\", which JDBC "
                    + "does not know; give them as properties \"user\" and \"password_file\", "
                    + "\"password_env\" or \"password\"");
        }
        checkDriver();
        int ways = 0;
        for (Setting<?> way : new Setting<?>[] {PASSWORD, PASSWORD_FILE, PASSWORD_ENV}) {
            ways += settings.has(way) ? 1 : 0;
        }
        if (ways > 1) {
            throw rejected("give one of password, password_file and password_env");
        }
    }

    private AdapterException rejected(String reason) {
        return new AdapterException(settings.owner() + ": " + reason);
    }

    /** The driver ignores names that it does not know, and fails late over wrong words. */
    private void checkDriver() throws AdapterException {
        DriverPropertyInfo[] known;
        Properties given = new Properties();
        given.putAll(settings.get(DRIVER));
        try {
            Class.forName(dialect.driver());
            known = DriverManager.getDriver(url).getPropertyInfo(url, given);
        } catch (ClassNotFoundException e) {
            throw rejected(withoutDriver().getMessage());
        } catch (SQLException e) {
            throw rejected("the JDBC driver cannot read property \"url\"");
        }
        List<String> names = Arrays.stream(known).map(each -> each.name).toList();
        for (String name : settings.get(DRIVER).keySet()) {
            if (!names.contains(name)) {
                throw rejected("the JDBC driver has no property \"" + name + "\""
                        + Names.suggestion(name, names));
            }
        }
        for (DriverPropertyInfo each : known) {
            if (dialect.isWrong(each)) {
                throw rejected("the JDBC driver's property \"" + each.name + "\" must be one of "
                        + String.join(", ", each.choices));
            }
        }
    }

    private SQLException withoutDriver() {
        return new SQLException("the JDBC driver " + dialect.driver()
                + " is not on the class path (Debian: " + dialect.packageName() + ")", REJECTED);
    }

    Dialect dialect() {
        return dialect;
    }

    /** The schema that was configured, or null. */
    String schema() {
        return settings.get(SCHEMA);
    }

    /** The file that the database is, or null. */
    Path file() {
        return dialect.file(url);
    }

    /** The database's file where it is one and is not there yet, else null. */
    Path missingFile() {
        Path file = file();
        return file == null || Files.exists(file) ? null : file;
    }

    Duration networkTimeout() {
        return settings.get(NETWORK_TIMEOUT);
    }

    /** The most connections that may be open at a time. */
    int connections() {
        return settings.get(CONNECTIONS);
    }

    /**
     * Connects; a file that is to be written, and its folders, come to be.
     *
     * @param hurried whether a lock that another one holds is not worth waiting for
     */
    Link open(Use use, boolean hurried) throws SQLException {
        Properties driver = new Properties();
        if (settings.get(USER) != null) {
            driver.setProperty("user", settings.get(USER));
        }
        String password = password();
        if (password != null) {
            driver.setProperty("password", password);
        }
        dialect.configure(driver, use, settings.get(CONNECT_TIMEOUT), networkTimeout());
        driver.putAll(settings.get(DRIVER));
        if (hurried) {
            dialect.hurry(driver);
        }
        Path missing = missingFile();
        try {
            if (missing != null && use != Use.READ) {
                Files.createDirectories(missing.getParent());
            }
            Class.forName(dialect.driver());
        } catch (IOException e) {
            throw new SQLException(missing.getParent() + " cannot be made: " + e, REJECTED, e);
        } catch (ClassNotFoundException e) {
            throw withoutDriver();
        }
        Connection connection = DriverManager.getConnection(url, driver);
        try {
            dialect.begin(connection, settings.get(TIME_ZONE));
            // Reads are single statements; writes are transactions that end with a commit of ours.
            connection.setAutoCommit(use == Use.READ);
            return new Link(use, connection, dialect);
        } catch (SQLException e) {
            connection.close();
            throw e;
        }
    }

    /**
     * Sets whether statements wait for locks as they were configured to, or next to not at all.
     *
     * @param usual what a connection has to go back to
     */
    void waitForLocks(Link link, boolean usual) throws SQLException {
        link.execute(dialect.lockWait(usual, networkTimeout(), settings.get(DRIVER)));
        if (!link.connection.getAutoCommit()) {
            link.connection.commit();
        }
    }

    private String password() throws SQLException {
        if (settings.get(PASSWORD) != null) {
            return settings.get(PASSWORD).reveal();
        }
        String variable = settings.get(PASSWORD_ENV);
        if (variable != null) {
            String value = System.getenv(variable);
            if (value == null) {
                throw new SQLException("the environment has no variable " + variable
                        + " (property \"password_env\")", REJECTED);
            }
            return value;
        }
        Path file = settings.get(PASSWORD_FILE);
        try {
            return file == null ? null
                    : Files.readString(file).lines().findFirst().orElse("");
        } catch (IOException e) {
            throw new SQLException("property \"password_file\": " + e, REJECTED, e);
        }
    }

    /** A short name that no other database, and no other schema of it, has; without secrets. */
    String label() {
        String full = this + "\n" + schema();
        String last = toString().replaceFirst("/+$", "").replaceFirst("^.*[/:]", "");
        return last + "-" + UUID.nameUUIDFromBytes(full.getBytes(StandardCharsets.UTF_8))
                .toString().substring(0, 8);
    }

    /** The database for people; what a URL says behind its path may be secret. */
    @Override
    public String toString() {
        return Secrets.mask(url.replaceFirst("\\?.*", ""));
    }
}
