"""Where faulty programs run: with a build tree of their own (what a fault changes lies over it), a
network of their own, so that two workers do not meet, and no process of theirs outlives them."""
import os
import shlex
import shutil
import subprocess

ROOT = os.path.abspath(f"{__file__}/../../..")
BUILD = f"{ROOT}/build/mutate"
# Of this run; an overlay's own folder must not lie in what it covers.
WORK = f"{ROOT}/build/mutate-work/{os.getpid()}"
UNSHARE = ["unshare", *(["--map-root-user"] if os.geteuid() else []), "--mount"]
PROCESSES = ["--net", "--pid", "--fork", "--kill-child", "--mount-proc"]


def shell(steps, words, last='exec "$@"'):
    return ["sh", "-c", "; ".join(["set -e", *steps, last]), "sh", *words]


def compile_with(file, text_file, words):
    """Runs a compiler that sees another text in place of a file."""
    bind = f"mount --bind {shlex.quote(text_file)} {shlex.quote(file)}"
    return subprocess.run([*UNSHARE, *shell([bind], words)], cwd=BUILD,
                          stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL).returncode == 0


class Tree:
    """A build tree over build/mutate: files in `over` hide those of the same name."""

    def __init__(self, folder):
        self.over, self.work = f"{folder}/over", f"{folder}/work"
        self.clear()

    def clear(self):
        for folder in (self.over, self.work):
            shutil.rmtree(folder, ignore_errors=True)
            os.makedirs(folder, exist_ok=True)

    def place(self, path):
        """Where to put a file that hides one of the build tree."""
        place = f"{self.over}/{path}"
        os.makedirs(os.path.dirname(place), exist_ok=True)
        return place

    def run(self, test, limit):
        """failed, passed or timed out."""
        mount = (f"mount -t overlay overlay -o "
                 f"lowerdir={BUILD},upperdir={self.over},workdir={self.work} {BUILD}")
        steps = ["ip link set lo up multicast on", mount, f"cd {shlex.quote(test.folder)}"]
        environment = {**os.environ, **dict(test.environment),
                       "FERRY_TEST_VM_OPTIONS": "-XX:+SuppressFatalErrorMessage"}
        # The shell stays: as the first process it has to see to those that lose their parents.
        words = shell(steps, test.command, '"$@"; exit $?')
        with subprocess.Popen([*UNSHARE, *PROCESSES, *words],
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, env=environment) as child:
            try:
                return "failed" if child.wait(limit) else "passed"
            except subprocess.TimeoutExpired:
                child.kill()
                return "timed out"
