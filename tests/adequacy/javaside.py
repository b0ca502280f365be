"""Faults in Java: which jar has a class, and how to put another in its place."""
import glob
import os
import re
import shlex
import shutil
import subprocess
import zipfile

from native import output
from sandbox import BUILD, ROOT


class Jars:
    """Which jar of the build tree each source goes into, and what it is compiled against."""

    def __init__(self):
        self.jar_of, self.class_path = {}, {}
        for target in re.findall(r"^([^/\n].*\.jar): CUSTOM_COMMAND$",
                                 output("ninja", "-t", "targets", "all"), re.M):
            steps = output("ninja", "-t", "commands", "-s", target).split(" && ")
            words = shlex.split(next(s for s in steps if "/javac " in s))
            sources = next(word[1:] for word in words if word.startswith("@"))
            for source in open(sources).read().split():
                self.jar_of[os.path.relpath(source, ROOT)] = target
            against = words[words.index("-classpath") + 1] if "-classpath" in words else ""
            self.class_path[target] = f"{BUILD}/{target}:{against}"


class Java:
    """Makes faulty classes, by a compiler that stays warm, and puts them into a worker's jar."""
    kind = (".java",)

    def __init__(self, folder, tree, jars):
        self.folder, self.tree, self.jars, self.originals = folder, tree, jars, {}
        self.compiler = subprocess.Popen(
            ["java", "-XX:TieredStopAtLevel=1", f"{ROOT}/tests/adequacy/Compiler.java"], text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def compile(self, file, text):
        """The classes, a name to its bytes; None when it does not compile."""
        classes, source = f"{self.folder}/classes", f"{self.folder}/{os.path.basename(file)}"
        shutil.rmtree(classes, ignore_errors=True)
        os.makedirs(classes)
        with open(source, "w") as out:
            out.write(text)
        print(self.jars.class_path[self.jars.jar_of[file]], classes, source, sep="\t",
              file=self.compiler.stdin, flush=True)
        if self.compiler.stdout.readline() != "true\n":
            return None
        return {os.path.relpath(each, classes): open(each, "rb").read()
                for each in glob.glob(f"{classes}/**/*.class", recursive=True)}

    def changed(self, mutant):
        """The classes that the fault makes others of, with their hashes."""
        if mutant.file not in self.originals:
            text = open(f"{ROOT}/{mutant.file}").read()
            self.originals[mutant.file] = self.compile(mutant.file, text)
        before, self.now = self.originals[mutant.file], self.compile(mutant.file, mutant.text)
        if self.now is None:
            return {mutant.file: None}
        return {name: hash(code) for name, code in self.now.items() if code != before.get(name)}

    def same_optimised(self, _):
        return False

    def install(self, _, mutant):
        jar = self.jars.jar_of[mutant.file]
        with zipfile.ZipFile(f"{BUILD}/{jar}") as old, \
                zipfile.ZipFile(self.tree.place(jar), "w") as new:
            for entry in old.infolist():
                if entry.filename not in self.now:
                    new.writestr(entry, old.read(entry))
            for name, code in self.now.items():
                new.writestr(name, code)

    def prepare(self, test):
        pass
