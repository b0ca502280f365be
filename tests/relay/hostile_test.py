#!/usr/bin/env python3
"""Runs ferry with a Java adapter that misbehaves beside one that does not, whose route must go on.
Usage: hostile_test.py FERRY EXAMPLES TEST_CLASSES [unittest arguments]"""

import itertools
import pathlib
import subprocess
import sys
import unittest

import ferry_test

# Where the adapter misbehaves: the call that ferry is to name, what it is of, and whether that is
# before anything runs.
PLACES = {
    "constructor": ("create", "adapter bad", True),
    "getVersion": ("create", "adapter bad", True),
    "createConnection": ("create", "connection bad", True),
    "toString": ("create", "connection bad", True),
    "createSession": ("create", "session other of connection bad", True),
    "createStreamReader": ("create", "reader of bad/ticks", True),
    "createStreamWriter": ("create", "writer of bad/ticks", True),
    "read": ("read", "bad/ticks", False),
    "returnLoan": ("return_loan", "bad/ticks", False),
    "write": ("write", "bad/ticks", False),
    "deleteStreamReader": ("delete", "reader of bad/ticks", False),
    "deleteStreamWriter": ("delete", "writer of bad/ticks", False),
    "deleteSession": ("delete", "session other of connection bad", False),
    "deleteConnection": ("delete", "connection bad", False),
    "finalize": ("delete", "adapter bad", False),
}

# What it throws, and what the log has of it (Java prints nothing of a ThreadDeath).
THROWN = {"throw": "IllegalStateException: trouble in", "checked": "AdapterException: hostile",
          "stack": ": no message (java.lang.StackOverflowError at ",
          "memory": "OutOfMemoryError", "death": "trouble: death",
          "init": "ExceptionInInitializerError",
          "mute": "\ncom.qel.ferrion.test.Hostile$Mute\n", "format": "100%s %n %d"}

# What it does that is no failure of a call: where, how, with which configuration; the exit code,
# and what is said of its route in the log and in the summary.
MANY = 100000
OTHERS = [
    ("content", "flood", {"bad": MANY, "bad_batch": MANY}, 0,
     "", f"bad: {MANY} read, {MANY} written, 0 errors"),
    ("content", "nulls", {}, 1, "", "bad: 4 read, 4 written, 0 errors, 4 unreadable"),
    # What the bridge says of each sample is said a few times, and of which route.
    ("content", "alien", {"bad": MANY, "bad_batch": MANY}, 1, "[route bad]",
     f"bad: 0 read, 0 written, 1 errors, {MANY} unreadable"),
    ("content", "clear", {}, 0, "", "bad: 4 read, 4 written, 0 errors"),
    ("constructor", "thread", {}, 0, "an adapter has left a thread running", "bad: 4 read"),
    # The two routes share a thread, and all share the one that makes and deletes.
    ("read", "spoil", {"bad_session": "main"}, 0, "", "bad: 4 read, 4 written, 0 errors"),
    ("write", "spoil", {"bad_session": "main"}, 0, "", "bad: 4 read, 4 written, 0 errors"),
    ("createStreamReader", "spoil", {}, 0, "", "bad: 4 read, 4 written, 0 errors"),
    ("deleteStreamReader", "spoil", {}, 0, "", "bad: 4 read, 4 written, 0 errors"),
]

# Ends of the process from within, and the call that is named.
EXITS = [("read", "exit", "route bad: read of bad/ticks"),
         ("write", "halt", "route bad: write of bad/ticks"),
         ("createConnection", "exit", "create of connection bad"),
         ("finalize", "halt", "delete of adapter bad"),
         ("constructor", "quit", "System.exit or Runtime.halt")]

# A writer that waits for ever, and a reader that has lost its source.
PATIENT = """
types: [{idl: "struct Tick { long long n; };"}]
java: {class_path: [%s]}
adapters:
  ticks: {class: com.qel.ferrion.test.relay.TroubleAdapter}
  patient: {class: com.qel.ferrion.test.relay.PatientAdapter}
connections:
  ticks: {adapter: ticks, properties: {count: 9, batch: 9}}
  patient: {adapter: patient}
sessions:
  one: {period: 20ms}
  two: {period: 20ms}
routes:
  wait:
    session: one
    type: Tick
    input: {connection: ticks, stream: ticks}
    outputs: [{connection: patient, stream: ticks}]
  lost:
    session: two
    type: Tick
    input: {connection: patient, stream: ticks}
    outputs: [{connection: ticks, stream: lost}]
"""


class HostileTest(ferry_test.Ferry):
    def run_beside(self, code, **relay):
        # The end awaits a thread that is left for all of that time.
        short = ["--drain-seconds=20"] if relay.get("kind") == "thread" else []
        result = self.ferry("run", self.relay(**relay), "--until-idle=0.2", "--give-up=0.5",
                            *short, code=code)
        self.check_good(result.stdout)
        return result.stdout, result.stderr

    def run_and_stop(self, code, ready, path=None, drain=300, **relay):
        """Stops when all that `ready` gives for the log is true. What hangs has half a second."""
        with open(self.directory / "log", "w+", encoding="utf-8") as log:
            drain = 0.5 if code == 4 else drain
            process = subprocess.Popen([ferry_test.FERRY, "run", path or self.relay(**relay),
                                        f"--drain-seconds={drain}"],
                                       stdout=subprocess.PIPE, stderr=log, text=True)
            self.until(lambda: all(ready(pathlib.Path(log.name).read_text(encoding="utf-8"))))
            process.terminate()
            output, _ = process.communicate(timeout=ferry_test.LIMIT)
            log.seek(0)
            text = log.read()
        self.assertEqual(process.returncode, code, text)
        return output, text

    def is_complete(self, name, count):
        path = self.directory / "out" / name
        return path.exists() and path.read_text(encoding="utf-8").count("\n") == count

    def check_good(self, output):
        self.assertIn("good: 1000 read, 1000 written, 0 errors", output)
        self.assertEqual(self.numbers("good.jsonl"), list(range(1000)))
        (self.directory / "out" / "good.jsonl").unlink()

    def test_what_an_adapter_throws_costs_its_own_route_only(self):
        for (method, (call, what, _)), kind in zip(PLACES.items(), itertools.cycle(THROWN)):
            with self.subTest(method=method, kind=kind):
                _, log = self.run_beside(1, at=method, kind=kind)
                self.assertIn(THROWN[kind], log)
                self.assertRegex(log, f"ERROR .*adapter 'bad' error: .*{call}.* {what}: "
                                 if method not in ["constructor", "getVersion"] else
                                 "ERROR .*adapter 'bad' error: create: ")
        # A failed write of one output is no loss for the other.
        self.run_beside(1, at="write")
        self.assertGreater(len(self.numbers("bad.jsonl")), 1)

    def test_whatever_else_an_adapter_does(self):
        for at, kind, more, code, text, summary in OTHERS:
            with self.subTest(at=at, kind=kind):
                output, log = self.run_beside(code, at=at, kind=kind, **more)
                self.assertIn(text, log)
                self.assertLess(len(log), 20000)
                self.assertIn(summary, output)
                if "written" in summary and ", 0 written" not in summary:
                    self.assertEqual(self.numbers("bad.jsonl"), list(range(more.get("bad", 4))))

    def test_threads_that_go_on_whatever_is_deleted(self):
        for kind, code, summary in [("storm", 0, "bad: 4 read, 4 written, 0 errors"),
                                    ("keep", 1, r"bad: .*\d+ unreadable")]:
            with self.subTest(kind=kind):
                output, _ = self.run_and_stop(
                    code, lambda log: (self.is_complete("good.jsonl", 1000),
                                       "of this read is null" in log if kind == "keep"
                                       else self.is_complete("bad.jsonl", 4)),
                    at="content", kind=kind)
                self.check_good(output)
                self.assertRegex(output, summary)

    def test_an_adapter_that_hangs_is_named_and_left_behind(self):
        for method, (call, what, at_start) in PLACES.items():
            with self.subTest(method=method):
                output, log = self.run_and_stop(
                    4, lambda log: (at_start or self.is_complete("good.jsonl", 1000),
                                    call == "delete" or "trouble: hang" in log),
                    at=method, kind="hang")
                self.assertRegex(log, f"ERROR .*{call} of {what} .*is left behind")
                if not at_start:
                    self.check_good(output)

    def test_a_writer_that_waits_is_told_of_the_stop_and_a_lost_source_is_an_error(self):
        path = self.directory / "patient.yaml"
        path.write_text(PATIENT % ferry_test.CLASSES, encoding="utf-8")
        output, log = self.run_and_stop(
            1, lambda log: ("waiting\n" in log, "IllegalStateException: gone" in log),
            path=path, drain=3)
        self.assertNotIn("left behind", log)
        self.assertIn("wait: 9 read, 0 written, 0 errors, 1 retries, 9 not acknowledged", output)
        self.assertRegex(output, r"lost: 0 read, 0 written, \d+ errors")

    def test_an_end_from_within_is_no_success_and_told(self):
        for at, kind, named in EXITS:
            with self.subTest(at=at, kind=kind):
                result = self.ferry("run", self.relay(at=at, kind=kind), "--until-idle=0.2", code=1)
                self.assertRegex(result.stderr, "ERROR .*ended from within the Java VM.*" + named)
                self.assertIn("bad: ", result.stdout)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
