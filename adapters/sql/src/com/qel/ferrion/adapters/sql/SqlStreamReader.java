package com.qel.ferrion.adapters.sql;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import java.lang.System.Logger.Level;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;

/**
 * A table's rows as samples, in the order of some columns. A read asks for the rows behind the
 * position that has been acknowledged; the return of the loan acknowledges those that it brought,
 * and only then the position moves, in memory and on the disk.
 *
 * <p>The database is asked only when there is reason to: at the start, behind a full batch, and
 * when the watching thread has seen a row.
 */
final class SqlStreamReader extends ReaderBase {
    static final Setting<String> TABLE = Setting.text("table",
            "the table or view, if not called like the stream");
    private static final Setting<String> QUERY = Setting.text("query",
            "a SELECT whose rows are read in place of a table's");
    private static final Setting<String> ORDER = Setting.text("order_by", "columns, separated by "
            + "commas, in whose order rows are read; the primary key is added to them")
            .defaultTo("");
    private static final Setting<String> POSITION = Setting.text("position_file", "where it is "
            + "kept how far has been read; 'none' reads everything again after a restart")
            .required();
    private static final Setting<Duration> POLL = Setting.duration("poll", Duration.ofMillis(1),
            Duration.ofHours(24), "how often to look for new rows")
            .defaultTo(Duration.ofSeconds(1)).changeable();
    private static final Setting<Integer> BATCH = Setting.integer("batch", 1, 1 << 20,
            "most rows of one read").defaultTo(1024).changeable();
    private static final Setting<Nulls> NULLS = Setting.choice("nulls", Nulls.class,
            "whether NULL makes a row bad or stands for the member's default")
            .defaultTo(Nulls.REJECT);
    private static final Setting<OnBadRow> ON_BAD_ROW = Setting.choice("on_bad_row",
            OnBadRow.class, "what to do behind a row that is no sample of the type")
            .defaultTo(OnBadRow.SKIP).changeable();
    private static final Setting<Duration> REPORT = Setting.duration("report", Duration.ZERO,
            Duration.ofHours(1), "least time between two reports of bad rows")
            .defaultTo(Duration.ofSeconds(1));
    static final Setting<Cell.TimeUnit> UNIT = Setting.choice("time_unit", Cell.TimeUnit.class,
            "what an integer counts whose column is a timestamp").defaultTo(Cell.TimeUnit.US);
    static final Setting<Map<String, String>> COLUMNS = Setting.group("columns.",
            "name of a member's column");
    private static final Setting<Duration> RETRY = Setting.duration("retry_for", Duration.ZERO,
            Duration.ofHours(24), "how long a read tries to reach the database; 0s is for ever")
            .defaultTo(Duration.ofSeconds(2)).changeable();
    static final Setting<?>[] SETTINGS = {TABLE, QUERY, ORDER, POSITION, POLL, BATCH, NULLS,
            ON_BAD_ROW, REPORT, UNIT, COLUMNS, RETRY};

    private enum Nulls { REJECT, DEFAULT }

    private enum OnBadRow { SKIP, STOP }

    private final String owner;
    private final Database database;
    private final TypeCode type;
    private final String name;
    private final Link link;
    private final PositionFile file;
    private final Reports reports;
    private final List<DynamicData> pool = new ArrayList<>();
    private final SampleInfo info = new SampleInfo();
    private Watch watch;
    private Watch.Look look;
    private Watch.Task task;
    /** What follows is shared with the watching thread, which only reads it, but for due. */
    private volatile Query query;
    private volatile List<Object> position;
    private volatile boolean due = true;
    private volatile long withoutOrder;
    private volatile long toldWithoutOrder;
    /** Whether rows behind the position are with the host: they are no news. */
    private volatile boolean lent;
    private volatile boolean stopped;
    /** Of the present loan: the position behind it, and whether rows may be left. */
    private List<Object> reached;
    private boolean more;

    /**
     * Makes a reader; a database that cannot be reached now is bound to the type later.
     *
     * @throws AdapterException when a property is wrong, or the table does not go with the type
     */
    SqlStreamReader(Database database, Stream stream, TypeCode type) throws AdapterException {
        super(stream);
        this.database = database;
        this.type = type;
        Settings settings = stream.settings();
        this.owner = settings.owner();
        if (settings.has(TABLE) && settings.has(QUERY)) {
            throw new AdapterException(owner + ": give a table or a query, not both");
        }
        name = settings.has(TABLE) ? settings.get(TABLE) : stream.name();
        reports = new Reports(settings.get(REPORT));
        link = new Link(database, Database.Use.READ, owner);
        String where = settings.get(POSITION);
        try {
            file = where.equals("none") ? null : new PositionFile(Path.of(where));
        } catch (AdapterException e) {
            throw new AdapterException(owner + ": " + e.getMessage(), e);
        }
        try {
            link.tryOnce(this::bind);
        } catch (AdapterException e) {
            release();
            throw new AdapterException(owner + ": " + e.getMessage(), e);
        }
    }

    /** Finds out, once, how the type and the table go together, and where reading goes on. */
    private Query bind(Connection connection) throws SQLException, AdapterException {
        if (query == null) {
            String text = settings().get(QUERY);
            Table table = text != null ? Table.ofQuery(connection, text)
                    : Table.find(connection, database.schema(), name);
            if (table == null) {
                throw Table.missing(connection, database.schema(), name);
            }
            List<String> order = Arrays.stream(settings().get(ORDER).split(",")).map(String::strip)
                    .filter(column -> !column.isEmpty()).toList();
            Query bound = new Query(table, database.dialect(), type, order, settings().get(COLUMNS),
                    settings().get(UNIT), owner);
            position = file == null ? null : file.load(bound.order);
            query = bound;
        }
        return query;
    }

    /**
     * Begins to look for rows; called when the host can have the reader.
     *
     * @param by what looks
     * @param through used by nothing else
     */
    void start(Watch by, Link through) {
        watch = by;
        look = () -> look(through);
        task = watch.every(settings().get(POLL), look);
    }

    /** On the watching thread. A look that fails leaves it to a read to say so. */
    private void look(Link own) throws SQLException, AdapterException {
        boolean found = (due && !stopped) || reports.isDue();
        try {
            Query now = query;
            if (!found && !lent && !stopped && now != null) {
                List<Object> from = position;
                found = own.once(connection -> {
                    withoutOrder = now.withoutOrder(own);
                    return now.hasMore(own, from) || withoutOrder != toldWithoutOrder;
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

    /** Changes what may change; a reader that stands still at a bad row may be told to skip it. */
    @Override
    protected void changed(Settings updated) {
        if (updated.get(ON_BAD_ROW) == OnBadRow.SKIP) {
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
            reports.tell(false);
            return;
        }
        lent = true;
        int count = link.run(this::fetch, settings().get(RETRY));
        for (int i = 0; i < count; i++) {
            samples.add(pool.get(i));
            infos.add(info);
        }
        due = more;
        reports.tell(!more);
    }

    /**
     * Reads up to a batch of rows into the pool. Where positions are not unique a batch goes on to
     * the end of those rows that have its last one's, however many they are.
     */
    private int fetch(Connection connection) throws SQLException, AdapterException {
        Query bound = bind(connection);
        int most = settings().get(BATCH);
        List<Object> end = bound.unique ? null : bound.end(link, position, most);
        long limit = bound.unique ? most : Integer.MAX_VALUE;
        Batch batch = new Batch(bound);
        try (ResultSet rows = bound.rows(link, position, end, limit + 1)) {
            while (batch.looked < limit && !batch.stop && rows.next()) {
                batch.add(rows);
            }
            more = !batch.stop && (end != null || (batch.looked == limit && rows.next()));
        }
        if (!more) {
            withoutOrder = bound.withoutOrder(link);
        }
        batch.finish();
        return batch.count;
    }

    /** One attempt at a batch. */
    private final class Batch {
        private final Query bound;
        private final boolean nulls = settings().get(NULLS) == Nulls.DEFAULT;
        private final List<String> bad = new ArrayList<>();
        private int looked;
        private int count;
        private boolean stop;
        private List<Object> last;

        Batch(Query bound) {
            this.bound = bound;
        }

        void add(ResultSet row) throws SQLException {
            List<Object> here = bound.position(row);
            if (count == pool.size()) {
                pool.add(new DynamicData(type, DynamicData.PROPERTY_DEFAULT));
            }
            DynamicData data = pool.get(count);
            data.clear();
            try {
                for (int i = 0; i < bound.cells.size(); i++) {
                    bound.cells.get(i).read(row, i + 1, data, nulls);
                }
                count++;
            } catch (BadRow e) {
                bad.add(bound.table.source + ", row " + describe(here) + ": " + e.getMessage());
                if (settings().get(ON_BAD_ROW) == OnBadRow.STOP) {
                    stop = true;
                    return;
                }
            }
            last = here;
            looked++;
        }

        private String describe(List<Object> values) {
            List<String> texts = new ArrayList<>();
            for (int i = 0; i < values.size(); i++) {
                Object value = values.get(i);
                texts.add(bound.order.get(i) + "=" + (value instanceof byte[]
                        ? Arrays.toString((byte[]) value) : value));
            }
            return String.join(", ", texts);
        }

        void finish() {
            reached = last;
            stopped = stop;
            bad.forEach(reports::add);
            if (stop) {
                reports.add(owner + " stops here");
            }
            if (withoutOrder != toldWithoutOrder) {
                toldWithoutOrder = withoutOrder;
                if (withoutOrder > 0) {
                    reports.add(withoutOrder + " rows of " + bound.table.source + " have NULL in "
                            + String.join(" or ", bound.order) + " and are not read");
                }
            }
        }
    }

    /**
     * Takes the samples back: the host has handed them to all outputs.
     *
     * @throws AdapterException when the position cannot be kept; reading goes on behind it
     */
    @Override
    protected void returned(List<Object> samples, List<Object> infos) throws AdapterException {
        List<Object> now = reached;
        reached = null;
        if (now != null) {
            position = now;
            try {
                if (file != null) {
                    file.save(query.order, now);
                }
            } catch (AdapterException e) {
                throw new AdapterException(owner + ": " + e.getMessage(), e);
            }
        }
        lent = false;
        if (more) {
            more = false;
            signal();
        }
    }

    /** Ends looking; also what a constructor that fails has begun. */
    @Override
    protected void release() {
        if (task != null) {
            task.cancel();
        }
        String untold = reports.take();
        if (!untold.isEmpty()) {
            Link.LOG.log(Level.WARNING, untold);
        }
        link.close();
        if (file != null) {
            file.close();
        }
    }
}
