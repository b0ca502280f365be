package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.Secret;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.SQLException;
import java.time.Duration;
import java.util.Map;
import java.util.Properties;

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
    static final Setting<Map<String, String>> DRIVER = Setting.group("driver.",
            "properties for the JDBC driver");
    static final Setting<?>[] SETTINGS = {URL, USER, PASSWORD, PASSWORD_FILE, PASSWORD_ENV, SCHEMA,
            CONNECT_TIMEOUT, NETWORK_TIMEOUT, DRIVER};

    /** SQL state of failures that are ours, before the database has been asked anything. */
    private static final String REFUSED = "28000";

    private final Settings settings;
    private final String url;
    private final Dialect dialect;

    /** What a JDBC connection is for. */
    enum Use { READ, WRITE, INSERT_ONLY }

    /**
     * @throws AdapterException when the password is given in more than one way
     */
    Database(Settings settings) throws AdapterException {
        this.settings = settings;
        this.url = settings.get(URL);
        this.dialect = Dialect.of(url);
        if (dialect == null) {
            // The URL itself may hold a password.
            throw new AdapterException(settings.owner()
                    + ": property 'url' is neither jdbc:sqlite:FILE nor jdbc:postgresql:...");
        }
        int ways = 0;
        for (Setting<?> way : new Setting<?>[] {PASSWORD, PASSWORD_FILE, PASSWORD_ENV}) {
            ways += settings.has(way) ? 1 : 0;
        }
        if (ways > 1) {
            throw new AdapterException(settings.owner()
                    + ": give one of password, password_file and password_env");
        }
    }

    Dialect dialect() {
        return dialect;
    }

    /** The schema that was configured, or null. */
    String schema() {
        return settings.get(SCHEMA);
    }

    /** The database's file where it is one and is not there yet, else null. */
    Path missingFile() {
        Path file = dialect.file(url);
        return file == null || Files.exists(file) ? null : file;
    }

    /** Connects; a file that is to be written, and its folders, come to be. */
    Connection open(Use use) throws SQLException {
        Properties driver = new Properties();
        if (settings.get(USER) != null) {
            driver.setProperty("user", settings.get(USER));
        }
        String password = password();
        if (password != null) {
            driver.setProperty("password", password);
        }
        dialect.configure(driver, use, settings.get(CONNECT_TIMEOUT),
                settings.get(NETWORK_TIMEOUT));
        driver.putAll(settings.get(DRIVER));
        Path missing = missingFile();
        try {
            if (missing != null && use != Use.READ) {
                Files.createDirectories(missing.getParent());
            }
            Class.forName(dialect.driver());
        } catch (IOException e) {
            throw new SQLException(missing.getParent() + " cannot be made: " + e, REFUSED, e);
        } catch (ClassNotFoundException e) {
            throw new SQLException("the JDBC driver " + e.getMessage()
                    + " is not on the class path (Debian: " + dialect.packageName() + ")", REFUSED,
                    e);
        }
        Connection connection = DriverManager.getConnection(url, driver);
        try {
            // Reads are single statements; writes are transactions that end with a commit of ours.
            connection.setAutoCommit(use == Use.READ);
            return connection;
        } catch (SQLException e) {
            connection.close();
            throw e;
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
                        + " (property 'password_env')", REFUSED);
            }
            return value;
        }
        Path file = settings.get(PASSWORD_FILE);
        try {
            return file == null ? null
                    : Files.readString(file).lines().findFirst().orElse("");
        } catch (IOException e) {
            throw new SQLException("property 'password_file': " + e, REFUSED, e);
        }
    }

    /** The database for people; what a URL says behind its path may be secret. */
    @Override
    public String toString() {
        return url.replaceFirst("\\?.*", "").replaceFirst("//[^/@]*@", "//");
    }
}
