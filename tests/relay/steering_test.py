#!/usr/bin/env python3
"""Asks and steers a ferry that runs, with its verbs. Usage: see ferry_test.py"""

import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import unittest

import ferry_test

CONFIGURATION = """
types: [{idl: "struct Tick { long long n; };"}]
adapters: {dds: {plugin: dds}, odd: {library: nothing.so, entry: make}}
connections: {d: {adapter: dds, properties: {domain: 77}}, e: {adapter: odd}}
routes:
  "the first": {type: Tick, input: {connection: d, stream: a},
    outputs: [{connection: d, stream: b}]}
  lame: {type: Tick, input: {connection: e, stream: a}, outputs: [{connection: d, stream: c}]}
"""


class Steering(ferry_test.Ferry):
    def setUp(self):
        super().setUp()
        self.runtime = self.directory / "run"
        os.environ["RUNTIME_DIRECTORY"] = str(self.runtime)
        self.addCleanup(os.environ.pop, "RUNTIME_DIRECTORY")

    def begin(self, text="", name="steered.yaml"):
        path = self.directory / name
        path.write_text(CONFIGURATION + text, encoding="utf-8")
        return self.start(path, "-v")

    def end(self, process, code=1):
        process.send_signal(signal.SIGTERM)
        log = process.communicate(timeout=ferry_test.LIMIT)[1]
        self.assertEqual(process.returncode, code)
        return log

    def steer(self, *arguments, code, control="steered"):
        """By its name, as the machine may have other relays."""
        return self.ferry(*arguments, f"--control={control}", code=code)

    def asked(self, *arguments, code=0, control="steered"):
        return json.loads(self.steer(*arguments, "--json", code=code, control=control).stdout)

    def test_verbs_of_a_relay_that_runs(self):
        self.assertIn("no relay steered runs", self.steer("status", code=3).stderr)
        process = self.begin()
        text = self.steer("status", code=1).stdout
        self.assertRegex(text, r"(?s)relay steered, process \d+: running"
                         r".*adapter odd: failed for .*nothing.so.*ROUTE +STATE.*the first +running"
                         r".*lame +failed.*out of service")
        status = self.asked("status", code=1)
        self.assertEqual(status["relay"]["pid"], process.pid)
        self.assertEqual([route["state"] for route in status["routes"]], ["running", "failed"])
        self.assertIn("paused", self.steer("pause", "the first", code=0).stdout)
        why = self.steer("why", "the first", code=0).stdout
        self.assertIn("an operator has paused it", why)
        self.assertIn('do: ferry resume "the first"', why)
        self.assertTrue(self.asked("restart", "the first")["ok"])
        self.until(lambda: self.asked("why", "the first")["route"]["restarted"] == 1)
        self.assertIn("goes on", self.steer("resume", "the first", code=0).stdout)
        self.assertIn("steered.yaml:3:", self.steer("why", "lame", code=0).stdout)
        self.assertIn("cannot be made anew", self.steer("restart", "lame", code=1).stderr)
        self.assertIn('no route "x\\x1b"', self.steer("pause", "x\x1b", code=1).stderr)
        self.assertFalse(self.asked("pause", "x", code=1)["ok"])

        other = self.begin("control: there.sock\n", "s.yaml")
        there = self.directory / "there.sock"
        self.assertEqual(self.asked("status", control=there, code=1)["relay"]["pid"], other.pid)
        third = self.begin(name="t.yaml")
        for pid in (process.pid, third.pid):
            self.assertIn(f"process {pid}: {self.runtime}", self.ferry("doctor", code=0).stdout)
            self.assertIn(f"process {pid}", self.ferry("status", code=3).stderr)
        # What is taken is not started a second time, and told with its place.
        result = self.ferry("run", self.directory / "s.yaml", code=3)
        self.assertRegex(result.stderr, rf"s\.yaml:9:10: process {other.pid} listens at {there}")
        self.assertRegex(self.end(process), r"\[the first\] pause asked for by process \d+ of user")
        self.end(other)
        third.kill()
        third.wait()
        self.assertEqual([path.name for path in self.runtime.iterdir()], [f"t-{third.pid}.sock"])
        self.assertIn("no relay steered runs", self.steer("status", code=3).stderr)
        self.runtime.chmod(0o777)
        process = self.begin()  # without a socket, and with a warning
        self.assertFalse([path for path in self.runtime.iterdir() if str(process.pid) in path.name])
        self.end(process)
        self.end(self.begin("control: off\n"))

    def fetch(self, port, path, method="GET", **headers):
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=ferry_test.LIMIT)
        self.addCleanup(connection.close)
        connection.request(method, path, headers=headers)
        answer = connection.getresponse()
        return answer.status, answer.read().decode()

    def test_http_is_read_only(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        (self.directory / "token").write_text("a secret\n", encoding="utf-8")
        process = self.begin(f"http: {{listen: 'localhost:{port}'}}\n")
        status, metrics = self.fetch(port, "/metrics")
        self.assertEqual(status, 200)
        checked = subprocess.run(["promtool", "check", "metrics"], input=metrics, text=True,
                                 capture_output=True, check=False)
        self.assertEqual((checked.returncode, checked.stdout + checked.stderr), (0, ""))
        for line in ['ferry_route_state{route="the first",state="running"} 1', "ferry_adapter_up"
                     '{adapter="odd"} 0', 'ferry_samples_written_total{route="the first",'
                     'output="d/b"} 0']:
            self.assertIn("\n" + line + "\n", metrics)
        self.assertEqual(self.fetch(port, "/live"), (200, "live\n"))
        status, reason = self.fetch(port, "/ready")
        self.assertEqual(status, 503)
        self.assertIn("route lame: out of service", reason)
        self.assertEqual(json.loads(self.fetch(port, "/status")[1])["relay"]["pid"], process.pid)
        self.assertEqual(self.fetch(port, "/../etc/passwd")[0], 404)
        self.assertEqual(self.fetch(port, "/status", "POST")[0], 405)
        self.assertEqual(self.fetch(port, "/status", Host=f"evil.example:{port}")[0], 403)
        # One that is silent and one that never ends keep nobody waiting.
        for text in (b"", b"GET /" + b"x" * 200000):
            bad = socket.create_connection(("127.0.0.1", port))
            self.addCleanup(bad.close)
            bad.setblocking(False)
            try:
                bad.send(text)
            except OSError:
                pass
        self.assertEqual(self.fetch(port, "/live")[0], 200)
        taken = self.directory / "taken.yaml"
        taken.write_text(f"{CONFIGURATION}http: {{listen: '127.0.0.1:{port}'}}\n", encoding="utf-8")
        self.assertIn("cannot listen at", self.ferry("run", taken, code=3).stderr)
        self.end(process)
        process = self.begin(f"http: {{listen: '127.0.0.1:{port}', token_file: token}}\n")
        for token, status in (("", 401), ("A secret", 401), ("a secreta secret", 401),
                              ("a secret", 200)):
            self.assertEqual(self.fetch(port, "/live", Authorization="Bearer " + token)[0], status)
        self.end(process)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
