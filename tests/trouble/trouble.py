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
    outputs: [{connection: %s, stream: %s, properties: {%s}}]
"""
DOMAIN = "domain: {adapter: dds, properties: {domain: 91}}"
OVERWRITE = "mode: overwrite"
CLOCK = "/usr/lib/*/faketime/libfaketimeMT.so.1"


def configure(name, *parts):
    """A file with one route: another connection, then input and output with their properties."""
    pathlib.Path("types.idl").write_text("@final struct Row { long n; string text; double x; };")
    pathlib.Path(name).write_text(CONFIGURATION % parts)
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


def killed():
    """SIGKILL in the middle of a copy of 300,000 rows, 25 times, each at another byte"""
    whole = "n,text,x\n" + rows(0, 300000)
    pathlib.Path("in.csv").write_text(whole)
    torn = 0
    for _ in range(25):
        pathlib.Path("out.csv").unlink(missing_ok=True)
        process, limit = start(copy_files()), random.randrange(1, 6_000_000)
        until(lambda: size("out.csv") > limit)
        process.kill()
        process.wait()
        there = pathlib.Path("out.csv").read_text()
        assert whole.startswith(there)
        torn += not there.endswith("\n")
    last = finish(start(copy_files(), "--until-idle"), "copy.yaml")
    assert pathlib.Path("out.csv").read_text() == whole
    return f"always the beginning of the table, {torn} with part of a row last; then again: {last}"


def full_disk():
    """an output on a file system of 2 MB that is full, and after 12 s has room again"""
    os.mkdir("small")
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "none", "small"], check=True)
    pathlib.Path("small/ballast").write_bytes(bytes(1 << 20))
    pathlib.Path("in.csv").write_text("n,text,x\n" + rows(0, 100000))
    configure("full.yaml", "small: {adapter: files, properties: {directory: small}}", "files",
              "in.csv", "", "small", "out.csv", OVERWRITE)
    process = start("full.yaml", "--until-idle=8")
    time.sleep(12)
    stopped = pathlib.Path("small/out.csv").read_text()
    assert stopped.endswith("\n") and ("n,text,x\n" + rows(0, 50000)).startswith(stopped)
    subprocess.run(["mount", "-o", "remount,size=50m", "small"], check=True)
    end = finish(process, "full.yaml")
    there = set(pathlib.Path("small/out.csv").read_text().splitlines()[1:])
    assert there <= set(rows(0, 100000).splitlines())
    return f"whole rows only, {len(there)} in the end; {end}"


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


KINDS = [killed, full_disk, descriptors, clock, stopped, stopped_for_long, hostile_peer]


def inside(kind):
    """Runs one kind in a folder of its own."""
    random.seed(1)
    folder = tempfile.mkdtemp(prefix="trouble_")
    os.chdir(folder)
    try:
        print(f"{kind.__doc__}:\n    {kind()}", flush=True)
    finally:
        os.chdir("/")
        subprocess.run(["umount", f"{folder}/small"], stderr=subprocess.DEVNULL)
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
