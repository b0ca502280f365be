#!/usr/bin/env python3
"""Kills ferry, and where there is one the database server, at random moments while rows flow, and
counts the rows that are missing at the end, and those that are there twice.

Usage: crash.py FERRY [--kills N] [--seed S] [--domain D] [--scenario NAME...]"""
import argparse
import collections
import contextlib
import glob
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

PATIENCE = 60
# Samples of one write: what a kill may double.
SLICE = 100
# Those that the source writes at a time.
ROWS = 20
CONNECTIONS = {
    "disk": "{{adapter: files, properties: {{directory: {folder}, poll: 5ms}}}}",
    "field": '{{adapter: db, properties: {{url: "jdbc:sqlite:{folder}/field.db"}}}}',
    "lab": '{{adapter: db, properties: {{url: "jdbc:sqlite:{folder}/lab.db"}}}}',
    "server": '{{adapter: db, properties: {{url: "jdbc:{url}"}}}}',
    # What is known of a reader that was killed goes after a second.
    "domain": "{{adapter: dds, properties: {{domain: {domain}, engine_xml: "
              "<Discovery><LeaseDuration>1s</LeaseDuration></Discovery>}}}}",
}
CONFIGURATION = """
state: {folder}/{name}.state
restart: {{first: 100ms, max: 1s}}
types: [{{idl: "struct Row {{ {key}long id; string text; }};"}}]
adapters: {{files: {{class: file}}, db: {{class: sql}}, dds: {{plugin: dds}}}}
connections: {connections}
sessions: {{default: {{batch: {slice}}}}}
routes: {{copy: {{type: Row, input: {input}, outputs: [{output}]}}}}
"""


def end(connection, stream, properties="", more=""):
    return f"{{connection: {connection}, stream: {stream}, properties: {{{properties}}}{more}}}"


BATCH = f"batch: {SLICE}"
DURABLE = "durability: transient_local"
IN = end("disk", "in.csv", f"follow: true, linger: 100ms, {BATCH}")
FROM_TABLE = end("field", "rows", f"poll: 5ms, {BATCH}")
TO_TOPIC = end("domain", "rows", f"{DURABLE}, wait_for_readers: 1")
FROM_TOPIC = end("domain", "rows", f"{DURABLE}, {BATCH}")
OUT = end("disk", "out.jsonl")
ONCE = end("lab", "rows", "create: true, once: crash", ", store: {}")
# Where rows come from, the relays on their way (input, output), what is read last first, and how
# many slices a kill may double; None: whatever a DDS writer keeps for readers that come again.
SCENARIOS = {
    "file to file": ("file", [(IN, OUT)], 1),
    "file to store to file": ("file", [(IN, end("disk", "out.jsonl", more=", store: {}"))], 1),
    "file to small store to file":
        ("file", [(IN, end("disk", "out.jsonl", more=", store: {max_bytes: 64KiB}"))], 1),
    "file to SQLite": ("file", [(IN, end("lab", "rows", "create: true"))], 1),
    "file to SQLite, upsert": ("file", [(IN, end("lab", "rows", "create: true, mode: upsert"))], 0),
    "file to store to SQLite, once": ("file", [(IN, ONCE)], 0),
    "rotated file to file": ("rotated", [(IN, OUT)], 1),
    "rotated file to store to SQLite, once": ("rotated", [(IN, ONCE)], 0),
    "SQLite to SQLite": ("table", [(FROM_TABLE, end("lab", "rows", "create: true"))], 1),
    "file to DDS to file": ("file", [(FROM_TOPIC, OUT), (IN, TO_TOPIC)], None),
    "DDS to store to PostgreSQL, upsert":
        ("file", [(FROM_TOPIC, end("server", "rows", "create: true, mode: upsert", ", store: {}")),
                  (IN, TO_TOPIC)], 0),
}


class Source(threading.Thread):
    """Writes rows, in pieces that end anywhere, until it is told that this is enough."""

    def __init__(self, kind, folder, rng):
        super().__init__()
        self.write = getattr(self, "to_" + kind)
        self.path, self.rng, self.done = folder / "in.csv", rng, threading.Event()
        self.count = self.files = 0
        self.database = sqlite3.connect(folder / "field.db", check_same_thread=False)
        self.database.execute("CREATE TABLE rows (id INTEGER PRIMARY KEY, text TEXT)")
        self.database.commit()

    def run(self):
        while not self.done.wait(0.05):
            rows = [(self.count + i, f"{'é' * self.rng.randrange(30)}\n,{i}")
                    for i in range(1, ROWS + 1)]
            self.write(rows)
            self.count += len(rows)

    def to_file(self, rows):
        text = "".join(f'{number},"{text}"\n' for number, text in rows).encode()
        cut = self.rng.randrange(len(text))
        with open(self.path, "ab", buffering=0) as out:
            out.write(b"" if out.tell() else b"id,text\n")
            out.write(text[:cut])
            out.write(text[cut:])

    def to_rotated(self, rows):
        if self.rng.randrange(50) == 0 and list(self.path.parent.glob("*/positions/*/in.csv")):
            self.files += 1
            self.path.rename(f"{self.path}.{self.files}")
        self.to_file(rows)

    def to_table(self, rows):
        with self.database:
            self.database.executemany("INSERT INTO rows VALUES (?, ?)", rows)


class Server:
    """PostgreSQL with a directory and a port of its own, not run by root."""

    def __init__(self, folder):
        self.programs = pathlib.Path(sorted(glob.glob("/usr/lib/postgresql/*/bin"))[-1])
        self.folder = folder / "server"
        self.folder.mkdir()
        folder.chmod(0o755)
        self.user = ["runuser", "-u", "postgres", "--"] if os.getuid() == 0 else []
        if self.user:
            shutil.chown(self.folder, "postgres")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.call("initdb", "-D", self.folder / "data", "-A", "trust", "-U", "tester", "-N")
        self.start()

    def call(self, program, *arguments):
        return subprocess.run([*self.user, self.programs / program, *map(str, arguments)],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, cwd=self.folder,
                              text=True, check=True).stdout

    def start(self):
        self.call("pg_ctl", "-D", self.folder / "data", "-l", self.folder / "log", "-w", "-o",
                  f"-p {self.port} -k {self.folder} -c listen_addresses=127.0.0.1 -c fsync=off",
                  "start")

    def stop(self):
        self.call("pg_ctl", "-D", self.folder / "data", "-m", "immediate", "stop")

    def restart(self):
        os.kill(int((self.folder / "data/postmaster.pid").read_text().split()[0]), signal.SIGKILL)
        for _ in range(10 * PATIENCE):
            try:
                return self.start()
            except subprocess.CalledProcessError:  # What it leaves behind takes time to go.
                time.sleep(0.2)
        raise AssertionError((self.folder / "log").read_text())

    def url(self, port=None):
        return f"postgresql://127.0.0.1:{port or self.port}/postgres?user=tester"

    def sql(self, text):
        return self.call("psql", "-h", "127.0.0.1", "-p", self.port, "-U", "tester", "-qAtc",
                         text, "postgres").strip()


class Run:
    """One scenario: its relays, and what is to be killed."""

    def __init__(self, ferry, name, seed, domain, folder):
        kind, self.relays, self.slices = SCENARIOS[name]
        self.ferry, self.name, self.folder = ferry, name, folder
        self.rng = random.Random(seed)
        text = str(self.relays)
        self.server = Server(folder) if "server" in text else None
        self.source = Source(kind, folder, self.rng)
        for i, (source, target) in enumerate(self.relays):
            used = {key: value for key, value in CONNECTIONS.items() if key in source + target}
            url = self.server.url() if self.server else ""
            connections = "".join(f"\n  {key}: {value}" for key, value in used.items())
            (folder / f"{i}.yaml").write_text((CONFIGURATION.replace("{connections}", connections))
                                              .format(folder=folder, name=i, slice=SLICE,
                                                      input=source, output=target, url=url,
                                                      domain=domain,
                                                      key="@key " if self.slices != 1 else ""))
        self.processes = [self.start(i) for i in range(len(self.relays))]

    def start(self, index, *options):
        with open(self.folder / "log", "a", encoding="utf-8") as log:
            return subprocess.Popen([self.ferry, "run", "-q", self.folder / f"{index}.yaml",
                                     *options], stdout=log, stderr=log)

    def ids(self):
        """Of the rows that have arrived."""
        try:
            if self.server:
                return [int(text) for text in self.server.sql("SELECT id FROM rows").split()]
            if (self.folder / "lab.db").exists():
                with sqlite3.connect(self.folder / "lab.db") as database:
                    return [row[0] for row in database.execute("SELECT id FROM rows")]
            lines = (self.folder / "out.jsonl").read_bytes().split(b"\n")
            return [json.loads(line)["id"] for line in lines[:-1]]
        except (OSError, sqlite3.Error, subprocess.CalledProcessError):
            return []

    def kept(self):
        """What changes when rows go on."""
        newest = 0
        for name in ("out*", "lab*", "*/positions/*/*"):
            for path in self.folder.glob(name):
                with contextlib.suppress(FileNotFoundError):  # A journal goes at any time.
                    newest = max(newest, 0 if path.suffix == ".lock" else path.stat().st_mtime_ns)
        return newest

    def until(self, condition):
        end_of_patience = time.monotonic() + PATIENCE
        while not condition() and time.monotonic() < end_of_patience:
            time.sleep(0.05)

    def await_rows(self, wanted):
        """Waits as long as rows arrive. Returns whether all are there."""
        before, now = -1, 0
        while now > before and not wanted <= set(self.ids()):
            before = len(self.ids())
            self.until(lambda: len(self.ids()) > before)
            now = len(self.ids())
        return wanted <= set(self.ids())

    def kill(self):
        """Somebody. What a publisher has sent is in its memory and in that of its subscriber, and
        nowhere else: the one is killed only if the other has written it, and keeps it."""
        victim = self.rng.randrange(len(self.processes) + (1 if self.server else 0))
        if victim == len(self.processes):
            self.server.restart()
            return
        if victim > 0:
            self.await_arrival(self.source.count)
        self.processes[victim].kill()
        self.processes[victim].wait()
        self.processes[victim] = self.start(victim)
        if victim > 0:
            self.await_arrival(self.source.count + 2 * ROWS)

    def await_arrival(self, count):
        arrived = self.await_rows(set(range(1, count + 1)))
        assert arrived, f"nothing goes on, and not all of {count} rows are there: {self.folder}"

    def result(self, kills):
        """Whether all is there when all has come to rest."""
        self.source.start()
        for _ in range(kills):
            # Some die while they start, most of them at work.
            if self.rng.randrange(4):
                before = self.kept()
                self.until(lambda: self.kept() != before)
            time.sleep(self.rng.uniform(0.01, 1))
            self.kill()
        self.source.done.set()
        self.source.join()
        wanted = set(range(1, self.source.count + 1))
        self.await_rows(wanted)
        codes = []
        for process in reversed(self.processes):
            process.send_signal(signal.SIGTERM)
            codes.append(process.wait(PATIENCE))
        found = collections.Counter(self.ids())
        lost = wanted - set(found)
        twice = sum(found.values()) - len(found)
        print(f"{self.name}: {kills} kills, {self.source.count} rows, {len(lost)} lost, {twice} "
              f"twice, {self.source.files} files more, exit {codes}", flush=True)
        # One that has only just been started may not listen to the signal yet.
        ended = all(code in (0, -signal.SIGTERM) for code in codes)
        good = not lost and ended and set(found) <= wanted and (
            self.slices is None or twice <= kills * self.slices * SLICE)
        if not good:
            print(f"lost: {sorted(lost)[:20]}...", (self.folder / "log").read_text()[-4000:],
                  file=sys.stderr)
        return good

    def close(self):
        self.source.done.set()
        for process in self.processes:
            process.kill()
            process.wait()
        if self.server:
            self.server.stop()


def crash(ferry, name, arguments, keep):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="ferry_crash_"))
    run = Run(ferry, name, arguments.seed, arguments.domain, folder)
    try:
        good = run.result(arguments.kills)
    finally:
        run.close()
    if good or not keep:
        shutil.rmtree(folder)
    else:
        print(f"kept: {folder}", file=sys.stderr)
    return good


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("ferry")
    parser.add_argument("--kills", type=int, default=10, help="of each scenario")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    parser.add_argument("--domain", type=int, default=100, help="of DDS")
    parser.add_argument("--keep", action="store_true", help="leave the folders of what fails")
    parser.add_argument("--scenario", nargs="+", default=list(SCENARIOS),
                        help="; ".join(SCENARIOS))
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}")
    results = [crash(os.path.abspath(arguments.ferry), name, arguments, arguments.keep)
               for name in arguments.scenario]
    print("passed" if all(results) else "FAILED")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
