#!/usr/bin/env python3
"""Runs ferry as a user would. Usage: ferry_test.py FERRY EXAMPLES CLASSES [unittest arguments]"""

import fcntl
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import socket
import sqlite3
import string
import struct
import subprocess
import sys
import tempfile
import termios
import textwrap
import time
import unittest
import zipfile

FERRY, EXAMPLES, CLASSES = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:4])
DATA = pathlib.Path(__file__).parent / "data"
JAVA_HOME = pathlib.Path(shutil.which(os.environ.get("JAVAC", "javac"))).resolve().parent.parent
# Seconds within which everything happens, also on a machine that does much else, and below a tool
# that slows it down by so many times.
LIMIT = 300 * int(os.environ.get("FERRY_TEST_PATIENCE", "1"))


class Ferry(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="ferry_test_"))
        self.addCleanup(shutil.rmtree, self.directory)

    def ferry(self, *arguments, code, environment=None, cwd=None, program=FERRY):
        # Only what hangs is to be left behind.
        patient = ["--drain-seconds=300"] if arguments[:1] in [("run",), ("check",)] and not any(
            "--drain" in str(each) for each in arguments) else []
        result = subprocess.run([program, *map(str, arguments), *patient], capture_output=True,
                                text=True, timeout=LIMIT, cwd=cwd,
                                env={**os.environ, **(environment or {})})
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        # The VM says so by itself where the tests run with options of their own for every VM.
        result.stderr = re.sub(r"(?m)^Picked up JAVA_TOOL_OPTIONS: .*\n", "", result.stderr)
        return result

    def relay(self, at="nowhere", kind="throw", count=1000, bad=4, bad_batch=1,
              bad_session="other"):
        path = self.directory / "relay.yaml"
        path.write_text(string.Template((DATA / "relay.yaml").read_text()).substitute(
            classes=CLASSES, at=at, kind=kind, count=count, bad=bad, bad_batch=bad_batch,
            bad_session=bad_session))
        return path

    def native(self):
        path = self.directory / "native.yaml"
        shutil.copy(DATA / "native.yaml", path)
        return path

    def numbers(self, name):
        with open(self.directory / "out" / name, encoding="utf-8") as lines:
            return [json.loads(line)["n"] for line in lines]

    def until(self, condition):
        end = time.monotonic() + LIMIT
        while not condition() and time.monotonic() < end:
            time.sleep(0.05)
        self.assertTrue(condition())

    def read_to(self, process, word):
        line = process.stderr.readline()
        while line and word not in line:
            line = process.stderr.readline()
        return line

    def start(self, path, *arguments):
        process = subprocess.Popen([FERRY, "run", path, "--drain-seconds=300", *arguments],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.read_to(process, "Service started OK")
        return process


class FerryTest(Ferry):
    def test_needs_no_java_to_talk(self):
        nowhere = {"JAVA_HOME": "/nowhere", "PATH": "/nowhere"}
        self.assertIn("Exit codes:", self.ferry("--help", code=0, environment=nowhere).stdout)
        self.assertRegex(self.ferry("--version", code=0, environment=nowhere).stdout,
                         r"^ferry \d+\.\d+\.\d+\n$")
        self.assertIn("JAVA_HOME names /nowhere",
                      self.ferry("doctor", code=1, environment=nowhere).stdout)
        for wrong, near in [(["rnu"], 'no "ferry rnu"; did you mean "run"?'),
                            (["list", "strems"], 'no "list strems"; did you mean "streams"?'),
                            (["help", "fly"], 'no "ferry fly"')]:
            self.assertIn(near, self.ferry(*wrong, code=2, environment=nowhere).stderr)
        for asked, there in [([], "Exit codes:"), (["list", "streams"], "--domain")]:
            text = self.ferry("help", *asked, code=0, environment=nowhere).stdout
            self.assertIn(there, text)
            self.assertEqual(text, self.ferry(*asked, "--help", code=0).stdout)
        for wrong in ["", "run", "run x --until-idle=0", "run x --until-idle=soon", "run x -q -v",
                      "run x --until-idle=86401", "run x --java-debug=x", "run x --java-debug=0",
                      "run x --java-debug=65536", "list streams --set =x", "list streams x",
                      "new config", "new config --topic=t a b", "new config a.csv --wait=soon",
                      "new keys k --node ca", "new keys k --node .a", "new keys k --node a/b",
                      "check nothing.yaml"]:
            self.ferry(*wrong.split(), code=2, environment=nowhere)
        for needy in [["archive"], ["check", self.relay()], ["check", "--settings=file"],
                      ["list", "streams", self.relay(), "--wait=0"],
                      ["new", "config", "--table", "jdbc:sqlite:none.db", "t"]]:
            self.ferry(*needy, code=3, environment=nowhere)
        broken = self.directory / "broken.yaml"
        broken.write_text("adaptors: {}\n")
        text = self.ferry("run", broken, code=2, environment=nowhere).stderr
        self.assertEqual(text, f'{broken}:1:1: unknown key "adaptors"; did you mean "adapters"?\n'
                               f"ferry:error parsing configuration file '{broken}'\n")
        text = self.ferry("run", self.relay(), code=3, environment=nowhere).stderr
        self.assertIn("JAVA_HOME names /nowhere", text)
        self.assertIn("openjdk-17-jre-headless", text)
        # Without Java adapters nobody looks for Java; a missing plug-in is reported with its place.
        text = self.ferry("run", self.native(), "--java-check", code=3, environment=nowhere).stderr
        self.assertRegex(text, r"/nothing.so: cannot open")
        self.assertIn("there is no VM to debug", text)
        self.assertNotIn("JAVA_HOME", text)
        text = self.ferry("check", self.native(), code=1, environment=nowhere).stdout
        self.assertNotIn("JAVA_HOME", text)
        self.ferry("list", "streams", "--domain=77", "--set", "interfaces=lo", "--wait=0", "--idl",
                   code=0, environment=nowhere)

    def test_doctor_knows_what_is_there_and_what_is_not(self):
        self.assertIn("everything is there",
                      self.ferry("doctor", "--java-home", JAVA_HOME, code=0).stdout)
        # An installation of links, and a Java of which only the library is good.
        there, here = pathlib.Path(FERRY).parent.parent, self.directory
        for folder in ["bin", "lib", "share/ferryjni/java", "java/bin"]:
            (here / folder).mkdir(parents=True)
        shutil.copy(FERRY, here / "bin")
        (here / "java" / "lib").symlink_to(JAVA_HOME / "lib")
        (here / "java/bin/java").symlink_to("/bin/false")

        def run(*arguments, code):
            result = self.ferry(*arguments, code=code, program=here / "bin/ferry", environment={
                "JAVA_HOME": str(here / "java"), "LD_LIBRARY_PATH": str(there / "lib"),
                "JAVA_TOOL_OPTIONS": ""})
            return result.stdout + result.stderr

        text = run("doctor", code=1)
        for missing in ["library missing: .*/lib64/libferryrelay.so", "jar missing: .*/qdds.jar",
                        r"java \(version unknown, by JAVA_HOME\)"]:
            self.assertRegex(text, missing)
        self.assertIn("libferryrelay.so: cannot open", run("run", self.native(), code=3))
        for library in (there / "lib").glob("lib*.so"):
            (here / "lib" / library.name).symlink_to(library)
        bad, bridge = here / "lib/libferryadapter_bad.so", here / "lib/libferryjni.so"
        bridge.rename(here / "bridge")
        for file in [bad, bridge, bad.with_suffix(".txt"), here / "share/ferryjni/java/note.txt"]:
            file.write_text("neither\n")
        text = run("doctor", code=1)
        self.assertIn("plug-in bad does not load: ", text)
        self.assertIn("libraries do not load: ", text)
        self.assertIn("could not be asked\n", run("check", self.relay(), "--settings", code=3))
        text = run("check", self.relay(), code=3)
        self.assertIn("the adapters could not be asked for their settings", text)
        self.assertIn("libferryjni.so: file too short", text)
        # With all of it there is an archive to be made, by a Java that is one.
        shutil.rmtree(here / "share")
        shutil.copytree(there / "share", here / "share")
        (here / "bridge").rename(bridge)
        bad.unlink()
        made = run("archive", "--java-home", JAVA_HOME, code=0).splitlines()[-1]
        self.assertIn(f"  class archive: {made}\n", run("doctor", "--java-home", JAVA_HOME, code=0))
        # Without the relay's own classes others work all the same.
        (here / "share/ferryjni/java/ferrion-relay.jar").write_text("neither\n")
        text = run("run", self.relay(kind="loader"), "--java-home", JAVA_HOME, code=3)
        self.assertIn("System.err stays as it is: ferry's own classes do not fit", text)
        self.assertIn("\nloader of constructor: app\n", text)

    def test_a_terminal_shows_how_it_stands(self):
        path = self.relay(count=10 ** 9)
        path.write_text(re.sub(r"(?m)^  good:$", "  äöüäöüäöü:", path.read_text()))
        # One that does not say how large it is has room for all.
        for rows, columns, shown in [(3, 12, "äöüäö\r\n... and 1 more"),
                                     (0, 0, r"äöüäöüäöü: [^\r]*\r\nbad: [^\r]*")]:
            master, slave = pty.openpty()
            fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
            process = subprocess.Popen([FERRY, "run", path, "--drain-seconds=300"],
                                       stdout=slave, stderr=subprocess.DEVNULL)
            os.close(slave)
            seen = b""
            while not re.search(shown + "\r\n\x1b\\[2A\r\x1b\\[J", seen.decode(errors="replace")):
                self.assertLess(len(seen), 10000)
                seen += os.read(master, 4096)
            process.terminate()
            self.assertEqual(process.wait(timeout=LIMIT), 0)
            os.close(master)

    def test_files_come_and_go_as_streams(self):
        for name in ["early", "late"]:
            (self.directory / f"{name}.idl").write_text("struct Tick { @key long long n; };\n")
        (self.directory / "early.csv").write_text("n\n1\n2\n")
        (self.directory / "untyped.csv").write_text("n\n3\n")
        path = self.directory / "discovery.yaml"
        shutil.copy(DATA / "discovery.yaml", path)
        self.assertRegex(self.ferry("check", path, code=0).stdout, "ok    route ticks/early.csv: ")
        process = self.start(path)
        (self.directory / "late.csv").write_text("n\n4\n5\n6\n")
        for name, count in [("early", 2), ("late", 3)]:
            output = self.directory / "out" / f"{name}.csv.jsonl"
            self.until(lambda: output.exists() and output.read_text().count("\n") == count)
        (self.directory / "late.csv").unlink()
        self.assertIn("[ticks/late.csv] route removed", self.read_to(process, "route removed"))
        process.terminate()
        text, _ = process.communicate(timeout=LIMIT)
        self.assertEqual(process.returncode, 0)
        self.assertRegex(text, r"ticks/early.csv: 2 read, 2 written, 0 errors, \d+ samples/s\n")
        self.assertRegex(text, r"ticks/late.csv: 3 read, 3 written, .* \(gone\)\n")
        self.assertEqual(self.numbers("late.csv.jsonl"), [4, 5, 6])
        for idl in ["--idl", "--idl=Tick"]:
            text = self.ferry("list", "streams", path, "--wait=0.3", idl, code=0).stdout
        self.assertRegex(text, r"DIRECTION +CONNECTION +STREAM +PARTITIONS +TYPE +KEYED\n"
                               r"input +in +early.csv +- +Tick +yes\n"
                               r"input +in +untyped.csv +- +- +no type announced\n")
        self.assertIn("@key", text)
        self.ferry("list", "streams", path, "--wait=0.1", "--idl=Tock", code=1)
        self.assertIn("/nothing.so: cannot open",
                      self.ferry("list", "streams", self.native(), "--wait=0", code=1).stderr)
        for wrong in [[], ["streams", path, "--domain=1"], ["streams", "--set", "x"]]:
            self.ferry("list", *wrong, code=2)

    def test_check_leaves_no_trace(self):
        shutil.copytree(EXAMPLES, self.directory, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("out"))
        output = self.directory / "out" / "observations.jsonl"
        output.parent.mkdir()
        output.write_text("precious\n")
        text = self.ferry("check", self.directory / "weather.yaml", code=0).stdout
        self.assertIn("ok    route observations: type weather::Observation", text)
        self.assertIn("input stream in/observations.csv: announced", text)
        self.assertEqual(output.read_text(), "precious\n")
        # What could not be written is reported with its place, and nothing is left behind.
        path = self.relay()
        whole = path.read_text().replace("on_error: continue", "on_error: retry", 1)
        path.write_text(whole + "log: {file: nowhere/ferry.log}\nstate: nowhere/state\n")
        (self.directory / "out" / "good.jsonl").mkdir()
        before = sorted(self.directory.rglob("*"))
        text = self.ferry("check", path, code=1).stdout
        self.assertRegex(text, r"FAIL  \S+relay.yaml:\d+:15: route good: create writer of "
                               r"out/good.jsonl: .*good.jsonl")
        self.assertRegex(text, r"FAIL  \S+relay.yaml:\d+:13: log file "
                               r"\S+nowhere/ferry.log: No such file")
        self.assertRegex(text, r"FAIL  \S+relay.yaml:\d+:8: dead letters and stores: "
                               r".*nowhere/state")
        self.assertEqual(sorted(self.directory.rglob("*")), before)
        self.assertIn("nowhere/ferry.log: No such file", self.ferry("run", path, code=3).stderr)
        path.write_text(whole.replace("good.j", "x.j") + "log: {file: out/good.log}\n")
        (self.directory / "out" / "good.log").write_text("old\n")
        self.ferry("check", path, code=0)
        self.assertEqual((self.directory / "out" / "good.log").read_text(), "old\n")

    def test_check_holds_properties_against_what_adapters_declare(self):
        text = self.ferry("check", self.relay(), "--settings", code=0).stdout
        self.assertIn("  connection\n    directory: a path; required\n        where the files are\n"
                      "    poll: a duration from 1ms to 1h, such as 100ms, 1.5s or 5m; "
                      "default 200ms\n", text)
        self.assertIn("TroubleAdapter\n  declares no settings\n", text)
        alone = self.ferry("check", "--settings=com.qel.ferrion.adapters.file.FileAdapter", code=0)
        self.assertIn(alone.stdout, text)
        self.ferry("check", code=2)
        for words, code, there in [(["--settings=ferry"], 0, "dead_letters"),
                                   (["--settings=dds"], 0, "partitions"),
                                   (["--settings", "--json"], 0, '"adapter": "dds"'),
                                   (["--settings=fil"], 2, 'did you mean "file"?'),
                                   ([self.native(), "--settings"], 1, "cannot open"),
                                   ([self.directory / "no.yaml", "--settings"], 2, "no.yaml")]:
            result = self.ferry("check", *words, code=code)
            self.assertIn(there, result.stdout + result.stderr)
        (self.directory / "a.csv").write_text("n\n1\n")
        path = self.directory / "discovery.yaml"
        path.write_text((DATA / "discovery.yaml").read_text().replace(
            "poll: 20ms", "poll_ms: 20, poll: 0s").replace(
            ".jsonl\"", ".jsonl\", properties: {format: \"${type}\", mode: \"1\\n2\"}"))
        text = self.ferry("check", path, code=2).stderr
        self.assertEqual(
            text.replace(str(path), "FILE"),
            "FILE:3:51: connections.in: unknown property \"poll_ms\"; did you mean \"poll\"? "
            "(known: directory, poll, type_idl, type_name)\n"
            "FILE:3:64: connections.in: property \"poll\" must be a duration from 1ms to 1h, such "
            "as 100ms, 1.5s or 5m, not \"0s\"\n"
            "FILE:9:92: discovery.ticks.outputs[0]: property \"mode\" must be one of create, "
            "append, overwrite, not \"1\\n2\"\n"
            "ferry:error parsing configuration file 'FILE'\n")
        # A run goes on with what is good, and reports all the same.
        self.assertIn(f"[settings] {path}:3:64: connections.in: property \"poll\" must",
                      self.ferry("run", path, "--until-idle=0.1", code=3).stderr)
        # Of native adapters, of classes and plug-ins that are not there, of sessions: all at once.
        path.write_text("adapters: {n: {plugin: dss}, d: {plugin: dds}, j: {class: fil}}\n"
                        "connections: {c: {adapter: d, properties: {domaim: 1}}, j: {adapter: j}}\n"
                        "sessions: {s: {properties: {batch: 0}}}\n"
                        "routes: {r: {type: T, input: {connection: c, stream: s},\n"
                        "             outputs: [{connection: c, stream: s}]}}\n"
                        "types: [{idl: 'struct T { long n; };'}]\n")
        text = self.ferry("check", path, code=2).stderr
        self.assertRegex(
            text, r':1:12: adapters\.n\.plugin: there is no .*; did you mean "dds"\?\n'
                  r'.*:1:48: adapters\.j\.class: .* "fil"; did you mean "file"\?\n'
                  r'.*:2:44: connections\.c: unknown property "domaim"; .* "domain"\?.*\n'
                  r'.*:3:29: sessions\.s: property "batch" must .* 1000000, not "0"\n')

    def test_a_failure_has_its_own_sentence_and_one_trace(self):
        path = self.relay(at="createSession")
        path.write_text(path.read_text() + "log: {file: ferry.log, level: warning}\n")
        self.assertEqual(self.ferry("run", path, "--until-idle=0.2", code=1).stderr, "")
        log = (self.directory / "ferry.log").read_text()
        self.assertRegex(log, r"(?m)^\d{4}-\d\d-\d\dT[\d:.]+Z ERROR "
                              r"FERRYJNISession_new:!exception$")
        self.assertRegex(log, r"Z ERROR .*adapter 'bad' error: create session other of connection "
                              r"bad: trouble in createSession: \\x1b\[2Jjdbc:x://\*\*\*@host/db\?"
                              r"password=\*\*\*&x=1; next line \(java.io.IOException at "
                              r"com.qel.ferrion.test.relay.TroubleAdapter.at"
                              r"\(TroubleAdapter.java:\d+")
        self.assertRegex(log, r"(?m)^java.lang.IllegalStateException: trouble in "
                              r"createSession\n\tat ")
        # The same again, in another way, and by the adapter's own hand; in Java's words once.
        process = self.start(self.relay(at="read", count=10 ** 9, bad=10 ** 9))
        log = "".join(process.stderr.readline() for _ in range(20))
        self.assertEqual(log.count("Caused by: java.io.IOException"), 1, log)
        process.kill()
        process.communicate()
        for secret in ["hunter2", "\x1b", "Exception in thread"]:
            self.assertNotIn(secret, log)

    def test_every_yaml_block_of_the_documentation_is_accepted(self):
        shutil.copytree(EXAMPLES, self.directory, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("out"))
        libraries = pathlib.Path(FERRY).parent.parent
        self.compile("libs", "package org.example;", name="MineAdapter", version="libs")
        for jar in ["extra.jar", "mine.jar"]:
            with zipfile.ZipFile(self.directory / jar, "w") as archive:
                for file in (self.directory / "libs").rglob("*.class"):
                    archive.write(file, file.relative_to(self.directory / "libs"))
        shutil.copy(libraries / "lib/libferryadapter_dds.so", self.directory / "libother.so")
        # What a page has to name, and this machine does not have.
        here = {"/usr/lib/jvm/default-java": str(JAVA_HOME), "eth0": "lo", "192.0.2.7": "127.0.0.1",
                "entry: other_create": "entry: FerryAdapter_dds_create"}
        root = pathlib.Path(EXAMPLES).parent.parent
        seen = 0
        self.ferry("new", "keys", self.directory / "keys", "--node", "plant", code=0)
        (self.directory / "std_msgs" / "msg").mkdir(parents=True)
        (self.directory / "std_msgs" / "msg" / "String.idl").write_text(
            "module std_msgs { module msg { struct String { string data; }; }; };")
        for page in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
            text = page.read_text(encoding="utf-8")
            indented = [textwrap.dedent(block)
                        for block in re.findall(r"(?:^    .*\n|^\n)+", text, re.M)]
            blocks = re.findall(r"(?ms)^```yaml\n(.*?)^```", text) + [
                block for block in indented
                if re.match(r"\s*(adapters|connections|routes):\n", block)]
            for block in blocks:
                with self.subTest(page=page.name, block=block):
                    for there, instead in here.items():
                        block = block.replace(there, instead)
                    whole = bool(re.search(r"(?m)^(routes|discovery):", block))
                    # A page may show a part only.
                    if not re.search(r"(?m)^adapters:", block):
                        block += "\nadapters: {dds: {plugin: dds}}\n"
                    if not re.search(r"(?m)^connections:", block):
                        block += "\nconnections: {c: {adapter: dds}}\n"
                    path = self.directory / "block.yaml"
                    path.write_text(block)
                    self.ferry(*(["check", path] if whole
                                 else ["list", "streams", path, "--wait=0"]),
                               code=0, environment={"LD_LIBRARY_PATH": str(libraries / "lib")})
                    seen += 1
        self.assertGreater(seen, 3)

    def test_the_context_class_loader_of_each_call(self):
        own = f"class: com.qel.ferrion.test.relay.TroubleAdapter\n    class_path: [{CLASSES}]"
        for adapter, of_adapter in [(None, "app"), (own, "bad")]:
            path = self.relay(kind="loader")
            if adapter:
                path.write_text(re.sub(r"(?s)(  bad:\n    )class: \S+", r"\1" + adapter,
                                       path.read_text(), count=1))
            text = self.ferry("run", path, "--until-idle=0.2", code=0).stderr
            seen = dict(re.findall(r"(?m)^loader of (\w+): (\S+)$", text))
            expected = {name: of_adapter for name in [
                "constructor", "getVersion", "createConnection", "deleteConnection", "finalize"]}
            expected.update((name, "app") for name in [
                "createSession", "createStreamReader", "createStreamWriter", "toString",
                "deleteStreamReader", "deleteStreamWriter", "deleteSession"])
            expected.update((name, "none") for name in ["read", "returnLoan", "write"])
            self.assertEqual({name: seen.get(name) for name in expected}, expected)

    def test_what_java_logs_has_ferrys_form_and_level(self):
        levels = {"-q": 1, "": 3, "-v": 5}
        for option, count in levels.items():
            text = self.ferry("run", self.relay(at="constructor", kind="log"), "--until-idle=0.2",
                              *filter(None, [option]), code=0).stderr
            self.assertEqual(re.findall(r"(?m)^\S+Z (\w+) trouble: at \w+$", text),
                             ["STATUS", "DEBUG", "STATUS", "WARNING", "ERROR"][5 - count:])
            self.assertEqual(text.count("java.lang.IllegalStateException: own words\n\tat "), 1)
            self.assertEqual(text.count("CIRCULAR"), 1)
            self.assertRegex(text, r"(?s)\nan object\n.*\nbehind it\n")
            self.assertEqual(
                text.count("Z ERROR trouble: at its: limit (java.io.IOException at "), 2)
            self.assertEqual(text.count("IllegalStateException: limit\n\tat "), 1)
            self.assertIn("no\\u202eend\n", text)

    def test_the_log_file_goes_by_its_name(self):
        path = self.relay(count=10 ** 9)
        path.write_text(path.read_text() + "log: {file: ferry.log}\n")
        log, old = self.directory / "ferry.log", self.directory / "ferry.log.1"
        process = subprocess.Popen([FERRY, "run", path, "--drain-seconds=300"],
                                   stdout=subprocess.DEVNULL)
        self.until(lambda: log.exists() and "Service started OK" in log.read_text())
        for makes_new in [False, True]:
            log.rename(old)
            if makes_new:
                log.touch()
            process.send_signal(signal.SIGQUIT)
            self.until(lambda: log.exists() and "Full thread dump" in log.read_text())
            self.assertEqual(old.read_text().count("Full thread dump"), int(makes_new))
        process.terminate()
        self.assertEqual(process.wait(timeout=LIMIT), 0)

    def test_results_that_cannot_be_written_are_no_success(self):
        for arguments in [["--version"], ["help"], ["doctor"],
                          ["check", "--settings", self.relay()],
                          ["list", "streams", "--domain=77", "--wait=0"],
                          ["run", self.relay(count=0, bad=0), "--until-idle=0.2", "-q"]]:
            with self.subTest(arguments=arguments), open("/dev/full", "w") as full:
                result = subprocess.run([FERRY, *map(str, arguments)], stdout=full, text=True,
                                        stderr=subprocess.PIPE, timeout=LIMIT)
                self.assertEqual(result.returncode, 1)
                self.assertIn("results could not be written", result.stderr)

    def test_a_configuration_is_made_of_data(self):
        def made(name, text, code=0):
            (self.directory / name).write_text(text, encoding="utf-8")
            stem = self.directory / pathlib.Path(name).stem
            result = self.ferry("new", "config", self.directory / name, stem, code=code)
            if code == 0:
                self.ferry("run", f"{stem}.yaml", "--until-idle=0.2", "-q", code=0)
                lines = pathlib.Path(f"{stem}.out.jsonl").read_text(encoding="utf-8")
                return [json.loads(line) for line in lines.splitlines()]
            return result.stderr
        self.assertEqual(
            made("rows.data", "\ufeffStation ID;t (C);n;ok;9;struct;Station_ID\n"
                 'A;1;3;true;"x;""y"";\nz";07;1\nB;;-4;false;;1234567890123456789;2.5\n'),
            [{"Station_ID": "A", "t__C_": 1.0, "n": 3, "ok": True, "c9": 'x;"y";\nz',
              "struct": "07", "Station_ID_": 1.0},
             {"Station_ID": "B", "t__C_": None, "n": -4, "ok": False, "c9": "",
              "struct": "1234567890123456789", "Station_ID_": 2.5}])
        lines = [{"a": 1, "pos": {"lat": 1.5, "at": [1, 2]}, "of": [{"x": 1}], "map": True, "n": 1},
                 {"a": 2.5, "pos": {"lat": 2.0, "at": []}, "of": [], "map": False, "n": None}]
        self.assertEqual(made("objects.jsonl", "\n".join(map(json.dumps, lines)) + "\n"), lines)
        for name, text, types in [
                ("mixed.jsonl", '{"u":18446744073709551615,"m":1,"n":null,"l":[[1],[2]],"b":true}\n'
                 '[1]\n{"u":1,"m":"x","n":null,"l":[],"b":null}\nno json\n',
                 "double u string m string n sequence<sequence<long long> > l string b"),
                ("mixed.csv", 'a,b,c,d\r\n1,x,,+1.5\r\n2,3\r\ntrue,"1""\n",,1e3\r\n',
                 "string a string b string c double d"),
                # What looks like a number at first.
                ("odd.csv", 'a,b,c,d,e\n1e,1.2.3,x"y,-,x.5\n',
                 "string a string b string c string d string e"),
                ("tabs.csv", 'a\tb\n1\tx\n', "long long a string b"),
                # Whose names say neither their format nor that of a type.
                ("8 lines.txt", '{"a":[],"c":"x"}\n', "sequence<string> a string c"),
                ("9 rows.txt", "only\nx\n", "string only")]:
            (self.directory / name).write_text(text)
            self.ferry("new", "config", self.directory / name, self.directory / name, code=0)
            with open(self.directory / f"{name}.idl", "a", encoding="utf-8") as idl:
                idl.write("union U switch (long) { case 1: long x; };\n")
            self.assertIn("union U", self.ferry("check", self.directory / f"{name}.yaml", "-v",
                                                code=0).stdout)
            idl = (self.directory / f"{name}.idl").read_text()
            self.assertEqual(" ".join(re.findall(r" {4}(.*);", idl)), types)
        (self.directory / "folder.csv").mkdir()
        self.assertIn("cannot be read", self.ferry(
            "new", "config", self.directory / "folder.csv", code=2).stderr)
        self.assertIn("is there already", made("objects.jsonl", '{"a": 1}\n', code=2))
        self.assertIn('"a b" is not an identifier', made("bad.jsonl", '{"a b": 1}\n', code=2))
        self.assertIn("is empty", made("empty.csv", "\n", code=2))
        self.assertIn("no line with a JSON object", made("none.jsonl", "{x\n", code=2))
        self.assertEqual(sorted(path.name for path in self.directory.glob("[be]*")),
                         ["bad.jsonl", "empty.csv"])

    def test_a_configuration_is_made_of_a_topic_and_a_table(self):
        (self.directory / "in.jsonl").write_text('{"data":"hello"}\n')
        (self.directory / "String.idl").write_text(
            'module std_msgs { module msg { struct String { @default("none") string data; '
            "int8 n; }; }; };\n")

        def files(name, text):
            path = self.directory / name
            path.write_text(textwrap.dedent("""\
                types: [{file: String.idl}]
                adapters: {dds: {plugin: dds}, files: {class: file}}
                connections:
                  robot: {adapter: dds, properties: {domain: 79, naming: ros2}}
                  disk: {adapter: files, properties: {directory: .}}
                """) + textwrap.dedent(text))
            return path

        def lines(name):
            path = self.directory / name
            return path.read_text().splitlines() if path.exists() else []

        source = files("source.yaml", """\
            routes:
              talk:
                type: std_msgs/msg/String
                input: {connection: disk, stream: in.jsonl, properties: {follow: true}}
                outputs: [{connection: robot, stream: /chatter,
                           properties: {durability: transient_local, durable_depth: all}}]
            """)
        talker = subprocess.Popen([FERRY, "run", source, "-q"], stderr=subprocess.PIPE, text=True)
        try:
            self.until(lambda: "/chatter" in self.ferry(
                "list", "streams", "--domain=79", "--set=naming=ros2", "--wait=1", code=0).stdout)
            for naming, row in [("dds", "rt/chatter +- +std_msgs::msg::dds_::String_"),
                                ("ros2", "/chatter +- +std_msgs/msg/String")]:
                self.assertRegex(self.ferry("list", "streams", "--domain=79", "--wait=1",
                                            f"--set=naming={naming}", code=0).stdout, row)
            stem = self.directory / "heard"
            self.assertIn('did you mean "rt/chatter"?', self.ferry(
                "new", "config", "--topic=rt/chattr", "--domain=79", stem, code=2).stderr)
            self.ferry("new", "config", "--topic=rt/chatter", "--domain=79", stem, code=0)
            self.ferry("check", f"{stem}.yaml", code=0)
            # The other way, in words of ROS, and without a name.
            self.ferry("new", "config", "--topic=/chatter", "--set=naming=ros2", "--domain=79",
                       code=0, cwd=self.directory)
            self.assertTrue((self.directory / "chatter.idl").exists())
            self.ferry("run", f"{stem}.yaml", "--until-idle=0.2", "--after-first", code=0)
            self.assertEqual(lines("heard.out.jsonl"), ['{"data":"hello","n":"\\u0000"}'])
            rules = files("rules.yaml", """\
                discovery:
                  all:
                    connection: robot
                    qos: [{match: {stream: /c*}, properties: {max_samples: 9}}]
                    rename: [{from: /(.*), to: plant-$1}]
                    outputs: [{connection: disk, stream: "${stream}.jsonl"}]
                """)
            text = self.ferry("run", rules, "--until-idle=0.2", "--after-first", code=0).stderr
            self.assertEqual(lines("plant-chatter.jsonl"), lines("heard.out.jsonl"))
            self.assertNotIn("WARNING", text)
        finally:
            talker.terminate()
            self.assertNotIn("ERROR", talker.communicate(timeout=LIMIT)[1])
        with sqlite3.connect(self.directory / "lab.db") as database:
            database.execute("CREATE TABLE rows (id INTEGER PRIMARY KEY, \"t (C)\" REAL)")
            database.execute("INSERT INTO rows VALUES (1, 2.5), (2, NULL)")
        self.ferry("new", "config", "--table", f"jdbc:sqlite:{self.directory}/lab.db", "rows",
                   self.directory / "rows", code=0)
        self.ferry("run", self.directory / "rows.yaml", "--until-idle=0.2", code=0)
        self.assertEqual([list(json.loads(line).values()) for line in lines("rows.out.jsonl")],
                         [[1, 2.5], [2, None]])

    def test_dead_letters_are_listed_retried_and_dropped(self):
        (self.directory / "in.csv").write_text("id,text\n1,a\n2,toolong\nx,c\n4,d\n5,toolong\n")
        with sqlite3.connect(self.directory / "lab.db") as database:
            database.execute("CREATE TABLE rows (id INT, text TEXT CHECK (length(text) < 5))")
        file = self.directory / "dead.yaml"
        file.write_text(textwrap.dedent("""\
            types: [{idl: "struct Row { long id; string text; };"}]
            adapters: {files: {class: file}, db: {class: sql}}
            connections:
              disk: {adapter: files, properties: {directory: .}}
              lab: {adapter: db, properties: {url: "jdbc:sqlite:lab.db"}}
            routes:
              copy:
                type: Row
                input: {connection: disk, stream: in.csv, properties: {follow: true}}
                outputs:
                  - {connection: lab, stream: rows, properties: {once: a}, store: {}}
            """))

        def dead(*arguments, code):
            result = self.ferry("dead", file, *arguments, code=code)
            return result.stdout + result.stderr

        self.assertEqual(dead("ls", code=0), "no dead letters\n")
        self.assertIn("2 set aside", self.ferry("run", file, "--until-idle=0.2", code=1).stdout)
        self.assertRegex(dead("ls", code=0), r"(?s)^ID .*\n1 .* disk/in.csv .*is not a whole number"
                         r".*\n2 .* lab/rows .*CHECK.*\n3 .* lab/rows .*CHECK.*\n$")
        self.assertIn('{"id":2,"text":"toolong"}', dead("show", 2, code=0))
        self.assertRegex(dead("show", 1, 3, code=0), r"(?s)disk/in.csv.*\n\n.*lab/rows")
        self.assertIn("there is no dead letter 9", dead("show", 1, 9, code=1))
        letters = json.loads(dead("show", 1, 3, "--json", code=0))
        self.assertEqual([letter["id"] for letter in letters], [1, 3])
        self.assertIn("0 of 3 dead letters taken", dead("retry", code=1))
        self.assertIn("0 of 1 dead letters taken", dead("retry", 1, code=1))
        with sqlite3.connect(self.directory / "lab.db") as database:
            database.execute("ALTER TABLE rows RENAME TO old")
            database.execute("CREATE TABLE rows (id INT, text TEXT)")
        self.assertIn("1 of 1 dead letters taken", dead("retry", 3, code=0))
        said = dead("retry", code=1)
        self.assertIn("dead letter 1 stays: a source could not decode it", said)
        self.assertIn("1 of 2 dead letters taken", said)
        self.assertIn("1 dead letters dropped", dead("drop", code=0))
        self.assertEqual(dead("ls", "--json", code=0), "[]\n")
        with sqlite3.connect(self.directory / "lab.db") as database:
            self.assertEqual(database.execute("SELECT id FROM rows").fetchall(), [(5,), (2,)])
        for wrong in [["show"], ["drop", "--json"], ["burn"]]:
            dead(*wrong, code=2)
        self.ferry("dead", self.directory / "no.yaml", "ls", code=2)
        next(self.directory.glob("*.state/dead_letters.sqlite")).write_bytes(b"no database" * 1000)
        for action in ["ls", "retry", "drop"]:
            self.assertIn("file is not a database", dead(action, code=1))
        schema = json.loads(self.ferry("schema", code=0).stdout)
        self.assertIn("dead_letters", schema["properties"])

    def test_a_signal_stops_in_order(self):
        good = self.directory / "out" / "good.jsonl"
        for number in [signal.SIGTERM, signal.SIGINT, signal.SIGHUP]:
            # What a shell has its background jobs ignore, ferry would leave ignored.
            signal.signal(number, signal.SIG_DFL)
            process = self.start(self.relay(count=10 ** 9))
            self.until(lambda: good.exists() and good.stat().st_size > 1000)
            for stray in [signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM]:
                process.send_signal(stray)
            process.send_signal(number)
            output, _ = process.communicate(timeout=LIMIT)
            self.assertEqual(process.returncode, 0)
            read, written = map(int, re.search(r"good: (\d+) read, (\d+) written", output).groups())
            self.assertEqual(read, written)
            self.assertEqual(self.numbers("good.jsonl"), list(range(read)))
            good.unlink()
        # Before anything is started they end it as they end any program.
        fifo = self.directory / "fifo.yaml"
        os.mkfifo(fifo)
        process = subprocess.Popen([FERRY, "run", fifo])
        process.terminate()
        self.assertEqual(process.wait(timeout=LIMIT), -signal.SIGTERM)

    def compile(self, folder, package="", **names):
        """Puts the classes of an adapter into a folder."""
        jars = pathlib.Path(FERRY).parent.parent / "share/ferryjni/java"
        source = self.directory / "Source.java"
        probe = string.Template((DATA / "Probe.java.in").read_text())
        source.write_text(package + probe.substitute(names))
        subprocess.run([os.environ.get("JAVAC", "javac"), "-cp", f"{jars}/*", "-nowarn", "-d",
                        self.directory / folder, source], check=True, capture_output=True)

    def isolated(self, one):
        """Configuration of an adapter beside one that is good, with its classes in v2.jar."""
        for version in ["v1", "v2"]:
            self.compile(version, name="Probe", version=version)
        with zipfile.ZipFile(self.directory / "v2.jar", "w") as jar:
            for file in (self.directory / "v2").glob("*.class"):
                jar.write(file, file.name)
        path = self.directory / "isolated.yaml"
        path.write_text(f"""
            adapters:
              one: {one}
              two: {{class: Probe, class_path: [v2.jar]}}
              files: {{class: com.qel.ferrion.adapters.file.FileAdapter}}
            connections: {{c1: {{adapter: one}},
                          c3: {{adapter: files, properties: {{directory: .}}}},
                           c2: {{adapter: two}}}}""")
        return path

    def test_adapters_with_class_paths_of_their_own(self):
        path = self.isolated("{class: Probe, class_path: [v1], properties: {a: 1}}")
        text = self.ferry("list", "streams", path, "--wait=0", code=0, cwd="/").stderr
        for version, properties in [("v1", "{a=1}"), ("v2", "{}")]:
            self.assertEqual(text.count(f"{version}: made with {properties}, resource\n"), 1, text)
        home = str(self.directory)
        (self.directory / "v1" / "Torn.class").write_bytes(b"\xca\xfe\xba\xbe")
        for one, expected in [
                ("{class: Torn, class_path: [v1]}", f"class Torn in its class path {home}/v1 "
                 "cannot be loaded: java.lang.ClassFormatError"),
                ("{class: No, class_path: [v1]}",
                 f"adapter 'one' error: create: there is no class No in its class path {home}/v1"),
                ("{class: Library, class_path: [v1]}", "class Library in its class path "
                 f"{home}/v1 is no com.qel.ferrion.adapter.Adapter"),
                ("{class: com.qel.ferrion.relay.IsolatedAdapter, class_path: [v1]}",
                 f"is not in its class path {home}/v1 but in ferry's"),
                ("{class: Probe, class_path: [v1], properties: {fail: 1}}",
                 "java.lang.IllegalStateException: as told\n\tat one//Probe.<init>(Source.java:"),
                ("{class: Probe, class_path: [v1], properties: {fail: badly}}",
                 "create: badly (java.lang.AssertionError at one//Probe.<init>(Source.java:"),
                ("{class: Plain, class_path: [v1], properties: {fail: 1}}", "v1: made with {}")]:
            text = self.ferry("list", "streams", self.isolated(one), "--wait=0",
                              code=0 if "Plain" in one else 1).stderr
            self.assertIn(expected, text)
            self.assertIn("v2: made", text)

    def test_vm_for_people_who_look_for_a_fault(self):
        path = self.relay(at="read", kind="hang", count=10 ** 9)
        path.write_text(path.read_text() + "log: {file: ferry.log}\n")
        log = self.directory / "ferry.log"
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            self.assertIn(f"cannot attach at 127.0.0.1:{port}: Address already in use",
                          self.ferry("run", path, f"--java-debug={port}", code=3).stderr)
        process = subprocess.Popen([FERRY, "run", path, f"--java-debug={port}", "--java-check"],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.until(lambda: log.exists() and "trouble: hang in read" in log.read_text())
        self.assertIn(f"debuggers can attach at 127.0.0.1:{port}\n", log.read_text())
        with socket.create_connection(("127.0.0.1", port)) as debugger:
            debugger.sendall(b"JDWP-Handshake")
            self.assertEqual(debugger.recv(14), b"JDWP-Handshake")
        process.send_signal(signal.SIGQUIT)
        self.until(lambda: "at com.qel.ferrion.test.relay.TroubleAdapter" in log.read_text())
        self.assertIn("under way: route bad: read of bad/ticks", log.read_text())
        self.assertRegex(log.read_text(), r"nid=0x[0-9a-f]+ \(\d+\) ferry:main")
        process.terminate()
        output, _ = process.communicate(timeout=LIMIT)
        self.assertEqual(process.returncode, 4)
        self.assertRegex(output, r"^good: \d+ read, .*\nbad: 0 read, ")
        self.assertNotIn("WARNING", output)

    def test_vm_options_that_the_vm_rejects(self):
        for option, code in [("-XX:NoSuchThing", 3), ("-Xmx900t", 1)]:
            path = self.relay()
            path.write_text(path.read_text().replace("java: {", f"java: {{options: ['{option}'], "))
            self.ferry("run", path, "--until-idle=0.2", code=code)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]])
