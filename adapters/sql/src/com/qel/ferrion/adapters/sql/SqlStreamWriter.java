package com.qel.ferrion.adapters.sql;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapters.sql.Statements.Mode;
import com.qel.ferrion.adapters.sql.Statements.OnDispose;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.Delivery;
import com.qel.ferrion.kit.RejectedSampleException;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.WriterBase;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.SQLException;
import java.sql.Savepoint;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.EnumSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * Samples as rows of a table. A batch is one transaction: when write returns it is committed, up to
 * the first sample that the database rejects for what is in it.
 *
 * <p>Whatever fails, but for the data, is tried again until the batch is in or the time for that is
 * up. Then nothing of it is in, unless a commit has given no answer.
 */
final class SqlStreamWriter extends WriterBase {
    private static final Setting<Mode> MODE = Setting.choice("mode", Mode.class, "what to do with "
            + "rows: insert all, insert those whose key is new, or have them replace the row of "
            + "their key").defaultTo(Mode.INSERT);
    private static final Setting<Boolean> CREATE = Setting.flag("create",
            "make the table when it is missing").defaultTo(false);
    private static final Setting<OnDispose> ON_DISPOSE = Setting.choice("on_dispose",
            OnDispose.class, "what the disposal of an instance does to the rows of its key")
            .defaultTo(OnDispose.IGNORE);
    private static final Setting<String> MARK = Setting.text("mark_column",
            "the boolean column that on_dispose: mark sets").defaultTo("disposed");
    private static final Setting<Path> REJECT_FILE = Setting.path("reject_file",
            "where samples are kept that the database does not take, as JSON lines");
    private static final Setting<String> OMIT = Setting.text("omit",
            "members, separated by commas, that are not written").defaultTo("");
    private static final Setting<Duration> RETRY = Setting.duration("retry_for", Duration.ZERO,
            Duration.ofHours(24), "how long a batch is tried again that cannot be written; 0s is "
            + "for ever").defaultTo(Duration.ofSeconds(2)).changeable();
    static final Setting<?>[] SETTINGS = {SqlStreamReader.TABLE, MODE, CREATE, ON_DISPOSE, MARK,
            Once.NAME, REJECT_FILE, OMIT, SqlStreamReader.UNIT, SqlStreamReader.COLUMNS, RETRY};
    /** Bytes of values that wait in a driver's batch before they go to the database. */
    private static final int MOST_BYTES = 8 << 20;

    private final Database database;
    private final TypeCode type;
    private final String name;
    private final Access access;
    private final List<Field> fields = new ArrayList<>();
    private final Rejects rejects;
    /** Null when what comes again is written again. */
    private final Once once;
    private Statements statements;
    /** Whether the table may no longer be what the statements were made for. */
    private boolean stale;
    /** Whether the table of numbers is known to be there. */
    private boolean onceIsThere;
    /** Of the present batch what has a row, and where in the batch that is. */
    private DynamicData[] samples = new DynamicData[1024];
    private boolean[] disposed = new boolean[1024];
    private int[] places = new int[1024];
    /** The samples' own, for once. */
    private long[] numbers = new long[1024];
    /** What the database had at the begin of the attempt. */
    private long last;
    private int count;
    /** The first that cannot be written, and why; null when there is none. */
    private int bad;
    private BadRow reason;
    /** A transaction whose commit has given no answer. */
    private String unknown;
    /** The run of the server that it was in. */
    private String server;

    /**
     * Makes a writer and writes nothing yet, not even a table; a database that cannot be reached
     * now is bound to the type later.
     *
     * @throws AdapterException when a property is wrong, or the table does not go with the type
     */
    SqlStreamWriter(Database database, Pool connections, Stream stream, TypeCode type)
            throws AdapterException {
        super(stream);
        Settings settings = stream.settings();
        this.database = database;
        this.type = type;
        name = settings.has(SqlStreamReader.TABLE) ? settings.get(SqlStreamReader.TABLE)
                                                   : stream.name();
        access = new Access(connections, database, settings.get(MODE) == Mode.INSERT
                ? Database.Use.INSERT_ONLY : Database.Use.WRITE, settings.owner(),
                "table \"" + name + "\"");
        try {
            selectFields();
        } catch (AdapterException e) {
            throw new AdapterException(settings.owner() + ": " + e.getMessage(), e);
        }
        once = settings.has(Once.NAME) ? new Once(settings.get(Once.NAME), database.schema())
                                       : null;
        rejects = new Rejects(stream, fields, settings.get(REJECT_FILE));
        try {
            Path missing = database.missingFile();
            if (missing == null) {
                access.tryOnce(link -> bind(link, false));
            } else if (!settings.get(CREATE)) {
                throw new AdapterException(settings.owner() + ": " + missing
                        + ": no such file; \"create: true\" makes it");
            }
        } catch (AdapterException e) {
            release();
            throw e;
        }
    }

    /** What a writer with these settings guarantees. */
    static Set<Delivery> deliveries(Settings settings) {
        Set<Delivery> all = EnumSet.of(Delivery.COUNTS_PREFIX);
        if (settings.get(MODE) == Mode.UPSERT) {
            all.add(Delivery.IDEMPOTENT);
        }
        if (settings.has(Once.NAME)) {
            all.add(Delivery.ONCE);
        }
        return all;
    }

    @Override
    protected void release() {
        rejects.close();
    }

    private void selectFields() throws AdapterException {
        List<Field> all = Field.of(type);
        List<String> omitted = Arrays.stream(settings().get(OMIT).split(",")).map(String::strip)
                .filter(path -> !path.isEmpty()).toList();
        Table.checkMembers(all, omitted);
        Table.checkMembers(all, settings().get(SqlStreamReader.COLUMNS).keySet());
        boolean keyed = false;
        boolean complete = true;
        for (Field field : all) {
            keyed |= field.key;
            if (omitted.contains(field.path)) {
                complete &= !field.key;
            } else {
                field.requireCarried();
                fields.add(field);
            }
        }
        boolean byKey = settings().get(MODE) == Mode.UPSERT
                || settings().get(ON_DISPOSE) != OnDispose.IGNORE;
        if (byKey && !(keyed && complete)) {
            throw new AdapterException("mode: upsert and on_dispose need key members"
                    + (keyed ? "; none may be omitted" : ", and the type has none"));
        }
    }

    /**
     * Finds out how the type and the table go together: once, and again when the table has changed.
     *
     * @param create whether a missing table may be made now
     * @return null when that has to wait for the first batch
     */
    private Statements bind(Link link, boolean create) throws SQLException, AdapterException {
        boolean complete = once == null || onceIsThere || !create;
        if (statements != null && !stale && complete) {
            return statements;
        }
        Connection connection = link.connection;
        Map<String, String> columns = settings().get(SqlStreamReader.COLUMNS);
        Table table = Table.find(connection, database.schema(), name);
        if (table == null) {
            if (!settings().get(CREATE)) {
                throw Table.missing(connection, database.schema(), name);
            }
            if (!create) {
                return null;
            }
            link.execute(creation());
            connection.commit();
            table = Table.find(connection, database.schema(), name);
        }
        if (once != null && create) {
            once.create(link);
            connection.commit();
            onceIsThere = true;
        }
        Map<Field, Column> bound = table.bind(fields, columns, database.dialect());
        List<Cell> cells = new ArrayList<>();
        for (Field field : fields) {
            if (!bound.containsKey(field)) {
                throw new AdapterException(table.source + " has no column \"" + field.columnName()
                        + "\" for member \"" + field.path + "\"; name one with \"columns."
                        + field.path + "\", or name the member under \"omit\"");
            }
            cells.add(new Cell(field, bound.get(field), database.dialect(),
                    settings().get(SqlStreamReader.UNIT)));
        }
        Statements made = new Statements(table.source, cells, settings().get(MODE),
                settings().get(ON_DISPOSE), settings().get(MARK));
        link.execute(made.trial);
        connection.rollback(); // Nothing was written, and no lock is kept for that.
        statements = made;
        stale = false;
        return made;
    }

    private String creation() {
        boolean marks = settings().get(ON_DISPOSE) == OnDispose.MARK;
        return Table.creation(database.dialect(), Table.qualified(database.schema(), name), fields,
                settings().get(SqlStreamReader.COLUMNS), settings().get(MODE) != Mode.INSERT,
                marks ? settings().get(MARK) : null);
    }

    /** The database takes writes, a missing table could be made, and so could the reject file. */
    @Override
    protected void probe() throws AdapterException {
        rejects.probe();
        if (database.file() != null) {
            Trial.file(database.file(), settings().owner() + ": " + database);
        }
        if (database.missingFile() == null) {
            access.probe(link -> {
                boolean isThere = bind(link, false) != null;
                database.dialect().requireWritable(link.connection);
                if (!isThere) {
                    link.execute(creation());
                }
                if (once != null) {
                    once.create(link);
                    once.last(link);
                }
                link.connection.rollback();
                return null;
            });
        }
    }

    /**
     * Writes a row for every sample that has data, and does what was asked for those that report a
     * disposal. Other changes of an instance have no place in a table: they count as taken.
     *
     * @return how many samples there are
     * @throws RejectedSampleException for a sample that is missing or that the database rejects;
     *     those in front of it are committed
     * @throws AdapterException when the batch cannot be written, after all attempts
     */
    @Override
    protected int store(List<Object> batch, List<Object> infos) throws AdapterException {
        int missing = collect(batch, infos);
        reason = null;
        unknown = null;
        if (count > 0) {
            // What has never worked and is no passing trouble never will.
            access.run(this::attempt, settings().get(RETRY), failure -> statements == null
                    && database.dialect().isPermanent(failure));
        }
        if (reason != null) {
            throw new RejectedSampleException(settings().owner() + ": "
                    + rejects.key(samples[bad]) + ": " + reason.getMessage(), places[bad]);
        }
        if (missing < batch.size()) {
            throw new RejectedSampleException(settings().owner() + ": sample " + missing
                    + " of a write: there is no sample", missing);
        }
        return batch.size();
    }

    /** @return the index of the first sample that is missing; all there are when none is */
    private int collect(List<Object> batch, List<Object> infos) throws AdapterException {
        boolean removes = settings().get(ON_DISPOSE) != OnDispose.IGNORE;
        count = 0;
        for (int i = 0; i < batch.size(); i++) {
            Object info = infos != null && i < infos.size() ? infos.get(i) : null;
            boolean valid = !(info instanceof SampleInfo) || ((SampleInfo) info).valid_data;
            boolean counts = valid || (removes && ((SampleInfo) info).instance_state
                    == SampleInfo.NOT_ALIVE_DISPOSED_INSTANCE_STATE);
            if (counts && !(batch.get(i) instanceof DynamicData)) {
                return i;
            }
            if (counts) {
                add((DynamicData) batch.get(i), !valid, i);
                numbers[count - 1] = once == null ? 0 : numberOf(info, i);
            }
        }
        return batch.size();
    }

    private void add(DynamicData sample, boolean isEnd, int place) {
        if (count == samples.length) {
            samples = Arrays.copyOf(samples, 2 * count);
            disposed = Arrays.copyOf(disposed, 2 * count);
            places = Arrays.copyOf(places, 2 * count);
            numbers = Arrays.copyOf(numbers, 2 * count);
        }
        samples[count] = sample;
        disposed[count] = isEnd;
        places[count++] = place;
    }

    private long numberOf(Object info, int place) throws AdapterException {
        long number = info instanceof SampleInfo
                ? ((SampleInfo) info).publication_sequence_number : 0;
        if (number == 0) {
            throw new AdapterException(settings().owner() + ": sample " + place + " of a write has "
                    + "no number (publication_sequence_number); property \"once\" needs an output "
                    + "with a store, which numbers its samples");
        }
        return number;
    }

    private Void attempt(Link link) throws SQLException, AdapterException {
        if (unknown != null) {
            // A server that was down cannot be asked: then the batch may come to be there twice.
            boolean done = server.equals(link.server())
                    && database.dialect().wasCommitted(link.connection, unknown);
            unknown = null;
            if (done) {
                return null;
            }
        }
        bindAgain(link);
        reason = null;
        try {
            apply(link, firstNew(link), count);
            moveTo(link, count);
            commit(link);
        } catch (SQLException | BadRow e) {
            reason = rejection(e);
            link.connection.rollback();
            commitUpToBad(link);
        }
        return null;
    }

    /** The batch cannot be written as a whole: writes what stands in front of the bad sample. */
    private void commitUpToBad(Link link) throws SQLException {
        bad = halve(link, firstNew(link), count);
        if (bad == count) {
            reason = null; // Each part went, one after the other.
        } else {
            rejects.keep(samples[bad], disposed[bad], reason);
        }
        moveTo(link, bad);
        commit(link);
    }

    /** @return the index of the first sample that the database does not have */
    private int firstNew(Link link) throws SQLException {
        if (once == null) {
            return 0;
        }
        last = once.last(link);
        int first = 0;
        while (first < count && numbers[first] > 0 && numbers[first] <= last) {
            first++;
        }
        return first;
    }

    /** Notes that the database has the samples up to an index, if that is not known. */
    private void moveTo(Link link, int end) throws SQLException {
        if (once != null && end > 0 && numbers[end - 1] > last) {
            once.moveTo(link, numbers[end - 1]);
        }
    }

    /** Who changes a table may not be done yet: what no longer fits is tried again. */
    private void bindAgain(Link link) throws SQLException, AdapterException {
        try {
            bind(link, true);
        } catch (AdapterException e) {
            if (statements == null) {
                throw e;
            }
            throw new SQLException(e.getMessage());
        }
    }

    /** Why some sample cannot be written; throws on what has another cause. */
    private BadRow rejection(Exception e) throws SQLException {
        if (e instanceof SQLException && !database.dialect().isAboutData((SQLException) e)) {
            stale |= database.dialect().isPermanent((SQLException) e);
            throw (SQLException) e;
        }
        return e instanceof BadRow ? (BadRow) e : new BadRow(Secrets.text(e));
    }

    /** Writes a part that cannot be written as a whole. @return up to where it could be written */
    private int halve(Link link, int from, int to) throws SQLException {
        if (to - from == 1) {
            return from;
        }
        int middle = (from + to) >>> 1;
        int reached = tryPart(link, from, middle);
        return reached < middle ? reached : tryPart(link, middle, to);
    }

    /** Writes a part up to its first bad sample. @return up to where it could be written */
    private int tryPart(Link link, int from, int to) throws SQLException {
        Connection connection = link.connection;
        Savepoint before = connection.setSavepoint();
        try {
            apply(link, from, to);
            database.dialect().checkNow(connection);
            connection.releaseSavepoint(before);
            return to;
        } catch (SQLException | BadRow e) {
            reason = rejection(e);
            connection.rollback(before);
            return halve(link, from, to);
        }
    }

    /**
     * Writes a part of the batch in its order, with as few statements as that and the bytes that
     * may wait allow.
     */
    private void apply(Link link, int from, int to) throws SQLException, BadRow {
        PreparedStatement current = null;
        long waiting = 0;
        for (int i = from; i < to; i++) {
            PreparedStatement next = link.prepare(disposed[i] ? statements.remove
                                                              : statements.put);
            if (next != current || waiting >= MOST_BYTES) {
                if (current != null) {
                    current.executeBatch();
                }
                next.clearBatch(); // Of an attempt that ended before it was executed.
                current = next;
                waiting = 0;
            }
            int index = 1;
            for (Cell cell : disposed[i] ? statements.keys : statements.cells) {
                waiting += cell.bind(next, index++, samples[i]);
            }
            next.addBatch();
        }
        if (current != null) {
            current.executeBatch();
        }
    }

    /** Commits; when no answer comes, the next attempt asks what has become of it. */
    private void commit(Link link) throws SQLException {
        String transaction = null;
        if (settings().get(MODE) == Mode.INSERT && once == null) {
            server = link.server();
            transaction = database.dialect().transaction(link.connection);
        }
        try {
            link.connection.commit();
        } catch (SQLException e) {
            unknown = transaction;
            throw e;
        }
    }
}
