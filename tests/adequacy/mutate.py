#!/usr/bin/env python3
"""Do the tests notice a fault? Plants one at a time in the sources of a room, makes what the build
makes of them, and runs the room's tests until one fails. "./dev mutate" builds build/mutate for it.

A fault that does not compile, or makes the same code as none or as another, is not counted. One
that no test notices has to stand in survivors.txt, with the reason why none can, where the room's
entry in rooms.py asks for that."""
import argparse
import atexit
import collections
import functools
import json
import os
import re
import resource
import shutil
import sys
import threading
import time
import tomllib
from concurrent.futures import ThreadPoolExecutor

import faults
from javaside import Jars, Java
from native import Native, Plan, output
from reasons import reasons_of, unexplained
from rooms import ROOMS, Room
from sandbox import BUILD, ROOT, WORK, Tree

TABLES = ("jni/MemberTable.h", "jni/MemberTableCheck.h")   # what the compiler itself checks
Test = collections.namedtuple("Test", "name command folder environment")
# Programs of many tests, each of which may wait long for what never comes: one failure is enough.
MANY = {"relay.Ferry", "relay.Hostile", "sql.Ferry"}


def all_tests():
    tests = []
    for each in json.loads(output("ctest", "--show-only=json-v1"))["tests"]:
        values = {p["name"]: p["value"] for p in each["properties"]}
        pairs = tuple(tuple(pair.split("=", 1)) for pair in values.get("ENVIRONMENT", ()) if pair)
        tests.append(Test(f"{os.path.basename(each['command'][0])} {each['name']}",
                          (*each["command"], *(["-f"] if each["name"] in MANY else [])),
                          values.get("WORKING_DIRECTORY", BUILD), pairs))
    return tests


class Worker:
    """A build tree of its own, and what puts faults into it."""

    def __init__(self, plan, jars):
        folder = f"{WORK}/{threading.get_ident()}"
        self.tree, self.clean = Tree(f"{folder}/tree"), Tree(f"{folder}/clean")
        self.makers = [Native(folder, self.tree, plan), Java(folder, self.tree, jars)]

    def maker(self, mutant):
        return next(each for each in self.makers if mutant.file.endswith(each.kind))


class Run:
    def __init__(self, quick, verbose):
        self.plan, self.jars, self.tests = Plan(), Jars(), all_tests()
        self.quick, self.verbose = quick, verbose
        self.seen, self.took, self.mine = set(), {}, threading.local()
        self.locks = collections.defaultdict(threading.Lock)
        self.kills = collections.defaultdict(collections.Counter)

    def begin(self):
        self.mine.worker = Worker(self.plan, self.jars)

    def sources(self, room):
        known = {*self.plan.users, *self.jars.jar_of} - {*TABLES}
        return sorted(file for file in known
                      if file.startswith(tuple(f"{folder}/" for folder in room.sources)))

    def tests_of(self, patterns):
        return [test for test in self.tests if any(re.search(p, test.name) for p in patterns)]

    def seconds(self, test):
        """How long the test takes without a fault; None for one that fails then."""
        with self.locks[test]:
            if test not in self.took:
                start = time.monotonic()
                passed = self.mine.worker.clean.run(test, 600) == "passed"
                self.took[test] = time.monotonic() - start if passed else None
                if not passed:
                    print(f"left out, fails without a fault: {test.name}", file=sys.stderr)
            return self.took[test]

    def notices(self, mutant, test, near):
        """What a test makes of the fault; what has noticed one counts for its neighbours."""
        took = self.seconds(test)
        if took is None:
            return "passed"
        worker = self.mine.worker
        worker.maker(mutant).prepare(test)
        outcome = worker.tree.run(test, min(10 + 10 * took, 120 + 3 * took))
        if outcome != "passed":
            for kills in near:
                kills[test] += 1
        return outcome

    def judge(self, room, mutant):
        worker = self.mine.worker
        maker = worker.maker(mutant)
        changed = maker.changed(mutant)
        if None in changed.values():
            return "not compiled"
        if not changed or (code := frozenset(changed.items())) in self.seen:
            return "twice" if changed else "equivalent"
        self.seen.add(code)
        worker.tree.clear()
        maker.install(changed, mutant)
        near = [self.kills[each] for each in (mutant.place, mutant.file, "")]
        for patterns in (room.tests, () if self.quick else room.slow):
            # First what has killed neighbours, and what is quick.
            for test in sorted(self.tests_of(patterns), key=lambda t: (
                    [-kills[t] for kills in near], self.took.get(t) or 0)):
                outcome = self.notices(mutant, test, near)
                if outcome != "passed":
                    self.note(f"{outcome} in {test.name}", mutant)
                    return outcome
        # A difference that the optimiser sees through is none.
        if not self.quick and maker.same_optimised(mutant):
            return "equivalent"
        self.note("survives", mutant)
        return "survived"

    def note(self, what, mutant):
        """What the time limit ended is told like what survives: a busy machine may have done it."""
        if self.verbose or not what.startswith("failed"):
            print(f"{what}: {mutant.file}:{mutant.line}: {mutant.key}", file=sys.stderr, flush=True)


def planted():
    """The faults of planted.toml, each with the tests that have to notice it."""
    with open(f"{sys.path[0]}/planted.toml", "rb") as there:
        for each in tomllib.load(there)["fault"]:
            text = open(f"{ROOT}/{each['file']}").read()
            before, found, behind = text.partition(each["from"])
            if not found or each["from"] in behind:
                sys.exit(f"planted.toml: {each['file']} does not hold once: {each['from']}")
            yield (faults.Mutant(each["file"], before.count("\n") + 1, each["file"], each["name"],
                                 before + each["to"] + behind),
                   Room((), tuple(each["tests"]), ()))


def judge_planted(run, pool):
    """Are all of them noticed? Prints what is not."""
    pairs = list(planted())
    outcomes = list(pool.map(lambda pair: run.judge(pair[1], pair[0]), pairs))
    for (mutant, _), outcome in zip(pairs, outcomes):
        print(f"{outcome}: {mutant.key} ({mutant.file})")
    noticed = outcomes.count("failed") + outcomes.count("timed out")
    print(f"{noticed} of {len(pairs)} planted faults noticed")
    return noticed == len(pairs)


def mutants_of(run, room, options):
    mutants = [mutant for file in run.sources(room)
               for mutant in faults.mutants_of(file, open(f"{ROOT}/{file}").read())
               if not options.file or {file, f"{file}:{mutant.line}"} & {*options.file}]
    if options.listed:
        mutants = [mutant for mutant in mutants if mutant.key in reasons_of("survivors.txt")]
    if options.sample:
        mutants = mutants[::-(-len(mutants) // options.sample) or 1]
    if options.part:
        part, parts = map(int, options.part.split("/"))
        mutants = mutants[len(mutants) * (part - 1) // parts:len(mutants) * part // parts]
    return mutants


def report(name, room, mutants, outcomes, options, seconds):
    """Prints what came of a room's faults; is it less than asked for?"""
    found = {each.key: f"{each.file}:{each.line}"
             for each, outcome in zip(mutants, outcomes) if outcome == "survived"}
    some = (options.file or options.sample or options.part or options.listed
            or not room.explained)
    without = unexplained("survivors.txt", found, {each.key for each in mutants} if some else None)
    count = collections.Counter(outcomes)
    killed = count["failed"] + count["timed out"]
    counted = killed + count["survived"]
    # Where not each has a reason, one that has is no fault.
    asked = counted if room.explained else killed + len(without)
    print(f"{name}: {len(mutants)} faults: {killed} killed ({count['timed out']} by the time "
          f"limit), {count['survived']} survived; not counted: {count['not compiled']} do not "
          f"compile, {count['equivalent']} make no other code, {count['twice']} that of another")
    print(f"{name}: {100 * killed / max(1, counted):.1f} % of {counted} killed; {seconds:.0f} s, "
          f"{seconds * options.jobs / max(1, len(mutants)):.1f} s each", flush=True)
    return killed < room.least * asked and not options.listed or room.explained and bool(without)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--room", action="append", choices=ROOMS, help="repeatable; all if none")
    parser.add_argument("--file", action="append",
                        help="faults of this file, or of FILE:LINE, only; repeatable")
    parser.add_argument("--sample", type=int, help="so many faults a room only, evenly spread")
    parser.add_argument("--part", metavar="K/N", help="the Kth of N parts of them only")
    parser.add_argument("--quick", action="store_true", help="ask the room's quick tests only")
    parser.add_argument("--planted", action="store_true", help="those of planted.toml only")
    parser.add_argument("--listed", action="store_true", help="those of survivors.txt only")
    parser.add_argument("--verbose", action="store_true", help="name what notices each fault")
    parser.add_argument("--jobs", type=int, default=2)
    options = parser.parse_args()
    # A fault may crash, or never stop asking for memory.
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_DATA, (4 << 30, 4 << 30))
    atexit.register(shutil.rmtree, WORK, ignore_errors=True)
    run, bad = Run(options.quick, options.verbose), False
    with ThreadPoolExecutor(options.jobs, initializer=run.begin) as pool:
        if options.planted:
            sys.exit(not judge_planted(run, pool))
        for name in options.room or ROOMS:
            start, mutants = time.monotonic(), mutants_of(run, ROOMS[name], options)
            if mutants:
                outcomes = list(pool.map(functools.partial(run.judge, ROOMS[name]), mutants))
                bad |= report(name, ROOMS[name], mutants, outcomes, options,
                              time.monotonic() - start)
    sys.exit(bad or None in run.took.values())


if __name__ == "__main__":
    main()
