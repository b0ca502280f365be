#!/usr/bin/env python3
"""What a guarantee costs: a relay from file to file as it is, without retries, and with a store.

usage: run.py FERRY [--quick] [--rounds N] [--part PART...] [--json FILE [--extend]]
              [--pictures DIR]

Parts small and large: samples of 64 bytes and of 1 KiB. A round runs the relay without a store
(at least once), with `on_error: continue` (at most once), with a store, and without a store once
more. What counts is the ratio within a round; where the first run disagrees with the last by more
than a tenth the figures are void. The time of a relay that has one row is taken off each.

Beside them a plain program appends as many bytes as the store took, in as many pieces, with a sync
behind each: what the disk allows, whoever writes. How many that are is counted with strace in a run
of its own.
"""
import argparse
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import report  # noqa: E402

# Bytes of a sample, and of its text: the number and the text's length take 12, its end one.
PARTS = {"small": 64, "large": 1024}
ROUTE = """\
types: [{{idl: "struct Row {{ long long id; string text; }};"}}]
adapters:
  files: {{class: com.qel.ferrion.adapters.file.FileAdapter}}
connections:
  here: {{adapter: files, properties: {{directory: .}}}}
routes:
  rows:
    type: Row
    input: {{connection: here, stream: {source}.csv}}
    outputs: [{{connection: here, stream: taken.csv{output}}}]
{route}"""
VARIANTS = {"plain": ("", ""), "lossy": ("", "    on_error: continue\n"),
            "stored": (", store: {max_bytes: 1GiB}", "")}


def make_rows(path, rows, size):
    text = "x" * (size - 13)
    with open(path, "w", encoding="ascii") as out:
        out.write("id,text\n")
        for i in range(rows):
            out.write(f"{i},{text}\n")


def appended(path, syncs, size):
    """Seconds that a plain append takes, with a sync behind each piece."""
    piece = b"x" * (size // syncs)
    start = time.monotonic()
    with open(path, "wb", buffering=0) as out:
        for _ in range(syncs):
            out.write(piece)
            os.fdatasync(out.fileno())
    seconds = time.monotonic() - start
    path.unlink()
    return seconds


class Bench:
    def __init__(self, ferry, work, arguments):
        self.ferry = ferry
        self.work = work
        self.quick = arguments.quick
        self.rounds = arguments.rounds or (2 if arguments.quick else 5)
        self.objects = []
        self.drawn = []

    def run(self, variant, source, prefix=()):
        output, route = VARIANTS[variant]
        (self.work / "relay.yaml").write_text(
            ROUTE.format(source=source, output=output, route=route), encoding="utf-8")
        taken = self.work / "taken.csv"
        taken.unlink(missing_ok=True)
        start = time.monotonic()
        done = subprocess.run([*prefix, self.ferry, "run", "relay.yaml", "--until-idle=0.1",
                               "--quiet"], cwd=self.work, text=True, capture_output=True,
                              check=False)
        seconds = time.monotonic() - start
        if done.returncode != 0:
            sys.exit(f"{variant} ended {done.returncode}:\n{done.stdout}{done.stderr}")
        return seconds, taken

    def net(self, variant):
        """Seconds for all rows, without those of a start and an end."""
        whole, taken = self.run(variant, "rows")
        if taken.stat().st_size != (self.work / "rows.csv").stat().st_size:
            sys.exit(f"{variant}: not all rows have been written")
        return whole - self.run(variant, "one")[0]

    def syncs(self):
        self.run("stored", "rows", ("strace", "-f", "-c", "-o", "calls", "-e",
                                    "trace=fdatasync,fsync"))
        text = (self.work / "calls").read_text(encoding="utf-8")
        return sum(int(calls) for calls in
                   re.findall(r"^\s*\S+\s+\S+\s+\S+\s+(\d+)\s.*(?:fsync|fdatasync)$", text, re.M))

    def note(self, name, size, ratios, void, **more):
        self.objects.append(report.entry(name, 1024, size, ratios, void, **more))
        self.drawn.append((name, report.quartiles(ratios), void))
        print(f"{name}: {report.spread(ratios)}{', VOID' if void else ''}")

    def part(self, name):
        size = PARTS[name]
        rows = (40 if self.quick else 200) * (1 << 20) // size // (4 if name == "small" else 1)
        make_rows(self.work / "rows.csv", rows, size)
        make_rows(self.work / "one.csv", 1, size)
        syncs = self.syncs()
        repeats, stores, disks, twins, plains = [], [], [], [], []
        for number in range(self.rounds):
            before = self.net("plain")
            lossy = self.net("lossy")
            stored = self.net("stored")
            behind = self.net("plain")
            plain = (before + behind) / 2
            disk = appended(self.work / "append", syncs, rows * size)
            twins.append(before / behind)
            repeats.append(lossy / plain)
            stores.append(plain / stored)
            disks.append(disk / stored)
            plains.append(rows / plain)
            print(f"{name}, round {number + 1}: {rows:,} samples; at least once {before:.2f} and "
                  f"{behind:.2f} s, at most once {lossy:.2f} s, with a store {stored:.2f} s; "
                  f"{syncs} syncs of a plain append {disk:.2f} s")
        void = abs(statistics.median(twins) - 1) > 0.1
        self.note(f"{size} B: at least once / at most once", size, repeats, void)
        self.note(f"{size} B: with a store / without", size, stores, void, syncs=syncs,
                  samples_per_second=statistics.median(plains))
        self.note(f"{size} B: plain append / with a store", size, disks, void)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("ferry")
    parser.add_argument("--quick", action="store_true", help="a fifth of the rows, few rounds")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--part", choices=PARTS, nargs="+", default=list(PARTS))
    report.add_options(parser)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        bench = Bench(os.path.abspath(arguments.ferry), pathlib.Path(name), arguments)
        for part in arguments.part:
            bench.part(part)
    report.save(arguments, bench.objects)
    if arguments.pictures:
        report.picture(arguments.pictures / "delivery.svg", "what a guarantee costs",
                       "rate, with / without", bench.drawn)


if __name__ == "__main__":
    main()
