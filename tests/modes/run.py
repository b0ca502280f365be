#!/usr/bin/env python3
"""Runs the whole test suite in each of its modes: run.py --all | --mode NAME [CTEST OPTION...]

A mode is a build (a CMake preset) and a tool that watches every process of every test. Each test
runs as its CTest entry says, but below this script, which collects what the tool wrote and fails
the test for whatever is ours. Beside the tests run the planted faults, in exactly that way: one
that is not reported makes the mode red.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import xml.etree.ElementTree as xml

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parents[1]


def listed(name):
    """Lines "pattern  # reason" of what is let pass; a pattern names test and function."""
    rows = [line.partition("  # ") for line in (HERE / name).read_text().splitlines()]
    assert all(reason for _, _, reason in rows), f"{name}: every line needs its reason"
    return [re.compile(pattern.strip(), re.S) for pattern, _, _ in rows]


OURS = re.compile(rf"(?:{SOURCE}/|(?:\.\./)+)(?:adapters|jni|platform|relay|support|tests)/\S*:\d")
VMS = re.compile(r"/lib/jvm/|unknown module|/libj(?:vm|ava)\.so")


def is_ours(frames):
    """Whether the innermost frame that is ours or the VM's is ours; others may lie between.
    Whatever Java calls lies between frames of the VM, so the outer ones say nothing."""
    return next((bool(OURS.search(frame)) for frame in frames
                 if OURS.search(frame) or VMS.search(frame)), False)


def with_places(text):
    """The text of a sanitizer with functions and lines for whatever lies in the build tree."""
    def place(match):
        done = subprocess.run(["addr2line", "-fCie", match[1], match[2]], capture_output=True,
                              text=True)
        return "in " + " ".join(done.stdout.split("\n")) + match[0]
    return re.sub(rf"\(({SOURCE}/build/\S+)\+(0x[0-9a-f]+)\)", place, text)


def address_findings(text, test):
    if "LeakSanitizer: detected memory leaks" not in text:
        return [with_places(text)]
    stays = listed("left_behind.txt")
    # Looking places up takes long, and most leaks are the VM's.
    blocks = [with_places(block) for block in text.split("\n\n") if " leak of " in block
              and f"({SOURCE}/build/" in re.split(VMS, block)[0]]
    ours = [block for block in blocks if is_ours(re.findall(r"^ +#.*", block, re.M))]
    # The others hang on one of these, unless there is none: then they hang on each other.
    judged = [block for block in ours if block.lstrip().startswith("Direct")] or ours
    return [block for block in judged
            if not any(pattern.match(f"{test}\n{block}") for pattern in stays)]


def thread_findings(text, _):
    return [block for block in text.split("==================\n") if "WARNING: " in block]


def frame_text(frame):
    path = os.path.join(frame.findtext("dir", ""), frame.findtext("file", ""))
    return "{} {}:{} {}".format(frame.findtext("fn"), os.path.normpath(path),
                                frame.findtext("line", ""), frame.findtext("obj"))


def memory_findings(text, _):
    found = []
    for error in xml.fromstring(text).iter("error"):
        frames = [frame_text(frame) for frame in error.find("stack").iter("frame")]
        # Leaks are for asan; in XML valgrind always looks for them.
        if is_ours(frames) and not error.findtext("kind").startswith("Leak_"):
            found.append("\n    ".join([error.findtext("what"), *frames]))
    return found


def jni_findings(text, test):
    allowed = listed("jni_allowed.txt")
    threads = {}  # their lines alternate in the VM's log
    parts = re.split(r"\n?<writer thread='(\d+)'/>\n", text)
    for thread, part in zip(parts[1::2], parts[2::2]):
        threads[thread] = threads.get(thread, "") + part
    reports = re.findall(r"^(?:WARNING|FATAL ERROR) in native method.*(?:\n(?!WARNING|<).+)*",
                         "\n\n".join(threads.values()), re.M)
    return [report for report in reports
            if not any(pattern.match(f"{test}\n{report}") for pattern in allowed)]


class Mode:
    def __init__(self, preset, findings=None, planted=(), slower=1, environment=None, prefix=(),
                 note="", without="-"):
        self.preset, self.findings, self.planted, self.slower = preset, findings, planted, slower
        self.environment, self.prefix, self.note = environment or {}, prefix, note
        self.without = without  # tests, by pattern
        self.tree = SOURCE / "build" / preset


def other_jdk():
    """The newest JDK of the machine that is not the one built with: one build serves them all."""
    homes = {}
    for release in pathlib.Path("/usr/lib/jvm").glob("*/release"):
        version = re.search(r'JAVA_VERSION="(\d+)', release.read_text())
        if version and (release.parent / "lib/server/libjvm.so").exists():
            homes[int(version[1])] = release.parent.resolve()
    newest = max(homes, default=0)
    return homes[newest] if newest > 17 else None


JDK = other_jdk()
SANITIZER = "handle_segv=0:allocator_may_return_null=1:exitcode=0:log_path={reports}/report"
# Exit codes stay the test's own: what the tool found is in its reports.
MODES = {
    "gcc": Mode("gcc"),
    "clang": Mode("clang"),
    # UBSan's runtime beside ASan's writes to stderr only, so it ends the process.
    "asan": Mode("asan", address_findings, ("plantedOverflow", "plantedSigned", "plantedLeak"), 3, {
        # Places are looked up later: the VM's own leaks have many, and nobody wants them.
        "ASAN_OPTIONS": SANITIZER + ":symbolize=0:malloc_context_size=12",
        "LSAN_OPTIONS": "exitcode=0:print_suppressions=0:use_tls=0",
        "UBSAN_OPTIONS": "print_stacktrace=1:abort_on_error=1"}),
    "tsan": Mode("tsan", thread_findings, ("plantedRace",), 5, {
        "TSAN_OPTIONS": SANITIZER + f":suppressions={HERE}/tsan.supp:atexit_sleep_ms=0:"
        "ignore_noninstrumented_modules=1:report_signal_unsafe=0"}),
    # A VM below valgrind takes minutes for what takes a second: of the tests that start one here
    # are the cases. The tests of a relay's death start themselves again.
    "memcheck": Mode("gcc", memory_findings, ("plantedUninitialised",), 10, prefix=(
        "valgrind", "--quiet", "--xml=yes", "--xml-file={reports}/report.%p"),
        without=r"fuzz\.(file_rows|properties)|bridge\.(Bridge/Sweeps|CountsTest|(Policy/)?Vm|"
                r"Hostile|Members|Threads).*|relay\.All/StopDeathTest.*"),
    # The build with frame pointers: a warning without the functions of ours cannot be judged.
    "checkjni": Mode(
        "clang", jni_findings, ("plantedMisuse",), 2,
        {"JAVA_TOOL_OPTIONS": "-Xcheck:jni -XX:+UnlockDiagnosticVMOptions -XX:-DisplayVMOutput "
                              "-XX:+LogVMOutput -XX:LogFile={reports}/report.%p"},
        # One calls a method of an object that has none, which the VM reports; checked, it aborts.
        # The soak's threads warn into each other's lines.
        without=r"bridge\.Bridge/Cases\.ComeOutAsWritten/alien.*|Soak\..*"),
    "jdk": Mode("gcc", None, ("version",), environment={
        "JAVA_HOME": f"{JDK}", "LD_LIBRARY_PATH": f"{JDK}/lib/server",
        "PATH": f"{JDK}/bin:{os.environ['PATH']}"},
        note="" if JDK else "no JDK newer than 17 below /usr/lib/jvm"),
}


def under(name, test, command):
    """Runs one test's command below the tool; returns its exit code, or 99 for what was found."""
    mode = MODES[name]
    reports = mode.tree / "modes" / name / re.sub(r"[^\w.-]", "_", test)
    shutil.rmtree(reports, ignore_errors=True)
    reports.mkdir(parents=True)
    filled = {key: text.format(reports=reports) for key, text in mode.environment.items()}
    filled["FERRY_TEST_PATIENCE"] = str(mode.slower)
    while re.match(r"\w+=", command[0]):
        key, _, filled[key] = command.pop(0).partition("=")
    command = [part.format(reports=reports) for part in mode.prefix] + [
        str(JDK / "bin" / pathlib.Path(part).name)
        if name == "jdk" and re.fullmatch("/.*/javac?", part) else part for part in command]
    process = subprocess.Popen(["env", *(f"{key}={text}" for key, text in filled.items()),
                                *command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    output = ""
    for line in process.stdout:
        output += line.decode(errors="replace")
        sys.stdout.buffer.write(line)
        sys.stdout.flush()
    code = process.wait()
    found = re.findall(r"^.*:\d+:\d+: runtime error: .*(?:\n    #.*)*", output, re.M)
    for report in sorted(reports.iterdir()) if mode.findings else ():
        found += mode.findings(report.read_text(errors="replace"), reports.name)
    if test.startswith("planted."):
        proof = str(JDK) if name == "jdk" else test.partition(".")[2]
        return 0 if any(proof in text for text in found + [output] * (name == "jdk")) else 1
    for text in found:
        print(f"\nFOUND by mode {name}:\n{text}")
    return 99 if found else code if code >= 0 else 128 - code


def tests_of(mode):
    ctest = subprocess.run(["ctest", "--test-dir", mode.tree, "--show-only=json-v1"], check=True,
                           capture_output=True, text=True)
    return json.loads(ctest.stdout)["tests"] + [
        {"name": "planted." + fault, "command": [f"{mode.tree}/tests/modes/modes_planted", fault],
         "properties": []} for fault in mode.planted]


def wrapped(name, tests):
    """Writes CTest's list of the tests, each below this script; returns its folder."""
    mode, lines = MODES[name], []
    for test in tests:
        properties = {row["name"]: row["value"] for row in test["properties"]}
        foreign = mode.prefix and not test["command"][0].startswith(f"{mode.tree}/")
        if (f"not-{name}" in properties.get("LABELS", []) or foreign
                or re.fullmatch(mode.without, test["name"])):
            continue
        properties["TIMEOUT"] = properties.get("TIMEOUT", 300) * mode.slower
        # Not for this script, so not by way of CTest.
        environment = properties.pop("ENVIRONMENT", [])
        words = [__file__, "--under", name, test["name"], *environment, *test["command"]]
        lines.append("add_test({} {})".format(
            f"[==[{test['name']}]==]", " ".join(f"[==[{word}]==]" for word in words)))
        for key, value in properties.items():
            value = ";".join(value) if isinstance(value, list) else value
            lines.append(f"set_tests_properties([==[{test['name']}]==] PROPERTIES {key} "
                         f"[==[{value}]==])")
    folder = mode.tree / "modes" / name
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "CTestTestfile.cmake").write_text("\n".join(lines) + "\n")
    return folder


def run(name, options):
    """Builds and runs a mode; returns whether it is green, and its closing line."""
    mode, begin = MODES[name], time.monotonic()
    if mode.note:
        return True, f"mode {name}: skipped: {mode.note}"
    for command in (["cmake", "--preset", mode.preset, "--log-level=WARNING"],
                    ["cmake", "--build", mode.tree, "--", "--quiet"]):
        if subprocess.run(command, cwd=SOURCE).returncode != 0:
            return False, f"mode {name}: does not build"
    tests = tests_of(mode)
    # CTest gives no command for a program that it does not find.
    missing = [test["name"] for test in tests if "command" not in test]
    if missing:
        return False, f"mode {name}: not built: {', '.join(missing)}"
    folder = wrapped(name, tests)
    green = subprocess.run(["ctest", "--test-dir", folder, "--output-on-failure",
                            "--no-tests=error", "-j", str(os.cpu_count()), "--output-junit",
                            folder / "junit.xml", *options]).returncode == 0
    suite = xml.parse(folder / "junit.xml").getroot()
    total, failed, skipped = (int(suite.get(key)) for key in ("tests", "failures", "skipped"))
    return green, (f"mode {name}: {total - failed - skipped} passed, {failed} failed, "
                   f"{skipped} skipped, {time.monotonic() - begin:.0f} s")


def main(arguments):
    if arguments[:1] == ["--under"]:
        return under(arguments[1], arguments[2], arguments[3:])
    names, options = list(MODES), arguments[1:]
    if arguments[0] == "--mode":
        names, options = arguments[1:2], arguments[2:]
    if not names or names[0] not in MODES:
        sys.exit("which mode? There are: " + " ".join(MODES))
    results = []
    for name in names:
        results.append(run(name, options))
        print("==", results[-1][1], flush=True)
    if len(results) > 1:
        print("\n".join(line for _, line in results))
    return 0 if all(green for green, _ in results) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
