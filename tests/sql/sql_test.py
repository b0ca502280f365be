#!/usr/bin/env python3
"""Tables through ferry, over SQLite and over a PostgreSQL server of its own.

Usage: sql_test.py FERRY EXAMPLES JAVA JUNIT_CLASS_PATH LIBRARY_PATH [unittest arguments]
"""

import contextlib
import importlib.util
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).parents[1] / "crash"))
import crash  # noqa: E402

FERRY, EXAMPLES, JAVA = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:4])
CLASS_PATH, LIBRARY_PATH = sys.argv[4:6]
# Of a machine with other things to do; what goes well takes a small part of it.
PATIENCE = 200
SQL = "com.qel.ferrion.adapters.sql.SqlAdapter"


def end(connection, stream, **properties):
    return {"connection": connection, "stream": stream, "properties": properties}


def configuration(member, connections, routes, sink="sql", **more):
    """There and back again; JSON is YAML."""
    return json.dumps({
        "types": [{"idl": f"struct Row {{ @key long long n; string text; {member} }};"}],
        "adapters": {name: {"class": SQL} for name in {"sql", sink}},
        "connections": {name: {"adapter": sink if name == "sink" else "sql",
                               "properties": {"url": f"jdbc:{url}"}}
                        for name, url in {"source": "sqlite:source.db", "sink": "sqlite:sink.db",
                                          **connections}.items()},
        "sessions": {name: {"period": "20ms"} for name in routes},
        "routes": {name: {"session": name, "type": "Row", "input": source, "outputs": [target]}
                   for name, (source, target) in routes.items()}, **more})


TABLES = """
adapters:
  sql: {class: com.qel.ferrion.adapters.sql.SqlAdapter}
  files: {class: com.qel.ferrion.adapters.file.FileAdapter}
connections:
  database: {adapter: sql, properties: {url: "jdbc:sqlite:source.db", discover: true}}
  files: {adapter: files, properties: {directory: out}}
sessions: {main: {period: 20ms}}
discovery:
  all:
    connection: database
    direction: input
    session: main
    outputs: [{connection: files, stream: "${stream}.jsonl"}]
"""


class Cutter:
    """Stands between ferry and the server, and cuts connections at their third commit, which is
    what comes after the writer has asked which transaction it is in: by turns the server gets the
    commit, but nobody its answer, or it does not get it."""

    def __init__(self, port):
        self.server = ("127.0.0.1", port)
        self.cuts = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            client = self.listener.accept()[0]
            try:
                server = socket.create_connection(self.server)
            except OSError:
                client.close()
                continue
            cut = threading.Event()
            for move in [(client, server, cut, True), (server, client, cut, False)]:
                threading.Thread(target=self.move, args=move, daemon=True).start()

    def move(self, source, target, cut, requests):
        commits = 0
        try:
            while data := source.recv(65536):
                if commits == 3:
                    cut.set()
                    self.cuts += 1
                    if self.cuts % 2:
                        target.sendall(data)
                        time.sleep(0.05)
                    break
                if not cut.is_set():
                    target.sendall(data)
                commits += requests and b"txid_current" in data
        except OSError:
            pass
        for end in (source, target):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass


class SqlTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="sql_test_pg_")
        cls.addClassCleanup(folder.cleanup)
        cls.server = crash.Server(pathlib.Path(folder.name))
        cls.addClassCleanup(cls.server.stop)

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="sql_test_"))
        self.addCleanup(shutil.rmtree, self.directory)

    def test_junit_over_the_server(self):
        docs = pathlib.Path(EXAMPLES).parent / "docs" / "sql-adapter.md"
        data = [f"-D{name}={pathlib.Path(__file__).parent}/data/{name}.txt"
                for name in ("steps", "types")] + [f"-Dsql.docs={docs}"]
        server = [f"-Dsql.url=jdbc:{self.server.url()}",
                  "-Duser.timezone=Europe/Berlin"]  # With hours that it leaves out in spring.
        for options, names in [(server, ["ReadTest", "WriteTest", "TroubleTest", "StepsTest",
                                         "TypesTest"]),
                               ([], ["TypesTest"])]:
            tests = [f"com.qel.ferrion.adapters.sql.{name}" for name in names]
            result = subprocess.run(
                # A sanitizer's runtime has to be in Java's process from its begin, and in no
                # other.
                ["env", *os.environ.get("SQL_TEST_JAVA", "").split(), JAVA, "-ea",
                 f"-Djava.library.path={LIBRARY_PATH}", *data, *options, "-cp", CLASS_PATH,
                 "org.junit.runner.JUnitCore", *tests],
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=PATIENCE)
            self.assertEqual(result.returncode, 0, result.stdout)

    def test_large_rows_with_the_defaults(self):
        with contextlib.closing(sqlite3.connect(self.directory / "source.db")) as source:
            source.execute("CREATE TABLE wide (n INTEGER PRIMARY KEY, text TEXT NOT NULL, "
                           "bytes BLOB NOT NULL)")
            source.executemany("INSERT INTO wide VALUES (?, ?, ?)", (
                (n, f"{n}" * 40_000, bytes([n % 256]) * (4_000_000 if n % 20 == 7 else 1000))
                for n in range(600)))
            source.commit()
        self.server.sql("CREATE TABLE wide (n bigint PRIMARY KEY, text text, bytes bytea)")
        # By way of the server and back, with a heap that holds some of the rows only.
        (self.directory / "relay.yaml").write_text(configuration(
            "sequence<octet> bytes;", {"server": self.server.url()}, {
                "there": (end("source", "wide"), end("server", "wide", mode="upsert")),
                "back": (end("server", "wide", poll="20ms"),
                         end("sink", "rows", mode="upsert", create=True))},
            java={"options": ["-Xmx160m"]}))
        process = self.relay()
        self.wait_for(process, 600)
        self.stop(process)
        with contextlib.closing(sqlite3.connect(self.directory / "sink.db")) as sink:
            sink.execute("ATTACH ? AS source", (str(self.directory / "source.db"),))
            self.assertEqual(sink.execute(
                "SELECT n FROM (SELECT * FROM source.wide EXCEPT SELECT * FROM rows)").fetchall(),
                [])

    def assert_synced(self, calls, name):
        """A new position is on the disk before it takes the old one's place, which is, too."""
        steps = re.findall(r"(fsync|fdatasync|rename)\w*\(.*?(/[^\">]*)[\">].*= 0", calls)
        last = max(i for i, (call, path) in enumerate(steps)
                   if call == "rename" and path.endswith(f"{name}.new"))
        folder = os.path.dirname(steps[last][1])
        self.assertIn("sync", steps[last - 1][0])
        self.assertEqual(steps[last - 1][1], steps[last][1])
        self.assertEqual(steps[last + 1][1], folder)

    def test_positions_of_discovered_tables(self):
        with contextlib.closing(sqlite3.connect(self.directory / "source.db")) as source:
            for name in ("one", "two"):
                source.execute(f"CREATE TABLE {name} (n INTEGER PRIMARY KEY)")
                source.execute(f"INSERT INTO {name} VALUES (1)")
            source.commit()
        (self.directory / "relay.yaml").write_text(TABLES)
        strace = shutil.which("strace")
        traced = [strace, "-ff", "-y", "-qq", "-o", "calls", "--seccomp-bpf", "-e",
                  "trace=fsync,fdatasync,rename,renameat,renameat2"] if strace else []
        for run in (1, 2):
            process = self.relay(*(traced if run == 1 else []))
            files = [self.directory / "out" / f"{name}.jsonl" for name in ("one", "two")]
            end = time.monotonic() + PATIENCE
            while not all(path.exists() and path.read_text().count("\n") == run
                          for path in files):
                self.assertLess(time.monotonic(), end, (self.directory / "log").read_text())
                time.sleep(0.02)
            self.stop(process)
            with contextlib.closing(sqlite3.connect(self.directory / "source.db")) as source:
                for name in ("one", "two"):
                    source.execute(f"INSERT INTO {name} VALUES (?)", (run + 1,))
                source.commit()
        self.assertEqual([path.read_text() for path in files],
                         ['{"n":1}\n{"n":2}\n', '{"n":1}\n{"n":2}\n'])
        self.assertTrue(list(self.directory.glob("relay.state/positions/*/one")))
        if not strace:
            self.skipTest("strace is not there: nobody sees whether positions are synced")
        self.assert_synced(next(calls for calls in map(
            pathlib.Path.read_text, self.directory.glob("calls.*")) if "one.new" in calls), "one")

    def test_examples_there_and_back(self):
        spec = importlib.util.spec_from_file_location("verify", f"{EXAMPLES}/quickstart/verify.py")
        verify = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(verify)
        shutil.copytree(EXAMPLES, self.directory, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("out"))
        wanted = sorted(verify.read_csv(self.directory / "quickstart/data/observations.csv"),
                        key=lambda row: (row["observed_at"], row["station"]))
        for url in ["sqlite", "postgresql"]:
            if url == "postgresql":
                shutil.rmtree(self.directory / "out")
                for path in self.directory.glob("*.yaml"):
                    path.write_text(path.read_text().replace(
                        "sqlite:${config_dir}/out/weather.db", self.server.url()))
            # The second time upserts change nothing, and nothing is left to read.
            for rows in [5040, 0] if url == "sqlite" else [5040]:
                for example, read in [("file-to-sqlite", 5040), ("sqlite-to-file", rows)]:
                    result = subprocess.run(
                        [FERRY, "run", self.directory / f"{example}.yaml", "--until-idle=2",
                         "-q"], capture_output=True, text=True, timeout=PATIENCE)
                    self.assertIn(f"observations: {read} read, {read} written, 0 errors",
                                  result.stdout)
                    self.assertEqual(result.returncode, 0, result.stderr)
                    # The VM says so by itself where tests give options of theirs to every VM.
                    self.assertRegex(result.stderr, r"\A(Picked up JAVA_TOOL_OPTIONS: .*\n)?\Z")
            found = list(verify.read_csv(self.directory / "out/observations.csv"))
            self.assertEqual(len(wanted), len(found))
            for want, have in zip(wanted, found):
                self.assertTrue(all(verify.same(want[name], have[name]) for name in want), have)

    def relay(self, *before):
        process = subprocess.Popen([*before, FERRY, "run", "relay.yaml"], cwd=self.directory,
                                   text=True, stdout=subprocess.PIPE,
                                   stderr=open(self.directory / "log", "a"))
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.kill)
        return process

    def arrived(self):
        with contextlib.closing(sqlite3.connect(self.directory / "sink.db")) as sink:
            try:
                return sink.execute("SELECT count(*) FROM rows").fetchone()[0]
            except sqlite3.OperationalError:  # It is not there yet, or just being written.
                return 0

    def stop(self, process):
        """Also where strace stands between."""
        children = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text()
        os.kill(int(children.split()[0]) if process.args[0] != FERRY else process.pid,
                signal.SIGTERM)
        self.assertEqual(process.wait(PATIENCE), 0, (self.directory / "log").read_text())

    def wait_for(self, process, target):
        """As long as rows arrive."""
        before, end = 0, time.monotonic() + PATIENCE
        while (now := self.arrived()) < target:
            if now > before:
                before, end = now, time.monotonic() + PATIENCE
            self.assertIsNone(process.poll(), (self.directory / "log").read_text())
            self.assertLess(time.monotonic(), end, (self.directory / "log").read_text())
            time.sleep(0.02)

    def test_what_a_cut_commit_was_is_found_out(self):
        rows = 3600
        self.server.sql("CREATE TABLE rows (seq bigserial PRIMARY KEY, n bigint, text text)")
        with contextlib.closing(sqlite3.connect(self.directory / "source.db")) as source:
            source.execute("CREATE TABLE rows (n INTEGER PRIMARY KEY, text TEXT NOT NULL)")
            source.executemany("INSERT INTO rows VALUES (?, ?)",
                               ((n, f"row {n}") for n in range(rows)))
            source.commit()
        cutter = Cutter(self.server.port)
        kept = {"poll": "20ms", "retry_for": "10m"}
        (self.directory / "relay.yaml").write_text(configuration(
            "", {"server": self.server.url(), "cut": self.server.url(cutter.port)}, {
                "in": (end("source", "rows", position_file="in", batch=50, **kept),
                       end("cut", "rows", retry_for="10m")),
                "out": (end("server", "rows", position_file="out", **kept),
                        end("sink", "rows", mode="upsert", create=True))},
            sink="same"))  # One native library serves both adapters.
        process = self.relay()
        self.wait_for(process, rows // 2)
        self.server.restart()
        self.wait_for(process, rows)
        self.stop(process)
        # An insert is repeated where the server died over it, and nowhere else.
        total, distinct = map(int, self.server.sql(
            "SELECT count(*), count(DISTINCT n) FROM rows").split("|"))
        self.assertEqual(distinct, rows)
        self.assertLessEqual(total - distinct, 50)
        with contextlib.closing(sqlite3.connect(self.directory / "sink.db")) as sink:
            self.assertEqual(sink.execute("SELECT n, text FROM rows ORDER BY n").fetchall(),
                             [(n, f"row {n}") for n in range(rows)])
        self.assertGreater(cutter.cuts, 5)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[6:]], warnings="ignore")
