#!/usr/bin/env python3
"""Tables through ferry, over SQLite and over a PostgreSQL server of its own, which it kills.

Usage: sql_test.py FERRY EXAMPLES JAVA JUNIT_CLASS_PATH [unittest arguments]
"""

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
import time
import unittest

FERRY, EXAMPLES, JAVA = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:4])
CLASS_PATH = sys.argv[4]


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
                       check=True, stdout=subprocess.DEVNULL, cwd=self.directory)

    def start(self):
        self.call("pg_ctl", "-D", self.directory / "data", "-l", self.directory / "log", "-w", "-o",
                  f"-p {self.port} -k {self.directory} -c listen_addresses=127.0.0.1 "
                  "-c fsync=off", "start")

    def kill(self):
        pid = int((self.directory / "data" / "postmaster.pid").read_text().split()[0])
        os.kill(pid, signal.SIGKILL)

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


class SqlTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = Server()
        cls.addClassCleanup(cls.server.remove)

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="sql_test_"))
        self.addCleanup(shutil.rmtree, self.directory)

    def test_junit_over_the_server(self):
        for name in ["ReadTest", "WriteTest"]:
            result = subprocess.run(
                [JAVA, "-ea", f"-Dsql.url={self.server.url()}?user=tester", "-cp", CLASS_PATH,
                 "org.junit.runner.JUnitCore", f"com.qel.ferrion.adapters.sql.{name}"],
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
            for rows in [5040, 0]:
                for example, read in [("file-to-sqlite", 5040), ("sqlite-to-file", rows)]:
                    result = subprocess.run(
                        [FERRY, "run", self.directory / f"{example}.yaml", "--until-idle=0.3",
                         "-q"], capture_output=True, text=True, timeout=60)
                    self.assertIn(f"observations: {read} read, {read} written, 0 errors",
                                  result.stdout)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
            found = list(verify.read_csv(self.directory / "out/observations.csv"))
            self.assertEqual(len(wanted), len(found))
            for want, have in zip(wanted, found):
                self.assertTrue(all(verify.same(want[name], have[name]) for name in want), have)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]])
