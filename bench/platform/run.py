#!/usr/bin/env python3
"""Measures the platform's samples beside the least that does the same.

usage: run.py BUILD_TREE [--quick] [--processes N] [--json FILE [--extend]] [--pictures DIR]

push, pull: a sample's way between Java and native memory, as the bridge has it done, beside a
helper that only copies the bytes. members in Java: nine set and got by their paths, beside bytes at
places known beforehand. set and CDR, CDR and get: native members by their paths and the sample's
CDR, beside a struct and the code that the DDS engine's tool generates for it.

Ratios of CPU time, from fresh processes; in each ours and the reference take turns every few
milliseconds, and the reference stands among them twice. Where the two disagree by more than 2 % the
process's figure is void; a row with fewer than half of its figures is void.
"""
import argparse
import json
import pathlib
import statistics
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import report  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tree", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true", help="two processes, fewer rounds")
    parser.add_argument("--processes", type=int)
    report.add_options(parser)
    arguments = parser.parse_args()
    rows = {}
    for _ in range(arguments.processes or (2 if arguments.quick else 7)):
        output = subprocess.run([arguments.tree / "bench/bench_samples", "--rounds",
                                 "40" if arguments.quick else "200"], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        for line in output.splitlines():
            each = json.loads(line)
            rows.setdefault((each["name"], each["payload"]), []).append(each)
    objects, drawn = [], []
    print("| work | payload | ours / reference | reference / itself | ours, ns | reference, ns "
          "| void |\n|---|---|---|---|---|---|---|")
    for (name, payload), results in rows.items():
        good = [r for r in results if abs(r["twins"] - 1) <= 0.02]
        void = 2 * len(good) < len(results)
        ratios = [r["ratio"] for r in (good or results)]
        ours, reference = (statistics.median(r[key] for r in results)
                           for key in ("ns", "reference_ns"))
        print(f"| {name} | {payload} | {report.spread(ratios)} | "
              f"{report.spread([r['twins'] for r in results])} | {ours:.0f} | {reference:.0f} | "
              f"{len(results) - len(good)} of {len(results)}{', ALL VOID' if void else ''} |")
        objects.append(report.entry(f"platform: {name}", 1, payload, ratios, void, ns=ours,
                                    reference_ns=reference))
        drawn.append((f"{name}, {payload}", report.quartiles(ratios), void))
    report.save(arguments, objects)
    if arguments.pictures:
        report.picture(arguments.pictures / "platform.svg",
                       "Samples beside the least that does the same", "CPU time, ours / reference",
                       drawn)


if __name__ == "__main__":
    main()
