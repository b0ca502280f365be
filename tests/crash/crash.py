#!/usr/bin/env python3
"""Kills ferry at random moments while it follows a growing file into an output, and counts the rows
that are missing at the end, and those that are there twice.

Usage: crash.py FERRY [--kills N] [--seed S] [--scenario NAME...]"""
import argparse
import collections
import json
import pathlib
import random
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

PATIENCE = 120
# Samples of one write: what a kill may double.
SLICE = 100
HEAD = """
types: [{{idl: "struct Row {{ {key}long id; string text; }};"}}]
adapters: {{files: {{class: file}}, db: {{class: sql}}}}
connections:
  disk: {{adapter: files, properties: {{directory: {folder}, poll: 5ms}}}}
  lab: {{adapter: db, properties: {{url: "jdbc:sqlite:{folder}/lab.db"}}}}
sessions: {{default: {{batch: {slice}}}}}
routes:
  copy:
    type: Row
    input: {{connection: disk, stream: in.csv, properties: {{follow: true, batch: {slice}}}}}
    outputs: [{output}]
"""
FILE = "{connection: disk, stream: out.jsonl%s}"
TABLE = "{connection: lab, stream: rows, properties: {create: true%s}%s}"
# The output, how many slices a kill may double, and the annotation of the identifier. A store
# leaves out what the source lends again.
SCENARIOS = {
    "file": (FILE % "", 1, ""),
    "store, file": (FILE % ", store: {}", 1, ""),
    "small store, file": (FILE % ", store: {max_bytes: 64KiB}", 1, ""),
    "table": (TABLE % ("", ""), 1, ""),
    "upsert": (TABLE % (", mode: upsert", ""), 0, "@key "),
    "store, once": (TABLE % (", once: crash", ", store: {}"), 0, ""),
}


class Source(threading.Thread):
    """Appends rows in pieces that end anywhere."""

    def __init__(self, path, rng):
        super().__init__()
        self.path, self.rng, self.count, self.done = path, rng, 0, threading.Event()

    def run(self):
        with open(self.path, "ab", buffering=0) as out:
            out.write(b"id,text\n")
            while not self.done.wait(0.005):
                rows = "".join(f"{self.count + i},{'x' * self.rng.randrange(60)}\n"
                               for i in range(1, 20)).encode()
                self.count += 19
                cut = self.rng.randrange(len(rows))
                out.write(rows[:cut])
                out.write(rows[cut:])


def ids_in(folder):
    if (folder / "lab.db").exists():
        with sqlite3.connect(folder / "lab.db") as database:
            return [row[0] for row in database.execute("SELECT id FROM rows")]
    if not (folder / "out.jsonl").exists():
        return []
    lines = (folder / "out.jsonl").read_bytes().split(b"\n")
    return [json.loads(line)["id"] for line in lines[:-1]]


def crash(ferry, name, kills, seed):
    rng = random.Random(seed)
    output, ways, key = SCENARIOS[name]
    with tempfile.TemporaryDirectory(prefix="ferry_crash_") as directory:
        folder = pathlib.Path(directory)
        (folder / "c.yaml").write_text(HEAD.format(folder=folder, slice=SLICE, output=output,
                                                   key=key))
        source = Source(folder / "in.csv", rng)
        source.start()
        with open(folder / "log", "w", encoding="utf-8") as log:
            for _ in range(kills):
                process = subprocess.Popen([ferry, "run", "-q", folder / "c.yaml"], stdout=log,
                                           stderr=log)
                time.sleep(rng.uniform(0.5, 3))
                process.kill()
                process.wait()
            source.done.set()
            source.join()
            last = subprocess.run([ferry, "run", "-q", folder / "c.yaml", "--until-idle=2"],
                                  stdout=log, stderr=log, timeout=PATIENCE, check=False)
        found = collections.Counter(ids_in(folder))
        lost = source.count - sum(1 for i in range(1, source.count + 1) if i in found)
        twice = sum(found.values()) - len(found)
        print(f"{name}: {kills} kills, {source.count} rows, {lost} lost, {twice} twice, "
              f"last exit {last.returncode}", flush=True)
        good = lost == 0 and twice <= kills * ways * SLICE and last.returncode == 0
        if not good:
            print((folder / "log").read_text(encoding="utf-8")[-4000:], file=sys.stderr)
        return good


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("ferry")
    parser.add_argument("--kills", type=int, default=10, help="of each scenario")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    parser.add_argument("--scenario", nargs="+", default=list(SCENARIOS),
                        help="; ".join(SCENARIOS))
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}")
    results = [crash(arguments.ferry, name, arguments.kills, arguments.seed)
               for name in arguments.scenario]
    print("passed" if all(results) else "FAILED")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
