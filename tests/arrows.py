#!/usr/bin/env python3
"""Fails on an #include of the product that points against the arrows of docs/architecture.md."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
RELAY = ["relay/launcher", "relay/process", "relay/control", "relay/engine", "relay/state",
         "relay/config"]
# Downwards. Of a room of the platform others see include/, its siblings interface/ as well.
PLATFORM = ["platform/domain", "platform/types", "platform/cdr", "platform/core"]
BELOW_RELAY = ["settings", "include", *PLATFORM]

# Room -> the rooms whose headers it may include, besides its own.
MAY_INCLUDE = {
    **{room: RELAY[i + 1:] + BELOW_RELAY for i, room in enumerate(RELAY)},
    **{room: PLATFORM[i + 1:] for i, room in enumerate(PLATFORM)},
    "platform/java": ["platform/types", "platform/cdr", "platform/core"],
    "include": PLATFORM, "settings": ["include"], "support": ["include", *PLATFORM],
    "jni": ["support", "include", *PLATFORM],
    "adapters": ["settings", "include", *PLATFORM],
}


def room_of(path):
    name = path.relative_to(ROOT).as_posix()
    return next((room for room in MAY_INCLUDE if name.startswith(room + "/")), name.split("/")[0])


def may_include(room, header):
    other = room_of(header)
    if other == room or not other.startswith("platform/"):
        return other in (room, *MAY_INCLUDE[room])
    folders = ("include", "interface") if room.startswith("platform/") else ("include",)
    folder = header.relative_to(ROOT / other).parts[0]
    return other in MAY_INCLUDE[room] and folder in folders


def main():
    headers, wrong, seen = {}, [], 0
    tree = [path for room in (*MAY_INCLUDE, "tests", "bench")
            for path in (ROOT / room).rglob("*.*")]
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
            if found and not any(may_include(room, header) for header in found):
                wrong.append(f"{path.relative_to(ROOT)} includes {name}")
    print("\n".join(wrong) or f"{seen} includes of the product's own headers")
    return 1 if wrong or seen < 500 else 0


sys.exit(main())
