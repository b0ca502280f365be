#!/usr/bin/env python3
"""Relays a CSV file of a million rows to JSON lines with ferry, beside a plain Java program.

usage: run.py FERRY [--rows N] [--quick] [--rounds N] [--part PART...] [--json FILE [--extend]]
              [--pictures DIR]

Part rows: the two run in turn on the same file, the plain program before and behind ferry; what
counts is the ratio within a round, and where the plain program disagrees with itself by more than a
tenth the figures are void. Both are whole processes, VM start included. After the first round the
outputs are compared line by line as JSON. While ferry runs its resident memory is read five times a
second.

Part start: the same with a file of four rows. From the start of the process until its output has
them passes all that a relay with one adapter needs before it moves samples.
"""
import argparse
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import report  # noqa: E402

JARS = "/usr/share/java/commons-csv.jar:/usr/share/java/jackson-core.jar"
PARTS = ("rows", "start")
STATIONS = ["Zürich-Kloten", "São Paulo", "Łódź", "Besançon", "El Niño 3.4", "京都"]


def make_rows(path, rows):
    with open(path, "w", encoding="utf-8", newline="") as out:
        out.write("id,station,time_ms,temperature,humidity,valid,remark\r\n")
        for i in range(rows):
            temperature = "" if i % 50 == 0 else f"{(i * 37 % 5000) / 100 - 10:.2f}"
            remark = '"calibrated, ""ok"""' if i % 20 == 0 else ""
            out.write(f"{i},{STATIONS[i % 6]},{1700000000000 + i * 1000},{temperature},"
                      f"{(i * 13 % 1000) / 8},{'true' if i % 3 else 'false'},{remark}\r\n")


def resident_kib(pid):
    try:
        with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return None


def timed(command, work, memory=None):
    """Seconds on the wall and of CPU that a process takes."""
    start = time.monotonic()
    with open(work / "log", "w", encoding="utf-8") as log:
        process = subprocess.Popen(command, cwd=work, stdout=log, stderr=subprocess.STDOUT)
        done = threading.Event()

        def watch():
            while not done.wait(0.2):
                now = resident_kib(process.pid)
                if now is not None:
                    memory.append(now)

        watcher = threading.Thread(target=watch) if memory is not None else None
        if watcher:
            watcher.start()
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        seconds = time.monotonic() - start
        done.set()
        if watcher:
            watcher.join()
    if process.returncode != 0:
        sys.exit(f"{command[0]} ended {process.returncode}:\n"
                 + (work / "log").read_text(encoding="utf-8"))
    return seconds, used.ru_utime + used.ru_stime


def same(left, right):
    with open(left, encoding="utf-8") as a, open(right, encoding="utf-8") as b:
        for number, (x, y) in enumerate(zip(a, b, strict=True), 1):
            if x != y and json.loads(x) != json.loads(y):
                sys.exit(f"line {number} differs:\n{x}{y}")


class Bench:
    def __init__(self, ferry, work, arguments):
        self.work = work
        self.quick = arguments.quick
        self.rows_ = arguments.rows or (100_000 if self.quick else 1_000_000)
        self.rounds = arguments.rounds
        self.plain = ["java", "-Xmx512m", "-cp", f"{work}:{JARS}", "PlainConvert", "rows.csv",
                      "plain.jsonl"]
        self.relay = [ferry, "run", "relay.yaml", "--until-idle=0.1", "--quiet"]
        self.objects = []
        self.drawn = []

    def note(self, name, ratios, twins, **more):
        void = abs(statistics.median(twins) - 1) > 0.1
        self.objects.append(report.entry(name, 1024, "row", ratios, void, **more))
        self.drawn.append((name, report.quartiles(ratios), void))
        print(f"{name}: {report.spread(ratios)} of the plain program's; that against itself "
              f"{report.spread(twins)}{', VOID' if void else ''}")

    def rows(self):
        make_rows(self.work / "rows.csv", self.rows_)
        ratios, cpu, rates, twins, first = [], [], [], [], None
        for number in range(self.rounds or (2 if self.quick else 5)):
            before, before_cpu = timed(self.plain, self.work)
            memory = []
            seconds, used = timed(self.relay, self.work, memory)
            behind, behind_cpu = timed(self.plain, self.work)
            if number == 0:
                same(self.work / "plain.jsonl", self.work / "relayed.jsonl")
                first = memory
            twins.append(before / behind)
            ratios.append((before + behind) / 2 / seconds)
            cpu.append((before_cpu + behind_cpu) / 2 / used)
            rates.append(self.rows_ / seconds)
            half = memory[len(memory) // 2:] or [0]
            print(f"round {number + 1}: ferry {seconds:.2f} s ({rates[-1]:,.0f} rows/s), plain "
                  f"{before:.2f} and {behind:.2f} s; CPU {used:.2f} and {before_cpu:.2f} s; "
                  "resident "
                  f"in the second half {min(half) / 1024:.0f} to {max(half) / 1024:.0f} MiB")
        print("resident memory of the first run, MiB:",
              " ".join(f"{kib / 1024:.0f}" for kib in first))
        self.note("rows: rate", ratios, twins, rows_per_second=statistics.median(rates))
        self.note("rows: rows a second of CPU", cpu, twins)

    def start(self):
        make_rows(self.work / "rows.csv", 4)
        output = self.work / "relayed.jsonl"
        ready, cpu, ratios, twins = [], [], [], []
        for _ in range(self.rounds or (5 if self.quick else 25)):
            before = timed(self.plain, self.work)[0]
            output.unlink(missing_ok=True)
            begin = time.time()
            cpu.append(timed(self.relay, self.work)[1] * 1e3)
            # A batch is written in one go.
            ready.append((output.stat().st_mtime - begin) * 1e3)
            behind = timed(self.plain, self.work)[0]
            twins.append(before / behind)
            ratios.append((before + behind) / 2 * 1e3 / ready[-1])
        print(f"first samples written after {report.spread(ready, digits=0)} ms, the fastest after "
              f"{min(ready):.0f}; CPU from start to end {report.spread(cpu, digits=0)} ms")
        self.note("start: rate", ratios, twins, ready_ms=report.quartiles(ready),
                  cpu_ms=report.quartiles(cpu))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("ferry")
    parser.add_argument("--rows", type=int)
    parser.add_argument("--quick", action="store_true", help="a tenth of the rows, few rounds")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--part", choices=PARTS, nargs="+", default=PARTS)
    report.add_options(parser)
    arguments = parser.parse_args()

    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        for file in ("rows.idl", "relay.yaml"):
            shutil.copy(HERE / file, work)
        subprocess.run(["javac", "-cp", JARS, "-d", str(work), str(HERE / "PlainConvert.java")],
                       check=True)
        bench = Bench(os.path.abspath(arguments.ferry), work, arguments)
        for part in arguments.part:
            getattr(bench, part)()
    report.save(arguments, bench.objects)
    if arguments.pictures:
        report.picture(arguments.pictures / "rows.svg", "ferry beside a plain Java program",
                       "rate, ferry / plain", bench.drawn)


if __name__ == "__main__":
    main()
