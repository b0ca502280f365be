"""What the tests of this folder share: contents of samples, partners, ferry.
Arguments of a test: FERRY IDL PARTNER_CYCLONE PARTNER_FASTDDS DOMAIN, then unittest's."""

import itertools
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

FERRY, IDL, CYCLONE, FASTDDS, DOMAIN = sys.argv[1:6]
DOMAIN = int(DOMAIN)
PARTNERS = {"cyclone": CYCLONE, "fastdds": FASTDDS}
SKIP = 77
# How many times longer things may take, below a tool that slows them down.
PATIENCE = int(os.environ.get("FERRY_TEST_PATIENCE", "1"))

# ferry stays on the loopback interface unless it is configured otherwise; a partner comes there.
CYCLONE_XML = pathlib.Path(__file__).parents[2] / "examples/watch/loopback.xml"
FASTDDS_XML = pathlib.Path(__file__).with_name("fastdds_loopback.xml")


def sample(kind, i):
    """What partners write as sample i, as the file adapter's JSON."""
    if kind == "Flat":
        return {"id": i, "flag": i % 2 == 1, "o": i * 7 % 256, "c": chr(ord("A") + i % 26),
                "s": i - 2**15, "us": 2**16 - 1 - i, "l": i - 2**31, "ll": i - 2**63,
                "ull": 2**64 - 1 - i, "f": i * 0.25 - 3, "d": i / 3}
    if kind == "Nested":
        return {"id": i, "name": "\u00e9" * (i % 5) + str(i), "label": f"L{i}",
                "colour": ["RED", "GREEN", "BLUE"][i % 3], "origin": {"x": i / 8, "y": -i},
                "path": [{"x": (i + k) / 8, "y": -i - k} for k in range(i % 4)],
                "grid": [[(i + k + 3 * row) % 256 for k in range(3)] for row in range(2)]}
    if kind == "Keyed":
        return {"region": i % 2 + 1, "value": i, "id": i % 4 * 1000000007}
    if kind == "Wide":
        return {"number": -1 - i % 4, "name": f"instance {i % 4}", "value": i}
    parts = [{"number": i + k, "name": f"part {i + k}"} for k in range(i % 3)]
    return {"id": i, "parts": parts, "last": -i}


KEYS = {"Keyed": ("region", "id"), "Wide": ("number", "name")}


def by_instance(kind, samples):
    """Samples in order of arrival, instance by instance: DDS keeps order within an instance."""
    return sorted(samples, key=lambda s: [s[name] for name in KEYS.get(kind, ())])


class Rig(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="interop_"))
        self.addCleanup(shutil.rmtree, self.directory)
        self.numbers = itertools.count(1)

    def start(self, command, environment=None, name="process"):
        """Starts a process that does not outlive the test; its output goes to files."""
        log = self.directory / f"{next(self.numbers)}_{name}"
        with open(f"{log}.out", "w") as out, open(f"{log}.err", "w") as err:
            process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=out, stderr=err,
                                       env={**os.environ, **(environment or {})})
        process.log = log
        self.addCleanup(lambda: (process.kill(), process.wait(), process.stdin.close()))
        return process

    def text(self, process, suffix=".out"):
        return pathlib.Path(f"{process.log}{suffix}").read_text(encoding="utf-8")

    def partner(self, make, xml="", **options):
        environment = {"CYCLONEDDS_URI": f"file://{CYCLONE_XML}" + (f",{xml}" if xml else ""),
                       "FASTRTPS_DEFAULT_PROFILES_FILE": str(FASTDDS_XML)}
        arguments = [f"{name}={value}" for name, value in {"domain": DOMAIN, **options}.items()]
        return self.start([PARTNERS[make], *arguments], environment, make)

    def received(self, partner, timeout=30):
        """What a subscriber printed until it ended: samples, and (state, sample) for the rest."""
        self.assertEqual(partner.wait(timeout * PATIENCE), 0, self.text(partner, ".err"))
        lines = [json.loads(line) for line in self.text(partner).splitlines()]
        return ([value for state, value in lines if state == "alive"],
                [(state, value) for state, value in lines if state != "alive"])

    def ferry(self, config, *arguments, prefix=()):
        """Starts ferry; JSON is YAML."""
        path = self.directory / f"{next(self.numbers)}.yaml"
        path.write_text(json.dumps(config))
        return self.start([*prefix, FERRY, "run", str(path), *arguments], name="ferry")

    def end(self, ferry, code=0):
        """Ends ferry in order, or waits for an end it comes to by itself."""
        if ferry.poll() is None:
            ferry.send_signal(signal.SIGTERM)
        self.assertEqual(ferry.wait(200 * PATIENCE), code,
                         self.text(ferry) + self.text(ferry, ".err"))
        return self.text(ferry)

    def until(self, condition, what, seconds=200):
        end = time.monotonic() + seconds * PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, f"in {seconds} s no {what}; " + "".join(
                f"\n{path.name}: {path.read_text()}" for path in self.directory.glob("*.err")))
            time.sleep(0.02)

    def lines(self, name):
        """A file's whole lines, as values; none when it is not there yet."""
        path = self.directory / name
        text = path.read_text(encoding="utf-8") if path.exists() else ""
        return [json.loads(line) for line in text.split("\n")[:-1]]

    def write(self, name, kind, numbers):
        text = "".join(json.dumps(sample(kind, i)) + "\n" for i in numbers)
        (self.directory / name).write_text(text, encoding="utf-8")

    def config(self, routes, dds=None, types=None):
        """A configuration; a route is (type, input, outputs), an end (connection, stream,
        properties) with the connections files, dds and dds2 (the domain after)."""
        def end(connection, stream, properties=None):
            return {"connection": connection, "stream": stream, "properties": properties or {}}
        dds = dds or {}
        return {"types": [types or {"file": IDL}],
                "adapters": {"files": {"class": "com.qel.ferrion.adapters.file.FileAdapter"},
                             "dds": {"plugin": "dds"}},
                "connections": {
                    "files": {"adapter": "files",
                              "properties": {"directory": str(self.directory), "poll": "50ms"}},
                    "dds": {"adapter": "dds", "properties": {"domain": DOMAIN, **dds}},
                    "dds2": {"adapter": "dds", "properties": {"domain": DOMAIN + 1, **dds}}},
                "sessions": {"main": {"period": "20ms"}},
                "routes": {f"r{n}": {"session": "main", "type": f"interop::{kind}",
                                     "input": end(*source), "outputs": [end(*o) for o in outputs]}
                           for n, (kind, source, outputs) in enumerate(routes)}}


def main():
    """Runs the tests named; where a partner could not be built the test is skipped aloud."""
    make = sys.argv[6].partition(".")[0].lower()
    if PARTNERS.get(make) == "none":
        print(f"SKIPPED {sys.argv[6]}: needs {make}'s IDL compiler and library")
        sys.exit(SKIP)
    del sys.argv[1:6]
    unittest.main(verbosity=2)
