#!/usr/bin/env python3
"""Tables through ferry, over SQLite and over a PostgreSQL server of its own, which it kills.

Usage: sql_test.py FERRY EXAMPLES JAVA JUNIT_CLASS_PATH [unittest arguments]
"""

import contextlib
import glob
import importlib.util
import os
import pathlib
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

FERRY, EXAMPLES, JAVA = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:4])
CLASS_PATH = sys.argv[4]


RELAY = """
types: [{{idl: "struct Row {{ @key long long n; string text; }};"}}]
adapters:
  sql: {{class: com.qel.ferrion.adapters.sql.SqlAdapter}}
  same: {{class: com.qel.ferrion.adapters.sql.SqlAdapter}}  # one native library serves both
connections:
  source: {{adapter: sql, properties: {{url: "jdbc:sqlite:source.db"}}}}
  cut:
    adapter: sql
    properties: {{url: "jdbc:postgresql://127.0.0.1:{cut}/postgres", user: tester}}
  server: {{adapter: sql, properties: {{url: "{url}", user: tester}}}}
  sink: {{adapter: same, properties: {{url: "jdbc:sqlite:sink.db"}}}}
sessions: {{a: {{period: 20ms}}, b: {{period: 20ms}}}}
routes:
  in:
    session: a
    type: Row
    input:
      connection: source
      stream: rows
      properties: {{position_file: in, batch: {batch}, poll: 20ms}}
    outputs: [{{connection: cut, stream: rows}}]
  out:
    session: b
    type: Row
    input: {{connection: server, stream: rows, properties: {{position_file: out, poll: 20ms}}}}
    outputs: [{{connection: sink, stream: rows, properties: {{mode: upsert, create: true}}}}]
"""


class Server:
    """A PostgreSQL server with a directory and a port of its own, not run by root."""

    def __init__(self):
        programs = sorted(glob.glob("/usr/lib/postgresql/*/bin/initdb"))
        self.programs = pathlib.Path(programs[-1]).parent
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="sql_test_pg_"))
        self.user = []
        if os.getuid() == 0:
            shutil.chown(self.directory, "postgres")
            self.user = ["runuser", "-u", "postgres", "--"]
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.call("initdb", "-D", self.directory / "data", "-A", "trust", "-U", "tester", "-N")
        self.start()

    def call(self, program, *arguments):
        subprocess.run([*self.user, str(self.programs / program), *map(str, arguments)],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       cwd=self.directory)

    def start(self):
        self.call("pg_ctl", "-D", self.directory / "data", "-l", self.directory / "log", "-w", "-o",
                  f"-p {self.port} -k {self.directory} -c listen_addresses=127.0.0.1 "
                  "-c fsync=off", "start")

    def kill_and_start(self):
        pid = int((self.directory / "data" / "postmaster.pid").read_text().split()[0])
        os.kill(pid, signal.SIGKILL)
        time.sleep(0.5)
        for attempt in range(20):
            try:
                return self.start()
            except subprocess.CalledProcessError:  # What it leaves behind takes time to go.
                time.sleep(0.25)
        raise AssertionError((self.directory / "log").read_text())

    def remove(self):
        subprocess.run([*self.user, str(self.programs / "pg_ctl"), "-D", self.directory / "data",
                        "-m", "immediate", "stop"], check=False, stdout=subprocess.DEVNULL)
        shutil.rmtree(self.directory)

    def url(self):
        return f"jdbc:postgresql://127.0.0.1:{self.port}/postgres"

    def sql(self, text):
        return subprocess.run(
            [str(self.programs / "psql"), "-h", "127.0.0.1", "-p", str(self.port), "-U", "tester",
             "-qAtc", text, "postgres"], check=True, capture_output=True, text=True).stdout.strip()


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
        cls.server = Server()
        cls.addClassCleanup(cls.server.remove)

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="sql_test_"))
        self.addCleanup(shutil.rmtree, self.directory)

    def test_junit_over_the_server(self):
        tests = [f"com.qel.ferrion.adapters.sql.{name}" for name in ("ReadTest", "WriteTest")]
        result = subprocess.run(
            # A sanitizer's runtime has to be in Java's process from its begin, and in no other.
            ["env", *os.environ.get("SQL_TEST_JAVA", "").split(), JAVA, "-ea",
             f"-Dsql.url={self.server.url()}?user=tester", "-cp", CLASS_PATH,
             "org.junit.runner.JUnitCore", *tests],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=100)
        self.assertEqual(result.returncode, 0, result.stdout)

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
                    text = path.read_text().replace("jdbc:sqlite:${config_dir}/out/weather.db",
                                                    self.server.url() + "?user=tester")
                    path.write_text(text)
            # The second time upserts change nothing, and nothing is left to read.
            for rows in [5040, 0] if url == "sqlite" else [5040]:
                for example, read in [("file-to-sqlite", 5040), ("sqlite-to-file", rows)]:
                    result = subprocess.run(
                        [FERRY, "run", self.directory / f"{example}.yaml", "--until-idle=0.3",
                         "-q"], capture_output=True, text=True, timeout=60)
                    self.assertIn(f"observations: {read} read, {read} written, 0 errors",
                                  result.stdout)
                    self.assertEqual(result.returncode, 0, result.stderr)
                    # The VM says so by itself where tests give options of theirs to every VM.
                    self.assertRegex(result.stderr, r"\A(Picked up JAVA_TOOL_OPTIONS: .*\n)?\Z")
            found = list(verify.read_csv(self.directory / "out/observations.csv"))
            self.assertEqual(len(wanted), len(found))
            for want, have in zip(wanted, found):
                self.assertTrue(all(verify.same(want[name], have[name]) for name in want), have)

    def relay(self):
        process = subprocess.Popen([FERRY, "run", "relay.yaml"], cwd=self.directory, text=True,
                                   stdout=subprocess.PIPE, stderr=open(self.directory / "log", "a"))
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.kill)
        return process

    def arrived(self):
        with contextlib.closing(sqlite3.connect(self.directory / "sink.db")) as sink:
            try:
                return sink.execute("SELECT count(*) FROM rows").fetchone()[0]
            except sqlite3.OperationalError:  # It is not there yet, or just being written.
                return 0

    def test_kills_lose_nothing(self):
        rows, batch = 3600, 50
        self.server.sql("CREATE TABLE rows (seq bigserial PRIMARY KEY, n bigint, text text)")
        with contextlib.closing(sqlite3.connect(self.directory / "source.db")) as source:
            source.execute("CREATE TABLE rows (n INTEGER PRIMARY KEY, text TEXT NOT NULL)")
            source.executemany("INSERT INTO rows VALUES (?, ?)",
                               ((n, f"row {n}") for n in range(rows)))
            source.commit()
        cutter = Cutter(self.server.port)
        (self.directory / "relay.yaml").write_text(RELAY.format(
            cut=cutter.port, url=self.server.url(), batch=batch))
        process = self.relay()
        relays_killed = servers_killed = 0
        for target in [600, 1200, 1800, 2400, rows]:
            end = time.monotonic() + 60
            while self.arrived() < target:
                self.assertIsNone(process.poll(), (self.directory / "log").read_text())
                self.assertLess(time.monotonic(), end, (self.directory / "log").read_text())
                time.sleep(0.02)
            if target == rows:
                process.terminate()
                self.assertEqual(process.wait(timeout=20), 0, (self.directory / "log").read_text())
            elif target % 1200:
                self.server.kill_and_start()
                servers_killed += 1
            else:
                process.kill()
                process.wait()
                relays_killed += 1
                process = self.relay()
        total, distinct = map(int, self.server.sql(
            "SELECT count(*), count(DISTINCT n) FROM rows").split("|"))
        with contextlib.closing(sqlite3.connect(self.directory / "sink.db")) as sink:
            self.assertEqual(sink.execute("SELECT n, text FROM rows ORDER BY n").fetchall(),
                             [(n, f"row {n}") for n in range(rows)])
        print(f"{relays_killed} relays and {servers_killed} servers killed, {cutter.cuts} commits "
              f"cut: of {rows} rows {rows - distinct} lost, {total - distinct} twice")
        self.assertEqual(distinct, rows)
        self.assertGreater(cutter.cuts, 5)
        # An insert is repeated where the relay or the server died over it, and nowhere else.
        self.assertLessEqual(total - distinct, (relays_killed + servers_killed) * batch)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]], warnings="ignore")
