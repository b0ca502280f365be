#!/usr/bin/env python3
"""Relays a CSV file of a million rows to JSON lines with ferry, beside a plain Java program.

usage: run.py FERRY [--rows N] [--quick] [--rounds N] [--json FILE [--extend]]

The two run in turn, `rounds` times each, on the same file; what counts is the ratio within a round.
Both are whole processes, VM start included. After the first round the outputs are compared line by
line as JSON. While ferry runs its resident memory is read five times a second.
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
JARS = "/usr/share/java/commons-csv.jar:/usr/share/java/jackson-core.jar"
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
    start = time.monotonic()
    process = subprocess.Popen(command, cwd=work, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               text=True)
    done = threading.Event()

    def watch():
        while not done.wait(0.2):
            now = resident_kib(process.pid)
            if now is not None:
                memory.append((time.monotonic() - start, now))

    watcher = threading.Thread(target=watch) if memory is not None else None
    if watcher:
        watcher.start()
    output = process.communicate()[0]
    seconds = time.monotonic() - start
    done.set()
    if watcher:
        watcher.join()
    if process.returncode != 0:
        sys.exit(f"{command[0]} ended {process.returncode}:\n{output}")
    return seconds, output


def same(left, right):
    with open(left, encoding="utf-8") as a, open(right, encoding="utf-8") as b:
        for number, (x, y) in enumerate(zip(a, b, strict=True), 1):
            if x != y and json.loads(x) != json.loads(y):
                sys.exit(f"line {number} differs:\n{x}{y}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("ferry")
    parser.add_argument("--rows", type=int)
    parser.add_argument("--quick", action="store_true", help="a tenth of the rows, two rounds")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--json")
    parser.add_argument("--extend", action="store_true", help="the file has a list to add to")
    arguments = parser.parse_args()
    ferry = os.path.abspath(arguments.ferry)
    rows = arguments.rows or (100_000 if arguments.quick else 1_000_000)
    rounds = arguments.rounds or (2 if arguments.quick else 5)

    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        make_rows(work / "rows.csv", rows)
        for file in ("rows.idl", "relay.yaml"):
            shutil.copy(HERE / file, work)
        subprocess.run(["javac", "-cp", JARS, "-d", str(work), str(HERE / "PlainConvert.java")],
                       check=True)
        plain = ["java", "-Xmx512m", "-cp", f"{work}:{JARS}", "PlainConvert", "rows.csv",
                 "plain.jsonl"]
        relay = [ferry, "run", "relay.yaml", "--until-idle=0.1", "--quiet"]

        ratios, rates, first = [], [], None
        for number in range(rounds):
            reference = timed(plain, work)[0]
            memory = []
            seconds = timed(relay, work, memory)[0]
            if number == 0:
                same(work / "plain.jsonl", work / "relayed.jsonl")
                first = memory
            ratios.append(reference / seconds)
            rates.append(rows / seconds)
            half = [kib for _, kib in memory[len(memory) // 2:]] or [0]
            print(f"round {number + 1}: ferry {seconds:.2f} s ({rows / seconds:,.0f} rows/s), plain "
                  f"{reference:.2f} s, ratio {reference / seconds:.2f}; resident in the second half "
                  f"{min(half) / 1024:.0f} to {max(half) / 1024:.0f} MiB")
        print(f"median: {statistics.median(rates):,.0f} rows/s, "
              f"{statistics.median(ratios):.2f} of the plain program's rate")
        print("resident memory of the first run, MiB:",
              " ".join(f"{kib / 1024:.0f}" for _, kib in first))
        if arguments.json:
            quartiles = statistics.quantiles(ratios, n=4) if len(ratios) > 1 else None
            earlier = []
            if arguments.extend:
                earlier = json.loads(pathlib.Path(arguments.json).read_text(encoding="utf-8"))
            with open(arguments.json, "w", encoding="utf-8") as out:
                json.dump([*earlier, {"name": "million_rows", "batch": 1024, "payload": "row",
                            "ratio": statistics.median(ratios), "quartiles": quartiles,
                            "void": False}], out, indent=2)


if __name__ == "__main__":
    main()
