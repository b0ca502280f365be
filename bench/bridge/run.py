#!/usr/bin/env python3
"""Measures the bridge beside a loop written by hand that makes the same Java calls.

usage: run.py BUILD_TREE [--quick] [--processes N] [--part PART...] [--json FILE [--extend]]
              [--pictures DIR]

Ratios come from fresh processes; in each the variants take turns every few milliseconds, and the
loop stands among them twice. Where the two disagree by more than 2 % (5 % at one sample) the
process's figure is void and does not count; a row with fewer than half of its figures is void.
"""
import argparse
import json
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import report  # noqa: E402

PAYLOADS = ("64", "1024", "nested")
PARTS = ("ratios", "instructions", "memory", "threads", "sizes", "start", "socket")


class Bench:
    def __init__(self, tree, quick, processes):
        self.program = str(tree / "bench/bench_bridge")
        self.quick = quick
        self.processes = processes
        self.objects = []
        self.pictures = []

    def run(self, mode, *options, before=()):
        result = subprocess.run([*before, self.program, mode, *map(str, options)],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if result.returncode:
            sys.exit(f"run.py: {mode} ended {result.returncode}:\n{result.stderr}")
        return [json.loads(line) for line in result.stdout.splitlines()], result.stderr

    def ratios(self):
        rows = {}
        for number in range(self.processes):
            for payload in PAYLOADS:
                found = self.run("ratios", "--payload", payload, "--rounds",
                                 40 if self.quick else 200)[0]
                for each in found:
                    rows.setdefault((payload, each["batch"], each["name"]), []).append(each)
            print(f"process {number + 1} of {self.processes}", file=sys.stderr)
        print("\n| payload | bytes | samples | operation | bridge / loop | loop / loop "
              "| bridge, ns a sample | void |\n|---|---|---|---|---|---|---|---|")
        drawn = []
        for (payload, batch, name), results in rows.items():
            allowed = 0.05 if batch == 1 else 0.02
            good = [r for r in results if abs(r["twins"] - 1) <= allowed]
            void = 2 * len(good) < len(results)
            counted = [r["ratio"] for r in (good or results)]
            print(f"| {payload} | {results[0]['bytes']} | {batch} | {name} | "
                  f"{report.spread(counted, digits=3)} | "
                  f"{report.spread([r['twins'] for r in results], digits=3)} | "
                  f"{statistics.median(r['bridge_ns'] for r in results):.0f} | "
                  f"{len(results) - len(good)} of {len(results)}{', ALL VOID' if void else ''} |")
            self.objects.append(report.entry(f"bridge: {name}", batch, payload, counted, void,
                                             bridge_ns=statistics.median(r["bridge_ns"]
                                                                         for r in results)))
            drawn.append((f"{name}, {payload}, {batch} a batch", report.quartiles(counted), void))
        self.pictures.append(("bridge-ratios.svg", "The bridge beside a loop written by hand",
                              "CPU time, bridge / loop", drawn, 1.0))

    def instructions(self):
        """Instructions a sample, Java's included, by callgrind."""
        operations = 200 if self.quick else 1000
        batch = 128
        print("\n| operation | bridge, instructions a sample | loop | more |\n|---|---|---|---|")
        for direction in ("read", "write"):
            counts = []
            for variant in ("bridge", "reference"):
                with tempfile.TemporaryDirectory() as work:
                    errors = self.run(
                        "instructions", "--batch", batch, "--variant", variant, "--direction",
                        direction, "--operations", operations, "--vm=-Xbatch",
                        before=("valgrind", "--tool=callgrind", "--instr-atstart=no",
                                "--collect-atstart=no", f"--callgrind-out-file={work}/out"))[1]
                counts.append(int(re.search(r"Collected : (\d+)", errors)[1])
                              / operations / batch)
            print(f"| {direction} | {counts[0]:.1f} | {counts[1]:.1f} | "
                  f"{counts[0] - counts[1]:.1f} |")
            self.objects.append(report.entry(f"bridge instructions: {direction}", batch, "64",
                                             [counts[0] / counts[1]], bridge=counts[0],
                                             reference=counts[1]))

    def memory(self):
        print("\n| objects | samples | resident after a tenth, MiB | at the end | growth, KiB "
              "| full collection, ms |\n|---|---|---|---|---|---|")
        for fresh in (False, True):
            steps = self.run("memory", "--samples", 2_000_000 if self.quick else 100_000_000,
                             "--vm=-Xmx64m", *(["--fresh"] if fresh else []))[0]
            first, last = steps[1], steps[-1]
            growth = max(step["resident_kib"] for step in steps[1:]) - first["resident_kib"]
            name = "new ones each time" if fresh else "the same ones"
            print(f"| {name} | {last['samples']:,} | {first['resident_kib'] / 1024:.1f} | "
                  f"{last['resident_kib'] / 1024:.1f} | {growth} | {first['collection_ms']:.2f} "
                  f"to {last['collection_ms']:.2f} |")
            self.objects.append(report.entry(
                f"bridge memory: {name}", 128, "64",
                [last["resident_kib"] / first["resident_kib"]], growth_kib=growth,
                collection_ms=[step["collection_ms"] for step in steps[1:]]))

    def threads(self):
        counts = (1, 2, 4, 8)
        rows = {count: [] for count in counts}
        for _ in range(self.processes):
            for count in counts:
                rows[count] += self.run("threads", "--threads", count, "--seconds",
                                        1 if self.quick else 3)[0]
        print("\n| threads | CPU a sample, ns | of one thread | samples/s | of one thread |"
              "\n|---|---|---|---|---|")
        for count, results in rows.items():
            cpu, rate = ([r[key] / one[key] for r, one in zip(results, rows[1])]
                         for key in ("ns_per_sample", "samples_per_second"))
            print(f"| {count} | {statistics.median(r['ns_per_sample'] for r in results):.0f} | "
                  f"{report.spread(cpu)} | "
                  f"{statistics.median(r['samples_per_second'] for r in results):,.0f} | "
                  f"{report.spread(rate)} |")
            self.objects.append(report.entry(f"bridge threads: {count}", 128, "64", cpu,
                                             rate=report.quartiles(rate)))

    def sizes(self):
        batches = (1, 3, 10, 32, 100, 316, 1000, 3162, 10000, 31623, 100000)
        rows = {batch: [] for batch in batches}
        for _ in range(self.processes):
            for each in self.run("sizes", "--rounds", 5 if self.quick else 20, "--batch",
                                 *batches)[0]:
                rows[each["batch"]].append((each["ns_per_sample"], each["reference_ns"]))
        print("\n| samples a read | bridge, ns a sample | loop | bridge / loop |\n"
              "|---|---|---|---|")
        drawn = []
        for batch, pairs in rows.items():
            times, reference = zip(*pairs)
            relative = [a / b for a, b in pairs]
            print(f"| {batch:,} | {statistics.median(times):.0f} | "
                  f"{statistics.median(reference):.0f} | {report.spread(relative)} |")
            self.objects.append(report.entry("bridge sizes", batch, "64", relative))
            drawn.append((f"{batch:,} samples", report.quartiles(times), False))
        self.pictures.append(("bridge-sizes.svg", "Cost of a sample by the size of a read",
                              "ns of CPU a sample, read and returned", drawn,
                              statistics.median(time for time, _ in rows[1000])))

        self.growth()

    def growth(self):
        rows = {}
        for _ in range(self.processes):
            for each in self.run("growth", "--rounds", 5 if self.quick else 20, "--batch",
                                 1000, 10000, 100000)[0]:
                rows.setdefault(each["batch"], []).append(each)
        print("\n| samples a read | arrays that grow to it / that begin so | the latter / itself "
              "| a reader's life, ns a sample | void |\n|---|---|---|---|---|")
        for batch, results in rows.items():
            good = [r for r in results if abs(r["twins"] - 1) <= 0.05]
            void = 2 * len(good) < len(results)
            ratios = [r["ratio"] for r in (good or results)]
            print(f"| {batch:,} | {report.spread(ratios, digits=3)} | "
                  f"{report.spread([r['twins'] for r in results], digits=3)} | "
                  f"{statistics.median(r['ns_per_sample'] for r in results):.0f} | "
                  f"{len(results) - len(good)} of {len(results)}{', ALL VOID' if void else ''} |")
            self.objects.append(report.entry("bridge growth", batch, "64", ratios, void))

    def start(self):
        times = {"bridge": [], "reference": []}
        for _ in range(5 if self.quick else 25):
            for variant, list_ in times.items():
                list_ += [each["ms"] for each in self.run("start", "--variant", variant)[0]]
        relative = [a / b for a, b in zip(times["bridge"], times["reference"])]
        print("\n| start of the VM and 78 look-ups | ms |\n|---|---|")
        for variant, list_ in times.items():
            print(f"| {variant} | {report.spread(list_, digits=1)} |")
        print(f"| bridge / reference | {report.spread(relative)} |")
        self.objects.append(report.entry("bridge start", 0, "", relative))

    def socket(self):
        rows = {}
        for _ in range(self.processes):
            for each in self.run("socket", "--rounds", 5 if self.quick else 20, "--batch",
                                 1, 32, 128, 1024)[0]:
                rows.setdefault((each["batch"], each["name"]), []).append(each)
        print("\n| samples | operation | bridge, ns a sample | socket | socket / bridge |"
              "\n|---|---|---|---|---|")
        drawn = []
        for (batch, name), results in rows.items():
            relative = [r["ratio"] for r in results]
            bridge, other = (statistics.median(r[key] for r in results)
                             for key in ("bridge_ns", "socket_ns"))
            print(f"| {batch} | {name} | {bridge:.0f} | {other:.0f} | {report.spread(relative)} |")
            self.objects.append(report.entry(f"bridge against socket: {name}", batch, "64",
                                             [1 / value for value in relative]))
            drawn.append((f"{name}, {batch} a batch", report.quartiles(relative), False))
        self.pictures.append(("bridge-socket.svg",
                              "The same adapter in a second process over a Unix socket",
                              "time a sample, socket / bridge", drawn, 1.0))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tree", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true", help="less of everything, two processes")
    parser.add_argument("--processes", type=int)
    parser.add_argument("--part", choices=PARTS, nargs="+", default=PARTS)
    report.add_options(parser)
    arguments = parser.parse_args()
    bench = Bench(arguments.tree.resolve(), arguments.quick,
                  arguments.processes or (2 if arguments.quick else 7))
    for part in arguments.part:
        getattr(bench, part)()
    report.save(arguments, bench.objects)
    if arguments.pictures:
        for name, *content in bench.pictures:
            report.picture(arguments.pictures / name, *content)


if __name__ == "__main__":
    main()
