#!/usr/bin/env python3
"""Which branches do the tests not take? "./dev coverage" builds build/coverage for it, and runs
them. Each folder of a room has to come to what rooms.py asks for; where that entry wants reasons,
each branch that is not taken has to stand in uncovered.txt."""
import argparse
import collections
import glob
import json
import os
import subprocess
import sys

from reasons import unexplained
from rooms import BRANCHES, ROOMS

ROOT = os.path.abspath(f"{__file__}/../../..")
BUILD = f"{ROOT}/build/coverage"
JARS = [f"/usr/share/java/{name}.jar" for name in (
    "org.jacoco.core", "asm", "asm-tree", "asm-commons", "asm-analysis")]
Line = collections.namedtuple("Line", "file number branches missed")


def native_lines():
    report = json.loads(subprocess.check_output(
        ["gcovr", "--root", ROOT, "--branches", "--json", "-", "--exclude-throw-branches",
         "--exclude-unreachable-branches", "--exclude", f"{ROOT}/(tests|bench|build)/", BUILD]))
    for file in report["files"]:
        for entry in file["lines"]:
            counts = [branch["count"] for branch in entry["branches"]]
            if counts:
                yield Line(file["file"], entry["line_number"], len(counts), counts.count(0))


def java_lines(sources):
    """The same of Java, whose classes know a package and a file's name."""
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
    texts = {file: open(f"{ROOT}/{file}").read().splitlines() for file in {l.file for l in lines}}
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
