package com.qel.ferrion.adapters.sql;

import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRows;
import com.qel.ferrion.kit.BatchLimit;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.OutOfHeapException;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.SamplePool;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import java.lang.System.Logger.Level;
import java.nio.file.Path;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.time.Duration;
import java.util.List;
import java.util.Map;

/**
 * A table's rows as samples, in the order of some columns. A read asks for the rows behind the
 * position that has been acknowledged; the return of the loan acknowledges those that it brought,
 * and only then the position moves, in memory and on the disk.
 *
 * <p>The database is asked only when there is reason to: at the start, behind a full batch, and
 * when the watching thread has seen a row. Behind a full batch the watching thread asks for the
 * next one while the host has that.
 */
final class SqlStreamReader extends ReaderBase {
    static final Setting<String> TABLE = Setting.text("table",
            "the table or view, if not called like the stream");
    private static final Setting<String> QUERY = Setting.text("query",
            "a SELECT whose rows are read in place of a table's");
    static final Setting<String> ORDER = Setting.text("order_by", "columns, separated by "
            + "commas, in whose order rows are read; the primary key is added to them")
            .defaultTo("");
    private static final Setting<String> POSITION = Setting.text("position_file", "where it is "
            + "kept how far has been read, if not with the host; \"none\" reads everything again "
            + "after a restart");
    private static final Setting<Duration> POLL = Setting.duration("poll", Duration.ofMillis(1),
            Duration.ofHours(24), "how often to look for new rows")
            .defaultTo(Duration.ofSeconds(1)).changeable();
    private static final Setting<Nulls> NULLS = Setting.choice("nulls", Nulls.class,
            "whether NULL makes a row bad or stands for the member's default")
            .defaultTo(Nulls.REJECT);
    private static final Setting<Duration> COUNT_NULLS = Setting.duration("count_nulls",
            Duration.ofMillis(1), Duration.ofHours(24), "least time between two counts of rows "
            + "that have NULL in an order column").defaultTo(Duration.ofHours(1));
    static final Setting<OrderNulls> ORDER_NULLS = Setting.choice("order_nulls", OrderNulls.class,
            "whether rows that have NULL in an order column are only counted, or read last, in "
            + "the order of the primary key").defaultTo(OrderNulls.COUNT);
    private static final Setting<Duration> SETTLE = Setting.duration("settle", Duration.ZERO,
            Duration.ofHours(24), "how long the newest rows are held back, so that transactions "
            + "that are still open can put rows in front of them").defaultTo(Duration.ZERO);
    static final Setting<String> DELETED = Setting.text("deleted_column",
            "the boolean column that says that the row's instance has ended");
    static final Setting<Cell.TimeUnit> UNIT = Setting.choice("time_unit", Cell.TimeUnit.class,
            "what an integer counts whose column is a timestamp").defaultTo(Cell.TimeUnit.US);
    static final Setting<Map<String, String>> COLUMNS = Setting.group("columns.",
            "name of a member's column");
    private static final Setting<Duration> RETRY = Setting.duration("retry_for", Duration.ZERO,
            Duration.ofHours(24), "how long a read tries to reach the database; 0s is for ever")
            .defaultTo(Duration.ofSeconds(2)).changeable();
    static final Setting<?>[] SETTINGS = {TABLE, QUERY, ORDER, POSITION, POLL, BatchLimit.SAMPLES,
            BatchLimit.BYTES, NULLS, BadRows.ON_BAD_ROW, BadRows.REPORT, COUNT_NULLS, ORDER_NULLS,
            SETTLE, DELETED, UNIT, COLUMNS, RETRY};

    /** A batch of more than this part of the bytes that it may have is large. */
    private static final int LARGE = 4;
    /**
     * Rows of the first read: few, so that the VM has met the ends of some before it compiles what
     * reads rows. A compiled method that meets something new while it holds the driver's lock
     * leaves that lock slow as long as the connection lives: a tenth of a long read's time.
     */
    private static final int FIRST_READ = 64;

    private enum Nulls { REJECT, DEFAULT }

    private final Database database;
    private final TypeCode type;
    private final String name;
    private final Access access;
    /** Of the rows that have a place in the order. */
    private final Sequence placed;
    /** Of those that have none, if they are read. */
    private final Sequence unplaced;
    private final BadRows badRows;
    private final Unordered unordered;
    private final ReadAhead ahead;
    private final SampleInfo info = new SampleInfo();
    private final SampleInfo ended = new SampleInfo();
    private Watch watch;
    private Watch.Look look;
    private Watch.Task task;
    /** What follows is shared with the watching thread, which only reads it, but for due. */
    private volatile Query query;
    private volatile boolean due = true;
    /** Whether rows behind the position are with the host: they are known. */
    private volatile boolean lent;
    private volatile boolean stopped;
    /** Whether the table may no longer be what the query was made for. */
    private boolean stale;
    /**
     * Most rows of a read, twice as many each time: fewer than configured at first, and after some
     * that memory was too small for.
     */
    private int most = FIRST_READ;
    /** Of the present loan: its samples, and what they come from. */
    private SamplePool pool;
    private Batch loan;
    /** Whether nothing has been read, so that no file has to be left. */
    private boolean traceless;

    /**
     * Makes a reader; a database that cannot be reached now is bound to the type later.
     *
     * @throws AdapterException when a property is wrong, or the table does not go with the type
     */
    SqlStreamReader(Database database, Pool connections, Stream stream, TypeCode type)
            throws AdapterException {
        super(stream);
        this.database = database;
        this.type = type;
        Settings settings = stream.settings();
        if (settings.has(TABLE) && settings.has(QUERY)) {
            throw new AdapterException(settings.owner() + ": give a table or a query, not both");
        }
        name = settings.has(TABLE) ? settings.get(TABLE) : stream.name();
        pool = new SamplePool(type);
        ahead = new ReadAhead(new SamplePool(type));
        ended.valid_data = false;
        ended.instance_state = SampleInfo.NOT_ALIVE_DISPOSED_INSTANCE_STATE;
        badRows = new BadRows(settings.get(BadRows.REPORT), null);
        unordered = new Unordered(settings.get(COUNT_NULLS));
        access = new Access(connections, database, Database.Use.READ, settings.owner(),
                settings.has(QUERY) ? "the query" : "table \"" + name + "\"");
        String where = settings.has(POSITION) ? settings.get(POSITION)
                : RowPosition.usual(database.label(), stream.name()).toString();
        placed = sequence(settings, where);
        try {
            unplaced = settings.get(ORDER_NULLS) == OrderNulls.COUNT ? null
                    : sequence(settings, where.equals("none") ? where : where + ".nulls");
            access.tryOnce(this::bind);
        } catch (AdapterException e) {
            traceless = true;
            release();
            throw e;
        }
    }

    private static Sequence sequence(Settings settings, String where) throws AdapterException {
        try {
            return new Sequence(settings.owner(),
                    where.equals("none") ? null : new RowPosition(Path.of(where)),
                    settings.get(SETTLE).toNanos());
        } catch (AdapterException e) {
            throw new AdapterException(settings.owner() + ": " + e.getMessage(), e);
        }
    }

    /** Finds out how the type and the table go together, and at first where reading goes on. */
    private Query bind(Link link) throws SQLException, AdapterException {
        if (query == null || stale) {
            String text = settings().get(QUERY);
            Table table = text != null ? Table.ofQuery(link.connection, text)
                    : Table.find(link.connection, database.schema(), name);
            if (table == null) {
                throw Table.missing(link.connection, database.schema(), name);
            }
            Query bound = Query.of(table, database.dialect(), type, settings());
            if (query != null) {
                bound.requireLike(query);
            }
            placed.load(bound.order);
            if (bound.rest != null) {
                unplaced.load(bound.rest.order);
            }
            query = bound;
            stale = false;
        }
        return query;
    }

    /**
     * Begins to look for rows; called when the host can have the reader.
     *
     * @param by what looks
     * @param through used by nothing else
     */
    void start(Watch by, Access through) {
        watch = by;
        look = () -> look(through);
        task = watch.every(settings().get(POLL), look);
    }

    /** On the watching thread. A look that fails leaves it to a read to say so. */
    private void look(Access own) throws SQLException, AdapterException {
        boolean found = (due && !stopped) || badRows.isDue();
        try {
            Query now = query;
            if (!found && !lent && !stopped && now != null) {
                found = own.once(link -> {
                    unordered.look(now.counted(), link);
                    boolean more = placed.hasMore(now, link);
                    more |= now.rest != null && unplaced.hasMore(now.rest, link);
                    return more || unordered.hasChanged();
                });
            }
        } catch (SQLException e) {
            found = true;
            throw e;
        } finally {
            if (found) {
                due = true;
                signal();
            }
        }
    }

    /** A reader that stands still at a bad row goes on if it is to skip such rows now. */
    @Override
    protected void changed(Settings updated) {
        if (updated.get(BadRows.ON_BAD_ROW) == BadRows.OnBadRow.SKIP) {
            stopped = false;
        }
        due = true;
        if (!updated.get(POLL).equals(settings().get(POLL))) {
            task.cancel();
            task = watch.every(updated.get(POLL), look);
        }
    }

    @Override
    protected void fill(List<Object> samples, List<Object> infos) throws AdapterException {
        if (!due || stopped) {
            badRows.report(false, "");
            return;
        }
        lent = true;
        Batch batch = ahead.take(placed.position(), settings());
        if (batch != null) {
            pool = ahead.exchange(pool);
        } else {
            batch = access.run(this::fetch, settings().get(RETRY),
                    database.dialect()::isPermanent);
        }
        for (int i = 0; i < batch.count(); i++) {
            samples.add(pool.get(i));
            infos.add(batch.isEnd(i) ? ended : info);
        }
        loan = batch;
        stopped = batch.isStopped();
        due = batch.hasMore();
        readAhead();
        batch.report(badRows);
        unordered.report(query.counted(), badRows);
        badRows.report(!batch.hasMore(), stopped ? "; reading stops here" : "");
    }

    /**
     * Fetches what is behind the loan. Large rows gain little by that and take twice the memory, so
     * what counts is that it was their number which ended the batch, and by far.
     */
    private void readAhead() {
        Settings with = settings();
        int limit = with.get(BatchLimit.SAMPLES);
        boolean large = loan.bytes() > with.get(BatchLimit.BYTES) / LARGE;
        if (!loan.hasMore() || large || most < limit || loan.sequence != placed) {
            ahead.end();
            return;
        }
        Query bound = query;
        List<Object> from = loan.last();
        ahead.begin(watch, from, with, () -> access.once(link -> {
            try {
                return fetch(bound, link, from, limit, ahead.pool());
            } catch (SQLException e) {
                judge(e);
                throw e;
            }
        }));
    }

    private void judge(SQLException failure) {
        stale |= database.dialect().isPermanent(failure) || database.dialect().isOutdated(failure);
    }

    private Batch fetch(Link link) throws SQLException, AdapterException {
        int limit = Math.min(most, settings().get(BatchLimit.SAMPLES));
        try {
            Batch batch = fetch(bind(link), link, placed.position(), limit, pool);
            most = (int) Math.min(2L * Math.max(most, 1), Integer.MAX_VALUE);
            return batch;
        } catch (OutOfMemoryError e) {
            pool.release();
            ahead.end();
            if (limit == 1) {
                throw new OutOfHeapException("a row of " + query.table.source, e);
            }
            most = limit / 4 + 1;
            throw new SQLException("memory does not suffice for " + limit + " rows", e);
        } catch (SQLException e) {
            judge(e);
            if (database.dialect().isTooLarge(e)) {
                pool.release();
                most = limit / 4 + 1;
            }
            throw e;
        }
    }

    /** Reads behind a position; at the end of the order, those rows that have no place in it. */
    private Batch fetch(Query bound, Link link, List<Object> from, int limit, SamplePool into)
            throws SQLException {
        Batch batch = fetch(bound, link, placed, from, limit, into);
        if (batch.isEmpty() && bound.rest != null) {
            batch = fetch(bound.rest, link, unplaced, unplaced.position(), limit, into);
        }
        if (!batch.hasMore()) {
            unordered.look(bound.counted(), link);
        }
        return batch;
    }

    /**
     * Reads up to a batch of rows behind a position. Where positions are not unique a batch goes on
     * to the end of those rows that have its last one's, however many they are.
     */
    private Batch fetch(Query bound, Link link, Sequence sequence, List<Object> from, int limit,
            SamplePool into) throws SQLException {
        Batch batch = new Batch(sequence, bound, into, settings().get(NULLS) == Nulls.DEFAULT,
                settings().get(BadRows.ON_BAD_ROW) == BadRows.OnBadRow.STOP);
        int bytes = Math.toIntExact(settings().get(BatchLimit.BYTES));
        List<Object> settled = sequence.horizon.end();
        if (sequence.horizon.hidesAll()) {
            return batch;
        }
        boolean full;
        if (bound.unique) {
            try (ResultSet rows = bound.rows(link, from, settled, limit, bytes)) {
                batch.addAll(rows, limit, bytes);
            }
            full = batch.looked() == limit || batch.bytes() >= bytes;
        } else {
            List<Object> end = bound.end(link, from, settled, limit, bytes);
            try (ResultSet rows = bound.rows(link, from, end == null ? settled : end)) {
                batch.addAll(rows, Integer.MAX_VALUE, Long.MAX_VALUE);
            }
            full = end != null;
        }
        batch.end(full || (bound.rest != null && !batch.isEmpty()));
        return batch;
    }

    /** A file for the position can be written, and the rows can be read. */
    @Override
    protected void probe() throws AdapterException {
        traceless = true;
        access.probe(link -> bind(link).hasMore(link, placed.position(), null));
        placed.probe();
        if (unplaced != null) {
            unplaced.probe();
        }
    }

    /**
     * Takes the samples back: the host has handed them to all outputs.
     *
     * @throws AdapterException when the position cannot be kept; reading goes on behind it
     */
    @Override
    protected void returned(List<Object> samples, List<Object> infos) throws AdapterException {
        Batch done = loan;
        loan = null;
        pool.returned();
        ahead.returned();
        if (done != null) {
            done.acknowledge();
        }
        lent = false;
        if (done != null && done.hasMore()) {
            signal();
        }
    }

    /** Ends looking; also what a constructor that fails has begun. */
    @Override
    protected void release() {
        if (task != null) {
            task.cancel();
        }
        ahead.cancel();
        String left = badRows.take();
        if (!left.isEmpty()) {
            Access.LOG.log(Level.WARNING, left);
        }
        placed.close(traceless);
        if (unplaced != null) {
            unplaced.close(traceless);
        }
    }
}
