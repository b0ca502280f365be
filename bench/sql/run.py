#!/usr/bin/env python3
"""Loads a CSV file of a million rows into an SQLite table with ferry, beside a plain Java program.

usage: run.py FERRY [--rows N] [--quick] [--rounds N] [--json FILE [--extend]] [--pictures DIR]

The two run in turn, on the same file, with inserts and with upserts; what counts is the ratio
within a round. Both are whole processes, VM start included, and commit every 1024 rows. After every round
the two tables are compared.
"""
import argparse
import importlib.util
import os
import pathlib
import shutil
import sqlite3
import subprocess
import sys
import tempfile

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
        subprocess.run(["javac", "-cp", JARS, "-d", str(work), str(HERE / "PlainLoad.java")],
                       check=True)
        for mode in ("insert", "upsert"):
            os.environ["MODE"] = mode
            ratios, rates = [], []
            for _ in range(rounds):
                for database in ("plain.db", "relayed.db"):
                    (work / database).unlink(missing_ok=True)
                plain = million_rows.timed(["java", "-Xmx512m", "-cp", f"{work}:{JARS}",
                                            "PlainLoad", "rows.csv", "plain.db", mode], work)[0]
                relayed = million_rows.timed([ferry, "run", "relay.yaml", "--until-idle=0.1",
                                              "--quiet"], work)[0]
                compare(work, rows)
                ratios.append(plain / relayed)
                rates.append(rows / relayed)
            print(f"| {mode} | {report.spread(rates, digits=0)} | {report.spread(ratios)} |",
                  flush=True)
            objects.append(report.entry(f"sql: {mode}", 1024, "row", ratios,
                                        rows_per_second=report.quartiles(rates)))
            drawn.append((mode, report.quartiles(ratios), False))
    report.save(arguments, objects)
    if arguments.pictures:
        report.picture(arguments.pictures / "sql.svg", "A million rows into an SQLite table",
                       "rate, ferry / plain Java program", drawn)


if __name__ == "__main__":
    main()
