#!/usr/bin/env python3
"""Which branches of jni/ and support/ do the tests of the bridge not take? "./dev coverage" builds
build/coverage for it, and runs them. Those not taken have to stand in uncovered.txt."""
import json, os, subprocess, sys

from reasons import unexplained

ROOT = os.path.abspath(f"{__file__}/../../..")
files = json.loads(subprocess.check_output(
    ["gcovr", "--root", ROOT, "--filter", f"{ROOT}/(jni|support)/", "--branches", "--json", "-",
     "--exclude-throw-branches", "--exclude-unreachable-branches", f"{ROOT}/build/coverage"]))
total, missed, not_taken = 0, 0, {}
for file in files["files"]:
    lines = open(f"{ROOT}/{file['file']}").read().splitlines()
    for entry in file["lines"]:
        key = f"{file['file']}: {lines[entry['line_number'] - 1].strip()}"
        counts = [branch["count"] for branch in entry["branches"]]
        total, missed = total + len(counts), missed + counts.count(0)
        if 0 in counts:
            not_taken[key] = f"{file['file']}:{entry['line_number']}"
without = unexplained("uncovered.txt", not_taken)
print(f"{total - missed} of {total} branches taken, {100 * (total - missed) / max(1, total):.1f} %; "
      f"{len(without)} lines without a reason")
sys.exit(bool(without) or total == 0)
