"""What a ferry holds that has found many topics, as a system of ROS has them, and relays them."""
import pathlib
import re
import subprocess
import time

TOPICS = 500
STEADY = 5          # seconds without growth, after which all is there
GROWTH = 256        # KiB
LIMIT = 120         # seconds

# What to look into, and which topics.
VARIANTS = {
    "found, none relayed": ("unknown", "allow: {stream: [nothing]}, "),
    "relayed with types": ("unknown", ""),
    "relayed without types": ("always", "")}

SHARED = """
module builtin { module msg { struct Time { long sec; unsigned long nanosec; }; }; };
module std { module msg { struct Header { builtin::msg::Time stamp; string frame_id; }; }; };
module geometry { module msg {
  struct Point { double x; double y; double z; };
  struct Quaternion { double x; double y; double z; double w; };
  struct Vector3 { double x; double y; double z; };
  struct Pose { Point position; Quaternion orientation; };
  struct Twist { Vector3 linear; Vector3 angular; };
  typedef double Covariance[36];
  struct PoseWithCovariance { Pose pose; Covariance covariance; };
}; };
"""
PARTS = ("Pose pose", "Twist twist", "PoseWithCovariance estimate")
MEMBERS = ("long id", "double value", "string text", "sequence<float> data", "boolean flag",
           "sequence<geometry::msg::Point> path")

CONFIGURATION = """
adapters: {{dds: {{plugin: dds}}}}
connections:
  in: {{adapter: dds, properties: {{domain: {domain}, opaque: {opaque}}}}}
  out: {{adapter: dds, properties: {{domain: {out}}}}}
discovery:
  all: {{connection: in, {allow}outputs: [{{connection: out, stream: "${{stream}}"}}]}}
"""


def idl():
    """A type of its own for each topic, with four to fifteen members beside the shared ones."""
    text = SHARED + "module mix { module msg {\n"
    for topic in range(TOPICS):
        members = ["std::msg::Header header", f"geometry::msg::{PARTS[topic % len(PARTS)]}"]
        members += [f"{MEMBERS[(topic + i) % len(MEMBERS)]}_{i}" for i in range(4 + topic % 12)]
        text += f"  struct topic_{topic} {{ {'; '.join(members)}; }};\n"
    return text + "}; };\n"


def resident_kib(process):
    text = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="utf-8")
    return int(re.search(r"VmRSS:\s+(\d+)", text)[1])


def steady_kib(process):
    """What the process holds when it has stopped growing."""
    end = time.monotonic() + LIMIT
    held, since = 0, time.monotonic()
    while time.monotonic() < end:
        time.sleep(0.5)
        now = resident_kib(process)
        if now > held + GROWTH:
            held, since = now, time.monotonic()
        elif time.monotonic() > since + STEADY:
            return now
    raise SystemExit(f"run.py: ferry still grows after {LIMIT} s")


def run(bench, variant):
    """MiB of one ferry, beside a process that announces the topics."""
    opaque, allow = VARIANTS[variant]
    types = bench.work / "mix.idl"
    types.write_text(idl(), encoding="utf-8")
    path = bench.work / "topics.yaml"
    path.write_text(CONFIGURATION.format(domain=bench.domain, out=bench.domain + 1, opaque=opaque,
                                         allow=allow), encoding="utf-8")
    command = [bench.tree / "bench/bench_platform", "topics", "--idl", types,
               "--domain", str(bench.domain), "--count", str(TOPICS)]
    with open(bench.work / "log", "w", encoding="utf-8") as log, \
            subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=log,
                             text=True) as source:
        if source.stdout.readline() != "matched\n":
            raise SystemExit("run.py: the topics are not announced")
        with subprocess.Popen([bench.tree / "bin/ferry", "run", path, "--quiet"], text=True,
                              stdout=subprocess.PIPE, stderr=log) as ferry:
            held = steady_kib(ferry)
            ferry.terminate()
            routes = len(re.findall(r"^all/topic_", ferry.stdout.read(), re.MULTILINE))
        source.stdin.write("go\n")
    if routes != (0 if allow else TOPICS):
        raise SystemExit(f"run.py: {variant}: {routes} of {TOPICS} topics have a route")
    return held / 1024


def topics(bench):
    """Prints the table and returns what each variant holds, in MiB."""
    print(f"\n{TOPICS} topics, each with a type of its own\n\n| topics | ferry, MiB |\n|---|---|")
    held = {}
    for variant in VARIANTS:
        held[variant] = run(bench, variant)
        print(f"| {variant} | {held[variant]:.0f} |", flush=True)
    return held
