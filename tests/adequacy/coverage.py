#!/usr/bin/env python3
"""Which branches do the tests not take? "./dev coverage" builds build/coverage for it, and runs
them. Each folder of a room has to come to what rooms.py asks for; where that entry wants reasons,
each branch that is not taken has to stand in uncovered.txt."""
import argparse
import collections
import glob
import json
import os
import re
import subprocess
import sys

from reasons import unexplained
from rooms import BRANCHES, ROOMS

ROOT = os.path.abspath(f"{__file__}/../../..")
BUILD = f"{ROOT}/build/coverage"
JARS = [f"/usr/share/java/{name}.jar" for name in (
    "org.jacoco.core", "asm", "asm-tree", "asm-commons", "asm-analysis")]
Line = collections.namedtuple("Line", "file number branches missed")


def profiled():
    """The programs and libraries that count."""
    for folder, _, names in os.walk(BUILD):
        for path in (f"{folder}/{name}" for name in names if name.partition(".")[2] in ("", "so")):
            if not os.path.islink(path) and b"__llvm_covmap" in open(path, "rb").read():
                yield path


def conditions(report):
    """Each condition of the sources: where it is, and how often it was true, and not."""
    for file in report["files"]:
        for branch in file["branches"]:
            yield (file["filename"], *branch[:4]), branch[4:6]
        for macro in file["expansions"]:
            for branch in macro["branches"]:
                yield (macro["filenames"][branch[6]], *branch[:4]), branch[4:6]


def native_lines():
    counts = sorted(glob.glob(f"{BUILD}/native/*.profraw"))
    subprocess.check_call(["llvm-profdata", "merge", "-o", f"{BUILD}/native.profdata", *counts])
    objects = [word for path in profiled() for word in ("-object", path)]
    report = json.loads(subprocess.check_output(
        ["llvm-cov", "export", f"-instr-profile={BUILD}/native.profdata", "-skip-functions",
         f"-ignore-filename-regex={ROOT}/(tests|bench|build)/|^/usr/", *objects[1:]]))
    taken = collections.defaultdict(lambda: (0, 0))
    for place, (yes, no) in conditions(report["data"][0]):
        taken[place] = (taken[place][0] + yes, taken[place][1] + no)
    texts = collections.defaultdict(list)
    branches = collections.defaultdict(list)
    for (path, line, column, *_), ways in taken.items():
        file = os.path.relpath(path, ROOT)
        texts[file] = texts[file] or open(path).read().splitlines()
        # What a label is not is another label's.
        label = re.match(r"case\b|default\b", texts[file][line - 1][column - 1:])
        branches[file, line] += ways[:1] if label else ways
    for (file, line), ways in branches.items():
        yield Line(file, line, len(ways), ways.count(0))


def java_lines(sources):
    """The same of Java, whose classes know a package and a file's name."""
    if not os.path.exists(f"{BUILD}/java.exec"):
        return   # no test with a VM has run
    folder_of = {file.split("/src/")[1]: file for file in sources if "/src/" in file}
    jars = glob.glob(f"{BUILD}/share/ferryjni/**/*.jar", recursive=True)
    printed = subprocess.check_output(
        ["java", "-cp", ":".join(JARS), f"{ROOT}/tests/adequacy/Covered.java",
         f"{BUILD}/java.exec", *jars], text=True)
    for words in (line.split("\t") for line in printed.splitlines()):
        if words[0] in folder_of:
            yield Line(folder_of[words[0]], *map(int, words[1:]))


def folder_of(path, room):
    return next((folder for folder in room.sources if path.startswith(f"{folder}/")), None)


def keys_of(lines):
    """Lines with branches that are not taken, as uncovered.txt has them, and where they are."""
    texts = {file: open(f"{ROOT}/{file}").read().splitlines() for file in {x.file for x in lines}}
    return {f"{file}: {texts[file][number - 1].strip()}": f"{file}:{number}"
            for file, number, _, missed in lines if missed}


def report(folder, lines, least, worst):
    """Prints what a folder comes to, and its worst files; is it enough?"""
    by_file = collections.defaultdict(lambda: [0, 0])
    for line in lines:
        by_file[line.file][0] += line.branches
        by_file[line.file][1] += line.missed
    total = sum(each[0] for each in by_file.values())
    missed = sum(each[1] for each in by_file.values())
    taken = (total - missed) / max(1, total)
    print(f"{folder}: {total - missed} of {total} branches taken, {100 * taken:.1f} %"
          f"{'' if taken >= least else f', LESS THAN {100 * least:.0f} %'}")
    for file, (all_of, without) in sorted(by_file.items(), key=lambda each: -each[1][1])[:worst]:
        print(f"    {without:4} of {all_of:4} not taken: {file}")
    return taken >= least


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--room", action="append", choices=ROOMS, help="repeatable; all if none")
    parser.add_argument("--worst", type=int, default=0, help="so many files of each folder")
    parser.add_argument("--lines", action="store_true", help="each line with a branch not taken")
    options = parser.parse_args()
    files = subprocess.check_output(["git", "ls-files"], cwd=ROOT, text=True).split()
    lines, good = [*native_lines(), *java_lines(files)], True
    for name in options.room or ROOMS:
        room = ROOMS[name]
        mine = [line for line in lines if folder_of(line.file, room)]
        for folder in room.sources:
            there = [line for line in mine if folder_of(line.file, room) == folder]
            good &= not there or report(folder, there, BRANCHES[folder], options.worst)
        if room.explained:
            good &= not unexplained("uncovered.txt", keys_of(mine))
        elif options.lines:
            for key, place in keys_of(mine).items():
                print(f"{place}: {key.split(': ', 1)[1]}")
        good &= bool(mine)
    sys.exit(not good)


if __name__ == "__main__":
    main()
