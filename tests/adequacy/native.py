"""Faults in C and C++: what the build makes of a source, and how to make it again."""
import collections
import filecmp
import json
import os
import re
import shlex
import shutil
import subprocess

from sandbox import BUILD, ROOT, compile_with

LINKS = re.compile(r"^([^/].*): \w+_(STATIC|SHARED|MODULE|EXECUTABLE)_(?:LIBRARY_)?LINKER__")


def output(*words):
    return subprocess.check_output(words, cwd=BUILD, text=True)


class Plan:
    """How the build makes objects, archives, libraries and programs. Paths are the build tree's."""

    def __init__(self):
        self.compile, self.source, self.users, self.proven = {}, {}, {}, set()
        for each in json.loads(output("cat", "compile_commands.json")):
            words = shlex.split(each["command"])
            words = words[os.path.basename(words[0]) == "ccache":]
            source, made = os.path.relpath(each["file"], ROOT), words[words.index("-o") + 1]
            if not (source.startswith(("tests/", "bench/", "build/")) or made.startswith("bench/")):
                self.compile[made], self.source[made] = words, source
                self.users.setdefault(source, []).append(made)
        self.read_includes()
        self.link, self.consumers = {}, collections.defaultdict(list)
        for line in output("ninja", "-t", "targets", "all").splitlines():
            match = LINKS.match(line)
            if match and match[1].endswith((".a", ".so", os.path.basename(match[1]))) \
                    and not match[1].endswith(".cmake") and os.path.isfile(f"{BUILD}/{match[1]}"):
                self.read_link(match[1], match[2] == "STATIC")

    def read_includes(self):
        made = None
        for line in output("ninja", "-t", "deps").splitlines():
            if not line.startswith(" "):
                made = line.split(":")[0]
            elif made in self.compile:
                path = os.path.relpath(os.path.join(BUILD, line.strip()), ROOT)
                if path != self.source[made] and not path.startswith(("..", "build/")):
                    self.users.setdefault(path, []).append(made)

    def read_link(self, target, archive):
        steps = output("ninja", "-t", "commands", "-s", target).split(" && ")
        step = next(step for step in steps if ("/ar " if archive else " -o ") in step)
        self.link[target] = shlex.split(step.replace("\\$", "$"))
        for word in self.link[target]:
            if word != target and (word in self.compile or word.endswith(".a")):
                self.consumers[word].append(target)

    def reached(self, objects):
        """Archives, and then libraries and programs, that have one of the objects in them."""
        archives = {a for each in objects for a in self.consumers[each] if a.endswith(".a")}
        linked = {user for each in {*objects, *archives} for user in self.consumers[each]}
        return archives, linked - archives


class Native:
    """Makes faulty objects and links them into a worker's tree."""
    kind = (".cpp", ".h", ".c")

    def __init__(self, folder, tree, plan):
        self.folder, self.tree, self.plan, self.originals = folder, tree, plan, {}

    def compile(self, made, mutant, level):
        """The object's bytes as a hash; None when there is none."""
        words = list(self.plan.compile[made])
        to = f"{self.folder}/{level}/{made}"
        os.makedirs(os.path.dirname(to), exist_ok=True)
        words[words.index("-o") + 1] = to
        if not compile_with(f"{ROOT}/{mutant.file}", self.text, [*words, "-w", level]):
            return None
        with open(to, "rb") as there:
            return hash(there.read())

    def changed(self, mutant, level="-O0"):
        """The objects that the fault makes others of, with their hashes."""
        objects = self.plan.users[mutant.file]
        self.text = f"{self.folder}/text"
        for made in objects:
            if (made, level) not in self.originals:
                shutil.copy(f"{ROOT}/{mutant.file}", self.text)
                self.originals[made, level] = self.compile(made, mutant, level)
        with open(self.text, "w") as out:
            out.write(mutant.text)
        now = {made: self.compile(made, mutant, level) for made in objects}
        return {m: now[m] for m in objects if now[m] != self.originals[m, level]}

    def same_optimised(self, mutant):
        return not self.changed(mutant, "-O2")

    def install(self, changed, _):
        """Puts libraries and archives in place; programs follow when a test needs them."""
        archives, linked = self.plan.reached(changed)
        self.other = {made: f"{self.folder}/-O0/{made}" for made in changed}
        for archive in archives:
            to = f"{self.folder}/{os.path.basename(archive)}"
            shutil.copy(f"{BUILD}/{archive}", to)
            members = [self.other[m] for m in changed if archive in self.plan.consumers[m]]
            subprocess.run(["ar", "r", to, *members], check=True)
            self.other[archive] = to
        self.programs = {each for each in linked if not each.endswith(".so")}
        for library in linked - self.programs:
            self.relink(library)

    def relink(self, target):
        """Links a target; before the first time proves that it comes out as the build's own."""
        def link(to, other):
            words = [other.get(word, word) for word in self.plan.link[target]]
            words[words.index("-o") + 1] = to
            subprocess.run(words, cwd=BUILD, check=True)

        if target not in self.plan.proven:
            link(f"{self.folder}/unchanged", {})
            if not filecmp.cmp(f"{self.folder}/unchanged", f"{BUILD}/{target}", shallow=False):
                raise RuntimeError(f"{target}: comes out of the linker in another way")
            self.plan.proven.add(target)
        link(self.tree.place(target), self.other)

    def prepare(self, test):
        """Links the programs that a test runs."""
        for word in test.command:
            program = os.path.relpath(word, BUILD) if word.startswith(BUILD) else None
            if program in self.programs:
                self.programs.remove(program)
                self.relink(program)
