#!/usr/bin/env python3
"""Trouble for the whole program, and what comes of it: the table in docs/testing.md.

usage: trouble.py FERRY [NAME...]

Every kind runs in a folder and a network of its own. Root, a Linux kernel with namespaces, and for
the clock libfaketime (faketime) are needed. Prints a line for each; ends with 1 when one was not as
it should be."""
import glob
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

FERRY = os.path.abspath(sys.argv[1])
CONFIGURATION = """
types: [{file: types.idl}]
adapters:
  files: {class: com.qel.ferrion.adapters.file.FileAdapter}
  dds: {plugin: dds}
connections:
  files: {adapter: files, properties: {directory: "${config_dir}"}}
  %s
routes:
  route:
    type: Row
    input: {connection: %s, stream: %s, properties: {%s}}
    outputs: [{connection: %s, stream: %s, properties: {%s}%s}]
"""
DOMAIN = "domain: {adapter: dds, properties: {domain: 91}}"
OVERWRITE = "mode: overwrite"
CLOCK = "/usr/lib/*/faketime/libfaketimeMT.so.1"


def configure(name, *parts, more=""):
    """A file with one route: another connection, input and output with their properties, and what
    else the output has."""
    pathlib.Path("types.idl").write_text("@final struct Row { long n; string text; double x; };")
    pathlib.Path(name).write_text(CONFIGURATION % (*parts, more))
    return name


def copy_files(**more):
    return configure("copy.yaml", "", "files", "in.csv", more.get("input", ""), "files", "out.csv",
                     OVERWRITE)


def rows(first, last):
    return "".join(f"{i},row {i} ✓,{i}.5\n" for i in range(first, last))


def start(configuration, *options, **more):
    """ferry, whose output goes into a file of the configuration's name."""
    with open(f"{configuration}.log", "w") as log:
        return subprocess.Popen([FERRY, "run", configuration, "-q", *options], stdout=log,
                                stderr=log, **more)


def finish(process, configuration):
    """Exit code, summary and the number of lines of the log."""
    code = process.wait(300)
    lines = open(f"{configuration}.log").read().splitlines()
    summary = [line for line in lines if line.startswith("route: ")]
    return f"exit {code}; {''.join(summary)}; {len(lines) - len(summary)} log lines"


def until(condition):
    while not condition():
        time.sleep(0.002)


def size(path):
    return os.path.getsize(path) if os.path.exists(path) else 0


def mount(folder, size, options=""):
    """A file system of its own; what stands in it stays when its size changes."""
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "none", folder], check=True)


def resize(folder, size):
    subprocess.run(["mount", "-o", f"remount,size={size}", folder], check=True)


def disks(output="", source=""):
    """From a file here into a file below small/, with the state directory kept/."""
    return configure("disks.yaml", 'small: {adapter: files, properties: {directory: small}}\n'
                     'state: kept', "files", "in.csv", source, "small", "out.csv", "", more=output)


def table(first, last):
    return "n,text,x\n" + rows(first, last)


def log():
    return pathlib.Path("disks.yaml.log").read_text()


def filled(store):
    """What comes of 100,000 rows and an output without room, which it gets once it was told."""
    pathlib.Path("in.csv").write_text(table(0, 100000))
    process = start(disks(store), "--until-idle=1")
    until(lambda: "No space left" in log() or log().count("disk is full") > 1)
    assert table(0, 100000).startswith(pathlib.Path("small/out.csv").read_text())
    resize("small", "50m")
    end = finish(process, "disks.yaml")
    assert pathlib.Path("small/out.csv").read_text() == table(0, 100000)
    return f"all rows, in order, none twice; {end}"


def full_disk():
    """an output on a file system of 2 MB that is full, and after it was told has room again"""
    mount("small", "2m")
    return filled("")


def full_store():
    """the same with a store, on a file system of 3 MB that stays as small as it is"""
    mount("kept", "3m")
    mount("small", "1m")
    return filled(", store: {}")


def full_of_dead_letters():
    """20,000 rows that are none, each tenth, and a state directory of 3 MB that has room later"""
    mount("kept", "3m")
    pathlib.Path("in.csv").write_text("n,text,x\n" + "".join(
        rows(i, i + 1) if i % 10 else f"{i},{'bad' * 50},none\n" for i in range(200000)))
    os.mkdir("small")
    process = start(disks(), "--until-idle=1")
    until(lambda: "full" in log())
    resize("kept", "100m")
    end = finish(process, "disks.yaml")
    letters = subprocess.run([FERRY, "dead", "disks.yaml", "ls"], capture_output=True, text=True)
    numbers = [int(row.split(",")[0]) for row in
               pathlib.Path("small/out.csv").read_text().splitlines()[1:]]
    assert numbers == [i for i in range(200000) if i % 10]
    return f"all good rows, {len(letters.stdout.splitlines())} lines of letters; {end}"


def full_of_positions():
    """a followed file whose position has no room while 1,000 rows come, and a SIGKILL then"""
    mount("kept", "1m")
    os.mkdir("small")
    pathlib.Path("in.csv").write_text(table(0, 0))
    configuration = disks(source="follow: true")
    process = start(configuration)
    feed(0, 10, 0.1)
    until(lambda: size("small/out.csv") > 60)
    subprocess.run(["dd", "if=/dev/zero", "of=kept/ballast"], stderr=subprocess.DEVNULL)
    feed(10, 1000, 0.001)
    time.sleep(2)
    process.kill()
    process.wait()
    told = len(log().splitlines())
    os.unlink("kept/ballast")
    end = finish(start(configuration, "--until-idle=1"), "disks.yaml")
    there = pathlib.Path("small/out.csv").read_text().splitlines()[1:]
    assert list(dict.fromkeys(there)) == rows(0, 1000).splitlines()
    return f"none of 1,000 rows missing, {len(there) - 1000} twice; {told} log lines; {end}"


def read_only():
    """a state directory, and then an output, on a file system that is read-only"""
    pathlib.Path("in.csv").write_text(table(0, 10))
    configuration, ends = disks(", store: {}"), []
    for place in ("kept", "small"):
        os.makedirs("small", exist_ok=True)
        mount(place, "1m,ro")
        for verb in (["check"], ["run", "--until-idle=0.1", "--give-up=1"]):
            done = subprocess.run([FERRY, verb[0], configuration, *verb[1:]], timeout=100,
                                  capture_output=True, text=True)
            assert done.returncode == 1 and "Read-only file system" in done.stdout + done.stderr
            assert "exception" not in done.stdout
        ends.append(f"{place}: exit {done.returncode}, {done.stdout.splitlines()[-1]}")
        subprocess.run(["umount", place], check=True)
    end = finish(start(configuration, "--until-idle=0.1"), "disks.yaml")
    # One run could store the rows and not write them, another has read them again.
    assert pathlib.Path("small/out.csv").read_text() == table(0, 10) + rows(0, 10)
    return f"{'; '.join(ends)}; then, with both: {end}"


def carried():
    """a relay with rows in its store is killed, and the store carried elsewhere, not the rows"""
    mount("small", "8k")
    pathlib.Path("in.csv").write_text(table(0, 100000))
    process = start(disks(", store: {}", "follow: true"))
    until(lambda: size("kept/store~route~small%2Fout.csv.db") > 3_000_000)
    process.kill()
    process.wait()
    written = pathlib.Path("small/out.csv").read_text().count("\n")
    shutil.copytree(".", "elsewhere", ignore=shutil.ignore_patterns("in.csv", "out.csv"))
    os.chdir("elsewhere")
    end = finish(start("disks.yaml", "--until-idle=1"), "disks.yaml")
    there = pathlib.Path("small/out.csv").read_text()
    stored = there.count("\n") - 1
    assert stored > 10000 and there in ("n,text,x\n" + rows(i, i + stored) for i in range(written))
    return f"all {stored} rows of the store, in order, none twice; {end}"


def descriptors():
    """too few file descriptors: ulimit -n 8 to 40"""
    pathlib.Path("in.csv").write_text("n,text,x\n" + rows(0, 1000))
    configuration, ends = copy_files(), []
    for count in (8, 12, 16, 20, 40):
        shell = f'ulimit -n {count}; exec "$@"'
        done = subprocess.run(["sh", "-c", shell, "sh", FERRY, "run", configuration, "-q",
                               "--until-idle"], capture_output=True, timeout=100)
        assert done.returncode in (0, 1, 3), done
        ends.append(f"{count}: exit {done.returncode}")
    return ", ".join(ends)


def feed(first, last, pause):
    with open("in.csv", "a") as table:
        for i in range(first, last):
            table.write(rows(i, i + 1))
            table.flush()
            time.sleep(pause)


def over_the_domain(environment=None, between=lambda: None, after=lambda pair: None):
    """Rows through a followed file, DDS and a file; what happens between two thirds of them."""
    pathlib.Path("in.csv").write_text("n,text,x\n")
    environment = {**os.environ, **(environment or {})}
    configure("from.yaml", DOMAIN, "domain", "T", "", "files", "out.csv", OVERWRITE)
    configure("to.yaml", DOMAIN, "files", "in.csv", "follow: true", "domain", "T", "")
    pair = [start("from.yaml", "--until-idle=8", "--after-first", env=environment),
            start("to.yaml", "--until-idle=10", "--after-first", env=environment)]
    while not size("out.csv"):   # rows of number -1, until the first arrives
        feed(-1, 0, 0.2)
    feed(0, 200, 0.01)
    happened = between(*([pair] if between.__code__.co_argcount else []))
    feed(200, 400, 0.01)
    after(pair)
    ends = [finish(process, name) for process, name in zip(pair, ("from.yaml", "to.yaml"))]
    there = [row for row in pathlib.Path("out.csv").read_text().splitlines()[1:]
             if not row.startswith("-1,")]
    return there, f"{happened or ''}publisher {ends[1]}; subscriber {ends[0]}"


def clock():
    """the clock goes back by an hour in the middle, and then forward by two"""
    def set_clock(by):
        pathlib.Path("clock").write_text(by)

    set_clock("+0")
    there, end = over_the_domain(
        {"LD_PRELOAD": glob.glob(CLOCK)[0], "FAKETIME_TIMESTAMP_FILE": os.path.abspath("clock"),
         "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1"},
        lambda: set_clock("-3600"), lambda _: set_clock("+7200"))
    assert there == rows(0, 400).splitlines()
    return f"all rows, in order; {end}"


def halted(seconds):
    """Rows through a domain whose subscriber is stopped for some seconds."""
    def halt(pair):
        pair[0].send_signal(signal.SIGSTOP)
        feed(400, 400 + 10 * seconds, 0.1)
        pair[0].send_signal(signal.SIGCONT)

    there, end = over_the_domain(None, halt)
    missing = set(rows(0, 400 + 10 * seconds).splitlines()) - set(there)
    return f"{len(missing)} of {400 + 10 * seconds} rows missing; {end}"


def stopped():
    """the subscriber's process is stopped for 5 s (SIGSTOP), less than its lease"""
    end = halted(5)
    assert end.startswith("0 of "), end
    return end


def stopped_for_long():
    """the same for 20 s: longer than its lease, so that the publisher takes it for gone"""
    return halted(20)


def damaged(packet):
    """A packet with some bytes changed, cut or added, behind its first four."""
    packet = bytearray(packet)
    for _ in range(random.choice([1, 1, 2, 4, 16])):
        packet[random.randrange(4, len(packet))] = random.choice([0, 127, 128, 255,
                                                                  random.randrange(256)])
    return packet[:random.randrange(4, len(packet))] if random.random() < 0.2 else packet


def hostile_peer():
    """20,000 packets of the session, each damaged, to both ends while they work"""
    ear = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
    ear.bind(("lo", 0))
    ear.setblocking(False)
    mouth = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    mouth.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("127.0.0.1"))

    def attack(pair):
        packets = []
        while True:
            try:
                frame = ear.recv(70000)
            except BlockingIOError:
                break
            at = frame.find(b"RTPS")
            if at > 27:
                packets.append((socket.inet_ntoa(frame[at - 12:at - 8]),
                                int.from_bytes(frame[at - 6:at - 4], "big"), frame[at:]))
        for i in range(20000):
            host, port, packet = random.choice(packets)
            mouth.sendto(damaged(packet), (host, port))
            if i % 100 == 0:
                feed(400 + i // 100, 401 + i // 100, 0.01)
        resident = [re.search(r"VmRSS:\s*(\d+)", open(f"/proc/{p.pid}/status").read())[1]
                    for p in pair]
        return f"resident {resident[0]} and {resident[1]} kB; "

    there, end = over_the_domain(None, attack)
    return f"{len(set(rows(0, 600).splitlines()) - set(there))} of 600 rows missing; {end}"


KINDS = [full_disk, full_store, full_of_dead_letters, full_of_positions, read_only,
         carried, descriptors,
         clock, stopped, stopped_for_long, hostile_peer]


def inside(kind):
    """Runs one kind in a folder of its own."""
    random.seed(1)
    folder = tempfile.mkdtemp(prefix="trouble_")
    os.chdir(folder)
    try:
        print(f"{kind.__doc__}:\n    {kind()}", flush=True)
    finally:
        os.chdir("/")
        subprocess.run(["umount", f"{folder}/small", f"{folder}/kept"], stderr=subprocess.DEVNULL)
        shutil.rmtree(folder, ignore_errors=True)


def main():
    names = sys.argv[2:]
    if names[:1] == ["--inside"]:
        inside(globals()[names[1]])
        return
    failed = []
    for kind in KINDS:
        if not names or kind.__name__ in names:
            shell = 'ip link set lo up multicast on; exec "$@"'
            words = ["unshare", "--net", "--mount", "sh", "-c", shell, "sh", *sys.argv[:2]]
            if subprocess.run([*words, "--inside", kind.__name__]).returncode:
                failed.append(kind.__name__)
    if failed:
        sys.exit(f"not as it should be: {' '.join(failed)}")


if __name__ == "__main__":
    main()
