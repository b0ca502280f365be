#!/usr/bin/env python3
"""Loads a CSV file of a million rows into an SQLite table with ferry, beside a plain Java program,
and reads the table, and one four times as long, into a CSV file again, beside another one.

usage: run.py FERRY [--rows N] [--quick] [--rounds N] [--json FILE [--extend]] [--pictures DIR]

The two run in turn, on the same file, with inserts and with upserts; what counts is the ratio
within a round. Both are whole processes, VM start included, and commit every 1024 rows. After every
round the two tables are compared, and the two files value by value. With a PostgreSQL server on the
machine, ten million rows are put into a table that ferry has nothing more to read from: what counts
is how many pages the look for more takes, as the server's EXPLAIN says.
"""
import argparse
import csv
import glob
import importlib.util
import os
import pathlib
import re
import shutil
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import report  # noqa: E402

ROWS = HERE.parent / "million_rows"
SPEC = importlib.util.spec_from_file_location("million_rows", ROWS / "run.py")
million_rows = importlib.util.module_from_spec(SPEC)
SPEC.loader.exec_module(million_rows)
JARS = "/usr/share/java/commons-csv.jar:/usr/share/java/sqlite-jdbc.jar"


def compare(work, rows):
    with sqlite3.connect(work / "plain.db") as tables:
        tables.execute("ATTACH ? AS other", (str(work / "relayed.db"),))
        for one, other in [("main", "other"), ("other", "main")]:
            count = tables.execute(f'SELECT count(*) FROM {one}."rows"').fetchone()[0]
            odd = tables.execute(f'SELECT count(*) FROM (SELECT * FROM {one}."rows" EXCEPT '
                                 f'SELECT * FROM {other}."rows")').fetchone()[0]
            if count != rows or odd:
                sys.exit(f"run.py: {count} rows, {odd} of them only in one table")


def values(path):
    with open(path, encoding="utf-8", newline="") as lines:
        for row in csv.DictReader(lines):
            yield {name: float(text) if name in ("temperature", "humidity") and text else text
                   for name, text in row.items()}


def compare_files(work):
    plain, relayed = values(work / "plain.csv"), values(work / "relayed.csv")
    if any(one != other for one, other in zip(plain, relayed, strict=True)):
        sys.exit("run.py: the two files differ")


POLL = """
types: [{{idl: "struct Row {{ @key long long id; long t; }};"}}]
adapters: {{sql: {{class: com.qel.ferrion.adapters.sql.SqlAdapter}}}}
connections:
  server: {{adapter: sql, properties: {{url: "{url}", user: bench}}}}
  sink: {{adapter: sql, properties: {{url: "jdbc:sqlite:sink.db"}}}}
routes:
  polled:
    type: Row
    input:
      connection: server
      stream: polled
      properties: {{position_file: position, poll: 50ms}}
    outputs: [{{connection: sink, stream: polled, properties: {{create: true}}}}]
"""


def poll_cost(ferry, work, rows):
    """Pages that the server reads for a look which finds nothing, with the adapter's statement."""
    programs = sorted(glob.glob("/usr/lib/postgresql/*/bin/initdb"))
    if not programs:
        return None
    programs = pathlib.Path(programs[-1]).parent
    place = pathlib.Path(tempfile.mkdtemp(prefix="bench_pg_"))
    run_as = []
    if os.getuid() == 0:
        shutil.chown(place, "postgres")
        run_as = ["runuser", "-u", "postgres", "--"]
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]

    def call(program, *arguments):
        subprocess.run([*run_as, str(programs / program), *map(str, arguments)], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=place)

    def sql(text):
        return subprocess.run([str(programs / "psql"), "-h", "127.0.0.1", "-p", str(port), "-U",
                               "bench", "-qAtc", text, "postgres"], check=True,
                              capture_output=True, text=True).stdout.strip()

    call("initdb", "-D", place / "data", "-A", "trust", "-U", "bench", "-N")
    call("pg_ctl", "-D", place / "data", "-l", place / "log", "-w", "-o",
         f"-p {port} -k {place} -c listen_addresses=127.0.0.1 -c fsync=off", "start")
    relay = None
    try:
        sql(f"CREATE TABLE polled AS SELECT id, id % 7 AS t FROM generate_series(1, {rows}) AS id")
        sql("ALTER TABLE polled ADD PRIMARY KEY (id)")
        sql("VACUUM ANALYZE polled")
        (work / "position").write_text(f"position by id\nt{rows}\n")
        (work / "poll.yaml").write_text(POLL.format(
            url=f"jdbc:postgresql://127.0.0.1:{port}/postgres"))
        relay = subprocess.Popen([ferry, "run", "poll.yaml", "-q"], cwd=work,
                                 stdout=subprocess.DEVNULL)
        look = ""
        while "LIMIT 1" not in look or look.endswith("LIMIT 1024"):
            time.sleep(0.1)
            look = sql("SELECT query FROM pg_stat_activity WHERE application_name = 'ferry' AND "
                       "query LIKE '%SELECT 1 FROM%'")
        plan = sql("SET plan_cache_mode = force_generic_plan; PREPARE look AS " + look
                   + f"; EXPLAIN (ANALYZE, BUFFERS) EXECUTE look({rows})")
        return sum(map(int, re.findall(r"(?:hit|read)=(\d+)", plan.split("Planning")[0]
                                       .splitlines()[1])))
    finally:
        if relay:
            relay.terminate()
            relay.wait()
        call("pg_ctl", "-D", place / "data", "-m", "immediate", "stop")
        shutil.rmtree(place)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("ferry")
    parser.add_argument("--rows", type=int)
    parser.add_argument("--quick", action="store_true", help="a tenth of the rows, two rounds")
    parser.add_argument("--rounds", type=int)
    report.add_options(parser)
    arguments = parser.parse_args()
    ferry = os.path.abspath(arguments.ferry)
    rows = arguments.rows or (100_000 if arguments.quick else 1_000_000)
    rounds = arguments.rounds or (2 if arguments.quick else 5)
    objects, drawn = [], []
    print("| rows written by | rows/s | of the plain program's rate |\n|---|---|---|")
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        million_rows.make_rows(work / "rows.csv", rows)
        shutil.copy(ROWS / "rows.idl", work)
        shutil.copy(HERE / "relay.yaml", work)
        shutil.copy(HERE / "read.yaml", work)
        subprocess.run(["javac", "-cp", JARS, "-d", str(work), str(HERE / "PlainLoad.java"),
                        str(HERE / "PlainRead.java")], check=True)
        java = ["java", "-Xmx512m", "-cp", f"{work}:{JARS}"]

        def measure(name, made, plain, config, count, check):
            """The two programs in turn; each makes what is named, which is compared."""
            ratios, rates = [], []
            for _ in range(rounds):
                for file in made:
                    (work / file).unlink(missing_ok=True)
                reference = million_rows.timed([*java, *plain], work)[0]
                relayed = million_rows.timed([ferry, "run", config, "--until-idle=0.1", "--quiet"],
                                             work)[0]
                check()
                ratios.append(reference / relayed)
                rates.append(count / relayed)
            print(f"| {name} | {report.spread(rates, digits=0)} | {report.spread(ratios)} |",
                  flush=True)
            objects.append(report.entry(f"sql: {name}", 1024, "row", ratios,
                                        rows_per_second=report.quartiles(rates)))
            drawn.append((name, report.quartiles(ratios), False))

        for mode in ("insert", "upsert"):
            os.environ["MODE"] = mode
            measure(mode, ("plain.db", "relayed.db"), ("PlainLoad", "rows.csv", "plain.db", mode),
                    "relay.yaml", rows, lambda: compare(work, rows))
        for name, count in [("read", rows), ("read, long", 4 * rows)]:
            if count != rows:
                million_rows.make_rows(work / "rows.csv", count)
                (work / "plain.db").unlink()
                subprocess.run([*java, "PlainLoad", "rows.csv", "plain.db", "upsert"], cwd=work,
                               check=True)
            measure(name, ("plain.csv", "relayed.csv"), ("PlainRead", "plain.db", "plain.csv"),
                    "read.yaml", count, lambda: compare_files(work))
        polled = 10 * rows
        pages = poll_cost(ferry, work, polled)
        if pages is not None:
            print(f"\nA look for more in a table of {polled} rows of PostgreSQL reads {pages} "
                  "pages.")
    report.save(arguments, objects)
    if arguments.pictures:
        report.picture(arguments.pictures / "sql.svg", "Rows into an SQLite table and out of it",
                       "rate, ferry / plain Java program", drawn)


if __name__ == "__main__":
    main()
