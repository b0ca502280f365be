#!/usr/bin/env python3
"""Do the tests of the bridge notice a fault? Plants one at a time in the branches of jni/ and
support/, relinks, and runs the tests until one fails. "./dev mutate" builds build/mutate for it.

A fault that does not compile, or makes the same code as none or as another, is not counted. One
that no test notices has to stand in survivors.txt, with the reason why none can."""
import argparse, collections, glob, json, os, re, shlex, shutil, subprocess, sys, threading, time
from concurrent.futures import ThreadPoolExecutor

from reasons import reasons_of, unexplained

LEAST = 0.95
ROOT = os.path.abspath(f"{__file__}/../../..")
BUILD = f"{ROOT}/build/mutate"
LIBRARY = "lib/libferryjni.so"
TABLES = ("jni/MemberTable.h", "jni/MemberTableCheck.h")   # what the compiler itself checks
TOKEN = re.compile(r"""(?P<skip>//[^\n]*|/\*.*?\*/|\s+|^[ \t]*\#(?:\\\n|[^\n])*)
    |"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])*'|[A-Za-z_]\w*|\d[\w.']*
    |<<=|>>=|\.\.\.|->\*|[=!<>]=|&&|\|\||->|::|\+\+|--|.""", re.S | re.M | re.X)
OTHERS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
          ">=": [">", "<"], "&&": ["||"], "||": ["&&"], "!": [""], "0": ["1"], "1": ["0"],
          "true": ["false"], "false": ["true"]}
BRANCHES = ("if", "for", "while", "switch", "else", "do", ":")
HEADING = re.compile(r"^(?:(?:class|struct) |(?:\w[\w:<>,*& ]*[ *&:])?(?=\w+\())(\w+)", re.M)
Mutant = collections.namedtuple("Mutant", "file line place key text")


def mutants_of(file):
    """Every fault of a file, with the whole text that has it."""
    text = open(f"{ROOT}/{file}").read()
    tokens = [match for match in TOKEN.finditer(text) if not match["skip"]]
    words = [token[0] for token in tokens]
    other, stack = {}, []   # where a bracket's partner is
    for i, word in enumerate(words):
        if word in "({[":
            stack.append(i)
        elif word in ")}]":
            other[i] = stack.pop()
            other[other[i]] = i

    def fault(kind, first, last, replacement):
        start, end = tokens[first].start(), tokens[last].end()
        begin, rest = text.rfind("\n", 0, start) + 1, text[end:text.find("\n", end)]
        shown = text[begin:start] + (text[start:end] if kind == "drop" else replacement) + rest
        place = f"{file} " + ([match[1] for match in HEADING.finditer(text, 0, start)] or [""])[-1]
        return Mutant(file, text.count("\n", 0, start) + 1, place,
                      f"{place} {kind}: {' '.join(shown.split())}",
                      text[:start] + replacement + text[end:])

    def condition(first, last, *forms):
        there = text[tokens[first].start():tokens[last].end()]
        return [fault("test", first, last, form.format(there)) for form in forms]

    blocks, skipped = [], 0   # of the blocks around: is each a branch?
    for i, word in enumerate(words):
        if word == "static_assert":
            skipped = other[i + 1]
        if i < skipped:
            continue
        if word == "{":
            before = other[i - 1] - 1 if words[i - 1] == ")" else i - 1
            blocks.append(words[before] in BRANCHES)
        elif word == "}":
            blocks.pop()
        around = text[tokens[i].start() - 1] + text[tokens[i].end()]
        if around == "  " or word[0].isalnum() or word == "!":   # else < is a template's
            yield from (fault("replace", i, i, each) for each in OTHERS.get(word, ()))
        if word in ("if", "while", "for"):
            first, last = i + 2, other[i + 1] - 1
            parts = [j for j in range(first, last) if words[j] == ";"]
            if word == "for" and len(parts) == 2:
                first, last = parts[0] + 1, parts[1] - 1
            if word == "if":
                yield from condition(first, last, "!({})", "({}) && false", "({}) || true")
            elif word == "while" or parts:
                yield from condition(first, last, "({}) && false")
        elif word == "?":
            first = i
            while words[first - 1] not in ("return", *"=([,;{}:"):
                first = other.get(first - 1, first - 1)
            yield from condition(first, i - 1, "!({})")
        elif word == "return" and words[i + 1] not in (";", "nullptr", "false", "0"):
            yield fault("return", i, words.index(";", i) - 1, "return {}")
        if any(blocks[-1:]) and words[i - 1] in "{};:" and word not in (
                *BRANCHES, *"({[]});", "case", "default"):
            end = i
            while words[end] not in ";)}]":
                end = other.get(end, end) + 1
            if words[end] == ";":
                yield fault("drop", i, end, ";")


class Plan:
    """How the build makes objects, library and test programs, and which tests there are."""

    def __init__(self):
        output = lambda *words: subprocess.check_output(words, cwd=BUILD, text=True)
        commands = {os.path.relpath(each["file"], ROOT): shlex.split(each["command"])
                    for each in json.loads(output("cat", "compile_commands.json"))}
        self.compile = {file: command for file, command in commands.items()
                        if file.startswith(("jni/", "support/"))}
        self.source = {command[command.index("-o") + 1]: file
                       for file, command in self.compile.items()}   # of an object
        self.users = {file: [file] for file in self.compile}        # what to compile for a file
        for line in output("ninja", "-t", "deps", *self.source).splitlines():
            path = os.path.relpath(line.strip() or "-", ROOT)
            if not line.startswith(" "):
                source = self.source.get(line.split(":")[0])
            elif path != source and path.startswith(("jni/", "support/")):
                self.users.setdefault(path, []).append(source)
        tests = json.loads(output("ctest", "--show-only=json-v1", "-R", r"^bridge\."))["tests"]
        self.tests = [tuple(test["command"]) for test in tests
                      if test["command"][1].startswith("--gtest_filter")]
        self.link = {program: shlex.split(
            output("ninja", "-t", "commands", "-s", program).split(" && ")[1])
            for program in {LIBRARY, *(os.path.relpath(test[0], BUILD) for test in self.tests)}}


class Worker:
    """Sources, objects, library and test programs of its own."""

    def __init__(self, name, plan):
        self.dir, self.plan, self.originals = f"{BUILD}/worker-{name}", plan, {}
        os.makedirs(f"{self.dir}/lib")
        os.symlink(f"{ROOT}/include", f"{self.dir}/include")
        for room in ("jni", "support"):
            shutil.copytree(f"{ROOT}/{room}", f"{self.dir}/{room}")

    def compile(self, source, level):
        """The object's bytes as a hash; None when there is none."""
        words = [re.sub(f"^(-I)?{ROOT}/(jni|support)", rf"\1{self.dir}/\2", word)
                 for word in self.plan.compile[source]]
        words[words.index("-o") + 1] = f"{self.dir}/{source}{level}.o"
        if subprocess.run([*words, "-w", level], cwd=BUILD, stderr=subprocess.DEVNULL).returncode:
            return None
        with open(f"{self.dir}/{source}{level}.o", "rb") as made:
            return hash(made.read())

    def changed(self, mutant, level="-O0"):
        """The sources that the fault makes other objects of, with their hashes."""
        sources = self.plan.users[mutant.file]
        for source in sources:
            if (source, level) not in self.originals:
                self.originals[source, level] = self.compile(source, level)
        with open(f"{self.dir}/{mutant.file}", "w") as out:
            out.write(mutant.text)
        made = {source: self.compile(source, level) for source in sources}
        shutil.copy(f"{ROOT}/{mutant.file}", self.dir + "/" + mutant.file)
        return {s: made[s] for s in sources if made[s] != self.originals[s, level]}

    def link(self, program, sources):
        """Relinks a program or the library if it has one of the sources; says where it is."""
        words = [f"{self.dir}/{self.plan.source[word]}-O0.o"
                 if self.plan.source.get(word) in sources else word
                 for word in self.plan.link[program]]
        if words == self.plan.link[program]:
            return f"{BUILD}/{program}"
        at = words.index("-o") + 1
        words[at] = f"{self.dir}/lib/{os.path.basename(program)}"
        subprocess.run(words, cwd=BUILD, check=True)
        return words[at]

    def run(self, program, filters, limit):
        with subprocess.Popen(
                [program, *filters], cwd=self.dir, stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
                env=dict(os.environ, LD_LIBRARY_PATH=f"{self.dir}/lib",
                         FERRY_TEST_VM_OPTIONS="-XX:+SuppressFatalErrorMessage")) as child:
            try:
                return "failed" if child.wait(limit) else "passed"
            except subprocess.TimeoutExpired:
                child.kill()
                return "timed out"


class Run:
    def __init__(self):
        self.plan, self.seen, self.took, self.mine = Plan(), set(), {}, threading.local()
        self.kills = collections.defaultdict(collections.Counter)
        worker = Worker("first", self.plan)
        for test in self.plan.tests:
            start = time.monotonic()
            if worker.run(test[0], test[1:], 60) != "passed":
                sys.exit(f"does not pass without a fault: {shlex.join(test)}")
            self.took[test] = time.monotonic() - start

    def begin(self):
        self.mine.worker = Worker(threading.get_ident(), self.plan)

    def judge(self, mutant):
        worker = self.mine.worker
        changed = worker.changed(mutant)
        if None in changed.values():
            return "not compiled"
        if not changed or (code := frozenset(changed.items())) in self.seen:
            return "twice" if changed else "equivalent"
        self.seen.add(code)
        worker.link(LIBRARY, changed)
        programs, near = {}, [self.kills[each] for each in (mutant.place, mutant.file, "")]
        # First what has killed neighbours, and what is quick.
        for test in sorted(self.took, key=lambda t: ([-kills[t] for kills in near], self.took[t])):
            if test[0] not in programs:
                programs[test[0]] = worker.link(os.path.relpath(test[0], BUILD), changed)
            outcome = worker.run(programs[test[0]], test[1:], 5 + 10 * self.took[test])
            if outcome != "passed":
                for kills in near:
                    kills[test] += 1
                return outcome
        # A difference that the optimiser sees through is none.
        if not worker.changed(mutant, "-O2"):
            return "equivalent"
        print(f"survives: {mutant.key}", file=sys.stderr, flush=True)
        return "survived"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--file", action="append", help="faults of this file only; repeatable")
    parser.add_argument("--sample", type=int, help="so many faults only, evenly spread")
    parser.add_argument("--listed", action="store_true", help="those of survivors.txt only")
    parser.add_argument("--jobs", type=int, default=2)
    options = parser.parse_args()
    for old in glob.glob(f"{BUILD}/worker-*"):
        shutil.rmtree(old)
    start, run = time.monotonic(), Run()
    mutants = [mutant for file in sorted(options.file or run.plan.users.keys() - {*TABLES})
               for mutant in mutants_of(file)]
    if options.listed:
        mutants = [mutant for mutant in mutants if mutant.key in reasons_of("survivors.txt")]
    if options.sample:
        mutants = mutants[::-(-len(mutants) // options.sample)]
    with ThreadPoolExecutor(options.jobs, initializer=run.begin) as pool:
        outcomes = list(pool.map(run.judge, mutants))

    found = {each.key: f"{each.file}:{each.line}"
             for each, outcome in zip(mutants, outcomes) if outcome == "survived"}
    some = options.file or options.sample or options.listed
    without = unexplained("survivors.txt", found, {each.key for each in mutants} if some else None)
    count = collections.Counter(outcomes)
    killed = count["failed"] + count["timed out"]
    counted = killed + count['survived']
    seconds = time.monotonic() - start
    print(f"{len(mutants)} faults: {killed} killed ({count['timed out']} by the time limit), "
          f"{count['survived']} survived; not counted: {count['not compiled']} do not compile, "
          f"{count['equivalent']} make no other code, {count['twice']} the same as another\n"
          f"{100 * killed / max(1, counted):.1f} % of {counted} killed; {seconds:.0f} s, "
          f"{seconds * options.jobs / max(1, len(mutants)):.1f} s each")
    sys.exit(killed < LEAST * counted and not options.listed or bool(without))


if __name__ == "__main__":
    main()
