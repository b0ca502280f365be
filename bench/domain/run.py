#!/usr/bin/env python3
"""Measures ferry at a DDS domain, beside the engine's own publisher and subscriber.

usage: run.py BUILD_TREE [--quick] [--rounds N] [--part PART...] [--domain ID]
              [--json FILE [--extend]] [--pictures DIR]

Every variant runs once a round, all processes fresh, on the loopback interface; what counts is the
ratio within a round. The engine's pair runs first and last in a round: where the two disagree the
figures are void. A sample that is lost, doubled or out of order ends the run with an error.
"""
import argparse
import json
import os
import pathlib
import queue
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from dataclasses import dataclass

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import report  # noqa: E402
import topics  # noqa: E402

TICKS = os.sysconf("SC_CLK_TCK")
PATIENCE = 120
SAMPLES = {64: 2_000_000, 1024: 600_000}
LATENCY_RATE = 1000
PARTS = ("rate", "keyed", "secured", "topics", "latency")


@dataclass(frozen=True)
class Variant:
    name: str
    source: str             # a publisher of the engine or the platform, or java
    middle: str             # nothing, ferry, or a forwarder and its option
    sink: str               # a subscriber of the engine or the platform, or java
    options: tuple = ()     # of both ends


PAIR = Variant("engine > engine", "engine", "", "engine")
JAVA = Variant("Java > ferry > Java", "java", "ferry", "java")
TYPED = Variant("engine > typed forwarder > engine", "engine", "forward", "engine")
ENCODED = Variant("engine > encoded forwarder > engine", "engine", "forward --cdr", "engine")
TO_JAVA = Variant("engine > ferry > Java", "engine", "ferry", "java")
FROM_JAVA = Variant("Java > ferry > engine", "java", "ferry", "engine")
THROUGH = Variant("engine > ferry > engine", "engine", "ferry", "engine")
# Waits for no acknowledgements: its writer is matched before the first sample is there.
UNSEEN = Variant("engine > ferry without types > engine", "engine", "ferry", "engine")
OUR_READER = Variant("engine > platform", "engine", "", "platform")
OUR_WRITER = Variant("platform > engine", "platform", "", "engine")
ENDS = {OUR_READER: (PAIR,), OUR_WRITER: (PAIR,), TO_JAVA: (PAIR, JAVA), FROM_JAVA: (PAIR, JAVA),
        THROUGH: (PAIR,), UNSEEN: (PAIR,)}


@dataclass(frozen=True)
class Keys:
    """A keyed type in bench.idl, and how many instances of it there are, with which keys."""
    type: str
    instances: int
    order: str


KEYED_SAMPLES = {10_000: 1_000_000, 1_000_000: 2_000_000}
ORDERS = ("sequential", "strided", "random")
KEY_TYPES = {"Key4": "4 bytes", "Key8": "8 bytes", "Key16": "16 bytes",
             "Composite": "composite", "Text": "string"}

CONFIGURATION = """
{types}
java: {{class_path: [{jar}], options: [-Xmx256m]}}
adapters:
{adapters}
connections:
  in: {{adapter: {source}{in_properties}}}
  out: {{adapter: {sink}{out_properties}}}
sessions:
  main: {{batch: 1024}}
routes:
  bench:
{type}
    input: {{connection: in, stream: bench, properties: {{{reader}}}}}
    outputs:
      - {{connection: out, stream: bench, properties: {{{writer}}}}}
    on_error: stop
"""


class Process:
    """A child whose lines are read as they come."""

    def __init__(self, name, command, log):
        self.name = name
        self.log = log
        self.child = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      stderr=log, text=True)
        self.lines = queue.Queue()
        self.before = 0.0
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.child.stdout:
            self.lines.put(line)
        self.lines.put("")

    def line(self):
        try:
            line = self.lines.get(timeout=PATIENCE)
        except queue.Empty:
            line = ""
        if not line:
            self.log.flush()
            fail(f"{self.name} said nothing; its log:\n"
                 + pathlib.Path(self.log.name).read_text(encoding="utf-8"))
        return line

    def go(self):
        self.child.stdin.write("go\n")
        self.child.stdin.flush()

    def cpu(self):
        """Seconds of CPU so far, of all threads; also of a child that has ended."""
        text = pathlib.Path(f"/proc/{self.child.pid}/stat").read_text(encoding="ascii")
        fields = text.rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS

    def resident_mib(self):
        text = pathlib.Path(f"/proc/{self.child.pid}/status").read_text(encoding="utf-8")
        return int(re.search(r"VmRSS:\s+(\d+)", text)[1]) / 1024

    def stop(self):
        """Ends a process that does not end by itself; the rest of what it printed."""
        self.child.send_signal(signal.SIGTERM)
        return self.rest()

    def rest(self):
        try:
            self.child.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            fail(f"{self.name} does not end")
        text = ""
        while line := self.lines.get():
            text += line
        return text


def fail(text):
    sys.exit(f"run.py: {text}")


class Bench:
    def __init__(self, tree, work, domain):
        self.tree = tree
        self.work = work
        self.domain = domain
        self.report = work / "report.json"

    def program(self, kind, role, domain, size, count, warmup, rate, keys):
        idl = ["--idl", str(HERE / "bench.idl")] if kind == "platform" else []
        return [str(self.tree / f"bench/bench_{kind}"), *role.split(), *idl,
                "--domain", str(domain),
                "--out-domain", str(self.domain + 1), "--size", str(size), "--count", str(count),
                "--warmup", str(warmup), "--rate", str(rate)] + (
                    ["--type", keys.type, "--instances", str(keys.instances),
                     "--order", keys.order] if keys else [])

    def ferry(self, variant, size, count, warmup):
        kinds = {"engine": "  dds: {plugin: dds}",
                 "java": "  java: {class: com.qel.ferrion.bench.BenchAdapter}"}
        out_domain = self.domain + (1 if variant.source == "engine" else 0)
        reader = writer = ""
        typed = variant is not UNSEEN
        if variant.source == "java":
            reader = f"count: {count}"
        if variant.sink == "java":
            writer = f'count: {count}, warmup: {warmup}, report: "{self.report}"'
        elif typed:
            writer = "wait_for_readers: 1"
        text = CONFIGURATION.format(
            types=f"types: [{{file: {HERE / 'bench.idl'}}}]" if typed else "",
            jar=self.tree / "bench/bench-adapter.jar",
            type=f"    type: bench::{'Small' if size == 64 else 'Large'}" if typed else "",
            adapters="\n".join(kinds[end] for end in sorted({variant.source, variant.sink})),
            source="dds" if variant.source == "engine" else "java",
            sink="dds" if variant.sink == "engine" else "java",
            in_properties=f", properties: {{domain: {self.domain}"
            f"{'' if typed else ', opaque: always'}}}"
            if variant.source == "engine" else "",
            out_properties=f", properties: {{domain: {out_domain}}}"
            if variant.sink == "engine" else "",
            reader=reader, writer=writer)
        path = self.work / "bench.yaml"
        path.write_text(text, encoding="utf-8")
        return [str(self.tree / "bin/ferry"), "run", str(path), "--quiet"]

    def run(self, variant, size, count, warmup, rate=0, keys=None):
        self.report.unlink(missing_ok=True)
        processes = {}
        with open(self.work / "log", "w", encoding="utf-8") as log:
            def start(name, command):
                processes[name] = Process(name, command, log)
            try:
                return self._run(variant, (size, count, warmup, rate, keys), processes, start)
            finally:
                for process in processes.values():
                    process.child.kill()
                    process.child.wait()

    def _run(self, variant, what, processes, start):
        size, count, warmup, _, _ = what

        def program(kind, role, domain):
            start(role.split()[0], [*self.program(kind, role, domain, *what), *variant.options])

        if variant.middle == "ferry":
            start("ferry", self.ferry(variant, size, count, warmup))
        elif variant.middle:
            program("engine", variant.middle, self.domain)
        apart = variant.middle and variant.source == "engine"
        if variant.sink != "java":
            program(variant.sink, "sub", self.domain + 1 if apart else self.domain)
        if variant.source != "java":
            program(variant.source, "pub", self.domain)
        for name in ("sub", "pub"):
            if name in processes and processes[name].line() != "matched\n":
                fail(f"{name} does not start")
        for process in processes.values():
            process.before = process.cpu()
        ferry = processes.get("ferry")
        # A route without a program at either end has begun already.
        memory = [ferry.resident_mib()] if ferry and len(processes) > 1 else None
        if "pub" in processes:
            processes["pub"].go()
        result = self.result(processes)
        cpu = {name: (process.cpu() - process.before) / count * 1e6
               for name, process in processes.items()}
        if memory:
            memory.append(ferry.resident_mib())
        if result["gaps"] or result["samples"] != count:
            fail(f"{variant.name}: {result['samples']} of {count} samples came, "
                 f"{result['gaps']} gaps")
        peaks = {}
        if "pub" in processes:
            peaks["pub"] = json.loads(processes["pub"].rest())["mib"]
        self.end(variant, count, processes)
        if "sub" in processes:
            processes["sub"].go()
            processes["sub"].rest()
            peaks["sub"] = result["mib"]
        return {**result, "cpu": cpu, "memory": memory, "peaks": peaks}

    def result(self, processes):
        if "sub" in processes:
            return json.loads(processes["sub"].line())
        end = time.monotonic() + PATIENCE
        while not self.report.exists():
            if time.monotonic() > end or processes["ferry"].child.poll() is not None:
                processes["ferry"].log.flush()
                fail("the Java end did not report:\n"
                     + (self.work / "log").read_text(encoding="utf-8"))
            time.sleep(0.01)
        return json.loads(self.report.read_text(encoding="utf-8"))

    def end(self, variant, count, processes):
        if "forward" in processes:
            processes["forward"].stop()
        if "ferry" not in processes:
            return
        summary = processes["ferry"].stop()
        code = processes["ferry"].child.returncode
        counts = re.search(r"(\d+) read, (\d+) written, (\d+) errors", summary)
        if code or not counts or int(counts[1]) < count or counts[1] != counts[2] \
                or counts[3] != "0":
            fail(f"{variant.name}: ferry ended {code}: {summary}"
                 + (self.work / "log").read_text(encoding="utf-8"))


def throughput(bench, size, rounds, quick):
    count = SAMPLES[size] // (10 if quick else 1)
    rows = {variant: [] for variant in
            (PAIR, OUR_READER, OUR_WRITER, JAVA, TO_JAVA, FROM_JAVA, TYPED, ENCODED, THROUGH,
             UNSEEN)}
    again = []
    for number in range(rounds):
        for variant, results in rows.items():
            results.append(bench.run(variant, size, count, count // 4))
        again.append(bench.run(PAIR, size, count, count // 4))
        print(f"{size} bytes, round {number + 1}: " + ", ".join(
            f"{variant.name} {results[-1]['rate'] / 1e3:,.0f} k"
            for variant, results in rows.items())
            + f", {PAIR.name} again {again[-1]['rate'] / 1e3:,.0f} k", file=sys.stderr)
    agreement = statistics.median(b["rate"] / a["rate"] for a, b in zip(rows[PAIR], again))
    for first, second in zip(rows[PAIR], again):
        first["rate"] = (first["rate"] + second["rate"]) / 2
    return rows, agreement


def ratios(rows, variant, references):
    """In each round: the rate, by that of the slowest reference."""
    return [result["rate"] / min(rows[reference][number]["rate"] for reference in references)
            for number, result in enumerate(rows[variant])]


def print_throughput(size, rows, agreement):
    print(f"\n{size} bytes; the engine's pair against itself in the same round: {agreement:.2f}\n")
    print("| variant | 1,000 samples/s | of its slower end | of the typed forwarder "
          "| CPU s per million | ferry MiB, start and end |")
    print("|---|---|---|---|---|---|")
    for variant, results in rows.items():
        ends = ratios(rows, variant, ENDS[variant]) if variant in ENDS else None
        forwarder = ratios(rows, variant, (TYPED,)) if variant in (THROUGH, UNSEEN) else None
        cpu = ", ".join(f"{name} {statistics.median(r['cpu'][name] for r in results):.2f}"
                        for name in results[0]["cpu"])
        memory = " and ".join(f"{statistics.median(r['memory'][i] for r in results):.0f}"
                              for i in (0, 1)) if results[0]["memory"] else ""
        print(f"| {variant.name} | {report.spread([r['rate'] for r in results], 1e3, 0)} | "
              f"{report.spread(ends) if ends else ''} | "
              f"{report.spread(forwarder) if forwarder else ''} | "
              f"{cpu} | {memory} |")


def as_json(size, rows, agreement):
    void = not 0.9 <= agreement <= 1.1
    for variant, results in rows.items():
        relative = ratios(rows, variant, ENDS.get(variant, (PAIR,)))
        yield report.entry(
            f"domain: {variant.name}", 1024, str(size), relative, void,
            samples_per_second=statistics.median(r["rate"] for r in results), lost=0,
            cpu_seconds_per_million={name: statistics.median(r["cpu"][name] for r in results)
                                     for name in results[0]["cpu"]})


def latency(bench, rounds, quick):
    warmup, count = (500, 1500) if quick else (2000, 10000)
    rows = {variant: [] for variant in (PAIR, TYPED, THROUGH, UNSEEN, TO_JAVA)}
    for _ in range(rounds):
        for variant, results in rows.items():
            results.append(bench.run(variant, 64, count, warmup, LATENCY_RATE))
    print(f"\nLatency in microseconds, 64 bytes, {LATENCY_RATE} samples/s\n")
    print("| variant | p50 | p99 |\n|---|---|---|")
    objects = []
    for variant, results in rows.items():
        p50, p99 = ([r[key] for r in results] for key in ("p50", "p99"))
        print(f"| {variant.name} | {report.spread(p50, digits=0)} | "
              f"{report.spread(p99, digits=0)} |")
        objects.append(report.entry(
            f"domain latency: {variant.name}", 1, "64",
            [r["p50"] / reference["p50"] for r, reference in zip(results, rows[PAIR])],
            p50_us=statistics.median(p50), p99_us=statistics.median(p99)))
    return objects


def keyed_cases(quick):
    """In quick form, every kind of key and every order once."""
    if quick:
        return [Keys(kind, 10_000, "sequential") for kind in KEY_TYPES] \
            + [Keys("Key8", 10_000, order) for order in ORDERS[1:]]
    return [Keys(kind, instances, order) for instances in KEYED_SAMPLES for kind in KEY_TYPES
            for order in ORDERS]


def keyed(bench, rounds, quick):
    """Readers and writers of keyed topics, beside the engine's own: rate, and the most memory."""
    print("\nKeyed topics, by that of the engine's pair\n")
    print("| key | instances | keys | engine, 1,000 samples/s | reader, rate | writer, rate "
          "| engine, sub and pub MiB | reader MiB | writer MiB |")
    print("|---|---|---|---|---|---|---|---|---|")
    objects = []
    for keys in keyed_cases(quick):
        count = KEYED_SAMPLES[keys.instances] // (10 if quick else 1)
        rows = {variant: [] for variant in (PAIR, OUR_READER, OUR_WRITER)}
        for _ in range(rounds):
            for variant, results in rows.items():
                results.append(bench.run(variant, 64, count, 0, keys=keys))
        rates = {variant: ratios(rows, variant, (PAIR,)) for variant in rows}
        peaks = {variant: {end: statistics.median(r["peaks"][end] for r in results)
                           for end in ("sub", "pub")} for variant, results in rows.items()}
        print(f"| {KEY_TYPES[keys.type]} | {keys.instances:,} | {keys.order} | "
              f"{report.spread([r['rate'] for r in rows[PAIR]], 1e3, 0)} | "
              f"{report.spread(rates[OUR_READER])} | {report.spread(rates[OUR_WRITER])} | "
              f"{peaks[PAIR]['sub']:.0f} and {peaks[PAIR]['pub']:.0f} | "
              f"{peaks[OUR_READER]['sub']:.0f} | {peaks[OUR_WRITER]['pub']:.0f} |", flush=True)
        objects += [report.entry(
            f"domain keyed: {variant.name}, {keys.type}, {keys.instances}, {keys.order}", 1024,
            "64", rates[variant], sub_mib=peaks[variant]["sub"], pub_mib=peaks[variant]["pub"])
            for variant in (OUR_READER, OUR_WRITER)]
    return objects


def secured(bench, rounds, quick):
    """Pairs of the platform: plain, secured, by TCP, and both, beside the plain one."""
    keys = bench.work / "keys"
    subprocess.run([bench.tree / "bin/ferry", "new", "keys", keys, "--node", "bench"], check=True,
                   stdout=subprocess.DEVNULL)
    options = {"": (), ", secured": ("--keys", str(keys)), ", TCP": ("--port", "7461"),
               ", TCP, secured": ("--keys", str(keys), "--port", "7461")}
    plain, *others = [Variant(f"platform > platform{name}", "platform", "", "platform", each)
                      for name, each in options.items()]
    objects = []
    for size, samples in SAMPLES.items():
        count = samples // (10 if quick else 1)
        rows = {variant: [] for variant in (plain, *others)}
        for _ in range(rounds):
            for variant, results in rows.items():
                results.append(bench.run(variant, size, count, count // 4))
        print(f"\n{size} bytes, secured and by TCP\n\n| variant | 1,000 samples/s | of the plain "
              "one |\n|---|---|---|")
        for variant, results in rows.items():
            relative = ratios(rows, variant, (plain,))
            print(f"| {variant.name} | {report.spread([r['rate'] for r in results], 1e3, 0)} | "
                  f"{report.spread(relative)} |", flush=True)
            objects.append(report.entry(f"domain secured: {variant.name}", 1024, str(size),
                                        relative))
    return objects


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tree", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true", help="a tenth of the samples, two rounds")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--part", nargs="+", choices=PARTS, default=PARTS)
    parser.add_argument("--domain", type=int, default=61, help="it and the next one are used")
    report.add_options(parser)
    arguments = parser.parse_args()
    rounds = arguments.rounds or (2 if arguments.quick else 5)
    objects = []
    with tempfile.TemporaryDirectory() as work:
        bench = Bench(arguments.tree.resolve(), pathlib.Path(work), arguments.domain)
        for size in SAMPLES if "rate" in arguments.part else ():
            rows, agreement = throughput(bench, size, rounds, arguments.quick)
            print_throughput(size, rows, agreement)
            objects += as_json(size, rows, agreement)
        if "keyed" in arguments.part:
            objects += keyed(bench, arguments.rounds or (1 if arguments.quick else 3),
                             arguments.quick)
        if "secured" in arguments.part:
            objects += secured(bench, rounds, arguments.quick)
        if "topics" in arguments.part:
            held = topics.topics(bench)
            objects += [report.entry(f"domain topics: {name}", 1, str(topics.TOPICS),
                                     [mib / held["found, none relayed"]], mib=mib)
                        for name, mib in held.items()]
        if "latency" in arguments.part:
            objects += latency(bench, rounds, arguments.quick)
    report.save(arguments, objects)
    if arguments.pictures:
        for kind, axis in (("domain", "rate, by that of the slower end"),
                           ("domain latency", "p50, by that of the engine's pair")):
            report.picture(
                arguments.pictures / f"{kind.replace(' ', '-')}.svg", "At a DDS domain", axis,
                [(f"{each['name'].partition(': ')[2]}, {each['payload']}", each["quartiles"],
                  each["void"]) for each in objects if each["name"].startswith(kind + ":")])


if __name__ == "__main__":
    main()
