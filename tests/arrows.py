#!/usr/bin/env python3
"""Fails on an #include of the product that points against the arrows of docs/architecture.md."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
RELAY = ["relay/launcher", "relay/process", "relay/engine", "relay/config"]
BELOW_RELAY = ["settings", "include", "platform"]

# Room -> the rooms whose headers it may include, besides its own.
MAY_INCLUDE = {
    **{room: RELAY[i + 1:] + BELOW_RELAY for i, room in enumerate(RELAY)},
    "include": ["platform"], "settings": ["include"], "platform": [],
    "support": ["include", "platform"], "jni": ["support", "include", "platform"],
    "adapters": ["settings", "include", "platform"],
}


def room_of(path):
    name = path.relative_to(ROOT).as_posix()
    return next((room for room in MAY_INCLUDE if name.startswith(room + "/")), name.split("/")[0])


def main():
    headers, wrong, seen = {}, [], 0
    tree = [path for room in (*MAY_INCLUDE, "tests", "bench") for path in (ROOT / room).rglob("*.*")]
    for path in tree:
        headers.setdefault(path.name, []).append(path)
    for path in tree:
        room = room_of(path)
        if path.suffix not in (".c", ".cpp", ".h") or room not in MAY_INCLUDE:
            continue
        for name in re.findall(r'^#include "(.+)"', path.read_text(), re.M):
            found = [header for header in headers.get(name.split("/")[-1], [])
                     if header.as_posix().endswith("/" + name)]
            seen += bool(found)
            # Of several headers of that name the compiler takes one that the room may see.
            if found and not {room_of(header) for header in found} & {room, *MAY_INCLUDE[room]}:
                wrong.append(f"{path.relative_to(ROOT)} includes {name}")
    print("\n".join(wrong) or f"{seen} includes of the product's own headers")
    return 1 if wrong or seen < 500 else 0


sys.exit(main())
