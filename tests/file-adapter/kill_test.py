#!/usr/bin/env python3
"""A growing file that ferry follows into another one, while ferry is killed and the file rotated.

Usage: kill_test.py FERRY KILLS [SEED]"""
import json
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time

PATIENCE = 120
BATCH = 50
CONFIGURATION = """
types: [{{idl: "struct Row {{ long id; string text; }};"}}]
adapters: {{files: {{class: com.qel.ferrion.adapters.file.FileAdapter}}}}
connections: {{disk: {{adapter: files, properties: {{directory: {folder}, poll: 5ms}}}}}}
routes:
  copy:
    type: Row
    input: {{connection: disk, stream: in.csv,
            properties: {{follow: true, linger: 200ms, batch: {batch}}}}}
    outputs: [{{connection: disk, stream: out.jsonl}}]
"""


class Source:
    """Appends rows in pieces that end anywhere, and now and then renames the file."""

    def __init__(self, path, rng):
        self.path, self.rng = path, rng
        self.next_id = self.files = 0
        self.done = threading.Event()
        # Of a file that is renamed before anything was read nobody could know.
        self.read = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def row(self):
        self.next_id += 1
        return f'{self.next_id},"{"é" * self.rng.randrange(40)}\n,{self.next_id}"\n'

    def run(self):
        while not self.done.is_set():
            self.files += 1
            with open(self.path, "ab", buffering=0) as out:
                out.write(b"id,text\n")
                end = time.monotonic() + self.rng.choice([0.1, 0.5, 6])
                while not self.done.is_set() and (time.monotonic() < end
                                                  or not self.read.is_set()):
                    rows = "".join(self.row() for _ in range(self.rng.randrange(1, 30))).encode()
                    cut = self.rng.randrange(len(rows))
                    out.write(rows[:cut])
                    out.write(rows[cut:])
                    time.sleep(0.01)
            if not self.done.is_set():
                os.rename(self.path, f"{self.path}.{self.files}")

    def stop(self):
        self.done.set()
        self.thread.join()


def ids_of(path):
    """Of the rows that are whole: the last one is being written."""
    if not path.exists():
        return []
    return [json.loads(line)["id"] for line in path.read_bytes().split(b"\n")[:-1]]


def main(ferry, kills, seed):
    rng = random.Random(seed)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "relay.yaml").write_text(CONFIGURATION.format(folder=folder, batch=BATCH))
        log = open(folder / "log", "a")

        def start():
            return subprocess.Popen([ferry, "run", "relay.yaml"], cwd=folder, stdout=log,
                                    stderr=log)

        source = Source(folder / "in.csv", rng)
        process = start()
        try:
            while not list(folder.glob("relay.state/positions/*/in.csv")):
                assert process.poll() is None, (folder / "log").read_text()
                time.sleep(0.05)
            source.read.set()
            for _ in range(kills):
                time.sleep(rng.uniform(0.3, 2.5))
                process.kill()
                process.wait()
                process = start()
            source.stop()
            end = time.monotonic() + PATIENCE
            while source.next_id not in ids_of(folder / "out.jsonl"):
                if process.poll() is not None or time.monotonic() > end:
                    raise AssertionError((folder / "log").read_text())
                time.sleep(0.1)
            process.send_signal(signal.SIGTERM)
            assert process.wait(PATIENCE) == 0, (folder / "log").read_text()
        finally:
            source.stop()
            process.kill()
            process.wait()
        arrived = ids_of(folder / "out.jsonl")
        lost = set(range(1, source.next_id + 1)) - set(arrived)
        twice = len(arrived) - len(set(arrived))
        print(f"seed {seed}: {kills} kills, {source.files} files, {source.next_id} rows: "
              f"{len(lost)} lost, {twice} twice")
        if lost or twice > kills * BATCH:
            sys.exit((folder / "log").read_text()[-20000:])


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]), int(sys.argv[3]) if len(sys.argv) > 3
         else random.randrange(1 << 30))
