#!/usr/bin/env python3
"""Compiles the product's files that build messages once more, as C++20, where the compiler holds
the literals of fmt against their arguments. The product is C++17: there a wrong literal throws when
its message is needed."""
import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def builds_messages(path):
    text = path.read_text()
    return "fmt::" in text or "logAbout(" in text


def command_of(entry):
    """The compiler's command, which writes nothing; warnings that C++20 alone has do not matter."""
    words = shlex.split(entry["command"])
    words = words[words.index(next(w for w in words if w.endswith("++"))):words.index("-o")]
    return [w for w in words if w != "-std=c++17"] + ["-std=c++20", "-w", "-fsyntax-only",
                                                      entry["file"]]


def main(database):
    entries = {}
    for entry in json.loads(pathlib.Path(database).read_text()):
        path = pathlib.Path(entry["file"])
        rooms = path.relative_to(ROOT).parts if path.is_relative_to(ROOT) else ()
        if path.suffix == ".cpp" and rooms and rooms[0] not in ("build", "tests", "bench"):
            entries.setdefault(path, entry)
    found = [entry for path, entry in sorted(entries.items()) if builds_messages(path)]
    if not found:
        sys.exit(f"{database} has no file that builds messages")
    print(f"== messages of {len(found)} files", file=sys.stderr)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        wrong = [done for done in pool.map(lambda entry: subprocess.run(
            command_of(entry), cwd=entry["directory"]), found) if done.returncode != 0]
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main(*sys.argv[1:])
